#pragma once

#include "cow_1DArrayList.h"
#include "omi_Btree.h"
#include "rfm_IOBuffer.h"
#include "rfm_Row.h"
#include "rfm_RowImpl.h"
#include "rfm_SpaceRepr.h"
#include "rfm_TableMetadata.h"

#include <memory>
#include <vector>

class rfm_DatabaseRepr;

/// A table: a space of a header and rows of one fixed size, and a cache of rows by number.
///
///            UpdateRow, NewRow, an Append that moved rows
///   (clean) -----------------------------------------------> (dirty)
///      ^                                                        |
///      +------------------------- Flush ------------------------+
///
/// Where fields lie in a row follows from the sorted names and the types of the stored fields alone, so fields that
/// only the caller knows change nothing.
/// Invariants: m_Rows is in ascending order of row numbers, without doubles. Rows below m_WrittenRows are in the file.
/// A cached row that a caller holds stays cached; the others go at a purge.
class rfm_TableRepr
{
public:
    /// A new table of a layout that was bound.
    rfm_TableRepr(rfm_DatabaseRepr& database, const rfm_TableMetadata& metadata, int quantum, int readAhead);
    rfm_TableRepr(rfm_DatabaseRepr& database, const cow_String& name, int quantum, int readAhead);
    /// An existing one.
    rfm_TableRepr(rfm_DatabaseRepr& database, rfm_Handle handle, int quantum, int readAhead);
    ~rfm_TableRepr();
    rfm_TableRepr(const rfm_TableRepr&) = delete;
    rfm_TableRepr& operator=(const rfm_TableRepr&) = delete;

    rfm_Handle Handle() const { return m_Space->Handle(); }
    int Length() const noexcept { return m_Length; }
    int Location() const noexcept { return m_Location; }
    void Seek(int row) noexcept { m_Location = row; }
    void Truncate(int rows);
    int Flush();
    int Snap();
    int GetFlushCount() const noexcept { return m_FlushCount; }
    void Extend(int rows);
    int RowSize() const noexcept { return m_RowSize; }
    const rfm_TableMetadata& TableMetadata() const noexcept { return *m_Metadata; }
    int RowExists(int row) const noexcept;
    rfm_RowRepr* ReadRow(int row);
    rfm_RowRepr* UpdateRow(int row);
    rfm_RowRepr* NewRow();
    cow_1DArrayList<cow_String> GetObjStatistics() const;
    utl_FileOffset SpaceLength() const { return m_Space->Length(); }
    utl_FileOffset SpaceAllocation() const { return m_Space->Allocation(); }
    void Append(rfm_TableRepr& source);

    // For the rows.
    bool Swapped() const noexcept { return m_Buffer.Swapped(); }
    rfm_StringManager& StringManager() const noexcept { return *m_Strings; }
    /// Where a field lies in the rows; null when they don't have it.
    const rfm_FieldPlace* PlaceOf(const rfm_FieldHandle& field) const;
    /// The same for an index, and null also when the field is of another type.
    const rfm_FieldPlace* PlaceOfType(int index, rfm_Type type) const noexcept
    {
        if (static_cast<std::size_t>(index) >= m_PlacesByIndex.size()) return nullptr;
        const rfm_FieldPlace& place = m_PlacesByIndex[static_cast<std::size_t>(index)];
        return place.type == type ? &place : nullptr;
    }

private:
    /// One allocation: the control block, the row, its presence words and its image.
    struct RowBlock : rfm_RowRepr
    {
        RowBlock(rfm_TableRepr& table, int location);
        rfm_RowImpl row;
    };
    /// One field of an append between different layouts.
    struct FieldMove
    {
        int type;
        int sourcePosition;
        int sourceOffset;
        int position;
        int offset;
    };

    void SetUp();
    void WriteHeader();
    std::int64_t PlaceOf(int row) const noexcept;
    void RefuseBeyondLimit(std::int64_t rows) const;

    void MakeRoomInCache();
    RowBlock* MakeRow(int location);
    void Recycle(RowBlock* block) noexcept;
    void DropRow(RowBlock* block) noexcept;
    std::size_t PlaceInCache(int row) const noexcept;
    RowBlock* FindCached(int row) const noexcept;
    void Fill(int row);
    void ReadImage(RowBlock& block, std::int64_t end);
    void Purge();
    void WriteOut();
    void ReleaseUnheld();
    void WriteRow(RowBlock& block);
    void CompleteLastRow();
    [[noreturn]] void ThrowNoRow(const char* message, int row) const;

    int CatchUp(std::int64_t length);
    std::int64_t BytesOfRows();
    void TakeBackTo(utl_FileOffset end);
    void AppendAsBytes(rfm_TableRepr& source);
    void AppendByFields(rfm_TableRepr& source, bool sameLayout);
    std::vector<FieldMove> PlanMoves(const rfm_TableRepr& source) const;

    rfm_DatabaseRepr& m_Database;
    const rfm_TableMetadata* m_Metadata; // the pool's
    int m_Location = 0;
    int m_Length = 0;
    int m_ReadAhead;
    bool m_HeaderDirty = false;
    int m_WordCount = 0;
    int m_RowSize = 0;
    std::vector<rfm_FieldPlace> m_Places;        // by stored position
    omi_Btree<cow_String, int> m_PositionByName; // stored fields only
    std::vector<rfm_FieldPlace> m_PlacesByIndex; // of no type where rows don't have the field
    // Order: the buffer settles into the space, so it goes first.
    std::unique_ptr<rfm_SpaceRepr> m_Space;
    rfm_IOBuffer m_Buffer;
    rfm_StringManager* m_Strings;
    int m_MetadataOffset = 0;
    int m_FlushCount = 0;
    int m_DbFlushCount = 0;
    bool m_CountMayBeAhead = true; // of the rows that the database showed when the count was read
    int m_CacheAllowance;          // misses and new rows left until the next purge
    int m_WrittenRows = 0;
    int m_RowBehindFill = 0;        // where a read in sequence would go on
    bool m_LastRowMayBeCut = false; // in the file, by a writer that went in the middle of it
    // A sorted run: a scan or a load has its rows side by side, so that the first guess finds them, and a row costs no
    // tree node. Blocks of rows that went are used again.
    std::vector<RowBlock*> m_Rows;
    std::vector<RowBlock*> m_Spare;
};
