#include "Session.h"

#include "Failure.h"
#include "ServicePump.h"
#include "Services.h"

#include <sys/socket.h>

#include <algorithm>
#include <cstring>

namespace qlnsrvd
{
using namespace std::chrono_literals;
using farend::Action;
using farend::AnswerStatus;
using farend::Channel;
using farend::Deadline;
using farend::Failure;
using farend::FrameType;
using farend::Request;

namespace
{
constexpr auto kTimeToFinish = 5s;
constexpr auto kTimeToAnswer = 10s;

class Session
{
public:
    Session(farend::Descriptor socket, const farend::Descriptor& daemon, const std::string& peer,
            const SessionSetting& setting)
        : m_Channel(setting.tls, std::move(socket)),
          m_Daemon(daemon.Get()),
          m_Peer(peer),
          m_Setting(setting)
    {
    }
    SessionEnd Serve();

private:
    void Log(const std::string& event) const { m_Setting.log.Write(m_Peer, event); }
    void Tell(Notice notice) const;
    Notice Ask(Notice notice) const;
    void SendHello() const;
    SessionEnd Refuse(Channel::Proof proof);
    Request AwaitRequest(const Deadline& deadline);
    void Fulfil(const Request& request);
    void Reply(AnswerStatus status, const std::string& text = "");
    void StopDaemon();
    void RunService(const std::vector<std::string>& words);
    void Carry(const Service& service, ServiceProcess& process, const Signals& signals);

    Channel m_Channel;
    int m_Daemon;
    const std::string& m_Peer;
    const SessionSetting& m_Setting;
};

SessionEnd Session::Serve()
{
    const Deadline deadline = Deadline::In(m_Setting.timeToProve);
    SendHello();
    const Channel::Proof proof = m_Channel.Prove(deadline);
    if (proof != Channel::Proof::Given) return Refuse(proof);
    Tell(Notice::Proved);
    Log("proved the key");
    try
    {
        Fulfil(AwaitRequest(deadline));
    }
    catch (const Failure& failure)
    {
        Log(failure.what());
    }
    m_Channel.Finish(Deadline::In(kTimeToFinish));
    return SessionEnd::Done;
}

// Fits into any socket's empty buffer.
void Session::SendHello() const
{
    const std::string hello = farend::EncodeHello(m_Setting.hello);
    if (::send(m_Channel.Socket(), hello.data(), hello.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(hello.size()))
        throw Failure("cannot send the hello");
}

SessionEnd Session::Refuse(Channel::Proof proof)
{
    switch (proof)
    {
    case Channel::Proof::Refused:
        Log("refused: a wrong key, or no relay");
        m_Channel.Finish(Deadline::In(1s)); // so that it learns why
        return SessionEnd::WrongKey;
    case Channel::Proof::TimedOut: Log("refused: too slow to prove the key"); break;
    default: Log("left before it proved the key"); break;
    }
    return SessionEnd::Unproved;
}

void Session::Tell(Notice notice) const
{
    const auto byte = static_cast<char>(notice);
    if (::send(m_Daemon, &byte, 1, MSG_NOSIGNAL) != 1) throw Failure("the daemon has gone");
}

Notice Session::Ask(Notice notice) const
{
    Tell(notice);
    char answer = 0;
    if (::recv(m_Daemon, &answer, 1, 0) != 1) throw Failure("the daemon has gone");
    return static_cast<Notice>(answer);
}

Request Session::AwaitRequest(const Deadline& deadline)
{
    const auto frame = m_Channel.NextBy(deadline);
    if (!frame) throw Failure("no request came");
    if (frame->type != FrameType::Request) throw Failure("the relay sent what it must not send");
    return farend::DecodeRequest(frame->payload);
}

void Session::Fulfil(const Request& request)
{
    switch (request.action)
    {
    case Action::Ping: Log("ping"); return Reply(AnswerStatus::Done);
    case Action::Kill: return StopDaemon();
    case Action::Run: return RunService(request.words);
    }
}

void Session::Reply(AnswerStatus status, const std::string& text)
{
    if (status == AnswerStatus::Refused) Log("refused: " + text);
    m_Channel.Send(FrameType::Answer, farend::EncodeAnswer({status, text}));
    if (!m_Channel.FlushBy(Deadline::In(kTimeToAnswer))) throw Failure("the relay has gone");
}

// The answer goes out when nothing listens any more, so that whoever has it may start a new daemon on the port.
void Session::StopDaemon()
{
    Log("kill");
    Ask(Notice::Kill);
    Reply(AnswerStatus::Done);
}

void Session::RunService(const std::vector<std::string>& words)
{
    const std::string& name = words.front();
    const auto* service = std::find_if(std::begin(kServices), std::end(kServices),
                                       [&name](const Service& each) { return each.name == name; });
    if (service == std::end(kServices)) return Reply(AnswerStatus::Refused, "there is no service " + name);
    if (Ask(Notice::Run) != Notice::MayRun) return Reply(AnswerStatus::Refused, farend::kFullText);
    const Signals signals({SIGCHLD, SIGTERM});
    try
    {
        ServiceProcess process(m_Setting.programFolder + "/" + name, words);
        Log("runs " + name);
        Carry(*service, process, signals);
    }
    catch (const CannotStart& failure)
    {
        Reply(AnswerStatus::Refused, failure.what());
    }
}

void Session::Carry(const Service& service, ServiceProcess& process, const Signals& signals)
{
    Reply(service.tellsItself ? AnswerStatus::ServiceTells : AnswerStatus::RelayTells);
    ServicePump pump(m_Channel, process, signals);
    const auto outcome = pump.Run(service.tellsItself ? m_Setting.key.Message() : std::string_view());
    Log(std::string(service.name) + (outcome == ServicePump::Outcome::Served ? " has ended" : " was ended"));
}
} // namespace

SessionEnd ServeRelay(farend::Descriptor socket, farend::Descriptor daemon, const std::string& peer,
                      const SessionSetting& setting) noexcept
{
    try
    {
        return Session(std::move(socket), daemon, peer, setting).Serve();
    }
    catch (const std::exception& failure)
    {
        setting.log.Write(peer, failure.what());
        return SessionEnd::Unproved;
    }
}
} // namespace qlnsrvd
