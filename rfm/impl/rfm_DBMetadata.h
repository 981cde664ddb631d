#pragma once

#include "cow_1DArrayList.h"
#include "cow_Map.h"
#include "cow_String.h"
#include "rfm_IOBuffer.h"
#include "rfm_TableMetadata.h"
#include "utl_FileOffset.h"

#include <map>
#include <memory>

class rfm_SpaceRepr;

/// The directory of the metadata pool: which layouts the file has, where, and which of them have been bound.
/// An open hops from record to record by their lengths; a layout's fields are read when it is bound.
class rfm_DBMetadata
{
public:
    explicit rfm_DBMetadata(std::unique_ptr<rfm_SpaceRepr> space);
    virtual ~rfm_DBMetadata();

    void Load();
    /// Joins what a caller knows of a table with what the file holds. The result is the pool's.
    const rfm_TableMetadata& Bind(const rfm_TableMetadata& metadata);
    void Bind();
    bool HasTable(const cow_String& name) const;
    const utl_FileOffset& GetTableMetadataHandle(const cow_String& name) const;
    const rfm_TableMetadata& GetTableMetadata(const utl_FileOffset& handle) const;
    const rfm_TableMetadata& GetTableMetadata(const cow_String& name) const;
    cow_1DArrayList<cow_String> GetTableMetadataNames() const;
    void InsertInMapClassName2ClassVersion(const cow_String& name, int version);
    const cow_Map<cow_String, int>& GetMapClassName2ClassVersion() const { return m_ClassVersions; }
    utl_FileOffset Length() const;
    void Flush();
    /// Forgets what is not yet written: for a database whose close has failed for good.
    void Abandon() noexcept { m_Buffer.Discard(); }

private:
    int VersionOf(const cow_String& name, int version) const;
    void WriteRecord(const rfm_TableMetadata& metadata, utl_FileOffset location);
    const rfm_TableMetadata& Keep(utl_FileOffset location, std::unique_ptr<rfm_TableMetadata> metadata);

    // Order: the buffer settles into the space, so it goes first.
    std::unique_ptr<rfm_SpaceRepr> m_Space;
    rfm_IOBuffer m_Buffer;
    std::map<cow_String, utl_FileOffset> m_Names;
    std::map<utl_FileOffset, std::unique_ptr<rfm_TableMetadata>> m_Tables;
    cow_Map<cow_String, int> m_ClassVersions;
};
