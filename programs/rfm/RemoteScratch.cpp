#include "RemoteScratch.h"

#include "Failure.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace rfm_tool
{
namespace
{
constexpr std::array kSignals{SIGINT, SIGTERM, SIGHUP};

// In plain memory, as a handler of signals may touch nothing else.
char scratch[PATH_MAX];
volatile std::sig_atomic_t isThere = 0;

extern "C" void RemoveScratchAndLeave(int number)
{
    RemoveRemoteScratch();
    if (number == SIGINT) ::_exit(ExitInterrupted);
    std::signal(number, SIG_DFL);
    ::raise(number);
}

// A signal that is ignored, as nohup has it, stays ignored.
void WatchSignals()
{
    struct sigaction action = {};
    action.sa_handler = RemoveScratchAndLeave;
    for (const int number : kSignals)
    {
        struct sigaction before = {};
        ::sigaction(number, nullptr, &before);
        if (before.sa_handler != SIG_IGN) ::sigaction(number, &action, nullptr);
    }
}

// What the kernel puts into the buffer of getdents64.
struct Entry
{
    std::uint64_t number;
    std::int64_t next;
    unsigned short bytes;
    unsigned char type;
    char name[1];
};

// All files; there are no folders in it. What readdir does may not be done in a handler: it takes memory.
void RemoveFilesIn(int folder)
{
    alignas(Entry) char entries[4096];
    for (;;)
    {
        const long filled = ::syscall(SYS_getdents64, folder, entries, sizeof entries);
        if (filled <= 0) return;
        for (long place = 0; place < filled;)
        {
            const Entry* entry = reinterpret_cast<const Entry*>(entries + place);
            place += entry->bytes;
            ::unlinkat(folder, entry->name, 0);
        }
    }
}
} // namespace

void UseRemoteScratch()
{
    if (isThere != 0) return;
    const char* given = std::getenv("TMPDIR");
    std::string path = given != nullptr && given[0] == '/' ? given : "/tmp";
    path += "/rfm-remote-XXXXXX";
    if (path.size() >= sizeof scratch || ::mkdtemp(path.data()) == nullptr) return;
    path.copy(scratch, path.size());
    isThere = 1;
    ::setenv("TMPDIR", scratch, 1);
    WatchSignals();
}

void RemoveRemoteScratch() noexcept
{
    if (isThere == 0) return;
    isThere = 0;
    const int folder = ::open(scratch, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder >= 0) RemoveFilesIn(folder);
    if (folder >= 0) ::close(folder);
    ::rmdir(scratch);
}
} // namespace rfm_tool
