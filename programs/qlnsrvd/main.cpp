// The daemon: gives relays that prove the key the services of this host. See docs/remote.md.

#include "Daemon.h"
#include "Failure.h"
#include "Options.h"

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <exception>

namespace qlnsrvd
{
namespace
{
using farend::Failure;

// Neither a dump nor another process of the same user may see the key.
void KeepSecrets()
{
    const rlimit none = {};
    ::setrlimit(RLIMIT_CORE, &none);
    ::prctl(PR_SET_DUMPABLE, 0);
}

// Services lie beside this program, whatever name it was called by.
std::string FolderOfThisProgram()
{
    char path[PATH_MAX];
    const ssize_t length = ::readlink("/proc/self/exe", path, sizeof path);
    if (length <= 0) throw Failure("cannot find the folder of this program", errno);
    const std::string file(path, static_cast<std::size_t>(length));
    return file.substr(0, file.rfind('/'));
}

// The process that was started tells that the daemon listens, and ends.
[[noreturn]] void ReportAndLeave(farend::Pipe& ready, pid_t child, int port)
{
    ready.write.Close();
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
    pid_t daemon = 0;
    const bool isThere = ::read(ready.read.Get(), &daemon, sizeof daemon) == sizeof daemon;
    if (isThere)
        std::printf("listening %d %d\n", port, static_cast<int>(daemon));
    else
        std::fprintf(stderr, "qlnsrvd, cannot go to the background\n");
    ::_exit(std::fflush(stdout) == 0 && isThere ? 0 : 1);
}

// Comes back in the daemon alone: in a session of its own that can't get a terminal, its parent gone, and nothing left
// of the pipes and sockets on which whoever started us waits.
void GoToTheBackground(int port)
{
    farend::Pipe ready;
    const pid_t child = ::fork();
    if (child < 0) throw Failure("cannot go to the background", errno);
    if (child > 0) ReportAndLeave(ready, child, port);
    ::setsid();
    if (::fork() != 0) ::_exit(0);
    farend::LetGoOfStandardDescriptors();
    const pid_t self = ::getpid();
    [[maybe_unused]] const ssize_t told = ::write(ready.write.Get(), &self, sizeof self);
}

int Run(int argc, char** argv)
{
    const Options options = ParseOptions({argc - 1, argv + 1});
    farend::Key key;
    key.ReadFrom(STDIN_FILENO);
    Listener listener(options);
    const Log log(options.logFile);
    farend::Hello hello;
    farend::FillWithRandomBytes(hello.salt.data(), hello.salt.size());
    const farend::SharedSecret secret(key, hello);
    const farend::ProvingTls tls(farend::ProvingTls::End::Daemon, secret);
    const SessionSetting setting{hello, tls, key, log, options.timeToProve, FolderOfThisProgram()};
    GoToTheBackground(listener.port);
    Daemon(std::move(listener), options, setting).Run();
    return 0;
}
} // namespace
} // namespace qlnsrvd

int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN); // a peer that leaves is an answer of write()
    farend::CloseStrayDescriptors();
    qlnsrvd::KeepSecrets();
    int code = 1;
    try
    {
        code = qlnsrvd::Run(argc, argv);
    }
    catch (const std::exception& failure)
    {
        std::fprintf(stderr, "qlnsrvd, %s\n", failure.what());
    }
    // The daemon leaves without the clean-up of a program that was started and ended: there is nobody to see it.
    std::fflush(stderr);
    ::_exit(code);
}
