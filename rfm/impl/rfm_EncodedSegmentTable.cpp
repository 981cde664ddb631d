#include "rfm_EncodedSegmentTable.h"

#include "nex_Exception.h"
#include "rfm_Exc.h"

#include <algorithm>
#include <climits>
#include <utility>
#include <vector>

namespace
{
// Objects that may be there before it's worth looking which of them say anything: half a MiB.
constexpr std::size_t kFirstSweep = 4096;
// Larger segments are not decoded ahead: that takes the memory of three. Nor in part: few of them come twice.
constexpr int kMostAheadSegment = 0x100000;
} // namespace

rfm_EncodedSegmentTable::rfm_EncodedSegmentTable(const cow_String& name, std::unique_ptr<rfm_Codec> codec,
                                                 int segmentSize)
    : rfm_SectorArray(name, rfm_EncodedHeaderBytes),
      m_Cache(segmentSize),
      m_Codec(std::move(codec)),
      m_SegmentSize(segmentSize),
      m_LastLength(segmentSize),
      m_SweepAt(kFirstSweep)
{
}

rfm_EncodedSegmentTable::rfm_EncodedSegmentTable(const cow_String& name, std::unique_ptr<rfm_Codec> codec,
                                                 utl_FileAccess access)
    : rfm_SectorArray(name, access),
      m_Codec(std::move(codec)),
      m_SweepAt(kFirstSweep)
{
    ReadTableHeader();
}

rfm_EncodedSegmentTable::~rfm_EncodedSegmentTable() = default;

void rfm_EncodedSegmentTable::ReadTableHeader()
{
    char bytes[rfm_EncodedHeaderBytes] = {};
    if (ReadUserHeader(bytes, sizeof bytes) != rfm_EncodedHeaderBytes) nex_ThrowAssert("cnt == sizeof(tmp)");
    const rfm_EncodedHeader header = rfm_DecodeEncodedHeader(bytes);
    if (header.magic != rfm_EncodedMagic) nex_ThrowAssert("tmp[0] == MAGIC");
    if (header.version != rfm_EncodedVersion) nex_ThrowAssert("tmp[1] == CURRENT_VERSION");
    if (!rfm_IsSoundEncodedHeader(header)) rfm_ThrowEncodedCorrupt();
    m_SegmentSize = header.segmentSize;
    m_Cache = rfm_SegmentBufferCache(m_SegmentSize);
    m_NumSegments = header.segmentCount;
    m_LastLength = header.lastLength;
    if (!ReadOnly() || m_SegmentSize > kMostAheadSegment) return;
    m_Ahead = std::make_unique<rfm_SegmentsAhead>(*this, m_Cache, *m_Codec, m_NumSegments);
    m_Known = std::make_unique<rfm_KnownSegments>(m_SegmentSize);
}

rfm_EncodedSegment* rfm_EncodedSegmentTable::Find(int index) const
{
    const auto found = m_Segments.find(index);
    return found != m_Segments.end() ? found->second.get() : nullptr;
}

rfm_EncodedSegment* rfm_EncodedSegmentTable::Make(int index, int decodedLength, int storedLength)
{
    auto made = std::make_unique<rfm_EncodedSegment>(index, this, &m_Cache, m_Codec.get(), decodedLength,
                                                     storedLength, m_Ahead.get(), m_Known.get());
    return m_Segments.emplace(index, std::move(made)).first->second.get();
}

rfm_EncodedSegment* rfm_EncodedSegmentTable::GetSegment(int index)
{
    if (index < 0) nex_ThrowAssert("index >= 0");
    if (index == INT_MAX) nex_ThrowAssert("index < INT_MAX");
    if (m_Segments.size() >= m_SweepAt) Sweep();
    if (index >= m_NumSegments) GrowTo(index + 1);
    if (rfm_EncodedSegment* segment = Find(index)) return segment;
    const int length = index < m_NumSegments - 1 ? m_SegmentSize : m_LastLength;
    return Make(index, length, length);
}

