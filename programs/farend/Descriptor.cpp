#include "Descriptor.h"

#include "Failure.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>

namespace farend
{
Pipe::Pipe()
{
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) throw Failure("cannot make a pipe", errno);
    read = Descriptor(ends[0]);
    write = Descriptor(ends[1]);
}

NonBlocking::NonBlocking(int descriptor) noexcept
    : m_Descriptor(descriptor),
      m_Flags(::fcntl(descriptor, F_GETFL))
{
    if (m_Flags >= 0) ::fcntl(descriptor, F_SETFL, m_Flags | O_NONBLOCK);
}

NonBlocking::~NonBlocking()
{
    if (m_Flags >= 0) ::fcntl(m_Descriptor, F_SETFL, m_Flags);
}

void CloseStrayDescriptors() noexcept { ::close_range(STDERR_FILENO + 1, UINT_MAX, 0); }

void FillStandardDescriptors()
{
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    {
        if (::fcntl(standard, F_GETFD) >= 0) continue;
        // The lowest free number is given out, and all below are taken. It is open the wrong way round on purpose.
        if (::open("/dev/null", standard == STDIN_FILENO ? O_WRONLY : O_RDONLY) != standard)
            throw Failure("cannot open /dev/null", errno);
    }
}

void LetGoOfStandardDescriptors()
{
    const Descriptor nothing(::open("/dev/null", O_RDWR | O_CLOEXEC));
    if (!nothing.IsOpen()) throw Failure("cannot open /dev/null", errno);
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (::dup2(nothing.Get(), standard) < 0) throw Failure("cannot close a standard descriptor", errno);
}
} // namespace farend
