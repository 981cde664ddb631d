#include "ServiceProcess.h"

#include "Signals.h"

#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <fcntl.h>

namespace qlnsrvd
{
using namespace std::chrono_literals;
using farend::Pipe;

namespace
{
constexpr auto kTimeAfterEndOfInput = 2s;
constexpr auto kTimeAfterTerminate = 2s;

struct ServicePipes
{
    Pipe in;
    Pipe out;
    Pipe err;
    Pipe failed; // the system's error number, should the program not start
};

ServicePipes MakePipes(const std::string& name)
{
    try
    {
        return {};
    }
    catch (const farend::Failure& failure)
    {
        throw CannotStart("cannot start " + name + ": " + failure.what());
    }
}

// In the child: the program, or the system's error number. Makes no memory, for nothing needs to.
[[noreturn]] void Become(const char* program, char* const* words, const ServicePipes& pipes)
{
    ::setpgid(0, 0);
    ::prctl(PR_SET_PDEATHSIG, SIGTERM); // whatever ends us, the service does not stay alone
    std::signal(SIGPIPE, SIG_DFL);
    Signals::Release();
    if (::dup2(pipes.in.read.Get(), STDIN_FILENO) >= 0 && ::dup2(pipes.out.write.Get(), STDOUT_FILENO) >= 0 &&
        ::dup2(pipes.err.write.Get(), STDERR_FILENO) >= 0)
        ::execv(program, words);
    const int error = errno;
    [[maybe_unused]] const ssize_t told = ::write(pipes.failed.write.Get(), &error, sizeof error);
    ::_exit(127);
}

void SetNonBlocking(int descriptor)
{
    ::fcntl(descriptor, F_SETFL, ::fcntl(descriptor, F_GETFL) | O_NONBLOCK);
}
} // namespace

ServiceProcess::ServiceProcess(const std::string& program, const std::vector<std::string>& words)
{
    ServicePipes pipes = MakePipes(words.front());
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);

    m_Process = ::fork();
    if (m_Process < 0) throw CannotStart("cannot start " + words.front(), errno);
    if (m_Process == 0) Become(program.c_str(), arguments.data(), pipes);
    ::setpgid(m_Process, m_Process); // here too: whoever comes first
    pipes.failed.write.Close();
    int error = 0;
    ssize_t told = 0;
    do told = ::read(pipes.failed.read.Get(), &error, sizeof error);
    while (told < 0 && errno == EINTR);
    if (told == sizeof error)
    {
        ::waitpid(m_Process, nullptr, 0);
        throw CannotStart("cannot start " + words.front(), error);
    }
    input = std::move(pipes.in.write);
    output = std::move(pipes.out.read);
    errors = std::move(pipes.err.read);
    for (const farend::Descriptor* each : {&input, &output, &errors}) SetNonBlocking(each->Get());
}

ServiceProcess::~ServiceProcess()
{
    if (Ended()) return;
    ::kill(-m_Process, SIGKILL);
    ::waitpid(m_Process, nullptr, 0);
}

std::optional<farend::Closed> ServiceProcess::Ended()
{
    if (m_Ended) return m_Ended;
    siginfo_t info = {};
    const int answer = ::waitid(P_PID, static_cast<id_t>(m_Process), &info, WEXITED | WNOHANG | WNOWAIT);
    if (answer != 0 || info.si_pid == 0) return std::nullopt;
    // Before it is reaped: until then nobody else's group can bear its number.
    ::kill(-m_Process, SIGKILL);
    ::waitpid(m_Process, nullptr, 0);
    m_Ended = farend::Closed{info.si_code != CLD_EXITED, static_cast<std::uint8_t>(info.si_status)};
    return m_Ended;
}

void ServiceProcess::WaitForEnd(const Signals& signals, std::chrono::milliseconds time)
{
    const auto deadline = farend::Deadline::In(time);
    while (!Ended() && !deadline.HasPassed())
    {
        pollfd signal = {signals.Descriptor(), POLLIN, 0};
        ::poll(&signal, 1, deadline.MillisecondsLeft());
        while (signals.Take() != 0) continue;
    }
}

void ServiceProcess::End(const Signals& signals, bool isUrgent)
{
    input.Close();
    output.Close(); // one that is stuck on writing is let go too
    errors.Close();
    if (!isUrgent) WaitForEnd(signals, kTimeAfterEndOfInput);
    if (Ended()) return;
    ::kill(-m_Process, SIGTERM);
    WaitForEnd(signals, kTimeAfterTerminate);
    if (Ended()) return;
    ::kill(-m_Process, SIGKILL);
    while (!Ended()) WaitForEnd(signals, kTimeAfterTerminate);
}
} // namespace qlnsrvd
