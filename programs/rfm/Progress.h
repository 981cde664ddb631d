#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace rfm_tool
{
/// How far a long work is, as a line that is written over itself on standard error. Only on a terminal, and only from
/// the second second on; gone when the work is done.
class Progress
{
public:
    explicit Progress(std::int64_t total);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress();

    /// What is done from now on.
    void Begin(std::string_view step) { m_Step = step; }
    void Advance(std::int64_t bytes);

private:
    using Clock = std::chrono::steady_clock;

    bool m_IsShown; // on a terminal
    std::int64_t m_Total;
    std::int64_t m_Done = 0;
    std::string m_Step;
    Clock::time_point m_Start;
    Clock::time_point m_Next; // when the line is written again
    bool m_IsWritten = false;
};

/// "copying  [#####...............]  25 %  104.9 MB/s  0:30 left" after `seconds` of work.
std::string ProgressLine(std::string_view step, std::int64_t done, std::int64_t total, double seconds);
} // namespace rfm_tool
