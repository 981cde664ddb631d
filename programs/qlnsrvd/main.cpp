// The daemon: gives relays that prove the key the services of this host. See docs/remote.md.

#include "Daemon.h"
#include "Failure.h"
#include "Options.h"
#include "Process.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <exception>

namespace qlnsrvd
{
namespace
{
using farend::Failure;

// Services lie beside this program, whatever name it was called by.
std::string FolderOfThisProgram()
{
    char path[PATH_MAX];
    const ssize_t length = ::readlink("/proc/self/exe", path, sizeof path);
    if (length <= 0) throw Failure("cannot find the folder of this program", errno);
    const std::string file(path, static_cast<std::size_t>(length));
    return file.substr(0, file.rfind('/'));
}

// The process that was started and the daemon: its number in one direction, a byte that it was told in the other.
struct BackgroundPipes
{
    farend::Pipe number;
    farend::Pipe told;
};

// The process that was started tells that the daemon listens, and ends. A daemon of which it could not tell, or did not
// live to tell, hears no byte and ends too: nobody would know its key.
[[noreturn]] void ReportAndLeave(BackgroundPipes& pipes, pid_t child, int port)
{
    pipes.number.write.Close();
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
    pid_t daemon = 0;
    if (::read(pipes.number.read.Get(), &daemon, sizeof daemon) != sizeof daemon)
    {
        std::fprintf(stderr, "qlnsrvd, cannot go to the background\n");
        farend::Leave(1);
    }
    std::printf("listening %d %d\n", port, static_cast<int>(daemon));
    const bool isTold = std::fflush(stdout) == 0 && ::write(pipes.told.write.Get(), "", 1) == 1;
    farend::Leave(isTold ? 0 : 1);
}

// In the daemon: comes back when somebody has been told of it.
void AwaitReport(BackgroundPipes& pipes)
{
    const pid_t self = ::getpid();
    pipes.told.write.Close();
    const bool hasSaid = ::write(pipes.number.write.Get(), &self, sizeof self) == sizeof self;
    pipes.number.write.Close();
    char byte = 0;
    ssize_t got = 0;
    do got = ::read(pipes.told.read.Get(), &byte, 1);
    while (got < 0 && errno == EINTR);
    if (!hasSaid || got != 1) farend::Leave(1);
}

// Comes back in the daemon alone: in a session of its own that can't get a terminal, its parent gone, and nothing left
// of the pipes and sockets on which whoever started us waits.
void GoToTheBackground(int port)
{
    BackgroundPipes pipes;
    const pid_t child = ::fork();
    if (child < 0) throw Failure("cannot go to the background", errno);
    if (child > 0) ReportAndLeave(pipes, child, port);
    ::setsid();
    if (::fork() != 0) ::_exit(0);
    farend::LetGoOfStandardDescriptors();
    AwaitReport(pipes);
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
    int code = 1;
    try
    {
        farend::SetUpProcess();
        code = qlnsrvd::Run(argc, argv);
    }
    catch (const std::exception& failure)
    {
        std::fprintf(stderr, "qlnsrvd, %s\n", failure.what());
    }
    farend::Leave(code);
}
