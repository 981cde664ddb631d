#include "Output.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace rfm_tool
{
namespace
{
constexpr std::size_t kGatheredBytes = 65536;

std::string_view Environment(const char* name)
{
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

bool TerminalHasColour()
{
    return Environment("NO_COLOR").empty() && !Environment("TERM").empty() && Environment("TERM") != "dumb";
}

// The shell that runs the pager; -1 when there is none. It reads from `input`.
pid_t StartShell(const char* command, int input)
{
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    if (::posix_spawn_file_actions_init(&actions) != 0 || ::posix_spawnattr_init(&attributes) != 0) return -1;
    ::posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    // What is ignored here would be ignored there, too.
    sigset_t defaults;
    ::sigemptyset(&defaults);
    ::sigaddset(&defaults, SIGPIPE);
    ::posix_spawnattr_setsigdefault(&attributes, &defaults);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    std::string words[] = {"sh", "-c", command};
    char* const arguments[] = {words[0].data(), words[1].data(), words[2].data(), nullptr};
    pid_t shell = -1;
    if (::posix_spawn(&shell, "/bin/sh", &actions, &attributes, arguments, environ) != 0) shell = -1;
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&actions);
    return shell;
}
} // namespace

Output::Output()
    : m_IsTerminal(::isatty(STDOUT_FILENO) == 1),
      m_HasColour(m_IsTerminal && TerminalHasColour())
{
    winsize size{};
    if (!m_IsTerminal || ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) return;
    // A terminal that doesn't know its size says 0.
    if (size.ws_row > 0) m_Lines = size.ws_row;
    if (size.ws_col > 0) m_Columns = size.ws_col;
}

void Output::Write(std::string_view text)
{
    m_Pending.append(text);
    FlushWhenFull();
}

void Output::FlushWhenFull()
{
    if (m_Pending.size() >= kGatheredBytes) Flush();
}

std::string Output::Strong(std::string_view line) const
{
    return m_HasColour ? fmt::format("\x1b[1m{}\x1b[0m", line) : std::string(line);
}

// What `less` is given: end at once what fits on the screen, let colours through, cut long lines and
// move sideways, leave the screen as it is.
void Output::Page()
{
    const char* const kPager = "command -v less >/dev/null && exec less -FRSX || exec cat";
    const bool isGiven = std::getenv("PAGER") != nullptr;
    const std::string command(isGiven ? Environment("PAGER") : kPager);
    int ends[2];
    if (!m_IsTerminal || m_Pager >= 0 || command.empty() || command == "cat") return;
    if (::pipe2(ends, O_CLOEXEC) != 0) return;
    Flush();
    m_Pager = StartShell(command.c_str(), ends[0]);
    ::close(ends[0]);
    if (m_Pager < 0)
    {
        ::close(ends[1]);
        return;
    }
    m_Target = ends[1];
    // Ctrl-C is for the pager: it stays, and when it leaves, writing to it ends.
    std::signal(SIGINT, SIG_IGN);
}

void Output::Finish()
{
    Flush();
    if (m_Pager < 0) return;
    ::close(m_Target);
    m_Target = STDOUT_FILENO;
    while (::waitpid(m_Pager, nullptr, 0) < 0 && errno == EINTR) continue;
    m_Pager = -1;
}

void Output::Line(std::string_view text)
{
    Write(text);
    Write("\n");
}

void Output::Flush()
{
    std::string_view left(m_Pending);
    while (!left.empty() && !IsGone())
    {
        const ssize_t written = ::write(m_Target, left.data(), left.size());
        if (written >= 0)
            left.remove_prefix(static_cast<std::size_t>(written));
        else if (errno == EPIPE)
            m_Closed = true;
        else if (errno != EINTR)
            m_Error = errno;
    }
    m_Pending.clear();
}

// One call for the whole line, so that lines of several processes don't mix.
void Note(std::string_view text)
{
    const std::string line = fmt::format("rfm: {}\n", text);
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fflush(stderr);
}
} // namespace rfm_tool
