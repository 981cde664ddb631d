#include "Connect.h"

#include "Socket.h"

#include <poll.h>

#include <cerrno>
#include <chrono>

namespace qlnsrv
{
using namespace std::chrono_literals;
using farend::Channel;
using farend::Deadline;
using farend::Descriptor;
using farend::Failure;
using farend::Hello;
using farend::HelloStatus;

namespace
{
// Whoever started us gives up after 90 seconds without hearing why. The search for the host's addresses, which the system
// limits alone, is to fit in beside these.
constexpr auto kTimeToConnect = 15s; // all addresses of the host together
constexpr auto kTimeToProve = 15s;   // the hello, the password's hash, the handshake
constexpr auto kTimeToAnswer = 15s;

// Answers 0, or what the system says.
int ConnectBy(const Deadline& deadline, int socket, const addrinfo& address)
{
    if (::connect(socket, address.ai_addr, address.ai_addrlen) == 0) return 0;
    if (errno != EINPROGRESS && errno != EINTR) return errno;
    pollfd connected = {socket, POLLOUT, 0};
    while (::poll(&connected, 1, deadline.MillisecondsLeft()) <= 0)
        if (deadline.HasPassed()) return ETIMEDOUT;
    int error = 0;
    socklen_t bytes = sizeof error;
    return ::getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &bytes) == 0 ? error : errno;
}

std::size_t CountFrom(const addrinfo* address)
{
    std::size_t count = 0;
    for (; address != nullptr; address = address->ai_next) ++count;
    return count;
}

// An address whose packets are swallowed leaves the next ones their share of the time.
Descriptor ConnectToHost(const Options& options)
{
    const farend::Addresses addresses = farend::FindAddresses(options.host, options.port, AI_ADDRCONFIG);
    const Deadline deadline = Deadline::In(kTimeToConnect);
    int error = 0;
    for (const addrinfo* each = addresses.get(); each != nullptr; each = each->ai_next)
    {
        Descriptor socket(::socket(each->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        error = socket.IsOpen() ? ConnectBy(deadline.Share(CountFrom(each)), socket.Get(), *each) : errno;
        if (error != 0) continue;
        farend::SetUpConnection(socket.Get());
        return socket;
    }
    throw Failure("cannot connect to " + options.host + " port " + options.port, error);
}

Hello ReceiveHello(const Deadline& deadline, int socket)
{
    char bytes[farend::kHelloBytes];
    const std::size_t count = farend::ReceiveBy(deadline, socket, bytes, sizeof bytes);
    if (count == 0 && deadline.HasPassed()) throw Failure("nothing answers there");
    const Hello hello = farend::DecodeHello({bytes, count});
    switch (hello.status)
    {
    case HelloStatus::Full: throw DaemonFailure(farend::kFullText);
    case HelloStatus::Waiting:
        throw DaemonFailure("too many wrong keys came from this host; try again in a few minutes");
    case HelloStatus::Welcome: break;
    }
    return hello;
}

void Prove(Channel& channel, const Deadline& deadline)
{
    switch (channel.Prove(deadline))
    {
    case Channel::Proof::Given: return;
    case Channel::Proof::Refused: throw Failure("the key is not the one of the qlnsrvd there");
    case Channel::Proof::Ended: throw Failure("qlnsrvd there has ended the connection");
    case Channel::Proof::TimedOut: throw Failure("qlnsrvd there does not answer");
    }
}
} // namespace

Channel ConnectToDaemon(const Options& options, const farend::Key& key)
{
    Descriptor socket = ConnectToHost(options);
    const Deadline deadline = Deadline::In(kTimeToProve);
    const Hello hello = ReceiveHello(deadline, socket.Get());
    const farend::SharedSecret secret(key, hello);
    const farend::ProvingTls tls(farend::ProvingTls::End::Relay, secret);
    Channel channel(tls, std::move(socket));
    Prove(channel, deadline);
    return channel;
}

farend::AnswerStatus Ask(Channel& channel, const farend::Request& request)
{
    channel.Send(farend::FrameType::Request, farend::EncodeRequest(request));
    const Deadline deadline = Deadline::In(kTimeToAnswer);
    channel.FlushBy(deadline);
    const auto frame = channel.NextBy(deadline);
    if (!frame) throw Failure("qlnsrvd there does not answer");
    if (frame->type != farend::FrameType::Answer)
        throw Failure("qlnsrvd there answers with what is no answer");
    const farend::Answer answer = farend::DecodeAnswer(frame->payload);
    if (answer.status == farend::AnswerStatus::Refused) throw DaemonFailure(answer.text);
    const bool shouldRun = request.action == farend::Action::Run;
    if (shouldRun == (answer.status == farend::AnswerStatus::Done))
        throw Failure("qlnsrvd there answers another question");
    return answer.status;
}
} // namespace qlnsrv
