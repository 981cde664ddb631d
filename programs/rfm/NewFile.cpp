#include "NewFile.h"

#include "Failure.h"
#include "RemoteDoor.h"
#include "RemoteScratch.h"
#include "Text.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace rfm_tool
{
namespace
{
constexpr std::array kSignals{SIGINT, SIGTERM, SIGHUP};
constexpr std::string_view kMakeRoom = "make room or write elsewhere; nothing was left there";

// What a signal removes: a path is copied here, as nothing else may be touched there.
char unfinished[PATH_MAX];
volatile std::sig_atomic_t isUnfinished = 0;
struct sigaction before[kSignals.size()];

extern "C" void RemoveAndLeave(int number)
{
    if (isUnfinished != 0) ::unlink(unfinished);
    RemoveRemoteScratch();
    if (number == SIGINT) ::_exit(ExitInterrupted);
    // Back to what the signal means without a handler: whoever waits for the process sees which one it was.
    std::signal(number, SIG_DFL);
    ::raise(number);
}

// A signal that is ignored, as nohup has it, stays ignored.
void WatchSignals(const std::string& path)
{
    path.copy(unfinished, path.size());
    unfinished[path.size()] = '\0';
    isUnfinished = 1;
    struct sigaction action = {};
    action.sa_handler = RemoveAndLeave;
    for (std::size_t i = 0; i < kSignals.size(); ++i)
    {
        ::sigaction(kSignals[i], nullptr, &before[i]);
        if (before[i].sa_handler != SIG_IGN) ::sigaction(kSignals[i], &action, nullptr);
    }
}

void LeaveSignals()
{
    isUnfinished = 0;
    for (std::size_t i = 0; i < kSignals.size(); ++i) ::sigaction(kSignals[i], &before[i], nullptr);
}

std::string FolderOf(const std::string& path)
{
    const std::string folder = std::filesystem::path(path).parent_path().string();
    return folder.empty() ? "." : folder;
}

// There has to be a folder into which a file can be made.
void RequireFolder(const std::string& path, const std::string& folder)
{
    if (::access(folder.c_str(), W_OK | X_OK) == 0) return;
    const int error = errno;
    if (error == ENOENT || error == ENOTDIR)
        throw Failure(ExitOutput, OneLine(path), fmt::format("the folder {} is not there", OneLine(folder)),
                      "make it or write elsewhere");
    throw Failure(ExitOutput, OneLine(path),
                  fmt::format("no file can be made in {}: {}", OneLine(folder), std::strerror(error)),
                  "write elsewhere");
}

// As long for every OUT, so that a long name leaves room for it.
std::string WorkName()
{
    std::uint64_t random = 0;
    if (::getrandom(&random, sizeof random, 0) != sizeof random)
        random = static_cast<std::uint64_t>(::getpid());
    return fmt::format(".rfm-{:016x}.part", random);
}

// The errno value of a refusal, 0 when all went well.
int Synchronize(const std::string& path, int flags)
{
    const int descriptor = ::open(path.c_str(), flags | O_CLOEXEC);
    if (descriptor < 0) return errno;
    const int error = ::fsync(descriptor) == 0 ? 0 : errno;
    ::close(descriptor);
    return error;
}

bool IsSameFile(const struct stat& status, const std::string& path)
{
    struct stat other = {};
    return ::stat(path.c_str(), &other) == 0 && other.st_dev == status.st_dev &&
           other.st_ino == status.st_ino;
}
} // namespace

NewFile::NewFile(const std::string& path, bool mayReplace, const std::string& source)
    : m_Path(path),
      m_Target(path)
{
    if (IsRemotePath(path))
        throw Failure(ExitUsage, OneLine(path), "other hosts are read only",
                      "give the name of a file on this host");
    struct stat status = {};
    if (::lstat(path.c_str(), &status) == 0)
    {
        const bool leadsSomewhere = ::stat(path.c_str(), &status) == 0;
        if (leadsSomewhere && !IsRemotePath(source) && IsSameFile(status, source))
            throw Failure(ExitUsage, OneLine(path), "is the file that is read",
                          "give another name for the copy");
        if (S_ISDIR(status.st_mode))
            throw Failure(ExitUsage, OneLine(path), "is a directory", "give the name of a file in it");
        if (leadsSomewhere && !S_ISREG(status.st_mode))
            throw Failure(ExitUsage, OneLine(path), "is no regular file", "give the name of a new file");
        if (!mayReplace) throw Failure(ExitUsage, OneLine(path), "is there already", "--force replaces it");
        if (leadsSomewhere)
        {
            m_Target = std::filesystem::canonical(path).string();
            m_Mode = status.st_mode & 07777U;
        }
        m_Replaces = true;
    }
    m_WorkPath = FolderOf(m_Target) + "/" + WorkName();
    if (m_WorkPath.size() >= sizeof unfinished) ThrowUnwritten(std::strerror(ENAMETOOLONG));
    RequireFolder(m_Path, FolderOf(m_Target));
    WatchSignals(m_WorkPath);
}

NewFile::~NewFile()
{
    if (isUnfinished != 0) ::unlink(m_WorkPath.c_str());
    LeaveSignals();
}

// What the library says names the file under which it wrote.
void NewFile::ThrowUnwritten(const std::string& why) const
{
    std::string words = why;
    const std::string work = OneLine(m_WorkPath);
    const std::string own = OneLine(m_Path);
    for (std::size_t place = words.find(work); !work.empty() && place != std::string::npos;
         place = words.find(work, place + own.size()))
        words.replace(place, work.size(), own);
    throw Failure(ExitOutput, OneLine(m_Path), words, std::string(kMakeRoom));
}

// The bytes reach the disk before the name does: a power cut finds the old file or the new one.
void NewFile::Publish()
{
    if (m_Mode != 0 && ::chmod(m_WorkPath.c_str(), m_Mode) != 0) ThrowUnwritten(std::strerror(errno));
    if (const int error = Synchronize(m_WorkPath, O_RDONLY)) ThrowUnwritten(std::strerror(error));
    const unsigned flags = m_Replaces ? 0 : RENAME_NOREPLACE;
    int result = ::renameat2(AT_FDCWD, m_WorkPath.c_str(), AT_FDCWD, m_Target.c_str(), flags);
    // Some file systems don't know the flag.
    if (result != 0 && errno == EINVAL) result = ::rename(m_WorkPath.c_str(), m_Target.c_str());
    if (result != 0) ThrowUnwritten(std::strerror(errno));
    isUnfinished = 0;
    // The name is there for everybody; that it may not outlive a power cut is no reason to take it away again.
    static_cast<void>(Synchronize(FolderOf(m_Target), O_RDONLY | O_DIRECTORY));
}

QuietStandardError::QuietStandardError() : m_Kept(::dup(STDERR_FILENO))
{
    const int nothing = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (m_Kept >= 0 && nothing >= 0) ::dup2(nothing, STDERR_FILENO);
    if (nothing >= 0) ::close(nothing);
}

QuietStandardError::~QuietStandardError()
{
    if (m_Kept < 0) return;
    std::fflush(stderr);
    ::dup2(m_Kept, STDERR_FILENO);
    ::close(m_Kept);
}
} // namespace rfm_tool
