#pragma once

#include "utl_System.h"

#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

/// Writers that are killed, by the signal that nobody can catch, at one of their calls that change the file: before the
/// call, or within it. A system that ends a process within a write has moved whole pages of the file, so that is where
/// the write is torn; one that lies within a page is done.
namespace KilledRun
{
struct Kill
{
    int atCall = 0; // counted from 1; 0 is never
    bool within = false;
    int calls = 0;

    bool IsDue() { return ++calls == atCall; }
};

/// Of this process. Whoever stands between a library and the system asks it at each changing call.
inline Kill s_Kill;

/// What of a write is done when the process ends within it: all up to the page boundary that is nearest below the
/// middle, or to the first one, or all.
inline std::size_t BytesBeforeTear(std::size_t bytes, off_t offset)
{
    constexpr std::size_t kPage = 4096;
    const std::size_t firstBoundary = kPage - static_cast<std::size_t>(offset) % kPage;
    if (firstBoundary >= bytes) return bytes;
    return firstBoundary + (bytes / 2 > firstBoundary ? (bytes / 2 - firstBoundary) / kPage * kPage : 0);
}

inline utl_SystemCalls s_Real;

inline ssize_t Write(int descriptor, const char* buffer, std::size_t bytes, off_t offset)
{
    if (s_Kill.IsDue())
    {
        if (s_Kill.within) s_Real.write(descriptor, buffer, BytesBeforeTear(bytes, offset), offset);
        ::raise(SIGKILL);
    }
    return s_Real.write(descriptor, buffer, bytes, offset);
}

inline int Allocate(int descriptor, off_t offset, off_t bytes)
{
    if (s_Kill.IsDue()) ::raise(SIGKILL);
    return s_Real.allocate(descriptor, offset, bytes);
}

inline int Truncate(int descriptor, off_t size)
{
    if (s_Kill.IsDue()) ::raise(SIGKILL);
    return s_Real.truncate(descriptor, size);
}

/// Puts the kill between utl_File and the system.
inline void WatchFiles()
{
    s_Real = utl_System();
    utl_System().write = Write;
    utl_System().allocate = Allocate;
    utl_System().truncate = Truncate;
}

/// Tells the parent how far the writer is.
class Teller
{
public:
    explicit Teller(int pipe) : m_Pipe(pipe) {}
    void FlushBegins(int n) const { Tell(-n); }
    void FlushEnded(int n) const { Tell(n); }

private:
    void Tell(int number) const
    {
        const auto told = static_cast<signed char>(number);
        if (::write(m_Pipe, &told, 1) != 1) ::_exit(3);
    }
    int m_Pipe;
};

struct Outcome
{
    int flushed = 0;          // the last flush that returned
    bool withinFlush = false; // the next one had begun
    bool killed = false;
};

/// Runs `write(teller)` in a child that is killed at its `atCall`-th changing call, if it makes as many.
template <class WriteRun> Outcome RunAndKill(int atCall, bool within, WriteRun write)
{
    int told[2];
    if (::pipe(told) != 0) std::abort();
    const pid_t child = ::fork();
    if (child == 0)
    {
        ::close(told[0]);
        s_Kill = {atCall, within, 0};
        write(Teller(told[1]));
        ::_exit(0);
    }
    ::close(told[1]);
    Outcome outcome;
    for (signed char number = 0; ::read(told[0], &number, 1) == 1;)
    {
        outcome.withinFlush = number < 0;
        if (number > 0) outcome.flushed = number;
    }
    ::close(told[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    outcome.killed = WIFSIGNALED(status);
    EXPECT_TRUE(outcome.killed ? WTERMSIG(status) == SIGKILL : WIFEXITED(status) && WEXITSTATUS(status) == 0);
    return outcome;
}
} // namespace KilledRun
