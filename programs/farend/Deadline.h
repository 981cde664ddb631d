#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <limits>

namespace farend
{
/// A point in time that the host's clock, when it is set, doesn't move.
class Deadline
{
public:
    using Clock = std::chrono::steady_clock;

    /// One that never passes.
    Deadline() = default;
    static Deadline In(std::chrono::milliseconds time) { return Deadline(Clock::now() + time); }

    bool HasPassed() const { return Clock::now() >= m_At; }
    /// What poll() takes: -1 for ever. Rounded up, so that a wait doesn't end just before the time.
    int MillisecondsLeft() const
    {
        if (m_At == Clock::time_point::max()) return -1;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(m_At - Clock::now()).count();
        return static_cast<int>(std::clamp<decltype(left)>(left, 0, std::numeric_limits<int>::max()));
    }
    /// The end of the first of `parts` equal parts of the time that is left.
    Deadline Share(std::size_t parts) const
    {
        if (m_At == Clock::time_point::max()) return *this;
        const Clock::time_point now = Clock::now();
        return Deadline(now + (m_At - now) / static_cast<Clock::rep>(parts));
    }
    friend auto operator<=>(const Deadline&, const Deadline&) = default;

private:
    explicit Deadline(Clock::time_point at) : m_At(at) {}
    Clock::time_point m_At = Clock::time_point::max();
};
} // namespace farend
