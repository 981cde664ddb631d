#include "FileTarget.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace rfm_tool
{
namespace
{
constexpr std::size_t kGatheredBytes = 1 << 18;
constexpr mode_t kRights = 0666; // less what the user's mask takes
} // namespace

FileTarget::FileTarget(const NewFile& file)
    : m_File(file),
      m_Descriptor(::open(file.WorkPath().c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kRights))
{
    if (m_Descriptor < 0) m_File.ThrowUnwritten(std::strerror(errno));
    m_Pending.reserve(kGatheredBytes + kGatheredBytes / 4);
}

FileTarget::~FileTarget()
{
    if (m_Descriptor >= 0) ::close(m_Descriptor);
}

void FileTarget::FlushWhenFull()
{
    if (m_Pending.size() >= kGatheredBytes) Flush();
}

void FileTarget::Flush()
{
    std::string_view left(m_Pending);
    while (!left.empty())
    {
        const ssize_t written = ::write(m_Descriptor, left.data(), left.size());
        if (written < 0 && errno != EINTR) m_File.ThrowUnwritten(std::strerror(errno));
        if (written > 0) left.remove_prefix(static_cast<std::size_t>(written));
    }
    m_Pending.clear();
}

void FileTarget::Write(std::string_view bytes)
{
    while (!bytes.empty())
    {
        const std::string_view piece = bytes.substr(0, kGatheredBytes);
        m_Pending.append(piece);
        FlushWhenFull();
        bytes.remove_prefix(piece.size());
    }
}

void FileTarget::Rewrite(std::string_view firstBytes)
{
    Flush();
    if (::lseek(m_Descriptor, 0, SEEK_SET) != 0) m_File.ThrowUnwritten(std::strerror(errno));
    m_Pending = firstBytes;
    Flush();
}

void FileTarget::Close()
{
    Flush();
    const int descriptor = m_Descriptor;
    m_Descriptor = -1;
    if (::close(descriptor) != 0 && errno != EINTR) m_File.ThrowUnwritten(std::strerror(errno));
}
} // namespace rfm_tool
