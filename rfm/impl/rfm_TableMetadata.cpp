#include "rfm_TableMetadata.h"

#include "atr_Translate.h"
#include "nex_Exception.h"
#include "rfm_Exc.h"
#include "rfm_IOBuffer.h"
#include "rfm_MetadataFormat.h"

#include <algorithm>
#include <cstring>

namespace
{
// Names are keys in C-string order, so a NUL would cut one off unseen.
void RefuseNul(const cow_String& name)
{
    if (std::strlen(name.CString()) != static_cast<std::size_t>(name.Length()))
        nex_ThrowText(atr_Message("***ERROR: Invalid name, it holds a NUL: \"%s\"", name.CString()));
}

[[noreturn]] void ThrowNoField(const rfm_FieldHandle& handle)
{
    if (handle.Index() >= 0)
        nex_ThrowText(atr_Message("***ERROR: Can't find field by index: %d", handle.Index()));
    nex_ThrowText(atr_Message("***ERROR: Can't find field: \"%s\"", handle.Name()));
}

[[noreturn]] void ThrowOtherType(const rfm_FieldHandle& handle)
{
    if (handle.Index() >= 0)
        nex_ThrowText(atr_Message("***ERROR: Field type mismatch by index: %d", handle.Index()));
    nex_ThrowText(atr_Message("***ERROR: Field type mismatch: \"%s\"", handle.Name()));
}
} // namespace

// ---- One field ----

rfm_FieldMetadata::rfm_FieldMetadata() : name("novalue") {}

rfm_FieldMetadata::rfm_FieldMetadata(const cow_String& fieldName, int fieldType, int fieldIndex)
    : name(fieldName),
      type(fieldType),
      index(fieldIndex)
{
}

rfm_FieldMetadata::rfm_FieldMetadata(rfm_IOBuffer& buffer)
{
    type = buffer.ReadInt();
    name = buffer.ReadString();
}

void rfm_FieldMetadata::Write(rfm_IOBuffer& buffer) const
{
    buffer.WriteInt(type);
    buffer.WriteString(name);
}

// ---- A layout: made, read, merged, copied ----

rfm_TableMetadata::rfm_TableMetadata(const cow_String& name, int version) : m_Name(name), m_Version(version)
{
    RefuseNul(name);
}

rfm_TableMetadata::rfm_TableMetadata(rfm_IOBuffer& buffer, int version) : m_Version(version)
{
    FieldMap nothingKnown;
    ReadFields(buffer, nothingKnown);
    BuildIndex();
}

rfm_TableMetadata::rfm_TableMetadata(rfm_IOBuffer& buffer, FieldMap known, int version) : m_Version(version)
{
    // Fields that only the file has get indices behind all those of the caller, which a refused definition may have
    // left with gaps.
    m_NextIndex = known.Count();
    for (const auto& [name, field] : known) m_NextIndex = std::max(m_NextIndex, field.index + 1);
    ReadFields(buffer, known);
    for (const auto& [name, field] : known)
    {
        rfm_FieldMetadata missing(field);
        missing.stored = 0;
        InsertChecked(missing);
    }
    BuildIndex();
}

// Takes the fields of a record; those that the caller knows keep the caller's index and leave `known`.
void rfm_TableMetadata::ReadFields(rfm_IOBuffer& buffer, FieldMap& known)
{
    const utl_FileOffset start = buffer.Location();
    const int length = buffer.ReadInt();
    if (!rfm_IsMetadataLength(length) || start + length > buffer.Length()) rfm_ThrowMetadataCorrupt();
    m_Name = buffer.ReadString();
    while (buffer.Location() < start + length)
    {
        rfm_FieldMetadata field(buffer);
        const FieldMap::Node* callers = known.Find(field.name);
        if (callers == nullptr)
        {
            field.index = m_NextIndex++;
            InsertChecked(field);
            continue;
        }
        if (callers->value.type != field.type)
            nex_ThrowText(atr_Message("***ERROR: Field type mismatch: %s", field.name));
        rfm_FieldMetadata joined(callers->value);
        joined.stored = 1;
        InsertChecked(joined);
        known.Remove(field.name);
    }
}

rfm_TableMetadata::rfm_TableMetadata(const rfm_TableMetadata& source)
    : rfm_TableMetadata(source, source.m_Version)
{
}

rfm_TableMetadata::rfm_TableMetadata(const rfm_TableMetadata& source, int version)
    : m_Name(source.m_Name),
      m_NextIndex(source.m_NextIndex),
      m_Fields(source.m_Fields),
      m_Version(version)
{
    BuildIndex();
}

