#pragma once

/// What a field, an array element, a stream item or an object is. The numbers are stored in files.
enum rfm_Type : int
{
    rfm_TypeNone = 0,         ///< no type: a field that was never set
    rfm_TypeInt = 1,          ///< int, 4 bytes
    rfm_TypeHandle = 2,       ///< rfm_Handle, 8 bytes in a row
    rfm_TypeFloat = 3,        ///< float, 4 bytes
    rfm_TypeDouble = 4,       ///< double, 8 bytes
    rfm_TypeString = 6,       ///< cow_String: a reference of 8 bytes into the string pool
    rfm_TypeFixedString = 7,  ///< characters in place; tagged streams only
    rfm_TypeTable = 8,        ///< a table object
    rfm_TypeTaggedStream = 9, ///< a tagged stream object
    rfm_TypeUnknown = 10,     ///< a handle whose object is none of the known ones: a plain space, or a pool
};
