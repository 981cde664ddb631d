#include "ServicePump.h"

#include "Failure.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace qlnsrvd
{
using farend::FrameType;

ServicePump::ServicePump(farend::Channel& channel, ServiceProcess& service, const Signals& signals)
    : m_Channel(channel),
      m_Service(service),
      m_Signals(signals),
      m_Input(service.input.Get())
{
}

ServicePump::Outcome ServicePump::Run(std::string_view first)
{
    m_Input.Put(first);
    while (Carry())
        if (m_SaidClosed && !m_Channel.HasQueued()) return Outcome::Served;
    m_Service.End(m_Signals, m_MustStop);
    return Outcome::Abandoned;
}

// One round; answers false when there is nobody left to serve.
bool ServicePump::Carry()
{
    m_Channel.Flush();
    m_Input.Flush();
    if (m_Channel.IsDeaf() || m_MustStop) return false;
    if (m_ServiceMoved && m_Service.Ended()) DrainEndedService();
    if (m_SaidClosed && !m_Channel.HasQueued()) return true;
    bool isBusy = false;
    if (WantsFrames())
    {
        isBusy = TakeFrame();
        if (!isBusy && m_Channel.HasEnded()) return false;
    }
    if (m_Input.IsBroken() || (m_InputEnds && m_Input.IsIdle())) CloseInput();
    return Wait(isBusy);
}

// Answers whether there was one. What comes for a service that no longer reads is dropped, so that the relay's end is
// still seen.
bool ServicePump::TakeFrame()
{
    const auto frame = m_Channel.Next();
    if (!frame) return false;
    if (frame->type == FrameType::End)
        m_InputEnds = true;
    else if (frame->type != FrameType::Data || m_InputEnds)
        throw farend::Failure("the relay sent what it must not send");
    else if (m_Service.input.IsOpen())
        m_Input.Put(frame->payload);
    return true;
}

// The writer lets go first: the number of the descriptor may soon be another's.
void ServicePump::CloseInput()
{
    m_Input.Drop();
    m_Service.input.Close();
}

void ServicePump::SendFrom(farend::Descriptor& source, FrameType type)
{
    char bytes[farend::kTransferPayloadBytes];
    const ssize_t got = ::read(source.Get(), bytes, sizeof bytes);
    if (got > 0)
        m_Channel.SendAll(type, {bytes, static_cast<std::size_t>(got)});
    else if (got == 0 || (errno != EAGAIN && errno != EINTR) || m_Service.Ended())
        source.Close();
}

// What it wrote lies in the pipes whole; what some child of its own may still write is not waited for.
void ServicePump::DrainEndedService()
{
    while (m_Service.output.IsOpen() && m_Channel.HasRoom()) SendFrom(m_Service.output, FrameType::Data);
    while (m_Service.errors.IsOpen() && m_Channel.HasRoom()) SendFrom(m_Service.errors, FrameType::Error);
    if (m_Service.output.IsOpen() || m_Service.errors.IsOpen() || m_SaidClosed) return;
    m_Channel.Send(FrameType::Closed, farend::EncodeClosed(*m_Service.Ended()));
    m_SaidClosed = true;
    m_Channel.Flush();
}

void ServicePump::TakeSignals()
{
    for (int signal = m_Signals.Take(); signal != 0; signal = m_Signals.Take())
    {
        m_MustStop = m_MustStop || signal == SIGTERM;
        m_ServiceMoved = m_ServiceMoved || signal == SIGCHLD;
    }
}

// Answers false when the relay has gone. Descriptors of which nothing is wanted are left out, since one that has ended
// would wake us for ever; the socket and the service's input are always there: their closing shows only so.
bool ServicePump::Wait(bool isBusy)
{
    const bool canSend = m_Channel.HasRoom();
    pollfd ends[] = {
        {m_Channel.Socket(), static_cast<short>(m_Channel.Events(WantsFrames()) | POLLRDHUP), 0},
        {m_Signals.Descriptor(), POLLIN, 0},
        {m_Service.input.Get(), static_cast<short>(m_Input.IsIdle() ? 0 : POLLOUT), 0},
        {canSend ? m_Service.output.Get() : -1, POLLIN, 0},
        {canSend ? m_Service.errors.Get() : -1, POLLIN, 0},
    };
    ::poll(ends, std::size(ends), isBusy ? 0 : -1);
    // A relay that has said all says so with a frame; its socket closes only when it leaves.
    if ((ends[0].revents & (POLLRDHUP | POLLERR | POLLHUP)) != 0) return false;
    if (ends[1].revents != 0) TakeSignals();
    if ((ends[2].revents & POLLERR) != 0) CloseInput();
    if (ends[3].revents != 0) SendFrom(m_Service.output, FrameType::Data);
    if (ends[4].revents != 0 && m_Channel.HasRoom()) SendFrom(m_Service.errors, FrameType::Error);
    return true;
}
} // namespace qlnsrvd
