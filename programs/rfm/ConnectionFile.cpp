#include "ConnectionFile.h"

#include "Failure.h"
#include "NewFile.h"
#include "Text.h"
#include "cls_ReadVisitor.h"
#include "cls_WriteVisitor.h"
#include "nex_Exception.h"
#include "utl_Descriptor.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <vector>

namespace rfm_tool
{
namespace
{
constexpr off_t kMostBytes = 16 * 1024 * 1024;

std::string_view AbsoluteIn(const char* variable)
{
    const char* value = std::getenv(variable);
    return value != nullptr && value[0] == '/' ? value : "";
}

[[noreturn]] void Refuse(const std::string& path, const std::string& why, const std::string& remedy)
{
    throw Failure(ExitUnreadable, OneLine(path), why, remedy);
}

void RequirePrivate(const std::string& path, const struct stat& status)
{
    constexpr mode_t kOfOthers = 077;
    if (!S_ISREG(status.st_mode)) Refuse(path, "is no regular file", "move it away");
    if (status.st_uid != ::geteuid())
        Refuse(path, "belongs to another user", "move it away, and add the connections anew");
    if ((status.st_mode & kOfOthers) != 0)
        Refuse(path, "the keys in it are open to other users",
               fmt::format("`chmod 600 {}`, and start the servers anew if they may have been read",
                           OneLine(path)));
    if (status.st_size > kMostBytes) Refuse(path, "is too large for a file of connections", "move it away");
}

std::string ReadAll(const std::string& path, int descriptor)
{
    std::string bytes;
    char block[65536];
    for (;;)
    {
        const ssize_t got = ::read(descriptor, block, sizeof block);
        if (got == 0) return bytes;
        if (got < 0) Refuse(path, std::strerror(errno), "look after its file system");
        bytes.append(block, static_cast<std::size_t>(got));
        if (bytes.size() > static_cast<std::size_t>(kMostBytes)) return bytes;
    }
}

// Nothing when there is no file.
std::optional<std::string> ReadPrivate(const std::string& path)
{
    // Not blocking: a FIFO that has the name must not hold the tool up.
    const utl_Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file.IsOpen() && (errno == ENOENT || errno == ENOTDIR)) return {};
    if (!file.IsOpen()) Refuse(path, std::strerror(errno), "it has to be yours to read");
    struct stat status = {};
    if (::fstat(file.Get(), &status) != 0) Refuse(path, std::strerror(errno), "look after its file system");
    RequirePrivate(path, status);
    return ReadAll(path, file.Get());
}

rds_RemoteConnectionsRep& Registry() { return omi_Singleton<rds_RemoteConnectionsRep>::Instance(); }

void TakeStream(const std::string& bytes)
{
    const cls_ReadStream stream(cow_String(bytes.data(), static_cast<int>(bytes.size())));
    if (stream.Count() != 1) nex_ThrowText("it does not hold one registry");
    const cls_ReadVisitor visitor = stream.Visitor(0);
    visitor.CheckType(rds_RemoteConnections::TypeId());
    Registry().SetRepository(rds_RemoteConnections(visitor));
}

[[noreturn]] void FailToWrite(const std::string& path, int error)
{
    throw Failure(ExitOutput, OneLine(path), std::strerror(error),
                  "connections are kept there: make it yours to write, or set XDG_CONFIG_HOME");
}

void WriteAll(const NewFile& file, const cow_String& bytes)
{
    const utl_Descriptor target(
        ::open(file.WorkPath().c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!target.IsOpen()) file.ThrowUnwritten(std::strerror(errno));
    std::string_view left = bytes.View();
    while (!left.empty())
    {
        const ssize_t put = ::write(target.Get(), left.data(), left.size());
        if (put < 0 && errno != EINTR) file.ThrowUnwritten(std::strerror(errno));
        if (put > 0) left.remove_prefix(static_cast<std::size_t>(put));
    }
}
} // namespace

std::string ConnectionFilePath()
{
    if (const std::string_view folder = AbsoluteIn("XDG_CONFIG_HOME"); !folder.empty())
        return std::string(folder) + "/rfm/connections";
    if (const std::string_view home = AbsoluteIn("HOME"); !home.empty())
        return std::string(home) + "/.config/rfm/connections";
    throw Failure(ExitMissing, "connections", "neither XDG_CONFIG_HOME nor HOME tells where they are kept",
                  "set HOME");
}

void LoadConnections()
{
    const std::string path = ConnectionFilePath();
    const std::optional<std::string> bytes = ReadPrivate(path);
    if (!bytes) return;
    try
    {
        TakeStream(*bytes);
    }
    catch (const nex_Exception& cause)
    {
        Refuse(path, "the connections can't be read: " + PlainMessage(cause.what()),
               "move it away, and add them anew");
    }
}

ConnectionChange::ConnectionChange() : m_Path(ConnectionFilePath()), m_Folder(-1)
{
    const std::filesystem::path folder = std::filesystem::path(m_Path).parent_path();
    std::error_code refused;
    std::filesystem::create_directories(folder.parent_path(), refused);
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) FailToWrite(folder, errno);
    if (::access(folder.c_str(), W_OK | X_OK) != 0) FailToWrite(folder, errno);
    m_Folder = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (m_Folder < 0) FailToWrite(folder, errno);
    // Some file systems know no locks: two changes at the same moment may lose one there.
    static_cast<void>(::flock(m_Folder, LOCK_EX));
    try
    {
        LoadConnections();
    }
    catch (...)
    {
        ::close(m_Folder);
        throw;
    }
}

ConnectionChange::~ConnectionChange() { ::close(m_Folder); }

void ConnectionChange::Save() const
{
    cls_WriteStream stream;
    Connections().DBWrite(stream.Visitor());
    NewFile file(m_Path, true, "");
    WriteAll(file, stream.Bytes());
    file.Publish();
}

rds_RemoteConnections& Connections() { return Registry().Connections(); }

rds_RemoteConnection& ConnectionNamed(const std::string& name)
{
    const cow_String key(name);
    if (Connections().IsMember(key)) return Connections().Get(key);
    std::vector<std::string> names;
    for (const cow_String& each : Connections().Keys()) names.emplace_back(each.View());
    const std::string_view near = NearestName(name, names);
    throw Failure(ExitMissing, OneLine(name), "no connection has this name",
                  near.empty() ? "`rfm connect list` shows them, `rfm connect add` makes one"
                               : fmt::format("did you mean {}?", OneLine(near)));
}
} // namespace rfm_tool
