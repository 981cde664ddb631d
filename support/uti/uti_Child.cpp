#include "uti_Child.h"

#include "thr_GlobalSingleton.h"
#include "uti_LeftChildren.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <poll.h>
#include <unistd.h>

namespace
{
using std::chrono::milliseconds;

// For a child whose pipes were closed to notice it and leave, and for one to obey a signal.
constexpr milliseconds kPatience{1000};
constexpr milliseconds kLongestPoll{60 * 60 * 1000};

// False at the end of the stream.
bool ThrowAwaySome(int descriptor) noexcept
{
    char piece[4096];
    const ssize_t moved = ::read(descriptor, piece, sizeof piece);
    return moved > 0 || (moved < 0 && (errno == EINTR || errno == EAGAIN));
}
} // namespace

uti_Child::uti_Child(const cow_String& program, const cow_1DArrayList<cow_String>& arguments,
                     const cow_Map<cow_String, cow_String>& environment, const uti_StandardStreams& streams)
    : m_Process(uti_Start(program, arguments, environment, streams))
{
    thr_GlobalSingleton<uti_LeftChildren>::Instance().Sweep();
}

uti_Child::~uti_Child()
{
    if (!EndsBefore(Clock::now() + kPatience, -1)) End(-1);
}

bool uti_Child::HasEnded() noexcept
{
    if (!m_Process.IsOpen()) return true;
    const std::optional<int> status = uti_Ended(m_Process.Get());
    if (!status.has_value()) return false;
    m_Status = *status;
    m_Process.Reset();
    return true;
}

bool uti_Child::EndsBefore(Clock::time_point deadline, int drained) noexcept
{
    pollfd watched[] = {{m_Process.Get(), POLLIN, 0}, {drained, POLLIN, 0}};
    while (!HasEnded())
    {
        const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
        if (left <= milliseconds::zero()) return false;
        const int ready = ::poll(watched, 2, static_cast<int>(std::min(left, kLongestPoll).count()));
        if (ready > 0 && watched[1].revents != 0 && !ThrowAwaySome(drained)) watched[1].fd = -1;
    }
    return true;
}

void uti_Child::End(int drained) noexcept
{
    uti_Signal(m_Process.Get(), SIGTERM);
    uti_Signal(m_Process.Get(), SIGCONT); // a stopped child does not see the first one
    if (EndsBefore(Clock::now() + kPatience, drained)) return;
    uti_Signal(m_Process.Get(), SIGKILL);
    // One that is stuck in the system outlives even this, and is not worth a hang.
    if (!EndsBefore(Clock::now() + kPatience, drained)) Detach();
}

int uti_Child::Reap(int seconds, int drained) noexcept
{
    if (seconds <= 0) return HasEnded() ? m_Status : uti_StatusUnknown;
    if (EndsBefore(Clock::now() + std::chrono::seconds(seconds), drained)) return m_Status;
    End(drained);
    m_Status = uti_StatusUnknown; // however it ended then, it was not in time
    return m_Status;
}

void uti_Child::Detach() noexcept
{
    if (HasEnded()) return;
    uti_LeftChildren& left = thr_GlobalSingleton<uti_LeftChildren>::Instance();
    left.Sweep();
    left.Keep(std::move(m_Process));
}
