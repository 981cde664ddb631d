#include "SectorWalk.h"

#include "Failure.h"
#include "Text.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

namespace rfm_tool
{
namespace
{
constexpr const char* kRestore = "the library refuses the file; restore it from a copy";
constexpr const char* kSegmentLost = "the bytes of this segment can't be read; restore the file from a copy";
constexpr const char* kTailLost =
    "what is behind it is out of reach; if the segment can't be read, restore the file from a copy";
constexpr const char* kCutOff = "the file was cut off; copy it again";
constexpr int kWindowBytes = 65536;

std::int64_t OffsetOf(std::uint32_t sector) { return std::int64_t{sector} * rfm_SectorBytes; }
std::int64_t LinkOf(std::uint32_t sector) { return OffsetOf(sector) + rfm_SectorDataBytes; }

std::string OwnerText(std::int32_t owner)
{
    return owner < 0 ? "the directory" : fmt::format("segment {}", owner);
}

/// zlib's own reader of one stream, which throws away what comes out and counts it.
class StreamMeter
{
public:
    explicit StreamMeter(std::int64_t most) : m_Window(kWindowBytes), m_Most(most)
    {
        if (::inflateInit(&m_Stream) != Z_OK) throw std::bad_alloc();
    }
    StreamMeter(const StreamMeter&) = delete;
    StreamMeter& operator=(const StreamMeter&) = delete;
    ~StreamMeter() { ::inflateEnd(&m_Stream); }

    /// Whether more bytes are wanted.
    bool Feed(char* bytes, std::size_t count)
    {
        m_Stream.next_in = reinterpret_cast<Bytef*>(bytes);
        m_Stream.avail_in = static_cast<uInt>(count);
        int result = Z_OK;
        while (result == Z_OK && m_Decoded <= m_Most && (m_Stream.avail_in > 0 || m_Stream.avail_out == 0))
        {
            m_Stream.next_out = m_Window.data();
            m_Stream.avail_out = kWindowBytes;
            result = ::inflate(&m_Stream, Z_NO_FLUSH);
            m_Decoded += kWindowBytes - m_Stream.avail_out;
        }
        m_IsAtEnd = result == Z_STREAM_END;
        if (result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR)
            m_Fault = m_Stream.msg != nullptr ? m_Stream.msg : "bytes that are no zlib stream";
        return !m_IsAtEnd && m_Fault.empty() && m_Decoded <= m_Most;
    }
    /// What is wrong; empty for a whole stream that is not too long.
    std::string Fault() const
    {
        if (!m_Fault.empty()) return m_Fault;
        if (m_Decoded > m_Most) return fmt::format("more than {} bytes", m_Most);
        return m_IsAtEnd ? "" : fmt::format("no end after {} bytes", m_Decoded);
    }

private:
    z_stream m_Stream{};
    std::vector<Bytef> m_Window;
    std::int64_t m_Most;
    std::int64_t m_Decoded = 0;
    bool m_IsAtEnd = false;
    std::string m_Fault;
};
} // namespace

SectorWalk::SectorWalk(const std::string& path, DamageList& damages)
    : m_Path(path),
      m_Damages(damages),
      m_Descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC))
{
    struct stat status = {};
    if (m_Descriptor < 0 || ::fstat(m_Descriptor, &status) != 0)
        throw Failure(ExitUnreadable, OneLine(path), std::strerror(errno), "");
    m_FileBytes = status.st_size;
}

SectorWalk::~SectorWalk() { ::close(m_Descriptor); }

// What the file lacks reads as zero.
int SectorWalk::ReadAt(std::int64_t offset, char* bytes, int count) const
{
    int done = 0;
    while (done < count)
    {
        const ssize_t read =
            ::pread(m_Descriptor, bytes + done, static_cast<std::size_t>(count - done), offset + done);
        if (read < 0 && errno == EINTR) continue;
        if (read < 0)
            throw Failure(ExitUnreadable, OneLine(m_Path), std::strerror(errno),
                          "copy the file elsewhere first");
        if (read == 0) break;
        done += static_cast<int>(read);
    }
    std::memset(bytes + done, 0, static_cast<std::size_t>(count - done));
    return done;
}

std::uint32_t SectorWalk::WordAt(std::int64_t offset) const
{
    char bytes[4];
    ReadAt(offset, bytes, sizeof bytes);
    return rfm_LoadWord(bytes);
}

void SectorWalk::Report(std::int64_t segment, std::int64_t offset, const std::string& what,
                        const std::string& found, const std::string& expected, const char* remedy)
{
    Damage damage{0, offset, what, found, expected, remedy};
    if (segment >= 0) damage.segment = segment;
    m_Damages.Add(std::move(damage));
}

