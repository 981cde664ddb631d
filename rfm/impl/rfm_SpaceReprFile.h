#pragma once

#include "rfm_SpaceRepr.h"

#include <cstdint>
#include <vector>

class rfm_DatabaseReprFile;
struct rfm_LinkageEntry;

/// A space in a file: a chain of linkage entries, each one contiguous extent. Data goes to the file at each write; only
/// the linkage table waits for the database's flush.
///
/// The object holds handles into the table and no pointers, so that a Snap can replace the table beneath it.
/// Extents need no alignment, and one in mid-chain may be empty: a step over it is not the end of the data.
class rfm_SpaceReprFile : public rfm_SpaceRepr
{
public:
    /// `quantum` is the step in which the space grows; below 4 means 4. It is not stored.
    rfm_SpaceReprFile(rfm_DatabaseReprFile& database, int quantum);
    rfm_SpaceReprFile(rfm_DatabaseReprFile& database, rfm_Handle handle, int quantum);

    bool ReadOnly() const override;
    utl_FileOffset Length() const override;
    void Seek(utl_FileOffset offset) override;
    utl_FileOffset Location() const override { return m_Location; }
    /// A write behind it reaches the file after those before it; that is all.
    void Flush() override;
    void Extend(utl_FileOffset amount) override;
    int Read(char* buffer, int count) override;
    int Write(const char* buffer, int count) override;
    rfm_StringManager* StringManager() override;
    rfm_Handle Handle() const override { return rfm_Handle(m_Head); }
    utl_FileOffset Allocation() const override;
    /// Shortens lengths only: no extent is given back. The position is 0 afterwards.
    void Truncate(utl_FileOffset length) override;

private:
    /// One extent in the chain, and where in the space it begins.
    struct Extent
    {
        std::uint32_t handle;
        std::int64_t start;
    };

    rfm_LinkageEntry& EntryOf(std::uint32_t handle) const;
    void Measure() const;
    std::uint32_t LastOfChain() const;
    bool FindExtent(std::int64_t offset, std::uint32_t& handle, std::int64_t& place) const;
    void ExtendMap() const;
    void Grow(std::int64_t need);
    void StepTo(std::uint32_t handle);
    std::uint32_t NextWithData(std::uint32_t handle) const;
    std::int64_t WritableEnd() const;
    void MoveIntoRoom(int count);

    rfm_DatabaseReprFile& m_Database;
    std::uint32_t m_Head;
    int m_Quantum;
    std::uint32_t m_Current;          // the entry that holds the position
    std::int64_t m_ExtentOffset = 0;  // position within its extent
    std::int64_t m_Location = 0;      // position in the space
    mutable int m_SeenFlushCount = 0; // when the cached sizes were taken
    mutable std::int64_t m_Length = 0;
    mutable std::int64_t m_Allocation = 0;

    // Running sums for a seek by binary search: with 1000 extents a walk costs 1000 steps, this 10. They grow with the
    // chain and are taken anew when something before the last extent changed its length.
    mutable std::vector<Extent> m_Map;
    mutable std::uint64_t m_MapShape = 0;
};
