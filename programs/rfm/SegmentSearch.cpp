#include "SegmentSearch.h"

#include "Text.h"
#include "omi_Swapper.h"
#include "rfm_HeaderFormat.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace rfm_tool
{
namespace
{
constexpr bool kStoredAsIs = omi_Swapper(omi_Swapper::Stored);
constexpr int kCellsOffset = rfm_SectorHeaderBytes + rfm_EncodedHeaderBytes;
constexpr std::int64_t kTriedTimesTheFile = 16;
constexpr std::int64_t kMostCutOff = 64; // a file that was cut off may have been so many times as long
constexpr std::size_t kMostMarks =
    64; // that are kept of a stream, and of extents with one place in their segments
constexpr std::size_t kMostRounds = 100; // of placing streams by what those placed before tell
constexpr std::size_t kToldRanges = 8;

// "2, 5 to 7": the first ones of an ascending list.
std::string RangesText(const std::vector<std::int64_t>& numbers)
{
    std::string text;
    std::size_t told = 0;
    for (std::size_t i = 0; i < numbers.size(); ++told)
    {
        if (told == kToldRanges) return text + " and more";
        std::size_t last = i;
        while (last + 1 < numbers.size() && numbers[last + 1] == numbers[last] + 1) ++last;
        text += told == 0 ? "" : ", ";
        text +=
            last == i ? fmt::format("{}", numbers[i]) : fmt::format("{} to {}", numbers[i], numbers[last]);
        i = last + 1;
    }
    return text;
}
} // namespace

SegmentSearch::SegmentSearch(const std::string& path, LossList& losses)
    : m_File(path),
      m_Losses(losses),
      m_HasCell(static_cast<std::size_t>(m_File.SectorCount())),
      m_IsTaken(m_HasCell.size()),
      m_StepsLeft(kTriedTimesTheFile * m_File.SectorCount())
{
}

SegmentMap SegmentSearch::Run()
{
    if (m_File.SectorCount() == 0) return {};
    m_IsTaken[0] = true;
    ReadHead();
    ReadDirectory();
    PlaceCells();
    if (m_IsDoubtful) SearchStreams();
    JudgeSize();
    PlaceLoose();
    if (m_Map.Find(0) == nullptr) return {};
    const Needs needs = ReadNeeds();
    JudgeEnd(needs);
    TellPlaced();
    TellHurt(needs);
    return m_Map;
}

// ---- Header and directory ----

void SegmentSearch::ExpectNumber(std::int64_t offset, const char* what, std::uint32_t found,
                                 std::uint32_t expected)
{
    if (found == expected) return;
    m_IsDoubtful = true;
    Mended(offset, what, fmt::format("found {}, where {} stands", found, expected));
}

void SegmentSearch::ReadHead()
{
    char sector[rfm_SectorBytes];
    m_File.Read(0, sector, rfm_SectorBytes);
    const std::string_view magic(sector, rfm_SectorMagic.size());
    if (magic != rfm_SectorMagic)
    {
        m_IsDoubtful = true;
        Mended(0, "magic", fmt::format("found \"{}\"", OneLine(magic)));
    }
    m_Head = rfm_DecodeSectorHead(sector + rfm_SectorHeadOffset);
    m_Segments = rfm_DecodeEncodedHeader(sector + rfm_SectorHeaderBytes);
    ExpectNumber(rfm_SectorHeadOffset, "version", static_cast<std::uint32_t>(m_Head.version),
                 rfm_SectorVersion);
    ExpectNumber(rfm_SectorHeadOffset + 4, "length of the user header",
                 static_cast<std::uint32_t>(m_Head.userHeaderLength), rfm_EncodedHeaderBytes);
    ExpectNumber(rfm_SectorHeaderBytes, "magic of the segments", m_Segments.magic, rfm_EncodedMagic);
    ExpectNumber(rfm_SectorHeaderBytes + 4, "version of the segments", m_Segments.version,
                 rfm_EncodedVersion);
    m_HasNumbers = rfm_IsSoundEncodedHeader(m_Segments);
    m_IsDoubtful = m_IsDoubtful || !m_HasNumbers;
}

// A number far beyond the file is damage, one not far may lead to what was cut off. A sector in which most words are
// damage holds no cells.
bool SegmentSearch::LooksLikeCells(const char* bytes, std::int64_t count) const
{
    const std::int64_t most = kMostCutOff * (m_File.SectorCount() + 1);
    std::int64_t right = 0;
    std::int64_t wrong = 0;
    for (std::int64_t i = 0; i < count; ++i)
        if (const std::uint32_t sector = rfm_LoadWord(bytes + i * rfm_SectorCellBytes); sector != 0)
            ++(sector < most ? right : wrong);
    return wrong <= right;
}

void SegmentSearch::TakeCells(const char* bytes, std::int64_t count)
{
    for (std::int64_t i = 0; i < count; ++i)
    {
        const std::uint32_t sector = rfm_LoadWord(bytes + i * rfm_SectorCellBytes);
        if (sector == 0) continue;
        m_Cells.emplace_back(m_CellsRead + i, sector);
        if (IsSector(sector)) m_HasCell[sector] = true;
    }
    m_CellsRead += count;
}

// All that there is room for: behind the last cell stand zeros. No more cells are in use than there are sectors, so one
// that says otherwise is no directory.
void SegmentSearch::ReadDirectory()
{
    std::int64_t start = kCellsOffset;
    std::uint32_t sector = 0;
    while (true)
    {
        char bytes[rfm_SectorBytes];
        m_File.Read(OffsetOfSector(sector), bytes, rfm_SectorBytes);
        const std::int64_t count = (rfm_SectorDataBytes - start) / rfm_SectorCellBytes;
        const bool isLikely = LooksLikeCells(bytes + start, count) &&
                              static_cast<std::int64_t>(m_Cells.size()) <= 2 * m_File.SectorCount();
        if (!isLikely)
        {
            m_IsDirectoryCut = true;
            Mended(OffsetOfSector(sector), "directory",
                   fmt::format("no cells stand in sector {}; their streams are searched for", sector));
            break;
        }
        TakeCells(bytes + start, count);
        m_IsTaken[sector] = true;
        const std::uint32_t next = rfm_LoadWord(bytes + rfm_SectorDataBytes);
        if (next == rfm_NullSector) break;
        if (!IsSector(next) || m_IsTaken[next] || m_HasCell[next])
        {
            m_IsDirectoryCut = true;
            Mended(
                OffsetOfLink(sector), "directory",
                fmt::format("it would go on in sector {}; what streams lack a cell is searched for", next));
            break;
        }
        sector = next;
        start = 0;
    }
    CheckCellCount();
}

// The last cell is in use, and none behind it. What can't be known any more is where the cells end.
void SegmentSearch::CheckCellCount()
{
    const std::int64_t used = m_Cells.empty() ? 0 : m_Cells.back().first + 1;
    if (used == m_Head.cellCount && !m_IsDirectoryCut) return;
    m_IsDoubtful = true;
    m_KnownCells = used;
    if (used != m_Head.cellCount)
        Mended(
            rfm_SectorHeadOffset + 8, "number of cells",
            fmt::format("found {}; the last one in use that can be read is {}", m_Head.cellCount, used - 1));
}

// Of how many cells a sector is the first one, up to 2.
std::vector<std::uint8_t> SegmentSearch::CountClaims() const
{
    std::vector<std::uint8_t> claims(static_cast<std::size_t>(m_File.SectorCount()));
    for (const auto& [segment, sector] : m_Cells)
        if (IsSector(sector)) claims[sector] = static_cast<std::uint8_t>(std::min(claims[sector] + 1, 2));
    return claims;
}

// Whole streams first: they have their sectors for sure. A cell is also right where one begins that is not whole. Of two
// cells that lead to one stream nobody knows which is right.
void SegmentSearch::PlaceCells()
{
    const std::vector<std::uint8_t> claims = CountClaims();
    std::vector<std::pair<std::int64_t, std::uint32_t>> left;
    for (const auto& [segment, sector] : m_Cells)
    {
        const bool isAlone = IsSector(sector) && claims[sector] == 1;
        const std::optional<StoredStream> stream = isAlone ? Probe(sector) : std::nullopt;
        if (stream)
        {
            TellOfStream(segment, *stream);
            m_Map.streams[segment] = *stream;
        }
        else
            left.emplace_back(segment, isAlone ? sector : 0);
    }
    const bool hasCount = m_HasNumbers && m_Segments.segmentCount > 0;
    for (const auto& [segment, sector] : left)
    {
        if (hasCount && segment >= m_Segments.segmentCount) continue;
        if (IsStart(sector))
        {
            m_Map.streams[segment] = {.first = sector};
            m_IsTaken[sector] = true;
        }
        else
            m_Missing.insert(segment);
    }
}

// ---- Streams ----

// Whether the sector begins as one that holds a zlib stream.
bool SegmentSearch::IsStart(std::uint32_t sector) const
{
    if (!IsSector(sector) || m_IsTaken[sector]) return false;
    char bytes[rfm_StreamLengthBytes + 2];
    m_File.Read(OffsetOfSector(sector), bytes, sizeof bytes);
    const int method = static_cast<unsigned char>(bytes[rfm_StreamLengthBytes]);
    const int flags = static_cast<unsigned char>(bytes[rfm_StreamLengthBytes + 1]);
    return (method & 15) == Z_DEFLATED && method >> 4 <= 7 && (method * 256 + flags) % 31 == 0 &&
           (flags & 32) == 0;
}

// The stream that begins there, when it is whole; its sectors are taken then.
std::optional<StoredStream> SegmentSearch::Probe(std::uint32_t first)
{
    if (!IsStart(first)) return {};
    for (const bool isInSequence : {false, true})
    {
        StoredStream stream{.first = first, .isInSequence = isInSequence};
        if (Follow(stream)) return stream;
    }
    return {};
}

bool SegmentSearch::Follow(StoredStream& stream)
{
    StreamInflater inflater(rfm_MostSegmentBytes, [](std::string_view) {});
    std::vector<std::uint32_t> chain;
    std::int64_t start = rfm_StreamLengthBytes;
    bool isWanting = true;
    for (std::uint32_t sector = stream.first; isWanting && IsSector(sector) && !m_IsTaken[sector];)
    {
        if (m_StepsLeft == 0) break;
        --m_StepsLeft;
        chain.push_back(sector);
        m_IsTaken[sector] = true;
        char bytes[rfm_SectorBytes];
        m_File.Read(OffsetOfSector(sector), bytes, rfm_SectorBytes);
        isWanting = inflater.Feed(bytes + start, static_cast<std::size_t>(rfm_SectorDataBytes - start));
        sector = stream.Next(sector, bytes);
        start = 0;
    }
    stream.isWhole = inflater.Fault().empty();
    stream.length = inflater.Decoded();
    stream.packed = inflater.Consumed();
    if (stream.isWhole)
        m_StepsLeft += static_cast<std::int64_t>(chain.size());
    else
        for (const std::uint32_t sector : chain) m_IsTaken[sector] = false;
    return stream.isWhole;
}

void SegmentSearch::TellOfStream(std::int64_t segment, const StoredStream& stream)
{
    if (!stream.isWhole) return;
    const std::int64_t found = m_File.WordAt(OffsetOfSector(stream.first));
    const std::int64_t expected = stream.packed + rfm_StreamLengthBytes;
    if (found != expected)
        Mended(OffsetOfSector(stream.first), fmt::format("length of the stream of segment {}", segment),
               fmt::format("found {}; the stream ends after {}", found, expected));
    if (stream.isInSequence)
        Mended(OffsetOfLink(stream.first), fmt::format("links of segment {}", segment),
               "they don't lead through its stream; its sectors lie one behind the other");
}

// Any sector may begin a stream that is whole; one that is not is taken for a stream only when no link leads to it.
void SegmentSearch::SearchStreams()
{
    if (m_IsSearched) return;
    m_IsSearched = true;
    const std::vector<bool> isLinked = LinkedSectors();
    for (std::uint32_t sector = 1; sector < m_File.SectorCount(); ++sector)
    {
        if (!IsStart(sector)) continue;
        if (const std::optional<StoredStream> stream = Probe(sector))
            m_Loose.push_back(Inspect(*stream));
        else if (!isLinked[sector])
            m_Loose.push_back({{.first = sector}, false, false, {}});
    }
}

std::vector<bool> SegmentSearch::LinkedSectors() const
{
    std::vector<bool> isLinked(m_IsTaken.size());
    for (std::uint32_t sector = 0; sector < m_File.SectorCount(); ++sector)
        if (const std::uint32_t next = m_File.WordAt(OffsetOfLink(sector)); IsSector(next))
            isLinked[next] = true;
    return isLinked;
}

SegmentSearch::LooseStream SegmentSearch::Inspect(const StoredStream& stream) const
{
    LooseStream loose{stream, false, false, {}};
    std::int64_t place = 0;
    const auto look = [&](std::string_view bytes)
    {
        if (place == 0) loose.beginsDatabase = bytes.starts_with("TVNR");
        for (std::size_t i = 0; i + 4 <= bytes.size() && loose.marks.size() < kMostMarks; i += 4)
            if (IsMarkOfObject(omi_Load<std::uint32_t>(bytes.data() + i, kStoredAsIs)))
                loose.marks.push_back(place + static_cast<std::int64_t>(i));
        place += static_cast<std::int64_t>(bytes.size());
    };
    InflateStream(m_File, stream, look);
    return loose;
}

// ---- The size of a segment ----

void SegmentSearch::JudgeSize()
{
    std::int64_t longest = 0;
    std::int64_t count = 0;
    bool hasFull = false;
    const auto look = [&](const StoredStream& stream)
    {
        if (!stream.isWhole) return;
        longest = std::max(longest, stream.length);
        hasFull = hasFull || stream.length == m_Segments.segmentSize;
        ++count;
    };
    for (const auto& [segment, stream] : m_Map.streams) look(stream);
    for (const LooseStream& loose : m_Loose) look(loose.stream);
    m_Map.segmentSize = m_Segments.segmentSize;
    const bool isUsual = hasFull || count < 2 || m_Segments.segmentSize == rfm_EncodedSegmentBytes;
    if (m_HasNumbers && longest <= m_Segments.segmentSize && isUsual) return;
    SearchStreams();
    m_Map.segmentSize = SizeOfMost();
    Mended(rfm_SectorHeaderBytes + 8, "size, number and last length of the segments",
           fmt::format("found {}, {} and {}; segments of {} bytes are taken", m_Segments.segmentSize,
                       m_Segments.segmentCount, m_Segments.lastLength, m_Map.segmentSize));
    m_Segments.segmentSize = static_cast<int>(m_Map.segmentSize);
    m_HasNumbers = rfm_IsSoundEncodedHeader(m_Segments);
}

// The one that most streams have; the larger one of two. A single stream may be the last one, which is shorter.
std::int64_t SegmentSearch::SizeOfMost() const
{
    std::map<std::int64_t, std::int64_t> counts;
    for (const auto& [segment, stream] : m_Map.streams)
        if (stream.isWhole) ++counts[stream.length];
    for (const LooseStream& loose : m_Loose)
        if (loose.stream.isWhole) ++counts[loose.stream.length];
    std::int64_t size = rfm_EncodedSegmentBytes;
    std::int64_t most = 0;
    for (const auto& [length, count] : counts)
    {
        if (count < most || length == 0) continue;
        size = length;
        most = count;
    }
    const bool isUsual = most == 1 && counts.rbegin()->first <= rfm_EncodedSegmentBytes;
    return isUsual ? rfm_EncodedSegmentBytes : size;
}

// ---- What the database tells ----

SegmentSearch::Needs SegmentSearch::ReadNeeds() const
{
    Needs needs;
    SegmentMap map = m_Map;
    map.end = m_Map.streams.empty() ? 0 : (m_Map.streams.rbegin()->first + 1) * m_Map.segmentSize;
    SegmentReader reader(m_File, map);
    char header[rfm_HeaderBytes];
    reader.Read(0, header, rfm_HeaderBytes);
    const double stamp = omi_Load<double>(header + rfm_SizeStampOffset + 4, kStoredAsIs);
    const double most = static_cast<double>(m_File.SectorCount()) * static_cast<double>(m_Map.segmentSize);
    if (stamp > 0 && stamp <= most) needs.end = static_cast<std::int64_t>(stamp);
    std::set<std::int64_t> seen;
    std::vector<char> block(rfm_LinkageBlockBytes);
    for (std::int64_t place = rfm_FirstLinkageBlockOffset; place + rfm_LinkageBlockBytes <= map.end;)
    {
        const bool isNew = seen.insert(place).second;
        if (!isNew || static_cast<std::int64_t>(seen.size()) > kTriedTimesTheFile * m_File.SectorCount())
            break;
        AddExtent(place, rfm_LinkageBlockBytes, needs);
        reader.Read(place, block.data(), rfm_LinkageBlockBytes);
        AddBlock(block.data(), needs);
        rfm_LinkageEntry link;
        if (!rfm_DecodeLinkageEntry(block.data(), kStoredAsIs, link) || !link.HasExtent()) break;
        AddExtent(link.offset, rfm_LinkageBlockBytes, needs);
        place = link.offset;
    }
    return needs;
}

void SegmentSearch::AddBlock(const char* bytes, Needs& needs) const
{
    for (int slot = 1; slot < rfm_LinkageBlockEntries; ++slot)
    {
        rfm_LinkageEntry entry;
        if (!rfm_DecodeLinkageEntry(bytes + slot * rfm_LinkageEntryBytes, kStoredAsIs, entry)) continue;
        if (!entry.HasExtent() || entry.length == 0 || entry.length > entry.allocation) continue;
        AddExtent(entry.offset, entry.length, needs);
        std::vector<std::int64_t>& starts = needs.starts[entry.offset % m_Map.segmentSize];
        if (starts.size() < kMostMarks) starts.push_back(entry.offset / m_Map.segmentSize);
    }
}

// One that lies where this file can't have anything is damaged.
void SegmentSearch::AddExtent(std::int64_t offset, std::int64_t length, Needs& needs) const
{
    const std::int64_t first = offset / m_Map.segmentSize;
    const std::int64_t last = (offset + length - 1) / m_Map.segmentSize;
    const std::int64_t most = m_File.SectorCount() * m_Map.segmentSize + kMostReserve;
    if (last - first >= m_File.SectorCount() || offset + length > most) return;
    const auto room = static_cast<std::size_t>(2 * m_File.SectorCount());
    for (std::int64_t segment = first; segment <= last && needs.segments.size() < room; ++segment)
        needs.segments.insert(segment);
    needs.end = std::max(needs.end, offset + length);
}

// ---- Streams without a cell ----

void SegmentSearch::PlaceLoose()
{
    const Needs needs = ReadNeeds();
    const bool isAllThere =
        std::all_of(needs.segments.begin(), needs.segments.end(),
                    [&](std::int64_t segment) { return m_Map.streams.contains(segment); });
    if (!m_IsDoubtful && m_Missing.empty() && isAllThere) return;
    SearchStreams();
    for (std::size_t round = 0; round < kMostRounds && (PlaceByMarks() || PlaceByOrder()); ++round)
        ;
}

void SegmentSearch::PutInto(std::int64_t segment, std::size_t loose, std::vector<std::int64_t>& placed)
{
    m_Loose[loose].isPlaced = true;
    m_Map.streams[segment] = m_Loose[loose].stream;
    m_Missing.erase(segment);
    placed.push_back(segment);
    TellOfStream(segment, m_Loose[loose].stream);
}

// Whether one was placed. Two that would go to one place stay where they are.
bool SegmentSearch::PlaceByMarks()
{
    const Needs needs = ReadNeeds();
    std::map<std::int64_t, std::vector<std::size_t>> found;
    for (std::size_t i = 0; i < m_Loose.size(); ++i)
        if (const std::int64_t segment = SegmentOf(m_Loose[i], needs); segment >= 0)
            found[segment].push_back(i);
    bool isPlaced = false;
    for (const auto& [segment, which] : found)
    {
        if (which.size() > 1) continue;
        PutInto(segment, which.front(), m_ByMarks);
        isPlaced = true;
    }
    return isPlaced;
}

// The one that has most extents begin where marks stand in the stream; -1 when none has, or two.
std::int64_t SegmentSearch::SegmentOf(const LooseStream& loose, const Needs& needs) const
{
    if (loose.isPlaced || !loose.stream.isWhole) return -1;
    if (loose.beginsDatabase) return m_Map.streams.contains(0) ? -1 : 0;
    std::map<std::int64_t, int> votes;
    for (const std::int64_t mark : loose.marks)
        if (const auto starts = needs.starts.find(mark); starts != needs.starts.end())
            for (const std::int64_t segment : starts->second)
                if (!m_Map.streams.contains(segment)) ++votes[segment];
    std::int64_t best = -1;
    int most = 0;
    for (const auto& [segment, count] : votes)
    {
        if (count == most) best = -1;
        if (count <= most) continue;
        best = segment;
        most = count;
    }
    return best;
}

// In runs between segments that are placed.
bool SegmentSearch::PlaceByOrder()
{
    const Needs needs = ReadNeeds();
    std::vector<std::int64_t> run;
    bool isPlaced = false;
    const auto endRun = [&]
    {
        if (!run.empty() && PlaceRun(run, needs)) isPlaced = true;
        run.clear();
    };
    for (const std::int64_t segment : OpenSegments(needs))
    {
        const bool goesOn =
            !run.empty() && m_Map.streams.upper_bound(run.back()) == m_Map.streams.upper_bound(segment);
        if (!goesOn) endRun();
        run.push_back(segment);
    }
    endRun();
    return isPlaced;
}

// Segments that have a stream, or may have one: where the directory can't be read, nobody knows.
std::vector<std::int64_t> SegmentSearch::OpenSegments(const Needs& needs) const
{
    std::set<std::int64_t> open = m_Missing;
    open.insert(needs.segments.begin(), needs.segments.end());
    const std::int64_t count =
        m_HasNumbers ? m_Segments.segmentCount : (needs.end + m_Map.segmentSize - 1) / m_Map.segmentSize;
    std::int64_t room = m_File.SectorCount();
    for (std::int64_t segment = m_KnownCells; segment < count && room > 0; ++segment, --room)
        open.insert(segment);
    std::vector<std::int64_t> left;
    for (const std::int64_t segment : open)
        if (segment != 0 && !m_Map.streams.contains(segment)) left.push_back(segment);
    return left;
}

// As many streams as segments, or as those of them that have one for sure.
bool SegmentSearch::PlaceRun(const std::vector<std::int64_t>& run, const Needs& needs)
{
    const auto behind = m_Map.streams.upper_bound(run.back());
    const auto before = m_Map.streams.lower_bound(run.front());
    const bool isLast = behind == m_Map.streams.end();
    const bool isFirst = before == m_Map.streams.begin() || std::prev(before)->first == 0;
    const std::uint32_t lower = isFirst ? 0 : std::prev(before)->second.first;
    const std::uint32_t upper = isLast ? rfm_NullSector : behind->second.first;
    std::vector<std::size_t> between;
    for (std::size_t i = 0; i < m_Loose.size(); ++i)
        if (!m_Loose[i].isPlaced && m_Loose[i].stream.first > lower && m_Loose[i].stream.first < upper)
            between.push_back(i);
    std::vector<std::int64_t> sure;
    for (const std::int64_t segment : run)
        if (m_Missing.contains(segment) || needs.segments.contains(segment)) sure.push_back(segment);
    // A killed writer leaves streams behind the last one that have no cell yet.
    const bool isRun = between.size() == run.size() || (isLast && between.size() > run.size());
    if (between.empty() || (!isRun && between.size() != sure.size())) return false;
    const std::vector<std::int64_t>& targets = isRun ? run : sure;
    for (std::size_t i = 0; i < targets.size(); ++i) PutInto(targets[i], between[i], m_ByOrder);
    return true;
}

// ---- The end ----

// A writer may have reserved more than it has stored; it never stores more than the header says, which it writes last.
void SegmentSearch::JudgeEnd(const Needs& needs)
{
    const auto& [last, stream] = *m_Map.streams.rbegin();
    const std::int64_t stored =
        last * m_Map.segmentSize +
        (stream.isWhole ? std::min(stream.length, m_Map.segmentSize) : m_Map.segmentSize);
    const std::int64_t claimed =
        m_HasNumbers ? std::int64_t{m_Segments.segmentCount - 1} * m_Map.segmentSize + m_Segments.lastLength
                     : 0;
    m_Map.end = std::max(claimed, m_HasNumbers ? std::min(needs.end, stored) : stored);
    if (m_HasNumbers && m_Map.end > claimed)
        Mended(rfm_SectorHeaderBytes + 12, "number and last length of the segments",
               fmt::format("found {} and {}, which make {} bytes; the database has {}",
                           m_Segments.segmentCount, m_Segments.lastLength, claimed, m_Map.end));
}

void SegmentSearch::TellPlaced()
{
    const auto tell = [&](std::vector<std::int64_t>& placed, const char* how)
    {
        if (placed.empty()) return;
        std::sort(placed.begin(), placed.end());
        const bool isOne = placed.size() == 1;
        Mended(kCellsOffset, "directory",
               fmt::format("{} {} lacked; {}", isOne ? "the stream of segment" : "the streams of segments",
                           RangesText(placed), how));
    };
    tell(m_ByMarks, "found by what begins in it");
    tell(m_ByOrder, "a guess by the order of the streams");
}

void SegmentSearch::TellHurt(const Needs& needs)
{
    for (const std::int64_t segment : m_Missing) m_Map.streams.try_emplace(segment);
    for (const std::int64_t segment : needs.segments)
        if (segment >= m_KnownCells && segment * m_Map.segmentSize < m_Map.end)
            m_Map.streams.try_emplace(segment);
    for (auto& [segment, stream] : m_Map.streams)
    {
        if (stream.length > m_Map.segmentSize) stream.isWhole = false;
        const std::int64_t start = segment * m_Map.segmentSize;
        const std::int64_t end = std::min(start + m_Map.segmentSize, m_Map.end);
        if (stream.isWhole || start >= end) continue;
        m_Losses.Add({0, start, fmt::format("bytes up to {}", end),
                      fmt::format("segment {} of the compressed file can't be {}", segment,
                                  stream.first == 0 ? "found" : "read")});
    }
}
} // namespace rfm_tool
