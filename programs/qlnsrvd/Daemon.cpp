#include "Daemon.h"

#include "Failure.h"
#include "Socket.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace qlnsrvd
{
using namespace std::chrono_literals;
using farend::Deadline;
using farend::Descriptor;
using farend::HelloStatus;

namespace
{
// Who runs no service may hold this many places, each for the time to prove the key and to ask. Relays that kill and ping
// have theirs here, so they get in when all services are taken.
constexpr std::size_t kMostWithoutService = 16;
// A service gets 2 seconds after SIGTERM from its session, and a session a little more.
constexpr auto kPatience = 5s;
constexpr int kMostNotices = 2; // of one session: that it proved the key, and what it wants
constexpr auto kPauseWithoutDescriptors = 100ms;

// Whose tries are counted together: IPv6 hosts have a whole network of addresses each.
std::string NetworkOf(sockaddr_storage address, socklen_t bytes)
{
    in6_addr& host = reinterpret_cast<sockaddr_in6&>(address).sin6_addr;
    if (address.ss_family == AF_INET6 && !IN6_IS_ADDR_V4MAPPED(&host)) std::memset(host.s6_addr + 8, 0, 8);
    return farend::AddressText(address, bytes);
}
} // namespace

Daemon::Daemon(Listener listener, const Options& options, const SessionSetting& setting)
    : m_Listener(std::move(listener)),
      m_Options(options),
      m_Setting(setting),
      m_Signals({SIGCHLD, SIGTERM, SIGINT}),
      m_EndOfIdling(Deadline::In(options.timeout))
{
}

void Daemon::Run()
{
    m_Setting.log.Write("daemon",
                        "listens on " + m_Options.address + " port " + std::to_string(m_Listener.port));
    while (!m_IsStopping || !m_Visitors.empty())
    {
        Wait();
        if (!m_IsStopping && !HasProvedVisitor() && m_EndOfIdling.HasPassed())
            Stop("nobody came for the timeout");
        if (m_IsStopping && m_EndOfPatience.HasPassed()) EndVisitors(SIGKILL);
    }
    m_Setting.log.Write("daemon", "has ended");
}

Deadline Daemon::NextDeadline() const
{
    if (m_IsStopping) return m_EndOfPatience;
    return HasProvedVisitor() ? Deadline() : m_EndOfIdling;
}

void Daemon::Wait()
{
    std::vector<pollfd> ends = {{m_Signals.Descriptor(), POLLIN, 0}, {m_Listener.socket.Get(), POLLIN, 0}};
    for (const Visitor& visitor : m_Visitors) ends.push_back({visitor.notices.Get(), POLLIN, 0});
    ::poll(ends.data(), ends.size(), NextDeadline().MillisecondsLeft());
    // Notices first: a process that has said something may have ended by now, and both are to be heard in order.
    for (std::size_t i = 0; i < m_Visitors.size(); ++i)
        if (ends[i + 2].revents != 0) TakeNotice(m_Visitors[i]);
    if (ends[0].revents != 0) TakeSignals();
    if (ends[1].revents != 0 && m_Listener.socket.IsOpen()) Accept();
}

void Daemon::Accept()
{
    sockaddr_storage address = {};
    socklen_t bytes = sizeof address;
    Descriptor socket(::accept4(m_Listener.socket.Get(), reinterpret_cast<sockaddr*>(&address), &bytes,
                                SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket.IsOpen())
    {
        // Without descriptors the connection stays in the queue, and would wake us at once again.
        if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM)
            ::poll(nullptr, 0, std::chrono::milliseconds(kPauseWithoutDescriptors).count());
        return;
    }
    const Peer peer = {farend::AddressText(address, bytes), NetworkOf(address, bytes)};
    if (TurnAway(socket.Get(), peer)) return;
    farend::SetUpConnection(socket.Get());
    Admit(std::move(socket), peer);
}

// Answers whether it did, with a hello that says why.
bool Daemon::TurnAway(int socket, const Peer& peer) const
{
    farend::Hello hello = m_Setting.hello;
    if (m_FailedTries.MustWait(peer.network))
        hello.status = HelloStatus::Waiting;
    else if (CountVisitors(&Visitor::runsService, false) >= kMostWithoutService)
        hello.status = HelloStatus::Full;
    else
        return false;
    m_Setting.log.Write(peer.address, hello.status == HelloStatus::Full ? "turned away: too many connections"
                                                                        : "turned away: too many wrong keys");
    // A new socket takes so little whole; where it doesn't, the relay hears nothing and says so.
    const std::string bytes = farend::EncodeHello(hello);
    ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    return true;
}

void Daemon::Admit(Descriptor socket, const Peer& peer)
{
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
        return m_Setting.log.Write(peer.address, "turned away: no socket pair");
    Descriptor ours(ends[0]);
    Descriptor theirs(ends[1]);
    const pid_t self = ::getpid();
    const pid_t process = ::fork();
    if (process == 0) BecomeSession(self, std::move(socket), std::move(theirs), peer.address);
    if (process < 0) return m_Setting.log.Write(peer.address, "turned away: no process");
    Visitor visitor;
    visitor.process = process;
    visitor.notices = std::move(ours);
    visitor.network = peer.network;
    m_Visitors.push_back(std::move(visitor));
}

// In the child. It keeps nothing of the daemon's: above all not the ends that tell other sessions who lives.
void Daemon::BecomeSession(pid_t parent, Descriptor socket, Descriptor daemon, const std::string& address)
{
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (::getppid() != parent)
        ::_exit(static_cast<int>(SessionEnd::Unproved)); // it was gone before we said so
    m_Visitors.clear();
    m_Listener.socket.Close();
    m_Signals.Close();
    Signals::Release();
    const SessionEnd end = ServeRelay(std::move(socket), std::move(daemon), address, m_Setting);
    ::_exit(static_cast<int>(end));
}

void Daemon::TakeNotice(Visitor& visitor)
{
    char notice = 0;
    const ssize_t got = ::recv(visitor.notices.Get(), &notice, 1, MSG_DONTWAIT);
    if (got == 0) visitor.notices.Close(); // its process ends; SIGCHLD tells the rest
    if (got != 1) return;
    if (notice == static_cast<char>(Notice::Proved))
    {
        visitor.isProved = true;
        m_FailedTries.Clear(visitor.network);
    }
    else if (!visitor.isProved)
        return;
    else if (notice == static_cast<char>(Notice::Run))
    {
        visitor.runsService = CountVisitors(&Visitor::runsService, true) < m_Options.mostConnections;
        Answer(visitor, visitor.runsService ? Notice::MayRun : Notice::NoRoom);
    }
    else if (notice == static_cast<char>(Notice::Kill))
    {
        visitor.hasKilled = true;
        Stop("a relay asked for the end");
        Answer(visitor, Notice::ListensNoMore);
    }
}

void Daemon::Answer(const Visitor& visitor, Notice notice) const
{
    const auto byte = static_cast<char>(notice);
    ::send(visitor.notices.Get(), &byte, 1, MSG_NOSIGNAL | MSG_DONTWAIT);
}

void Daemon::TakeSignals()
{
    for (int signal = m_Signals.Take(); signal != 0; signal = m_Signals.Take())
        if (signal != SIGCHLD) Stop("told by a signal");
    ReapVisitors();
}

void Daemon::ReapVisitors()
{
    int status = 0;
    for (pid_t process = ::waitpid(-1, &status, WNOHANG); process > 0;
         process = ::waitpid(-1, &status, WNOHANG))
    {
        const auto visitor = std::find_if(m_Visitors.begin(), m_Visitors.end(),
                                          [process](const Visitor& each) { return each.process == process; });
        if (visitor == m_Visitors.end()) continue;
        for (int i = 0; i < kMostNotices && visitor->notices.IsOpen(); ++i)
            TakeNotice(*visitor); // its last words
        ForgetVisitor(*visitor, status);
        m_Visitors.erase(visitor);
    }
}

void Daemon::ForgetVisitor(const Visitor& visitor, int status)
{
    if (visitor.isProved)
        m_EndOfIdling = Deadline::In(m_Options.timeout);
    else if (WIFEXITED(status) && WEXITSTATUS(status) == static_cast<int>(SessionEnd::WrongKey))
        m_FailedTries.Add(visitor.network);
}

void Daemon::Stop(const char* reason)
{
    if (m_IsStopping) return;
    m_IsStopping = true;
    m_Setting.log.Write("daemon", std::string("ends: ") + reason);
    m_Listener.socket.Close();
    m_EndOfPatience = Deadline::In(kPatience);
    EndVisitors(SIGTERM);
}

void Daemon::EndVisitors(int signal)
{
    for (const Visitor& visitor : m_Visitors)
        if (signal == SIGKILL || !visitor.hasKilled) ::kill(visitor.process, signal);
    if (signal == SIGKILL) m_EndOfPatience = Deadline(); // nothing is left to try
}

bool Daemon::HasProvedVisitor() const { return CountVisitors(&Visitor::isProved, true) > 0; }

std::size_t Daemon::CountVisitors(bool Visitor::*state, bool value) const
{
    return static_cast<std::size_t>(std::count_if(m_Visitors.begin(), m_Visitors.end(),
                                                  [=](const Visitor& each) { return each.*state == value; }));
}
} // namespace qlnsrvd
