#include "SectorWalk.h"

#include "Text.h"

#include <fmt/format.h>

#include <algorithm>

namespace rfm_tool
{
namespace
{
constexpr const char* kRecover = "the library refuses the file; `rfm recover` may read it all the same";
constexpr const char* kSegmentLost = "the bytes of this segment can't be read; restore the file from a copy";
constexpr const char* kTailLost =
    "what is behind it is out of reach; if the segment can't be read, restore the file from a copy";
constexpr const char* kCutOff = "the file was cut off; copy it again";

std::string OwnerText(std::int32_t owner)
{
    return owner < 0 ? "the directory" : fmt::format("segment {}", owner);
}
} // namespace

void SectorWalk::Report(std::int64_t segment, std::int64_t offset, const std::string& what,
                        const std::string& found, const std::string& expected, const char* remedy)
{
    Damage damage{0, offset, what, found, expected, remedy};
    if (segment >= 0) damage.segment = segment;
    m_Damages.Add(std::move(damage));
}

SectorSums SectorWalk::Run()
{
    m_Sums.sectors = m_File.SectorCount();
    m_Owners.assign(static_cast<std::size_t>(m_Sums.sectors), kNobody);
    // Bytes behind the last whole sector are in no chain either.
    m_Sums.lost = m_File.Size();
    if (!CheckHead()) return m_Sums;
    const bool isSegmented = CheckSegments();
    m_Sums.isOpen = ReadDirectory() && isSegmented;
    const auto cells = static_cast<std::int32_t>(m_Cells.size());
    for (std::int32_t segment = 0; isSegmented && segment < cells; ++segment)
        if (m_Cells[static_cast<std::size_t>(segment)] != 0) CheckStream(segment);
    return m_Sums;
}

// ---- Header and directory ----

bool SectorWalk::CheckHead()
{
    char sector[rfm_SectorBytes];
    const int read = m_File.Read(0, sector, rfm_SectorBytes);
    const auto refuse = [&](std::int64_t offset, const char* what, const std::string& found,
                            const std::string& expected, const char* remedy)
    {
        Report(-1, offset, what, found, expected, remedy);
        return false;
    };
    if (read < rfm_SectorBytes)
        return refuse(read, "first sector", Counted(read, "byte", "bytes"),
                      Counted(rfm_SectorBytes, "byte", "bytes"), kCutOff);
    const std::string_view magic(sector, rfm_SectorMagic.size());
    if (magic != rfm_SectorMagic)
        return refuse(0, "magic", OneLine(magic), std::string(rfm_SectorMagic), kRecover);
    m_Head = rfm_DecodeSectorHead(sector + rfm_SectorHeadOffset);
    if (m_Head.version != rfm_SectorVersion)
        return refuse(rfm_SectorHeadOffset, "version", fmt::format("{}", m_Head.version),
                      fmt::format("{}", rfm_SectorVersion), kRecover);
    if (m_Head.userHeaderLength != rfm_EncodedHeaderBytes)
        return refuse(rfm_SectorHeadOffset + 4, "length of the user header",
                      fmt::format("{}", m_Head.userHeaderLength), fmt::format("{}", rfm_EncodedHeaderBytes),
                      kRecover);
    m_Segments = rfm_DecodeEncodedHeader(sector + rfm_SectorHeaderBytes);
    return true;
}

bool SectorWalk::CheckSegments()
{
    constexpr std::int64_t kPlace = rfm_SectorHeaderBytes;
    if (m_Segments.magic != rfm_EncodedMagic)
        Report(-1, kPlace, "magic of the segments", fmt::format("0x{:08X}", m_Segments.magic),
               fmt::format("0x{:08X}", rfm_EncodedMagic), kRecover);
    else if (m_Segments.version != rfm_EncodedVersion)
        Report(-1, kPlace + 4, "version of the segments", fmt::format("{}", m_Segments.version),
               fmt::format("{}", rfm_EncodedVersion), kRecover);
    else if (!rfm_IsSoundEncodedHeader(m_Segments))
        Report(-1, kPlace + 8, "size, number and last length of the segments",
               fmt::format("{}, {} and {}", m_Segments.segmentSize, m_Segments.segmentCount,
                           m_Segments.lastLength),
               fmt::format("a size of 1 to {}, a last length of at most that, and 2^53 bytes in all at most",
                           rfm_MostSegmentBytes),
               kRecover);
    else
    {
        m_Sums.segments = m_Segments.segmentCount;
        return true;
    }
    return false;
}

// The cells, as far as their chain goes.
bool SectorWalk::ReadDirectory()
{
    m_Directory = Chain(0, kDirectory);
    std::int64_t left = std::max(m_Head.cellCount, 0);
    std::int64_t used = rfm_SectorHeaderBytes + m_Head.userHeaderLength;
    std::int64_t start = used;
    for (const std::uint32_t sector : m_Directory)
    {
        if (left == 0) break;
        char bytes[rfm_SectorBytes];
        m_File.Read(OffsetOfSector(sector), bytes, rfm_SectorBytes);
        const std::int64_t count =
            std::min<std::int64_t>((rfm_SectorDataBytes - start) / rfm_SectorCellBytes, left);
        for (std::int64_t i = 0; i < count; ++i)
            m_Cells.push_back(rfm_LoadWord(bytes + start + i * rfm_SectorCellBytes));
        left -= count;
        used += count * rfm_SectorCellBytes;
        start = 0;
    }
    Account(used, static_cast<std::int64_t>(m_Directory.size()));
    if (left == 0 && m_Head.cellCount >= 0) return true;
    Report(-1, rfm_SectorHeadOffset + 8, "number of cells", fmt::format("{}", m_Head.cellCount),
           fmt::format("at most {}, as many as the directory has room for", m_Cells.size()), kRecover);
    return false;
}

std::int64_t SectorWalk::PlaceOfCell(std::int32_t segment) const
{
    constexpr int kFirst = rfm_CellsInFirstSector(rfm_EncodedHeaderBytes);
    constexpr int kFirstPlace = rfm_SectorHeaderBytes + rfm_EncodedHeaderBytes;
    if (segment < kFirst) return kFirstPlace + std::int64_t{segment} * rfm_SectorCellBytes;
    const auto behind = static_cast<std::size_t>(segment - kFirst);
    const std::uint32_t sector = m_Directory[1 + behind / rfm_CellsPerSector];
    return OffsetOfSector(sector) +
           static_cast<std::int64_t>(behind % rfm_CellsPerSector) * rfm_SectorCellBytes;
}

// ---- Chains ----

// The sectors from `first` on, up to a link that leads nowhere or where somebody is already.
std::vector<std::uint32_t> SectorWalk::Chain(std::uint32_t first, std::int32_t owner)
{
    std::vector<std::uint32_t> chain{first};
    m_Owners[first] = owner;
    for (std::uint32_t link = m_File.WordAt(OffsetOfLink(first)); link != rfm_NullSector;
         link = m_File.WordAt(OffsetOfLink(chain.back())))
    {
        if (!Take(link, owner, OffsetOfLink(chain.back()))) break;
        chain.push_back(link);
    }
    return chain;
}

// Whether the sector that stands at `offset` can be this owner's.
bool SectorWalk::Take(std::uint32_t sector, std::int32_t owner, std::int64_t offset)
{
    const char* what = owner == kDirectory ? "next sector of the directory" : "sector of the stream";
    const char* remedy = owner == kDirectory ? kRecover : kTailLost;
    if (sector >= m_Owners.size())
    {
        Report(owner, offset, what, fmt::format("{}", sector),
               fmt::format("a sector of the file, which has {}", m_Owners.size()), remedy);
        return false;
    }
    if (m_Owners[sector] != kNobody)
    {
        Report(owner, offset, what, fmt::format("{}", sector),
               m_Owners[sector] == owner
                   ? "a chain with an end: this is a loop"
                   : "a sector of its own: that one is in the chain of " + OwnerText(m_Owners[sector]),
               remedy);
        return false;
    }
    m_Owners[sector] = owner;
    return true;
}

// Of the bytes of a chain `used` hold something, and so do the links on the way to them.
void SectorWalk::Account(std::int64_t used, std::int64_t chainSectors)
{
    const std::int64_t usedSectors =
        std::max<std::int64_t>((used + rfm_SectorDataBytes - 1) / rfm_SectorDataBytes, 1);
    const std::int64_t live = used + usedSectors * rfm_SectorLinkBytes;
    m_Sums.live += live;
    m_Sums.surplus += chainSectors * rfm_SectorBytes - live;
    m_Sums.lost -= chainSectors * rfm_SectorBytes;
}

// ---- Streams ----

void SectorWalk::CheckStream(std::int32_t segment)
{
    const std::uint32_t first = m_Cells[static_cast<std::size_t>(segment)];
    const bool isLive = segment < m_Segments.segmentCount;
    if (!Take(first, segment, PlaceOfCell(segment)))
    {
        if (isLive) Hurt(segment);
        return;
    }
    const std::vector<std::uint32_t> chain = Chain(first, segment);
    const std::int64_t sectors = static_cast<std::int64_t>(chain.size());
    const std::int64_t room = sectors * rfm_SectorDataBytes;
    const std::int64_t length = m_File.WordAt(OffsetOfSector(first));
    const bool isWhole = isLive && CheckLength(segment, length, room, OffsetOfSector(first));
    if (isLive && (!isWhole || !Inflate(segment, chain, length - rfm_StreamLengthBytes))) Hurt(segment);
    // What a file that became shorter has kept of segments behind its end is room for them, should they come back.
    Account(isWhole ? length : 0, sectors);
}

bool SectorWalk::CheckLength(std::int32_t segment, std::int64_t length, std::int64_t room,
                             std::int64_t offset)
{
    if (length >= rfm_StreamLengthBytes && length <= room) return true;
    Report(segment, offset, "length of the stream", fmt::format("{}", length),
           fmt::format("{} to {}, the room in its sectors", rfm_StreamLengthBytes, room), kSegmentLost);
    return false;
}

bool SectorWalk::Inflate(std::int32_t segment, const std::vector<std::uint32_t>& chain, std::int64_t length)
{
    StreamInflater meter(m_Segments.segmentSize, [](std::string_view) {});
    std::int64_t start = rfm_StreamLengthBytes;
    bool isWanting = true;
    for (std::size_t i = 0; i < chain.size() && length > 0 && isWanting; ++i)
    {
        char bytes[rfm_SectorDataBytes];
        const std::int64_t count = std::min(rfm_SectorDataBytes - start, length);
        m_File.Read(OffsetOfSector(chain[i]) + start, bytes, static_cast<int>(count));
        isWanting = meter.Feed(bytes, static_cast<std::size_t>(count));
        length -= count;
        start = 0;
    }
    const std::string fault = meter.Fault();
    if (fault.empty()) return true;
    Report(segment, OffsetOfSector(chain.front()) + rfm_StreamLengthBytes, "stream", fault,
           fmt::format("a zlib stream of at most {} bytes", m_Segments.segmentSize), kSegmentLost);
    return false;
}

void SectorWalk::Hurt(std::int32_t segment)
{
    const std::int64_t start = std::int64_t{segment} * m_Segments.segmentSize;
    const bool isLast = segment == m_Segments.segmentCount - 1;
    m_Sums.hurt.push_back(
        {segment, start, start + (isLast ? m_Segments.lastLength : m_Segments.segmentSize)});
}
} // namespace rfm_tool