SectorSums SectorWalk::Run()
{
    m_Sums.sectors = m_FileBytes / rfm_SectorBytes;
    m_Owners.assign(static_cast<std::size_t>(m_Sums.sectors), kNobody);
    // Bytes behind the last whole sector are in no chain either.
    m_Sums.lost = m_FileBytes;
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
    const int read = ReadAt(0, sector, rfm_SectorBytes);
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
        return refuse(0, "magic", OneLine(magic), std::string(rfm_SectorMagic), kRestore);
    m_Head = rfm_DecodeSectorHead(sector + rfm_SectorHeadOffset);
    if (m_Head.version != rfm_SectorVersion)
        return refuse(rfm_SectorHeadOffset, "version", fmt::format("{}", m_Head.version),
                      fmt::format("{}", rfm_SectorVersion), kRestore);
    if (m_Head.userHeaderLength != rfm_EncodedHeaderBytes)
        return refuse(rfm_SectorHeadOffset + 4, "length of the user header",
                      fmt::format("{}", m_Head.userHeaderLength), fmt::format("{}", rfm_EncodedHeaderBytes),
                      kRestore);
    m_Segments = rfm_DecodeEncodedHeader(sector + rfm_SectorHeaderBytes);
    return true;
}

bool SectorWalk::CheckSegments()
{
    constexpr std::int64_t kPlace = rfm_SectorHeaderBytes;
    if (m_Segments.magic != rfm_EncodedMagic)
        Report(-1, kPlace, "magic of the segments", fmt::format("0x{:08X}", m_Segments.magic),
               fmt::format("0x{:08X}", rfm_EncodedMagic), kRestore);
    else if (m_Segments.version != rfm_EncodedVersion)
        Report(-1, kPlace + 4, "version of the segments", fmt::format("{}", m_Segments.version),
               fmt::format("{}", rfm_EncodedVersion), kRestore);
    else if (!rfm_IsSoundEncodedHeader(m_Segments))
        Report(-1, kPlace + 8, "size, number and last length of the segments",
               fmt::format("{}, {} and {}", m_Segments.segmentSize, m_Segments.segmentCount,
                           m_Segments.lastLength),
               fmt::format("a size of 1 to {}, a last length of at most that, and 2^53 bytes in all at most",
                           rfm_MostSegmentBytes),
               kRestore);
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
        ReadAt(OffsetOf(sector), bytes, rfm_SectorBytes);
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
           fmt::format("at most {}, as many as the directory has room for", m_Cells.size()), kRestore);
    return false;
}

std::int64_t SectorWalk::PlaceOfCell(std::int32_t segment) const
{
    constexpr int kFirst = rfm_CellsInFirstSector(rfm_EncodedHeaderBytes);
    constexpr int kFirstPlace = rfm_SectorHeaderBytes + rfm_EncodedHeaderBytes;
    if (segment < kFirst) return kFirstPlace + std::int64_t{segment} * rfm_SectorCellBytes;
    const auto behind = static_cast<std::size_t>(segment - kFirst);
    const std::uint32_t sector = m_Directory[1 + behind / rfm_CellsPerSector];
    return OffsetOf(sector) + static_cast<std::int64_t>(behind % rfm_CellsPerSector) * rfm_SectorCellBytes;
}

// ---- Chains ----

// The sectors from `first` on, up to a link that leads nowhere or where somebody is already.
std::vector<std::uint32_t> SectorWalk::Chain(std::uint32_t first, std::int32_t owner)
{
    std::vector<std::uint32_t> chain{first};
    m_Owners[first] = owner;
    for (std::uint32_t link = WordAt(LinkOf(first)); link != rfm_NullSector;
         link = WordAt(LinkOf(chain.back())))
    {
        if (!Take(link, owner, LinkOf(chain.back()))) break;
        chain.push_back(link);
    }
    return chain;
}

// Whether the sector that stands at `offset` can be this owner's.
bool SectorWalk::Take(std::uint32_t sector, std::int32_t owner, std::int64_t offset)
{
    const char* what = owner == kDirectory ? "next sector of the directory" : "sector of the stream";
    const char* remedy = owner == kDirectory ? kRestore : kTailLost;
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
    const std::int64_t length = WordAt(OffsetOf(first));
    const bool isWhole = isLive && CheckLength(segment, length, room, OffsetOf(first));
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
    StreamMeter meter(m_Segments.segmentSize);
    std::int64_t start = rfm_StreamLengthBytes;
    bool isWanting = true;
    for (std::size_t i = 0; i < chain.size() && length > 0 && isWanting; ++i)
    {
        char bytes[rfm_SectorDataBytes];
        const std::int64_t count = std::min(rfm_SectorDataBytes - start, length);
        ReadAt(OffsetOf(chain[i]) + start, bytes, static_cast<int>(count));
        isWanting = meter.Feed(bytes, static_cast<std::size_t>(count));
        length -= count;
        start = 0;
    }
    const std::string fault = meter.Fault();
    if (fault.empty()) return true;
    Report(segment, OffsetOf(chain.front()) + rfm_StreamLengthBytes, "stream", fault,
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
