#include "utl_TempFile.h"

#include "utl_FileException.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

static std::string TempDirectory()
{
    const char* directory = std::getenv("TMPDIR");
    return directory != nullptr && directory[0] == '/' ? directory : "/tmp";
}

static cow_String MakeFresh()
{
    std::string name = TempDirectory() + "/rfm_XXXXXX";
    // Made by nobody else before, and for this user alone.
    const utl_Descriptor made(::mkostemp(name.data(), O_CLOEXEC));
    if (!made.IsOpen()) utl_FileException("create", cow_String(name), errno).Throw(__FILE__, __LINE__);
    return cow_String(name);
}

utl_TempFile::utl_TempFile(const cow_String& name) : m_Name(name.IsEmpty() ? MakeFresh() : name) {}

utl_TempFile::~utl_TempFile() { ::unlink(m_Name.CString()); }

bool utl_TempFile::OpenIfPresent()
{
    // Not blocking: a FIFO that took the name must not hold its reader up.
    m_Descriptor.Reset(::open(m_Name.CString(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status
    {
    };
    if (m_Descriptor.IsOpen() && (::fstat(m_Descriptor.Get(), &status) != 0 || !S_ISREG(status.st_mode)))
        m_Descriptor.Reset();
    return m_Descriptor.IsOpen();
}

std::uint64_t utl_TempFile::AvailableSpace() const
{
    const std::string name(m_Name.View());
    const std::size_t slash = name.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : name.substr(0, slash + 1);
    struct statvfs space
    {
    };
    if (::statvfs(directory.c_str(), &space) != 0)
        utl_FileException("look at", m_Name, errno).Throw(__FILE__, __LINE__);
    return static_cast<std::uint64_t>(space.f_bavail) * space.f_frsize;
}
