#include "utl_PipeSignal.h"

#include <cerrno>
#include <ctime>

static sigset_t PipeSignalAlone() noexcept
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    return set;
}

utl_PipeSignal::utl_PipeSignal() noexcept
{
    sigset_t pending;
    sigemptyset(&pending);
    sigpending(&pending);
    m_WasPending = sigismember(&pending, SIGPIPE) == 1;
    const sigset_t alone = PipeSignalAlone();
    pthread_sigmask(SIG_BLOCK, &alone, &m_Before);
}

utl_PipeSignal::~utl_PipeSignal()
{
    const int error = errno;
    const sigset_t alone = PipeSignalAlone();
    const timespec atOnce{};
    if (!m_WasPending)
        while (sigtimedwait(&alone, nullptr, &atOnce) < 0 && errno == EINTR)
        {
        }
    pthread_sigmask(SIG_SETMASK, &m_Before, nullptr);
    errno = error;
}