// The old last segment gets its object before it becomes a full one: its stream may be short, and is stored anew.
void rfm_EncodedSegmentTable::GrowTo(int count)
{
    const int old = m_NumSegments;
    if (old > 0) GetSegment(old - 1)->SetDecodedLength(m_SegmentSize);
    // Streams behind the end were left by a truncation. Where they would show again, they are to be written over.
    for (int index = old; index < std::min(count, CellCount()); ++index)
        if (HasChain(index)) Make(index, 0, 0)->SetDecodedLength(index < count - 1 ? m_SegmentSize : 0);
    if (Find(count - 1) == nullptr) Make(count - 1, 0, 0);
    m_NumSegments = count;
    m_LastLength = 0;
}

void rfm_EncodedSegmentTable::Truncate(int count)
{
    if (count < 0) nex_ThrowAssert("index >= 0");
    if (count >= m_NumSegments) nex_ThrowAssert("index < m_NumSegments");
    for (const auto& [index, segment] : m_Segments)
        if (index >= count && segment->IsArmed()) nex_ThrowAssert("!m_Armed");
    std::erase_if(m_Segments,
                  [&](const auto& entry)
                  {
                      if (entry.first < count) return false;
                      m_Cache.Forget(entry.first); // first: it names the object as the holder
                      return true;
                  });
    m_NumSegments = count;
    m_LastLength = m_SegmentSize;
}

void rfm_EncodedSegmentTable::Sweep()
{
    std::erase_if(m_Segments,
                  [&](const auto& entry)
                  {
                      if (entry.first >= m_NumSegments - 1 || !entry.second->IsForgettable(m_SegmentSize))
                          return false;
                      m_Cache.Forget(entry.first); // of a load that failed, or that no read came to
                      return true;
                  });
    m_SweepAt = kFirstSweep + 2 * m_Segments.size();
}

int rfm_EncodedSegmentTable::LastLength() const
{
    const rfm_EncodedSegment* last = m_NumSegments > 0 ? Find(m_NumSegments - 1) : nullptr;
    return last != nullptr ? last->DecodedLength() : m_LastLength;
}

utl_FileOffset rfm_EncodedSegmentTable::LogicalSize() const
{
    return std::int64_t{m_NumSegments - 1} * m_SegmentSize + LastLength();
}

// Sectors are taken in the order of the segments. Segment 0, with the header and the table of the database, leads to all
// others and is still written last: a writer that dies before has changed nothing of what the last flush leads to but the
// segments that were written over.
void rfm_EncodedSegmentTable::StoreAll(const std::vector<int>& indices)
{
    const bool firstGoesLast = indices.size() > 1 && indices.front() == 0 && HasChain(0);
    if (firstGoesLast) Find(0)->Prepare(m_FirstEncoded);
    for (const int index : indices)
        if (index > 0 || !firstGoesLast) Find(index)->Flush();
    if (firstGoesLast) Find(0)->StoreEncoded(m_FirstEncoded);
}

// kept: a flush without any news writes both headers and the directory all the same.
// Test: AFlushWithoutNewsWritesHeaderAndDirectory.
void rfm_EncodedSegmentTable::Flush()
{
    std::vector<int> dirty;
    for (const auto& [index, segment] : m_Segments)
        if (segment->IsDirty()) dirty.push_back(index);
    std::sort(dirty.begin(), dirty.end());
    StoreAll(dirty);
    char bytes[rfm_EncodedHeaderBytes];
    rfm_EncodeEncodedHeader(
        {.segmentSize = m_SegmentSize, .segmentCount = m_NumSegments, .lastLength = LastLength()}, bytes);
    WriteUserHeader(bytes, sizeof bytes);
    rfm_SectorArray::Flush();
}

void rfm_EncodedSegmentTable::ForgetAhead() noexcept
{
    if (m_Ahead != nullptr) m_Ahead->Forget();
}
