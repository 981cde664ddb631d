#include "SegmentMap.h"

#include <algorithm>
#include <cstring>

namespace rfm_tool
{
namespace
{
constexpr std::int64_t kKeptBytes = 1048576;
}

void InflateStream(const SectorBytes& file, const StoredStream& stream, const StreamInflater::Sink& sink)
{
    StreamInflater inflater(stream.length, sink);
    char bytes[rfm_SectorBytes];
    std::int64_t start = rfm_StreamLengthBytes;
    for (std::uint32_t sector = stream.first; sector < file.SectorCount();)
    {
        file.Read(OffsetOfSector(sector), bytes, rfm_SectorBytes);
        if (!inflater.Feed(bytes + start, static_cast<std::size_t>(rfm_SectorDataBytes - start))) return;
        sector = stream.Next(sector, bytes);
        start = 0;
    }
}

int SegmentReader::Read(std::int64_t offset, char* bytes, int count)
{
    std::memset(bytes, 0, static_cast<std::size_t>(count));
    const std::int64_t end = std::min(offset + count, m_Map.end);
    for (std::int64_t place = offset; place < end;)
    {
        const std::int64_t segment = place / m_Map.segmentSize;
        const std::int64_t start = segment * m_Map.segmentSize;
        const std::int64_t stop = std::min(start + m_Map.segmentSize, end);
        const StoredStream* stream = m_Map.Find(segment);
        if (stream != nullptr && stream->isWhole && place - start < stream->length)
        {
            const std::string& inflated = Inflated(segment, *stream);
            const std::int64_t there = std::min(start + stream->length, stop) - place;
            inflated.copy(bytes + (place - offset), static_cast<std::size_t>(there),
                          static_cast<std::size_t>(place - start));
        }
        place = stop;
    }
    return static_cast<int>(std::max<std::int64_t>(end - offset, 0));
}

const std::string& SegmentReader::Inflated(std::int64_t segment, const StoredStream& stream)
{
    const auto kept =
        std::find_if(m_Kept.begin(), m_Kept.end(), [&](const auto& each) { return each.first == segment; });
    if (kept != m_Kept.end())
    {
        m_Kept.splice(m_Kept.begin(), m_Kept, kept);
        return kept->second;
    }
    const auto most = static_cast<std::size_t>(std::max<std::int64_t>(kKeptBytes / m_Map.segmentSize, 1));
    while (m_Kept.size() >= most) m_Kept.pop_back();
    std::string& inflated = m_Kept.emplace_front(segment, std::string()).second;
    InflateStream(m_File, stream, [&](std::string_view bytes) { inflated += bytes; });
    inflated.resize(static_cast<std::size_t>(stream.length)); // should the file change meanwhile
    return inflated;
}
} // namespace rfm_tool
