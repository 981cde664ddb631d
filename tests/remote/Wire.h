#pragma once

#include "Descriptor.h"
#include "Failure.h"

#include <sys/socket.h>

#include <cerrno>

// Two sockets that are connected to each other.
struct Wire
{
    Wire()
    {
        int both[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, both) != 0)
            throw farend::Failure("socketpair", errno);
        relay = farend::Descriptor(both[0]);
        daemon = farend::Descriptor(both[1]);
    }
    farend::Descriptor relay;
    farend::Descriptor daemon;
};
