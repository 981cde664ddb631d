#pragma once

#include "cow_1DArrayList.h"
#include "cow_Map.h"
#include "cow_String.h"
#include "uti_Redirection.h"

#include <memory>

class uti_Child;
struct uti_StandardStreams;

/// A child process. Its end is always asked for, so no zombie stays, and no operation but a read waits without a limit.
/// The child gets the three standard descriptors and no other one, no blocked signals, and the system's own handling of
/// SIGPIPE, whatever the program has.
///
/// The library has no handler of SIGCHLD. A program that ignores that signal, or that waits for children that it did not
/// start, takes the exit status away, and `Reap` then answers -1.
/// Threads: one at a time. Several threads may start children at once; none gets another's pipes.
class RFM_EXPORT uti_Spawn
{
public:
    uti_Spawn(const uti_Spawn&) = delete;
    uti_Spawn& operator=(const uti_Spawn&) = delete;
    /// A child that still runs has a second to leave by itself, then SIGTERM, after another second SIGKILL. The
    /// signals go to the child alone: a script that stands in for a program ends in `exec`, or the program runs on.
    virtual ~uti_Spawn();

    /// False once the child has ended or was detached.
    virtual bool IsRunning();
    /// Waits at most `seconds` for the child to end. 0: it ended cleanly. Else its exit status, 128 and a signal's
    /// number when that ended it, or -1: it did not end in time, or nothing is known of it.
    /// A child that overruns is ended: SIGTERM, after a second SIGKILL. With 0 seconds it is only looked at, at once:
    /// it runs on, its pipes stay open, and the destructor sees to it.
    /// Throws: nex_AssertException for a number below 0.
    virtual int Reap(int seconds);
    /// Lets the child run on by itself; nothing of it can be asked any more.
    virtual void Detach();

    /// The path of the program that a command means: itself when it holds a "/", else the first executable file of that
    /// name in the directories of PATH. Empty when there is none.
    static cow_String FindCommand(const cow_String& command);

protected:
    /// Nothing is started yet.
    uti_Spawn() noexcept;
    void Start(const cow_String& program, const cow_1DArrayList<cow_String>& arguments,
               const cow_Map<cow_String, cow_String>& environment, const uti_StandardStreams& streams);
    /// As `Reap`; what comes out of the descriptor meanwhile is thrown away.
    int ReapDraining(int seconds, int drained);

private:
    std::unique_ptr<uti_Child> m_Child;
};
