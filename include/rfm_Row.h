#pragma once

#include "cow_String.h"
#include "rfm_FieldHandle.h"
#include "rfm_Handle.h"
#include "rfm_TableMetadata.h"

struct rfm_RowRepr;

/// A counted handle on one row of a table, held in the table's row cache. Two handles on the same row share its
/// values. A handle that outlives its table, or whose row was truncated away, may only be nullified or destroyed.
///
/// A field has data in a row only when it was written there: reading one without raises an exception, so a
/// reader that expects gaps asks `DataIsPresent` first. Reads and writes check name and type at each call and throw
/// nex_TextException; a refused call changes no value. What is written lasts only in a row from
/// `rfm_Table::UpdateRow` or `NewRow`, after the table's `Flush`; on a read-only table writes change the cached row
/// alone and are lost with it.
/// Threads: a row belongs to the thread of its table's database.
class RFM_EXPORT rfm_Row
{
public:
    explicit rfm_Row(rfm_RowRepr* repr) noexcept;
    rfm_Row(const rfm_Row& source);
    rfm_Row(rfm_Row&& source) noexcept : m_Repr(source.m_Repr) { source.m_Repr = nullptr; }
    rfm_Row& operator=(const rfm_Row& source);
    rfm_Row& operator=(rfm_Row&& source) noexcept;
    ~rfm_Row();

    /// Gives up the row; this handle may then only be assigned to or destroyed.
    void Nullify();

    /// Whether the file's layout has this field. Never throws.
    int FieldIsPresent(const rfm_FieldHandle& field) const;
    /// Whether this row has data in this field. Never throws.
    int DataIsPresent(const rfm_FieldHandle& field) const;

    int ReadFieldInt(const rfm_FieldHandle& field) const;
    float ReadFieldFloat(const rfm_FieldHandle& field) const;
    double ReadFieldDouble(const rfm_FieldHandle& field) const;
    rfm_Handle ReadFieldHandle(const rfm_FieldHandle& field) const;
    cow_String ReadFieldString(const rfm_FieldHandle& field) const;

    void WriteFieldInt(const rfm_FieldHandle& field, int value);
    void WriteFieldFloat(const rfm_FieldHandle& field, float value);
    void WriteFieldDouble(const rfm_FieldHandle& field, double value);
    void WriteFieldHandle(const rfm_FieldHandle& field, rfm_Handle value);
    void WriteFieldString(const rfm_FieldHandle& field, const cow_String& value);

    /// Overwrites the stored text of this field in place, for every row that shares it: cut to the old length, and
    /// unseen by this process, which goes on giving the old text. For wiping, not for editing.
    /// Throws: nex_TextException when the row has no text there, or on a read-only database.
    void NeuterFieldString(const rfm_FieldHandle& field, const cow_String& text);
    /// Copies one field from a row of any table; nothing when `source` has no data there. A handle by index
    /// means that index in both tables.
    /// Throws: nex_TextException for a handle-type field, or one that this row lacks or has of another type.
    void CopyField(const rfm_Row& source, const rfm_FieldHandle& field);
    /// Takes the data out of one field, or of all. Throws nex_TextException for a field that the file lacks.
    void Erase(const rfm_FieldHandle& field);
    void Erase();

    /// The row's number in its table, from 0.
    int Location() const;
    const rfm_TableMetadata::FieldMap& FieldMetadataMap() const;

    rfm_RowRepr* Repr() const noexcept { return m_Repr; }

private:
    rfm_RowRepr* m_Repr;
};
