#pragma once

#include "cow_1DArrayList.h"
#include "cow_CountedHld.h"
#include "cow_String.h"
#include "rfm_Handle.h"
#include "rfm_Type.h"
#include "utl_FileOffset.h"

class rfm_ArrayRepr;
class rfm_Database;

template <> struct RFM_EXPORT cow_Deleter<rfm_ArrayRepr>
{
    static void Delete(rfm_ArrayRepr* object);
};

/// A counted handle on one typed array of a database: rows of `FieldCount()` elements of type `T`, read and written in
/// sequence from the current row. `N` is the rfm_Type of `T`. Copies share the array and its position; the last
/// one out releases it and writes what is pending, but not the count: call `Flush` first. It must go before the last
/// rfm_Database handle does.
/// Threads: a database and everything made from it belongs to one thread at a time.
template <class T, int N> class rfm_Array : public cow_CountedHld<rfm_ArrayRepr>
{
public:
    rfm_Array() noexcept = default;
    explicit rfm_Array(rfm_ArrayRepr* repr) : cow_CountedHld<rfm_ArrayRepr>(repr) {}

    rfm_Handle Handle() const;
    /// Rows in the array; a last row that is half there counts.
    int Length() const;
    /// The current row, and how to set it; any number is accepted.
    int Location() const;
    void Seek(int row);
    /// Shortens to `rows` rows and goes to row 0.
    /// Throws: nex_TextException on a read-only array.
    void Truncate(int rows);
    /// Writes what is pending and answers the array's flush count, which grows at each call; 0 on a read-only array.
    /// The position stays.
    int Flush();
    /// A reader's refresh, after the database's: the new flush count, or 0 when nothing is new and always on a writable
    /// array. After a 0 for an array that did not change while its database did, `Seek` before the next `Read`.
    int Snap();

    int FieldCount() const;
    rfm_Type Type() const;
    /// Bytes of a row in the file.
    int RowSize() const;
    /// As rfm_Database::GetObjStatistics; lengths are in bytes.
    cow_1DArrayList<cow_String> GetObjStatistics() const;
    utl_FileOffset SpaceLength() const;
    utl_FileOffset SpaceAllocation() const;

    /// 1 when type and elements per row agree, otherwise 0.
    int CopyAllowed(const rfm_Array<T, N>& other) const;
    /// Appends all of `other`, which may be of another database and is not compared: ask `CopyAllowed` first. Both are
    /// flushed, and stand at their ends afterwards.
    /// Throws: nex_TextException on a read-only array; what the file system refuses, and a part may be there then.
    void Append(rfm_Array<T, N>& other);

    /// Writes `rowCount` rows from the current row on and moves past them.
    /// Shape:  `data` holds rowCount * FieldCount() elements, row by row.
    /// Result: rowCount.
    /// Throws: nex_AssertException for a null `data` or a rowCount below 1; nothing has moved then.
    ///         nex_TextException on a read-only array; what the file system refuses: the position stays then.
    int Write(const T* data, int rowCount);
    /// Reads up to `rowCount` rows from the current row on and moves past them.
    /// Shape:  `data` has room for rowCount * FieldCount() elements and stays the caller's.
    /// Result: elements read, not rows; fewer at the end of the array, 0 at its end.
    /// Throws: nex_AssertException for a null `data` or a rowCount below 1; nothing has moved then.
    int Read(T* data, int rowCount);

    /// Copies an array from one database to another as bytes, without opening it, and answers the new handle. What an
    /// open rfm_Array has not flushed is not in it.
    /// Throws: nex_AssertException for an array of strings, nex_TextException for anything but an array.
    static rfm_Handle CreateCopy(rfm_Database& target, rfm_Database& source, rfm_Handle array);

    rfm_ArrayRepr& Repr() const { return *m_Object; }
};

extern template class RFM_EXPORT rfm_Array<int, rfm_TypeInt>;
extern template class RFM_EXPORT rfm_Array<float, rfm_TypeFloat>;
extern template class RFM_EXPORT rfm_Array<double, rfm_TypeDouble>;
extern template class RFM_EXPORT rfm_Array<cow_String, rfm_TypeString>;
