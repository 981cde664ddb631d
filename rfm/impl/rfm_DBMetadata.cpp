#include "rfm_DBMetadata.h"

#include "atr_Translate.h"
#include "nex_Exception.h"
#include "rfm_Exc.h"
#include "rfm_MetadataFormat.h"
#include "rfm_SpaceRepr.h"

namespace
{
constexpr int kBufferBytes = 1024;
}

rfm_DBMetadata::rfm_DBMetadata(std::unique_ptr<rfm_SpaceRepr> space)
    : m_Space(std::move(space)),
      m_Buffer(m_Space.get(), kBufferBytes)
{
}

rfm_DBMetadata::~rfm_DBMetadata() = default;

utl_FileOffset rfm_DBMetadata::Length() const { return m_Space->Length(); }
void rfm_DBMetadata::Flush() { m_Buffer.Flush(); }

void rfm_DBMetadata::Load()
{
    const std::int64_t end = m_Space->Length().Value();
    for (std::int64_t offset = rfm_MetadataFirstRecord; offset < end;)
    {
        m_Buffer.Seek(offset);
        if (end - offset < rfm_MetadataHeadBytes) rfm_ThrowMetadataCorrupt();
        const int length = m_Buffer.ReadInt();
        if (!rfm_IsMetadataLength(length) || length > end - offset) rfm_ThrowMetadataCorrupt();
        const cow_String name = m_Buffer.ReadString();
        // Known already at this place: the directory is loaded again. At another: two layouts of one name.
        const auto [known, inserted] = m_Names.emplace(name, utl_FileOffset(offset));
        if (!inserted && known->second != utl_FileOffset(offset)) rfm_ThrowMetadataCorrupt();
        offset += length;
    }
}

int rfm_DBMetadata::VersionOf(const cow_String& name, int version) const
{
    return m_ClassVersions.IsMember(name) ? m_ClassVersions.ConstGet(name) : version;
}

// A layout that is there already stays, with everything that refers to it.
const rfm_TableMetadata& rfm_DBMetadata::Keep(utl_FileOffset location,
                                              std::unique_ptr<rfm_TableMetadata> metadata)
{
    return *m_Tables.try_emplace(location, std::move(metadata)).first->second;
}

const rfm_TableMetadata& rfm_DBMetadata::Bind(const rfm_TableMetadata& metadata)
{
    const cow_String& name = metadata.Name();
    const auto known = m_Names.find(name);
    if (known != m_Names.end())
    {
        const auto bound = m_Tables.find(known->second);
        if (bound != m_Tables.end()) return *bound->second;
        m_Buffer.Seek(known->second);
        return Keep(known->second, std::make_unique<rfm_TableMetadata>(m_Buffer, metadata.Fields(),
                                                                       VersionOf(name, metadata.Version())));
    }
    const utl_FileOffset location = m_Buffer.Length();
    WriteRecord(metadata, location);
    m_Names.emplace(name, location);
    auto copy = std::make_unique<rfm_TableMetadata>(metadata, VersionOf(name, metadata.Version()));
    // The record holds every field, so the rows of this file have them all: also those that the layout, bound in
    // another file before, knew as missing there.
    copy->MarkAllStored();
    return Keep(location, std::move(copy));
}

// A record that can't be written whole leaves nothing behind, or the next one would follow its torn half.
void rfm_DBMetadata::WriteRecord(const rfm_TableMetadata& metadata, utl_FileOffset location)
{
    m_Buffer.Seek(location);
    try
    {
        metadata.Write(m_Buffer);
    }
    catch (...)
    {
        m_Buffer.Discard();
        if (m_Space->Length() > location) m_Space->Truncate(location);
        m_Buffer.Seek(rfm_MetadataFirstRecord);
        throw;
    }
}

// kept: `version` is not reset between tables: one without an entry in the map takes that of the name before it.
// Test: ATableWithoutAVersionTakesThatOfTheNameBeforeIt.
void rfm_DBMetadata::Bind()
{
    int version = 1;
    for (const auto& [name, location] : m_Names)
    {
        m_Buffer.Seek(location);
        version = VersionOf(name, version);
        Keep(location, std::make_unique<rfm_TableMetadata>(m_Buffer, version));
    }
}

bool rfm_DBMetadata::HasTable(const cow_String& name) const { return m_Names.contains(name); }

const utl_FileOffset& rfm_DBMetadata::GetTableMetadataHandle(const cow_String& name) const
{
    const auto known = m_Names.find(name);
    if (known == m_Names.end())
        nex_ThrowText(
            atr_Message("***ERROR: Can't find table metadata, \"%s\" in MARLEK database file.", name));
    return known->second;
}

const rfm_TableMetadata& rfm_DBMetadata::GetTableMetadata(const utl_FileOffset& handle) const
{
    const auto bound = m_Tables.find(handle);
    if (bound == m_Tables.end()) nex_ThrowText(atr_Message("***ERROR: Can't find metadata with handle."));
    return *bound->second;
}

const rfm_TableMetadata& rfm_DBMetadata::GetTableMetadata(const cow_String& name) const
{
    return GetTableMetadata(GetTableMetadataHandle(name));
}

cow_1DArrayList<cow_String> rfm_DBMetadata::GetTableMetadataNames() const
{
    cow_1DArrayList<cow_String> names;
    for (const auto& [name, location] : m_Names) names.Append(name);
    return names;
}

void rfm_DBMetadata::InsertInMapClassName2ClassVersion(const cow_String& name, int version)
{
    m_ClassVersions.Insert(name, version);
}