// kept: the index is copied as pointers into the source's fields, not built anew.
// Test: AfterAnAssignmentTheIndexReachesIntoTheSource.
rfm_TableMetadata& rfm_TableMetadata::operator=(const rfm_TableMetadata& source)
{
    if (this == &source) return *this;
    std::unique_ptr<const rfm_FieldMetadata*[]> index;
    if (source.m_ByIndex != nullptr)
    {
        index = std::make_unique<const rfm_FieldMetadata*[]>(static_cast<std::size_t>(source.m_IndexCount));
        std::copy_n(source.m_ByIndex.get(), source.m_IndexCount, index.get());
    }
    m_Fields = source.m_Fields;
    m_ByIndex = std::move(index);
    m_IndexCount = source.m_IndexCount;
    m_Name = source.m_Name;
    m_NextIndex = source.m_NextIndex;
    m_Version = source.m_Version;
    return *this;
}

rfm_TableMetadata::~rfm_TableMetadata() = default;

// Sized by the largest index: a refused duplicate uses one up and leaves a gap, which stays null.
void rfm_TableMetadata::BuildIndex()
{
    m_ByIndex.reset();
    m_IndexCount = 0;
    if (m_Fields.Count() < 1) return;
    for (const auto& [name, field] : std::as_const(m_Fields))
        m_IndexCount = std::max(m_IndexCount, field.index + 1);
    m_ByIndex = std::make_unique<const rfm_FieldMetadata*[]>(static_cast<std::size_t>(m_IndexCount));
    for (const auto& [name, field] : std::as_const(m_Fields))
        if (field.index >= 0) m_ByIndex[static_cast<std::size_t>(field.index)] = &field;
}

// ---- Definition ----

int rfm_TableMetadata::Define(const cow_String& fieldName, rfm_Type type)
{
    RefuseNul(fieldName);
    const int index = m_NextIndex++;
    InsertChecked(rfm_FieldMetadata(fieldName, type, index));
    return index;
}

void rfm_TableMetadata::InsertChecked(const rfm_FieldMetadata& field)
{
    if (!m_Fields.Insert(field.name, field))
        nex_ThrowText(atr_Message("***ERROR: Duplicate field metadata definition: \"%s\"", field.name));
}

int rfm_TableMetadata::DefineIntField(const cow_String& fieldName) { return Define(fieldName, rfm_TypeInt); }
int rfm_TableMetadata::DefineFloatField(const cow_String& fieldName)
{
    return Define(fieldName, rfm_TypeFloat);
}
int rfm_TableMetadata::DefineDoubleField(const cow_String& fieldName)
{
    return Define(fieldName, rfm_TypeDouble);
}
int rfm_TableMetadata::DefineHandleField(const cow_String& fieldName)
{
    return Define(fieldName, rfm_TypeHandle);
}
int rfm_TableMetadata::DefineStringField(const cow_String& fieldName)
{
    return Define(fieldName, rfm_TypeString);
}

void rfm_TableMetadata::MarkAllStored()
{
    for (auto [name, field] : m_Fields) field.stored = 1;
}

void rfm_TableMetadata::Write(rfm_IOBuffer& buffer) const
{
    buffer.WriteInt(rfm_MetadataHeadBytes + m_Fields.Count() * rfm_MetadataFieldBytes);
    buffer.WriteString(m_Name);
    for (const auto& [name, field] : m_Fields) field.Write(buffer);
}

// ---- Questions ----

const rfm_FieldMetadata* rfm_TableMetadata::FindByIndex(int index) const noexcept
{
    return index < m_IndexCount ? m_ByIndex[static_cast<std::size_t>(index)] : nullptr;
}

const rfm_FieldMetadata& rfm_TableMetadata::GetFieldMD(const rfm_FieldHandle& handle) const
{
    if (handle.Index() < 0) return m_Fields.Get(handle.Name());
    const rfm_FieldMetadata* field = FindByIndex(handle.Index());
    if (field == nullptr) ThrowNoField(handle);
    return *field;
}

void rfm_TableMetadata::Verify(const rfm_FieldHandle& handle, rfm_Type type) const
{
    const rfm_FieldMetadata* field = nullptr;
    if (handle.Index() >= 0)
    {
        field = FindByIndex(handle.Index());
    }
    else
    {
        const FieldMap::Node* node = m_Fields.Find(handle.Name());
        if (node != nullptr) field = &node->value;
    }
    if (field == nullptr || field->stored == 0) ThrowNoField(handle);
    if (field->type != type) ThrowOtherType(handle);
}

int rfm_TableMetadata::CopyAllowed(const rfm_TableMetadata& other) const
{
    int result = 1;
    int mine = 0;
    for (const auto& [name, field] : m_Fields)
    {
        if (field.stored == 0) continue;
        ++mine;
        if (field.type == rfm_TypeHandle) return 0;
        if (field.type == rfm_TypeString) result = 2;
        const FieldMap::Node* theirs = other.m_Fields.Find(name);
        if (theirs == nullptr || theirs->value.stored == 0 || theirs->value.type != field.type) return 0;
        // In natural order different texts may count as equal keys; only the same name is the same field.
        if (std::strcmp(theirs->value.name.CString(), field.name.CString()) != 0) return 0;
    }
    int theirs = 0;
    for (const auto& [name, field] : other.m_Fields) theirs += field.stored != 0 ? 1 : 0;
    return mine < theirs ? 3 : result;
}
