#include "SectorBytes.h"

#include "Failure.h"
#include "Text.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

namespace rfm_tool
{
namespace
{
constexpr uInt kWindowBytes = 65536;
}

SectorBytes::SectorBytes(const std::string& path)
    : m_Path(path),
      m_Descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC))
{
    struct stat status = {};
    if (m_Descriptor < 0 || ::fstat(m_Descriptor, &status) != 0)
        throw Failure(ExitUnreadable, OneLine(path), std::strerror(errno), "");
    m_Size = status.st_size;
}

SectorBytes::~SectorBytes() { ::close(m_Descriptor); }

int SectorBytes::Read(std::int64_t offset, char* bytes, int count) const
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

std::uint32_t SectorBytes::WordAt(std::int64_t offset) const
{
    char bytes[4];
    Read(offset, bytes, sizeof bytes);
    return rfm_LoadWord(bytes);
}

StreamInflater::StreamInflater(std::int64_t most, Sink sink)
    : m_Window(kWindowBytes),
      m_Sink(std::move(sink)),
      m_Most(most)
{
    if (::inflateInit(&m_Stream) != Z_OK) throw std::bad_alloc();
    m_Stream.next_out = m_Window.data();
    m_Stream.avail_out = kWindowBytes;
}

StreamInflater::~StreamInflater() { ::inflateEnd(&m_Stream); }

// A full window may leave bytes inside zlib, which come out without any more going in.
bool StreamInflater::Feed(char* bytes, std::size_t count)
{
    m_Stream.next_in = reinterpret_cast<Bytef*>(bytes);
    m_Stream.avail_in = static_cast<uInt>(count);
    int result = Z_OK;
    for (bool isFull = true; result == Z_OK && m_Decoded <= m_Most && (m_Stream.avail_in > 0 || isFull);)
    {
        const uInt room = m_Stream.avail_out;
        result = ::inflate(&m_Stream, Z_NO_FLUSH);
        m_Decoded += room - m_Stream.avail_out;
        isFull = m_Stream.avail_out == 0;
        if (isFull || result == Z_STREAM_END) HandOn();
    }
    m_IsAtEnd = result == Z_STREAM_END;
    if (result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR)
        m_Fault = m_Stream.msg != nullptr ? m_Stream.msg : "bytes that are no zlib stream";
    return !m_IsAtEnd && m_Fault.empty() && m_Decoded <= m_Most;
}

void StreamInflater::HandOn()
{
    m_Sink({reinterpret_cast<const char*>(m_Window.data()), kWindowBytes - m_Stream.avail_out});
    m_Stream.next_out = m_Window.data();
    m_Stream.avail_out = kWindowBytes;
}

std::string StreamInflater::Fault() const
{
    if (!m_Fault.empty()) return m_Fault;
    if (m_Decoded > m_Most) return fmt::format("more than {} bytes", m_Most);
    return m_IsAtEnd ? "" : fmt::format("no end after {} bytes", m_Decoded);
}
} // namespace rfm_tool
