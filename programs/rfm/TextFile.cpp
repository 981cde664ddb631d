#include "TextFile.h"

#include "Failure.h"
#include "Text.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace rfm_tool
{
// Without waiting: opening a pipe that nobody writes would never end.
TextFile::TextFile(const std::string& path, const std::string& what)
    : m_Path(path),
      m_Descriptor(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC))
{
    const int error = errno;
    if (m_Descriptor < 0 && (error == ENOENT || error == ENOTDIR))
        throw Failure(ExitMissing, OneLine(path), "no such file", "give the path of " + what);
    if (m_Descriptor < 0)
        throw Failure(ExitUnreadable, OneLine(path), std::strerror(error),
                      "check its rights and those of its folders");
    struct stat status = {};
    const bool isFile = ::fstat(m_Descriptor, &status) == 0 && S_ISREG(status.st_mode);
    m_Size = status.st_size;
    if (isFile) return;
    ::close(m_Descriptor);
    throw Failure(ExitUnreadable, OneLine(path),
                  S_ISDIR(status.st_mode) ? "is a directory" : "is no regular file",
                  "give the path of " + what);
}

TextFile::~TextFile() { ::close(m_Descriptor); }

std::size_t TextFile::Read(char* bytes, std::size_t count)
{
    for (;;)
    {
        const ssize_t read = ::pread(m_Descriptor, bytes, count, m_Offset);
        if (read >= 0)
        {
            m_Offset += read;
            return static_cast<std::size_t>(read);
        }
        if (errno != EINTR)
            throw Failure(ExitUnreadable, OneLine(m_Path), std::strerror(errno),
                          "copy it to a disk that can be read");
    }
}

std::string ReadTextFile(const std::string& path, const std::string& what, std::size_t largest)
{
    TextFile file(path, what);
    std::string text(largest + 1, '\0');
    std::size_t size = 0;
    while (const std::size_t read = file.Read(text.data() + size, text.size() - size)) size += read;
    if (size > largest)
        throw Failure(ExitUnreadable, OneLine(path), "is too large for " + what,
                      "give the path of another file");
    text.resize(size);
    return text;
}
} // namespace rfm_tool
