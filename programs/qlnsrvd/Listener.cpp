#include "Listener.h"

#include "Failure.h"
#include "Socket.h"

#include <netinet/in.h>

#include <cerrno>

namespace qlnsrvd
{
namespace
{
constexpr int kMostWaiting = 64;

int PortOf(int socket)
{
    sockaddr_storage address = {};
    socklen_t bytes = sizeof address;
    if (::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &bytes) != 0) return 0;
    return ntohs(address.ss_family == AF_INET6 ? reinterpret_cast<const sockaddr_in6&>(address).sin6_port
                                               : reinterpret_cast<const sockaddr_in&>(address).sin_port);
}
} // namespace

Listener::Listener(const Options& options)
{
    const farend::Addresses address =
        farend::FindAddresses(options.address, std::to_string(options.port), AI_NUMERICHOST | AI_PASSIVE);
    socket = farend::Descriptor(::socket(address->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    // The port of a daemon that has just ended is free; that of one that lives is refused all the same.
    const int yes = 1;
    if (!socket.IsOpen() || ::setsockopt(socket.Get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes) != 0 ||
        ::bind(socket.Get(), address->ai_addr, address->ai_addrlen) != 0 ||
        ::listen(socket.Get(), kMostWaiting) != 0)
        throw farend::Failure("cannot listen on " + options.address +
                                  (options.port == 0 ? "" : " port " + std::to_string(options.port)),
                              errno);
    port = PortOf(socket.Get());
}
} // namespace qlnsrvd
