#include "Log.h"

#include "Failure.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <exception>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qlnsrvd
{
namespace
{
// Strangers can make lines as fast as they connect; they must not fill a disk.
constexpr off_t kMostBytes = off_t{64} << 20;
constexpr std::size_t kMostLineBytes = 500;

std::string Now()
{
    const std::time_t now = std::time(nullptr);
    std::tm parts = {};
    ::gmtime_r(&now, &parts);
    char text[32];
    return {text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &parts)};
}
} // namespace

Log::Log(const std::string& file)
{
    if (file.empty()) return;
    // Not through a symbolic link, which somebody else may have put there, and never waiting for a FIFO's reader.
    m_File = farend::Descriptor(
        ::open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600));
    if (!m_File.IsOpen()) throw farend::Failure("cannot write the log " + file, errno);
}

void Log::Write(const std::string& who, const std::string& event) const noexcept
{
    struct stat status = {};
    if (!m_File.IsOpen() || ::fstat(m_File.Get(), &status) != 0 || status.st_size > kMostBytes) return;
    try
    {
        std::string line = Now() + " qlnsrvd[" + std::to_string(::getpid()) + "] " + who + ": " + event;
        line.resize(std::min(line.size(), kMostLineBytes));
        std::replace_if(
            line.begin(), line.end(), [](char byte) { return byte < ' ' || byte > '~'; }, '?');
        line += '\n';
        // A failure to log is nobody's failure.
        [[maybe_unused]] const ssize_t written = ::write(m_File.Get(), line.data(), line.size());
    }
    catch (const std::exception&)
    {
        return; // no memory for a line: the event happens without it
    }
}
} // namespace qlnsrvd
