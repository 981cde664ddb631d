#pragma once

#include "cow_String.h"
#include "omi_Btree.h"
#include "rfm_FieldHandle.h"
#include "rfm_Type.h"

#include <memory>

class rfm_IOBuffer;

/// One field of a layout.
class RFM_EXPORT rfm_FieldMetadata
{
public:
    /// The field that a failed lookup gives: "novalue", no type, index -1.
    rfm_FieldMetadata();
    rfm_FieldMetadata(const cow_String& name, int type, int index);
    /// Reads type and name from a stored layout.
    explicit rfm_FieldMetadata(rfm_IOBuffer& buffer);
    rfm_FieldMetadata(const rfm_FieldMetadata&) = default;
    rfm_FieldMetadata& operator=(const rfm_FieldMetadata&) = default;
    virtual void Write(rfm_IOBuffer& buffer) const;

    cow_String name;
    int type = 0;   ///< an rfm_Type
    int index = -1; ///< the caller's index
    int stored = 1; ///< 1 when rows of the file have the field, 0 when only the caller knows it
};

/// The layout of a table's rows: a named list of typed fields. A caller defines one and binds it to a database
/// (`rfm_Database::Bind`), which answers the layout to use: the caller's fields under the caller's indices, and
/// those fields of the file that the caller doesn't know behind them. Where a field lies in a row follows from
/// the sorted names alone, so writer and reader agree without sharing indices.
/// Threads: a bound layout is read-only and belongs to its database's thread.
class RFM_EXPORT rfm_TableMetadata
{
public:
    using FieldMap = omi_Btree<cow_String, rfm_FieldMetadata>;

    /// An empty layout to define fields in. `version` is the caller's class version; files don't hold it.
    rfm_TableMetadata(const cow_String& name, int version);
    /// A stored layout as the file has it: indices in ascending order of the names.
    rfm_TableMetadata(rfm_IOBuffer& buffer, int version);
    /// A stored layout joined with the fields that a caller knows.
    rfm_TableMetadata(rfm_IOBuffer& buffer, FieldMap known, int version);
    rfm_TableMetadata(const rfm_TableMetadata& source);
    rfm_TableMetadata(const rfm_TableMetadata& source, int version);
    /// After an assignment lookups by index go on reaching into the source, which must outlive this copy.
    rfm_TableMetadata& operator=(const rfm_TableMetadata& source);
    ~rfm_TableMetadata();

    /// Adds a field and answers its index, counted from 0 in the order of definition.
    /// Throws: nex_TextException for a name that is there already, which uses the index up, or that holds a NUL, which
    /// does not.
    int DefineIntField(const cow_String& fieldName);
    int DefineFloatField(const cow_String& fieldName);
    int DefineDoubleField(const cow_String& fieldName);
    int DefineHandleField(const cow_String& fieldName);
    int DefineStringField(const cow_String& fieldName);

    const cow_String& Name() const noexcept { return m_Name; }
    int Version() const noexcept { return m_Version; }
    /// One past the largest index in use.
    int NextIndex() const noexcept { return m_NextIndex; }
    /// All fields by name, in ascending order.
    const FieldMap& Fields() const noexcept { return m_Fields; }

    /// Whether rows of `other` can be moved to a table of this layout: 0 no, 1 as bytes, 2 with their strings
    /// encoded anew, 3 field by field, since `other` has more fields.
    int CopyAllowed(const rfm_TableMetadata& other) const;
    /// Throws: nex_TextException when the field is unknown, not in the file, or of another type.
    void Verify(const rfm_FieldHandle& handle, rfm_Type type) const;
    /// The field; one named "novalue" when the name is unknown.
    /// Throws: nex_TextException for an index without a field.
    const rfm_FieldMetadata& GetFieldMD(const rfm_FieldHandle& handle) const;

    /// Stores the layout at the buffer's position.
    void Write(rfm_IOBuffer& buffer) const;
    /// Gives every field a place in the rows: what a copy for a new record of a file needs.
    void MarkAllStored();

private:
    int Define(const cow_String& fieldName, rfm_Type type);
    void InsertChecked(const rfm_FieldMetadata& field);
    void ReadFields(rfm_IOBuffer& buffer, FieldMap& known);
    void BuildIndex();
    const rfm_FieldMetadata* FindByIndex(int index) const noexcept;

    cow_String m_Name;
    int m_NextIndex = 0;
    FieldMap m_Fields;
    std::unique_ptr<const rfm_FieldMetadata*[]> m_ByIndex; // null until built
    int m_IndexCount = 0;                                  // entries of m_ByIndex
    int m_Version = 0;
};
