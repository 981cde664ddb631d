#pragma once

#include "cow_1DArrayList.h"
#include "cow_CountedHld.h"
#include "rfm_Row.h"
#include "rfm_TableMetadata.h"
#include "utl_FileOffset.h"

class rfm_TableRepr;

template <> struct RFM_EXPORT cow_Deleter<rfm_TableRepr>
{
    static void Delete(rfm_TableRepr* object);
};

/// A counted handle on a table: rows of one fixed layout, numbered from 0, at most 2 GiB of them. Copies share the
/// table and its current row. It must go before the last rfm_Database handle does.
/// A row argument below 0 means the current row. The last handle to go flushes; a refusal is then one line on standard
/// error, so call `Flush` first.
/// Threads: a database and everything made from it belongs to one thread at a time.
///
/// Publishing: the table's `Flush` brings its rows to the file, the database's `Flush`, called after it, shows them
/// to readers. Following: `Snap` the database, then the table.
class RFM_EXPORT rfm_Table : public cow_CountedHld<rfm_TableRepr>
{
public:
    rfm_Table() noexcept = default;
    explicit rfm_Table(rfm_TableRepr* repr) : cow_CountedHld<rfm_TableRepr>(repr) {}

    rfm_Handle Handle() const;
    /// Number of rows.
    int Length() const;
    /// The current row, and how to set it; any number is accepted.
    int Location() const;
    void Seek(int row);

    /// Drops all rows from `rows` on and goes to row 0. Handles on dropped rows are dead.
    /// Throws: nex_TextException on a read-only table.
    void Truncate(int rows);
    /// Writes what changed and answers the table's flush count; nothing happens when nothing changed through
    /// `UpdateRow`, `NewRow` or `Append`. 0 on a read-only table with changes, which stay unwritten.
    /// Throws: what the file system refuses; nothing is lost, and the next call tries again.
    int Flush();
    /// A reader's refresh, after the database's: the new flush count, or 0 when nothing is new and always on a writable
    /// table. Rows that are held keep their old values. `Length` never shrinks here.
    int Snap();
    int GetFlushCount() const;
    /// Reserves room in the file for `rows` rows; `Length` stays. Does nothing on a read-only table.
    /// Throws: nex_TextException for fewer than 1 row, or past 2 GiB; what the file system refuses.
    void Extend(int rows);
    /// Bytes of a row in the file.
    int RowSize() const;

    /// Type and index of a field by name: 0 and -1 for an unknown one.
    rfm_Type Type(const cow_String& fieldName) const;
    int Index(const cow_String& fieldName) const;
    const rfm_TableMetadata& TableMetadata() const;
    const rfm_TableMetadata::FieldMap& GetFieldMap() const;
    const rfm_FieldMetadata& GetFieldMD(const rfm_FieldHandle& field) const;

    /// 1 when there is such a row, otherwise 0.
    int RowExists(int row) const;
    /// The row for reading; the current row becomes the next one, even when this throws.
    /// Throws: nex_TextException, and a line on standard error, when there is no such row.
    rfm_Row ReadRow(int row = -1);
    /// The row for writing; a new one when `row` is the table's length.
    rfm_Row UpdateRow(int row = -1);
    /// A new row behind the last, without data in any field.
    /// Throws: nex_TextException when the table would pass 2 GiB.
    rfm_Row NewRow();

    /// As rfm_Database::GetObjStatistics; lengths are in bytes.
    cow_1DArrayList<cow_String> GetObjStatistics() const;
    utl_FileOffset SpaceLength() const;
    utl_FileOffset SpaceAllocation() const;

    /// See rfm_TableMetadata::CopyAllowed.
    int CopyAllowed(const rfm_Table& source) const;
    /// Appends all rows of `source`, which may be of another database.
    /// Both tables are flushed first; the new rows are published with the next `Flush`.
    /// Throws: nex_TextException on a read-only table, when the layouts do not allow it, or past 2 GiB; what the file
    /// system refuses. No row has been appended then.
    void Append(const rfm_Table& source);

    rfm_TableRepr& Repr() const { return *m_Object; }
};
