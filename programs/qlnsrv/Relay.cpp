#include "Relay.h"

#include "Connect.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>

namespace qlnsrv
{
using farend::Channel;
using farend::Failure;
using farend::FrameType;

namespace
{
constexpr char kServiceRuns = 1;
// Whoever started us keeps it in a file, and shows its last line.
constexpr std::size_t kMostErrorBytes = 65536;
// Room for two pieces: one is written while the reader takes the other. Where the output is no pipe, or one that may not
// grow, it stays as it is.
constexpr int kPipeBytes = 256 * 1024;
} // namespace

Relay::Relay(Channel& channel)
    : m_Channel(channel),
      m_InputMode(STDIN_FILENO),
      m_OutputMode(STDOUT_FILENO),
      m_Output(STDOUT_FILENO),
      m_ErrorRoom(kMostErrorBytes)
{
    if (::fcntl(STDOUT_FILENO, F_GETPIPE_SZ) < kPipeBytes) ::fcntl(STDOUT_FILENO, F_SETPIPE_SZ, kPipeBytes);
}

void Relay::TellStart() { m_Output.Put({&kServiceRuns, 1}); }

int Relay::Run(const std::string& service)
{
    while (!m_HasClosed || !m_Output.IsIdle())
    {
        m_Channel.Flush();
        m_Output.Flush();
        const bool isBusy = m_Output.IsIdle() && !m_HasClosed && TakeFrames();
        if (m_Output.IsBroken()) throw Failure("nobody reads the standard output any more");
        if (m_HasClosed && m_Output.IsIdle()) break;
        Wait(isBusy);
    }
    return ExitCode(service);
}

// What is there of some frames goes out in one piece. Written frame by frame, a page of 1 MiB woke its reader 55 times and
// moved the processor between the two as often; so it is 8 times. Answers whether there may be more.
bool Relay::TakeFrames()
{
    m_Gathered.clear();
    bool mayBeMore = true;
    while (mayBeMore && !m_HasClosed && m_Gathered.size() < farend::kTransferPayloadBytes)
        mayBeMore = TakeFrame();
    m_Output.Put(m_Gathered);
    if (!mayBeMore && m_Channel.HasEnded() && m_Output.IsIdle()) throw Failure("the connection was lost");
    return mayBeMore;
}

// Answers whether there was one.
bool Relay::TakeFrame()
{
    const auto frame = m_Channel.Next();
    if (!frame) return false;
    switch (frame->type)
    {
    case FrameType::Data: m_Gathered.append(frame->payload); break;
    case FrameType::Error: WriteError(std::string(frame->payload)); break;
    case FrameType::Closed:
        m_Closed = farend::DecodeClosed(frame->payload);
        m_HasClosed = true;
        m_InputHasEnded = true; // nobody is left to read it
        break;
    default: throw Failure("qlnsrvd there sent what it must not send");
    }
    return true;
}

// Standard error is a file or a terminal; what it does not take is lost, and so is what comes beyond the room.
void Relay::WriteError(std::string bytes)
{
    m_SaidError = m_SaidError || !bytes.empty();
    bytes.resize(std::min(bytes.size(), m_ErrorRoom));
    m_ErrorRoom -= bytes.size();
    farend::MakePrintable(bytes, "\n\t");
    for (std::string_view rest = bytes; !rest.empty();)
    {
        const ssize_t put = ::write(STDERR_FILENO, rest.data(), rest.size());
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) return;
        rest.remove_prefix(static_cast<std::size_t>(put));
    }
}

// Descriptors of which nothing is wanted are left out: one that has ended would wake us for ever. The output is always
// there, since its other end's closing shows only so.
void Relay::Wait(bool isBusy)
{
    const bool wantInput = !m_InputHasEnded && m_Channel.HasRoom();
    const short socketEvents = m_Channel.Events(m_Output.IsIdle() && !m_HasClosed);
    pollfd ends[] = {
        {wantInput ? STDIN_FILENO : -1, POLLIN, 0},
        {STDOUT_FILENO, static_cast<short>(m_Output.IsIdle() ? 0 : POLLOUT), 0},
        {socketEvents != 0 ? m_Channel.Socket() : -1, socketEvents, 0},
    };
    ::poll(ends, std::size(ends), isBusy ? 0 : -1);
    if ((ends[1].revents & (POLLERR | POLLHUP | POLLNVAL)) != 0)
        throw Failure("nobody reads the standard output any more");
    if (ends[0].revents != 0) ReadInput();
}

void Relay::ReadInput()
{
    char bytes[farend::kMostPayloadBytes];
    const ssize_t got = ::read(STDIN_FILENO, bytes, sizeof bytes);
    if (got < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (got > 0) return m_Channel.Send(FrameType::Data, {bytes, static_cast<std::size_t>(got)});
    m_InputHasEnded = true;
    m_Channel.Send(FrameType::End, {});
}

int Relay::ExitCode(const std::string& service) const
{
    if (!m_Closed.bySignal && m_Closed.number == 0) return 0;
    // What the service said about it is the better reason, and the last line is the one that is shown.
    if (m_SaidError) return 1;
    throw DaemonFailure("the service " + service + " ended with " +
                        (m_Closed.bySignal ? "signal " : "exit code ") + std::to_string(m_Closed.number));
}
} // namespace qlnsrv
