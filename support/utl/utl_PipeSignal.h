#pragma once

#include <csignal>

/// While it lives, a write of this thread into a pipe that nobody reads gives EPIPE only: the SIGPIPE that comes with it
/// is held back and thrown away at the end. What the program does with the signal is not touched, not even for a moment,
/// and a SIGPIPE that was pending before stays pending.
class utl_PipeSignal
{
public:
    utl_PipeSignal() noexcept;
    utl_PipeSignal(const utl_PipeSignal&) = delete;
    utl_PipeSignal& operator=(const utl_PipeSignal&) = delete;
    /// Leaves errno as it is.
    ~utl_PipeSignal();

private:
    sigset_t m_Before{};
    bool m_WasPending = false;
};
