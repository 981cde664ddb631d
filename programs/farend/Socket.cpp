#include "Socket.h"

#include "Failure.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>

#include <cerrno>
#include <charconv>

namespace farend
{
Addresses FindAddresses(const std::string& host, const std::string& port, int flags)
{
    addrinfo hints = {};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = flags | AI_NUMERICSERV;
    addrinfo* list = nullptr;
    const int error = ::getaddrinfo(host.c_str(), port.c_str(), &hints, &list);
    if (error != 0)
        throw Failure("cannot find the address of " + host + ": " +
                      (error == EAI_SYSTEM ? std::strerror(errno) : ::gai_strerror(error)));
    return Addresses(list);
}

std::string AddressText(const sockaddr_storage& address, socklen_t bytes)
{
    char host[NI_MAXHOST] = {};
    const int error = ::getnameinfo(reinterpret_cast<const sockaddr*>(&address), bytes, host, sizeof host,
                                    nullptr, 0, NI_NUMERICHOST);
    return error == 0 ? host : "unknown";
}

void SetUpConnection(int socket) noexcept
{
    const auto set = [socket](int level, int option, int value)
    { ::setsockopt(socket, level, option, &value, sizeof value); };
    set(IPPROTO_TCP, TCP_NODELAY, 1);
    set(SOL_SOCKET, SO_KEEPALIVE, 1);
    set(IPPROTO_TCP, TCP_KEEPIDLE, 60);
    set(IPPROTO_TCP, TCP_KEEPINTVL, 15);
    set(IPPROTO_TCP, TCP_KEEPCNT, 4);
    set(IPPROTO_TCP, TCP_USER_TIMEOUT, 120000); // while data are on their way nothing is asked about
}

std::size_t ReceiveBy(const Deadline& deadline, int socket, char* bytes, std::size_t count)
{
    std::size_t have = 0;
    while (have < count && !deadline.HasPassed())
    {
        pollfd readable = {socket, POLLIN, 0};
        if (::poll(&readable, 1, deadline.MillisecondsLeft()) <= 0) continue;
        const ssize_t got = ::recv(socket, bytes + have, count - have, MSG_DONTWAIT);
        if (got == 0) break;
        if (got > 0)
            have += static_cast<std::size_t>(got);
        else if (errno != EAGAIN && errno != EINTR)
            throw Failure("the connection was lost", errno);
    }
    return have;
}

int ParseNumber(const std::string& option, const std::string& text, int least, int most)
{
    int number = 0;
    const char* end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, number);
    if (parsed.ec != std::errc() || parsed.ptr != end || number < least || number > most)
        throw Failure(option + " wants a whole number from " + std::to_string(least) + " to " +
                      std::to_string(most) + ", not \"" + text + "\"");
    return number;
}
} // namespace farend
