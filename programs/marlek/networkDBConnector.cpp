#include "networkDBConnector.h"

#include "Deadline.h"
#include "Descriptor.h"
#include "Failure.h"
#include "Key.h"
#include "Socket.h"

#include <poll.h>
#include <spawn.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <iterator>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace marlek
{
using farend::Failure;

namespace
{
// A password's hash is all that takes it time; below the 90 seconds for which the other end waits.
constexpr std::chrono::seconds kTimeToStart{60};
constexpr std::size_t kMostReportBytes = 4096;

constexpr std::string_view kForDaemon[] = {"-port",   "-timeout",     "-error",
                                           "-listen", "-connections", "-prove"};

// What the command line asks for. The daemon judges the values.
struct Options
{
    bool isAutomatic = false;
    bool hasAssignedPort = true;
    bool hasAddress = false;
    std::vector<std::string> forDaemon;
};

void TakeOption(Options& options, const std::string& option, const std::string& value)
{
    if (option == "-port") options.hasAssignedPort = value == "auto_assigned";
    if (option == "-listen") options.hasAddress = true;
    options.forDaemon.push_back(option);
    options.forDaemon.push_back(value);
}

// The address at this end of a connection over the network; empty for anything else.
std::string OwnAddressOf(int descriptor)
{
    sockaddr_storage address = {};
    socklen_t bytes = sizeof address;
    if (::getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &bytes) != 0 ||
        (address.ss_family != AF_INET && address.ss_family != AF_INET6))
        return "";
    return farend::AddressText(address, bytes);
}

// A remote shell without encryption hands its connection over as the standard input and output.
void ListenWhereTheLoginCameIn(Options& options)
{
    std::string address = OwnAddressOf(STDIN_FILENO);
    if (address.empty()) address = OwnAddressOf(STDOUT_FILENO);
    if (!address.empty()) TakeOption(options, "-listen", address);
}

Options ParseOptions(farend::Words words)
{
    const std::string error = "-error ";
    Options options;
    while (words.HasMore())
    {
        const std::string word = words.Take();
        if (word == "-automaticServer")
            options.isAutomatic = true;
        else if (word.rfind(error, 0) == 0)
            // One word when it comes without a shell between, two when a remote shell took it apart.
            TakeOption(options, "-error", word.substr(error.size()));
        else if (std::find(std::begin(kForDaemon), std::end(kForDaemon), word) != std::end(kForDaemon))
            TakeOption(options, word, words.TakeValue(word));
        else
            throw Failure("networkDBConnector has no option " + word);
    }
    if (!options.hasAddress && std::getenv("SSH_CONNECTION") == nullptr) ListenWhereTheLoginCameIn(options);
    return options;
}

std::string DaemonProgram()
{
    char path[PATH_MAX];
    const ssize_t length = ::readlink("/proc/self/exe", path, sizeof path);
    if (length <= 0) throw Failure("cannot find the folder of this program", errno);
    const std::string file(path, static_cast<std::size_t>(length));
    return file.substr(0, file.rfind('/') + 1) + "qlnsrvd";
}

// The daemon's foreground process: what it was started with, and what it says.
class Starter
{
public:
    explicit Starter(const Options& options);
    Starter(const Starter&) = delete;
    Starter& operator=(const Starter&) = delete;
    ~Starter();

    void HandOver(const farend::Key& key);
    /// All that it wrote until it ended.
    std::string Report();
    bool HasEndedWell();

private:
    pid_t m_Process = -1;
    farend::Descriptor m_Key;
    farend::Descriptor m_Report;
};

Starter::Starter(const Options& options)
{
    farend::Pipe key;
    farend::Pipe report;
    std::string program = DaemonProgram();
    std::vector<char*> words = {program.data()};
    for (const std::string& word : options.forDaemon) words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, key.read.Get(), STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, report.write.Get(), STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, report.write.Get(), STDERR_FILENO);
    const int error = ::posix_spawn(&m_Process, program.c_str(), &actions, nullptr, words.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    if (error != 0) throw Failure("cannot start " + program, error);
    m_Key = std::move(key.write);
    m_Report = std::move(report.read);
}

Starter::~Starter()
{
    if (m_Process < 0) return;
    ::kill(m_Process, SIGKILL);
    ::waitpid(m_Process, nullptr, 0);
}

// One that refuses its options ends before it reads the key; its report then says why.
void Starter::HandOver(const farend::Key& key)
{
    try
    {
        key.WriteTo(m_Key.Get());
    }
    catch (const Failure& failure)
    {
        if (failure.Error() != EPIPE) throw;
    }
    m_Key.Close();
}

std::string Starter::Report()
{
    const auto deadline = farend::Deadline::In(kTimeToStart);
    std::string report;
    while (report.size() < kMostReportBytes)
    {
        pollfd readable = {m_Report.Get(), POLLIN, 0};
        if (deadline.HasPassed()) throw Failure("qlnsrvd does not start");
        if (::poll(&readable, 1, deadline.MillisecondsLeft()) <= 0) continue;
        char bytes[512];
        const ssize_t got = ::read(m_Report.Get(), bytes, sizeof bytes);
        if (got == 0 || (got < 0 && errno != EINTR)) break;
        if (got > 0) report.append(bytes, static_cast<std::size_t>(got));
    }
    return report;
}

bool Starter::HasEndedWell()
{
    int status = 0;
    while (::waitpid(m_Process, &status, 0) < 0 && errno == EINTR) continue;
    m_Process = -1;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

struct RunningDaemon
{
    int port = 0;
    pid_t process = -1;
};

RunningDaemon StartDaemon(const Options& options, const farend::Key& key)
{
    Starter starter(options);
    starter.HandOver(key);
    const std::string report = starter.Report();
    std::istringstream words(report);
    std::string first;
    RunningDaemon daemon;
    if (starter.HasEndedWell() && words >> first >> daemon.port >> daemon.process && first == "listening")
        return daemon;
    const std::string line = report.substr(0, report.find('\n'));
    throw Failure(line.empty() ? "qlnsrvd ended without a word" : line);
}

// Straight from where the text lies: a stream would keep a copy of the key in its buffer.
void Print(std::string_view text)
{
    while (!text.empty())
    {
        const ssize_t put = ::write(STDOUT_FILENO, text.data(), text.size());
        if (put < 0 && errno == EINTR) continue;
        if (put < 0) throw Failure("cannot write the report", errno);
        text.remove_prefix(static_cast<std::size_t>(put));
    }
}

void Report(const Options& options, const RunningDaemon& daemon, const farend::Key& key)
{
    if (options.hasAssignedPort) Print(std::to_string(daemon.port) + "\n");
    if (!options.isAutomatic) return;
    Print(std::to_string(key.Bytes().size()) + "\nqlnsrvd-key:");
    Print(key.Bytes());
    Print("\n");
}
} // namespace

void RunNetworkDBConnector(farend::Words words)
{
    const Options options = ParseOptions(std::move(words));
    farend::Key key;
    if (options.isAutomatic)
        key.Make();
    else
        key.ReadAllFrom(STDIN_FILENO);
    const RunningDaemon daemon = StartDaemon(options, key);
    try
    {
        Report(options, daemon, key);
    }
    catch (const Failure&)
    {
        ::kill(daemon.process, SIGTERM); // nobody knows of it
        throw;
    }
}
} // namespace marlek
