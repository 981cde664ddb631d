#include "rds_RemoteConnection.h"

#include "rds_Failure.h"
#include "rds_RemoteShell.h"
#include "uti_FilePermissions.h"
#include "utl_FilePath.h"
#include "utl_SystemText.h"
#include "utl_UrlParser.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

static constexpr const char* kNetPasswordFile = ".marlek_net_passwd";
static constexpr std::size_t kLeastPasswordBytes = 8;

// kept: where only one half of a home directory is given, there is none.
// Test: WithOneHalfOfTheHomeDirectoryNoFileIsFound.
static std::optional<cow_String> HomeDirectory()
{
    const char* drive = std::getenv("HOMEDRIVE");
    const char* path = std::getenv("HOMEPATH");
    const char* home = std::getenv("HOME");
    cow_String directory;
    if (drive != nullptr && path != nullptr)
        directory = cow_String(drive) + path;
    else if (drive == nullptr && path == nullptr && home != nullptr)
        directory = home;
    if (directory.IsEmpty() || utl_UrlParser::IsUrl(directory)) return std::nullopt;
    return directory;
}

// The empty text when there is no such file, or none that may be read.
static cow_String FindInHome(const cow_String& fileName)
{
    const std::optional<cow_String> home = HomeDirectory();
    if (!home) return {};
    const utl_FilePath file(*home + "/" + fileName, "");
    return file.Exists() && file.IsReadable() ? file.AbsolutePathName() : cow_String();
}

[[noreturn]] static void FailAsTooOpen(const cow_String& path)
{
    rds_Fail("*** Error: Permissions for %s are too open: reason: Your file should not be accessible by "
             "everyone. Remove privileges for everyone and try again \n",
             path);
}

[[noreturn]] static void FailToRead(const cow_String& path, const cow_String& reason)
{
    rds_Fail("*** Error: Can't read password from file %s: reason: %s \n", path, reason);
}

static utl_Descriptor OpenPassword(const cow_String& path)
{
    // Not blocking: a FIFO without a writer must not hold its reader up.
    utl_Descriptor file(::open(path.CString(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file.IsOpen())
        rds_Fail("*** Error: Open failed for file %s: reason: %s \n", path, utl_SystemText(errno));
    struct stat status
    {
    };
    if (::fstat(file.Get(), &status) != 0) FailToRead(path, utl_SystemText(errno));
    // What was looked at by its name may have been another file.
    if ((status.st_mode & S_IRWXO) != 0) FailAsTooOpen(path);
    // A directory says so itself when it is read.
    if (!S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) FailToRead(path, "It is no regular file");
    return file;
}

// Up to `size` bytes of it.
static void ReadBytes(const utl_Descriptor& file, const cow_String& path, char* bytes, std::size_t size)
{
    std::size_t done = 0;
    while (done < size)
    {
        const ssize_t moved = ::read(file.Get(), bytes + done, size - done);
        if (moved == 0) return;
        if (moved > 0)
            done += static_cast<std::size_t>(moved);
        else if (errno != EINTR)
            FailToRead(path, utl_SystemText(errno));
    }
}

bool rds_RemoteConnection::ReadHostPasswordFile()
{
    return ReadPasswordFile(cow_String(".marlek_") + m_HostName + "_passwd");
}

bool rds_RemoteConnection::ReadNetPasswordFile() { return ReadPasswordFile(kNetPasswordFile); }

// Nothing is trimmed: a line end is part of the password, here and at the server that reads the same file.
bool rds_RemoteConnection::ReadPasswordFile(const cow_String& fileName)
{
    const cow_String path = FindInHome(fileName);
    if (path.IsEmpty()) return false;
    if (uti_GetFilePermissionsForEveryone(path.CString()) != 0) FailAsTooOpen(path);
    char text[kMostKeyBytes + 1] = {};
    ReadBytes(OpenPassword(path), path, text, sizeof text);
    const std::size_t length = ::strnlen(text, sizeof text);
    if (length > kMostKeyBytes)
        rds_Fail("*** Error: Password from file %s can't have more than %d characters. \n", path,
                 kMostKeyBytes);
    StoreKey(text);
    if (length < kLeastPasswordBytes)
        rds_Fail("*** Error: Password from file %s must be at least eight characters long. \n", path);
    return true;
}

bool rds_RemoteConnection::ReadRemotePasswordFile()
{
    rds_RemoteCommand command = rds_LoginCommand(*this, rds_PortChoice::Assigned);
    command.arguments.Append(cow_String("cat ") + kNetPasswordFile);
    rds_RemoteShell shell(command);
    char line[kMostKeyBytes + 2] = {}; // one byte more than a key may have, so that a longer one shows
    const bool came = shell.Child().GetLine(line, sizeof line) != 0;
    const bool fits = std::strlen(line) <= kMostKeyBytes;
    if (came && fits) StoreKey(line);
    if (shell.Child().Reap(kMostReapSeconds) != 0)
        rds_Fail("*** Error: Can't get password from remote server %s:\nreason: %s", m_HostName,
                 shell.Reason());
    if (!fits)
        rds_Fail("*** Error: Password from remote server %s can't have more than %d characters. \n",
                 m_HostName, kMostKeyBytes);
    return true;
}
