#pragma once

#include "SectorBytes.h"
#include "SpaceBytes.h"

#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <utility>

namespace rfm_tool
{
/// What a table may have reserved without any of it being stored.
inline constexpr std::int64_t kMostReserve = std::int64_t{1} << 31;

/// A stream in a compressed file that may be damaged.
struct StoredStream
{
    std::uint32_t first = 0;   // its first sector
    bool isInSequence = false; // its sectors lie one behind the other, whatever their links say
    bool isWhole = false;      // it can be inflated
    std::int64_t length = 0;   // inflated
    std::int64_t packed = 0;   // as it is stored

    std::uint32_t Next(std::uint32_t sector, const char* bytes) const
    {
        return isInSequence ? sector + 1 : rfm_LoadWord(bytes + rfm_SectorDataBytes);
    }
};

/// Hands on what a stream that is whole holds.
void InflateStream(const SectorBytes& file, const StoredStream& stream, const StreamInflater::Sink& sink);

/// Where the bytes of the database in a compressed file lie.
struct SegmentMap
{
    std::int64_t segmentSize = 0;
    std::int64_t end = 0;                         // of the database's bytes
    std::map<std::int64_t, StoredStream> streams; // by segment; one without is zeros

    const StoredStream* Find(std::int64_t segment) const
    {
        const auto found = streams.find(segment);
        return found == streams.end() ? nullptr : &found->second;
    }
};

/// Reads the database by such a map. What can't be inflated reads as zero. It keeps the segments that were read last, 1
/// MiB of them, or one when that is larger.
class SegmentReader
{
public:
    SegmentReader(const SectorBytes& file, const SegmentMap& map) : m_File(file), m_Map(map) {}
    /// Bytes up to the map's end; the rest of `bytes` is zero.
    int Read(std::int64_t offset, char* bytes, int count);

private:
    const std::string& Inflated(std::int64_t segment, const StoredStream& stream);

    const SectorBytes& m_File;
    const SegmentMap& m_Map;
    std::list<std::pair<std::int64_t, std::string>> m_Kept; // the last one first
};

/// The database in a compressed file that the library may refuse.
class SegmentBytes : public ByteSource
{
public:
    SegmentBytes(const std::string& path, SegmentMap map)
        : m_File(path),
          m_Map(std::move(map)),
          m_Reader(m_File, m_Map)
    {
    }
    std::int64_t Size() const override { return m_Map.end; }
    int Read(std::int64_t offset, char* bytes, int count) override
    {
        return m_Reader.Read(offset, bytes, count);
    }
    void Refresh() override {}

private:
    SectorBytes m_File;
    SegmentMap m_Map;
    SegmentReader m_Reader;
};
} // namespace rfm_tool
