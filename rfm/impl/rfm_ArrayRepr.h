#pragma once

#include "cow_1DArrayList.h"
#include "rfm_Handle.h"
#include "rfm_IOBuffer.h"
#include "rfm_SpaceRepr.h"
#include "rfm_Type.h"

#include <memory>

class rfm_DatabaseRepr;

/// A typed array: a space of a header and rows of elements, one position, no cache. The same for all four element types.
class rfm_ArrayRepr
{
public:
    rfm_ArrayRepr(rfm_DatabaseRepr& database, rfm_Type type, int fieldCount, int quantum, int bufferSize);
    rfm_ArrayRepr(rfm_DatabaseRepr& database, rfm_Handle handle, int quantum, int bufferSize);

    rfm_Handle Handle() const { return m_Space->Handle(); }
    int Length() const;
    int Location() const;
    void Seek(int row);
    void Truncate(int rows);
    int Flush();
    int Snap();
    int FieldCount() const noexcept { return m_FieldCount; }
    rfm_Type Type() const noexcept { return m_Type; }
    int RowSize() const;
    cow_1DArrayList<cow_String> GetObjStatistics() const;
    utl_FileOffset SpaceLength() const { return m_Space->Length(); }
    utl_FileOffset SpaceAllocation() const { return m_Space->Allocation(); }
    int CopyAllowed(const rfm_ArrayRepr& other) const;
    void Append(rfm_ArrayRepr& source);
    template <class T> int Read(T* data, int rowCount);
    template <class T> int Write(const T* data, int rowCount);
    static rfm_Handle CreateCopy(rfm_DatabaseRepr& target, rfm_DatabaseRepr& source, rfm_Handle array);

private:
    std::int64_t RowBytes() const;
    int ElementsOf(int rowCount) const;
    std::int64_t PlaceOf(int row) const;
    void AppendBytes(rfm_ArrayRepr& source);
    void AppendStrings(rfm_ArrayRepr& source);

    rfm_DatabaseRepr& m_Database;
    // Order: the buffer settles into the space, so it goes first.
    std::unique_ptr<rfm_SpaceRepr> m_Space;
    rfm_IOBuffer m_Buffer;
    rfm_Type m_Type;
    int m_FieldCount;
    int m_FlushCount = 0;
    int m_DbFlushCount;
};
