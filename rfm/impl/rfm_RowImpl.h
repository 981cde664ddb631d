#pragma once

#include "cow_String.h"
#include "rfm_FieldHandle.h"
#include "rfm_Handle.h"
#include "rfm_TableMetadata.h"
#include "rfm_Type.h"

class rfm_RowImpl;
class rfm_TableRepr;

/// Where a field lies in the rows of a table: all that an access needs, side by side.
struct rfm_FieldPlace
{
    int type = rfm_TypeNone;
    int position = -1; // among the stored fields: which presence bit
    int offset = 0;    // in the image
};

/// What all handles of one row share.
///
///   impl set, count 0:    cached, not held         -- a handle is handed out --> held; a purge deletes it
///   impl set, count > 0:  held by callers          -- the last release --> cached, not held
///   impl null, count > 0: the table dropped the row, the handles are dead    -- the last release deletes the block
struct rfm_RowRepr
{
    int m_ReferenceCount = 0;
    rfm_RowImpl* impl = nullptr;
};

// A row in the file, `rowSize` bytes, with P fields in ascending order of their names:
//
//   byte 0                4 W
//        +----------------+---------+---------+-- -
//        | presence words |  field  |  field  |  ...        W = P / 32 rounded up; no padding, no alignment
//        |  W x (int32)   |         |         |
//        +----------------+---------+---------+-- -
//
// The field at position p has data when bit p % 32 of word p / 32 is set. int and float take 4 bytes, double 8; a handle
// takes 8, its value and a zero word; a string is a reference of 8 bytes into the string pool.

/// One row in memory: its image is byte for byte the stored one, but for the presence words, which are kept in host
/// order beside it and go into the image when the row is written. Control block, words and image are one allocation.
class rfm_RowImpl
{
public:
    rfm_RowImpl(rfm_TableRepr& table, unsigned* bits, int wordCount, char* data, int dataSize,
                int location) noexcept
        : m_Table(table),
          m_Bits(bits),
          m_WordCount(wordCount),
          m_Data(data),
          m_DataSize(dataSize),
          m_Location(location)
    {
    }

    int FieldIsPresent(const rfm_FieldHandle& field) const;
    int DataIsPresent(const rfm_FieldHandle& field) const;
    template <class T> T ReadNumber(const rfm_FieldHandle& field, rfm_Type type) const;
    rfm_Handle ReadHandle(const rfm_FieldHandle& field) const;
    cow_String ReadString(const rfm_FieldHandle& field) const;
    template <class T> void WriteNumber(const rfm_FieldHandle& field, rfm_Type type, T value);
    void WriteHandle(const rfm_FieldHandle& field, rfm_Handle value);
    void WriteString(const rfm_FieldHandle& field, const cow_String& value);
    void NeuterString(const rfm_FieldHandle& field, const cow_String& text);
    void CopyField(const rfm_RowImpl& source, const rfm_FieldHandle& field);
    void Erase(const rfm_FieldHandle& field);
    void Erase();

    rfm_TableRepr& Table() const noexcept { return m_Table; }
    int Location() const noexcept { return m_Location; }
    bool IsDirty() const noexcept { return m_Dirty; }
    void SetDirty(bool dirty) noexcept { m_Dirty = dirty; }
    char* Data() noexcept { return m_Data; }
    int DataSize() const noexcept { return m_DataSize; }
    /// All bits and bytes to zero.
    void Clear() noexcept;
    /// The presence words out of the image, and into it.
    void LoadBits();
    void StoreBits();

private:
    bool Bit(int position) const noexcept { return (m_Bits[position / 32] >> (position % 32) & 1U) != 0; }
    void SetBit(int position) noexcept { m_Bits[position / 32] |= 1U << (position % 32); }
    const rfm_FieldPlace& PrepReadField(const rfm_FieldHandle& field, rfm_Type type) const;
    const rfm_FieldPlace& PrepReadSlowly(const rfm_FieldHandle& field, rfm_Type type) const;
    const rfm_FieldPlace& PrepWriteField(const rfm_FieldHandle& field, rfm_Type type);
    const rfm_FieldPlace& PrepWriteSlowly(const rfm_FieldHandle& field, rfm_Type type) const;

    rfm_TableRepr& m_Table;
    unsigned* m_Bits;
    int m_WordCount;
    char* m_Data;
    int m_DataSize;
    int m_Location;
    bool m_Dirty = false;
};
