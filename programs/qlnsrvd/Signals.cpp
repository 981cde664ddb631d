#include "Signals.h"

#include "Failure.h"

#include <cerrno>
#include <sys/signalfd.h>
#include <unistd.h>

namespace qlnsrvd
{
Signals::Signals(std::initializer_list<int> numbers)
{
    sigset_t set;
    ::sigemptyset(&set);
    for (const int number : numbers) ::sigaddset(&set, number);
    ::sigprocmask(SIG_BLOCK, &set, nullptr);
    m_Descriptor = farend::Descriptor(::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!m_Descriptor.IsOpen()) throw farend::Failure("cannot receive signals", errno);
}

void Signals::Release()
{
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

int Signals::Take() const
{
    signalfd_siginfo signal = {};
    return ::read(m_Descriptor.Get(), &signal, sizeof signal) == sizeof signal
               ? static_cast<int>(signal.ssi_signo)
               : 0;
}
} // namespace qlnsrvd
