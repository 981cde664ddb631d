#pragma once

#include "FailedTries.h"
#include "Listener.h"
#include "Session.h"
#include "Signals.h"

#include <sys/types.h>

#include <string>
#include <vector>

namespace qlnsrvd
{
/// Accepts connections and gives each a process of its own, so that one can neither hold up nor harm another. Ends when
/// a relay that proved the key asks for it, at SIGTERM, and when no proved relay has been there for the timeout.
///
///   [ listening ] --kill, SIGTERM, timeout--> [ ending the sessions ] --the last has gone--> done
class Daemon
{
public:
    /// Throws: farend::Failure.
    Daemon(Listener listener, const Options& options, const SessionSetting& setting);

    void Run();

private:
    // Where a connection comes from: for the log, and for counting its wrong keys.
    struct Peer
    {
        std::string address;
        std::string network;
    };
    // A relay and the process that serves it.
    struct Visitor
    {
        pid_t process = -1;
        farend::Descriptor notices;
        std::string network;
        bool isProved = false;
        bool runsService = false;
        bool hasKilled = false; // its relay still waits for the answer
    };

    void Wait();
    void Accept();
    bool TurnAway(int socket, const Peer& peer) const;
    void Admit(farend::Descriptor socket, const Peer& peer);
    [[noreturn]] void BecomeSession(pid_t parent, farend::Descriptor socket, farend::Descriptor daemon,
                                    const std::string& address);
    void TakeNotice(Visitor& visitor);
    void Answer(const Visitor& visitor, Notice notice) const;
    void TakeSignals();
    void ReapVisitors();
    void ForgetVisitor(const Visitor& visitor, int status);
    void Stop(const char* reason);
    void EndVisitors(int signal);
    bool HasProvedVisitor() const;
    std::size_t CountVisitors(bool Visitor::*state, bool value) const;
    farend::Deadline NextDeadline() const;

    Listener m_Listener;
    const Options& m_Options;
    const SessionSetting& m_Setting;
    Signals m_Signals;
    FailedTries m_FailedTries;
    std::vector<Visitor> m_Visitors;
    farend::Deadline m_EndOfIdling;
    bool m_IsStopping = false;
    farend::Deadline m_EndOfPatience; // while stopping: then what is left is killed
};
} // namespace qlnsrvd
