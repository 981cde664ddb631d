#pragma once

#include "uti_Process.h"

#include <chrono>

/// One child process from its start to its end:
///
///              IsRunning, Reap see it end
///   [ runs ] -------------------------------> [ ended ]
///      |  \                                      ^
///      |   \  Reap overran, destroyed            |
///      |    +-- SIGTERM, a moment, SIGKILL ------+
///      |
///      +-- Detach ----> [ let go ]  in the care of uti_LeftChildren
///
/// No wait is without a limit, and nothing here throws but the start.
class uti_Child
{
public:
    /// Throws: as `uti_Start`.
    uti_Child(const cow_String& program, const cow_1DArrayList<cow_String>& arguments,
              const cow_Map<cow_String, cow_String>& environment, const uti_StandardStreams& streams);
    uti_Child(const uti_Child&) = delete;
    uti_Child& operator=(const uti_Child&) = delete;
    /// Gives a child that still runs a moment to leave by itself, then ends it.
    ~uti_Child();

    bool IsRunning() noexcept { return !HasEnded(); }
    /// Waits at most `seconds`, and throws away what comes out of `drained` meanwhile, unless that is -1: a child stuck
    /// on a full pipe would never end. A child that overruns is ended; one with 0 seconds is only looked at.
    int Reap(int seconds, int drained) noexcept;
    void Detach() noexcept;

private:
    using Clock = std::chrono::steady_clock;

    bool HasEnded() noexcept;
    bool EndsBefore(Clock::time_point deadline, int drained) noexcept;
    void End(int drained) noexcept;

    utl_Descriptor m_Process; // none once it has ended or was let go
    int m_Status = uti_StatusUnknown;
};
