#pragma once

#include <cerrno>
#include <poll.h>

// A descriptor that somebody set not to block is waited for as if it did.

inline bool utl_WouldBlock(int error) noexcept { return error == EAGAIN || error == EWOULDBLOCK; }

inline void utl_WaitFor(int descriptor, short events) noexcept
{
    pollfd waited{descriptor, events, 0};
    // What ends the wait early, the transfer that follows tells.
    static_cast<void>(::poll(&waited, 1, -1));
}

inline void utl_WaitUntilReadable(int descriptor) noexcept { utl_WaitFor(descriptor, POLLIN); }
inline void utl_WaitUntilWritable(int descriptor) noexcept { utl_WaitFor(descriptor, POLLOUT); }
