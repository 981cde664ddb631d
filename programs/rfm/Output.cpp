#include "Output.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace rfm_tool
{
namespace
{
constexpr std::size_t kGatheredBytes = 65536;
}

Output::Output() : m_IsTerminal(::isatty(STDOUT_FILENO) == 1)
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
    if (m_Pending.size() >= kGatheredBytes) Flush();
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
        const ssize_t written = ::write(STDOUT_FILENO, left.data(), left.size());
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
