#pragma once

#include "hdf_Handle.h"

/// The type of the elements of a dataset or of a block of memory.
class hdf_Datatype : public hdf_Handle
{
public:
    /// The types that are always there.
    enum Standard
    {
        STD_I8LE,
        /// The byte of this host, with a sign. HDF5's own type of that name follows `char` and would cut off every byte
        /// above 127 where that has none.
        NATIVE_CHAR
    };

    // Converts without a word, so that a transfer can name its type.
    hdf_Datatype(Standard type);

    bool IsSameAs(const hdf_Datatype& other) const;

private:
    friend class hdf_Dataset;
    hdf_Datatype(hdf_Id id, const cow_String& fileName);
};
