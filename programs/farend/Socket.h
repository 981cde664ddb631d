#pragma once

#include "Deadline.h"

#include <netdb.h>

#include <cstddef>
#include <memory>
#include <string>
#include <sys/socket.h>

namespace farend
{
struct FreeAddresses
{
    void operator()(addrinfo* list) const { ::freeaddrinfo(list); }
};
using Addresses = std::unique_ptr<addrinfo, FreeAddresses>;

/// The addresses of a stream to `host` and `port`; `flags` as getaddrinfo takes them.
/// Throws: Failure.
Addresses FindAddresses(const std::string& host, const std::string& port, int flags);

/// The address of a peer as text, without its port.
std::string AddressText(const sockaddr_storage& address, socklen_t bytes);

/// Sends small messages at once, and notices within some minutes that the other host is gone.
void SetUpConnection(int socket) noexcept;

/// Receives until `count` bytes are there, the other end stops, or the time is up; answers how many came.
/// Throws: Failure where the system refuses.
std::size_t ReceiveBy(const Deadline& deadline, int socket, char* bytes, std::size_t count);

/// Whole numbers from `least` to `most` in decimal, and nothing around them.
/// Throws: Failure that names `option`.
int ParseNumber(const std::string& option, const std::string& text, int least, int most);
} // namespace farend
