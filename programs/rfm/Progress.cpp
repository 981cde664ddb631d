#include "Progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace rfm_tool
{
namespace
{
constexpr std::chrono::milliseconds kFirst{1000};
constexpr std::chrono::milliseconds kInterval{200};
constexpr int kBarCells = 20;

void WriteToTerminal(const std::string& text)
{
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
}
} // namespace

std::string ProgressLine(std::string_view step, std::int64_t done, std::int64_t total, double seconds)
{
    const double part =
        total > 0 ? std::clamp(static_cast<double>(done) / static_cast<double>(total), 0.0, 1.0) : 1;
    const int cells = static_cast<int>(part * kBarCells);
    const double rate = seconds > 0 ? static_cast<double>(done) / seconds : 0;
    const auto left = static_cast<std::int64_t>(part > 0 ? seconds * (1 - part) / part + 0.5 : 0);
    return fmt::format("{}  [{:#<{}}{:.<{}}]  {:2} %  {:.1f} MB/s  {}:{:02} left", step, "", cells, "",
                       kBarCells - cells, static_cast<int>(part * 100), rate / 1e6, left / 60, left % 60);
}

Progress::Progress(std::int64_t total)
    : m_IsShown(::isatty(STDERR_FILENO) == 1),
      m_Total(total),
      m_Start(Clock::now()),
      m_Next(m_Start + kFirst)
{
}

Progress::~Progress()
{
    if (m_IsWritten) WriteToTerminal("\r\x1b[K");
}

void Progress::Advance(std::int64_t bytes)
{
    m_Done += bytes;
    if (!m_IsShown) return;
    const Clock::time_point now = Clock::now();
    if (now < m_Next) return;
    m_Next = now + kInterval;
    m_IsWritten = true;
    const double seconds = std::chrono::duration<double>(now - m_Start).count();
    WriteToTerminal("\r" + ProgressLine(m_Step, m_Done, m_Total, seconds) + "\x1b[K");
}
} // namespace rfm_tool
