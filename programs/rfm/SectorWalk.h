#pragma once

#include "DamageList.h"
#include "SectorBytes.h"
#include "rfm_EncodedFormat.h"

#include <cstdint>
#include <string>
#include <vector>

namespace rfm_tool
{
/// Bytes of a database that can't be had: those of a segment whose stream is damaged.
struct HurtSegment
{
    std::int64_t index = 0;
    std::int64_t start = 0; // in the database
    std::int64_t end = 0;
};

/// What a compressed file is made of. The bytes of all three kinds are those of the file.
struct SectorSums
{
    std::int64_t sectors = 0;
    std::int64_t segments = 0;
    std::int64_t live = 0;    // what a reader reads: header, directory, streams, the links on the way
    std::int64_t surplus = 0; // in a chain, but behind what it holds: room for a stream that grows
    std::int64_t lost = 0;    // in no chain: nothing will ever use it
    bool isOpen = false;      // header and directory can be read
    std::vector<HurtSegment> hurt;
};

/// Walks a compressed file from outside: header, directory, the chain of each stream, and each stream inflated by
/// zlib itself, with nothing of the library but the layout of the file. It believes nothing that it reads and goes on
/// past damage.
///
/// Bounds: 8 bytes of memory for each sector of the file, and a window of 64 KiB.
class SectorWalk
{
public:
    /// Throws: Failure when the file can't be opened or read.
    SectorWalk(const std::string& path, DamageList& damages) : m_File(path), m_Damages(damages) {}

    SectorSums Run();

private:
    // Who has a sector: the directory, a segment, or nobody.
    static constexpr std::int32_t kNobody = -1;
    static constexpr std::int32_t kDirectory = -2;

    void Report(std::int64_t segment, std::int64_t offset, const std::string& what, const std::string& found,
                const std::string& expected, const char* remedy);

    bool CheckHead();
    bool CheckSegments();
    std::vector<std::uint32_t> Chain(std::uint32_t first, std::int32_t owner);
    bool Take(std::uint32_t sector, std::int32_t owner, std::int64_t linkOffset);
    bool ReadDirectory();
    std::int64_t PlaceOfCell(std::int32_t segment) const;
    void CheckStream(std::int32_t segment);
    bool CheckLength(std::int32_t segment, std::int64_t length, std::int64_t room, std::int64_t offset);
    bool Inflate(std::int32_t segment, const std::vector<std::uint32_t>& chain, std::int64_t length);
    void Hurt(std::int32_t segment);
    void Account(std::int64_t used, std::int64_t chainSectors);

    SectorBytes m_File;
    DamageList& m_Damages;
    rfm_SectorHead m_Head;
    rfm_EncodedHeader m_Segments;
    std::vector<std::int32_t> m_Owners;     // by sector
    std::vector<std::uint32_t> m_Directory; // its sectors
    std::vector<std::uint32_t> m_Cells;     // by segment
    SectorSums m_Sums;
};
} // namespace rfm_tool
