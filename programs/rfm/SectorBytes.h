#pragma once

#include "rfm_SectorFormat.h"

#include <zlib.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace rfm_tool
{
inline std::int64_t OffsetOfSector(std::uint32_t sector) { return std::int64_t{sector} * rfm_SectorBytes; }
inline std::int64_t OffsetOfLink(std::uint32_t sector)
{
    return OffsetOfSector(sector) + rfm_SectorDataBytes;
}

/// The bytes of a compressed file as the disk has them, read without the library.
class SectorBytes
{
public:
    /// Throws: Failure when the file can't be opened or read; so do all others.
    explicit SectorBytes(const std::string& path);
    SectorBytes(const SectorBytes&) = delete;
    SectorBytes& operator=(const SectorBytes&) = delete;
    ~SectorBytes();

    std::int64_t Size() const noexcept { return m_Size; }
    /// Whole ones.
    std::int64_t SectorCount() const noexcept { return m_Size / rfm_SectorBytes; }
    /// Bytes read; what the file lacks is zero.
    int Read(std::int64_t offset, char* bytes, int count) const;
    std::uint32_t WordAt(std::int64_t offset) const;

private:
    std::string m_Path;
    int m_Descriptor;
    std::int64_t m_Size = 0;
};

/// zlib's own reader of one stream, which hands on what comes out and counts it. It takes a window of 64 KiB.
class StreamInflater
{
public:
    /// Gets all that comes out, in whole windows but for the last.
    using Sink = std::function<void(std::string_view)>;

    /// A stream of more than `most` bytes is none.
    StreamInflater(std::int64_t most, Sink sink);
    StreamInflater(const StreamInflater&) = delete;
    StreamInflater& operator=(const StreamInflater&) = delete;
    ~StreamInflater();

    /// Whether more bytes are wanted.
    bool Feed(char* bytes, std::size_t count);
    std::int64_t Decoded() const noexcept { return m_Decoded; }
    /// Bytes of the stream itself so far.
    std::int64_t Consumed() const noexcept { return static_cast<std::int64_t>(m_Stream.total_in); }
    /// What is wrong; empty for a whole stream that is not too long.
    std::string Fault() const;

private:
    void HandOn();

    z_stream m_Stream{};
    std::vector<Bytef> m_Window;
    Sink m_Sink;
    std::int64_t m_Most;
    std::int64_t m_Decoded = 0;
    bool m_IsAtEnd = false;
    std::string m_Fault;
};
} // namespace rfm_tool
