#include "Process.h"

#include "Descriptor.h"

#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

namespace farend
{
namespace
{
// Neither a dump, be it a file or handed to a collecting program, nor another process of the same user may see the key.
void KeepSecrets()
{
    const rlimit none = {};
    ::setrlimit(RLIMIT_CORE, &none);
    ::prctl(PR_SET_DUMPABLE, 0);
}
} // namespace

void SetUpProcess()
{
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGCHLD,
                SIG_DFL); // ignored, as a starter may hand it on, it would never tell that a child has ended
    KeepSecrets();
    CloseStrayDescriptors();
    FillStandardDescriptors();
}

void Leave(int code) noexcept
{
    const bool isOut = std::fflush(stdout) == 0;
    std::fflush(stderr);
    ::_exit(code == 0 && !isOut ? 1 : code);
}
} // namespace farend
