#include "thr_Helper.h"

#include <condition_variable>
#include <csignal>
#include <deque>
#include <mutex>
#include <sched.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

// ---- the jobs and who does them ----

// In one block of memory: a forked child can neither end nor destroy any of it, and leaves it.
struct thr_Helper::Crew
{
    void Work();
    void RunFirst(std::unique_lock<std::mutex>& lock);

    std::mutex mutex;
    std::condition_variable given; // or it is the end
    std::condition_variable ended; // a job is done
    std::deque<std::shared_ptr<thr_Job>> waiting;
    bool isEnd = false;
    std::thread thread;
};

void thr_Helper::Crew::Work()
{
    std::unique_lock lock(mutex);
    while (true)
    {
        given.wait(lock, [&] { return isEnd || !waiting.empty(); });
        if (isEnd) return;
        RunFirst(lock);
    }
}

void thr_Helper::Crew::RunFirst(std::unique_lock<std::mutex>& lock)
{
    const std::shared_ptr<thr_Job> job = std::move(waiting.front());
    waiting.pop_front();
    lock.unlock();
    job->Run();
    lock.lock();
    job->m_Done = true;
    ended.notify_all();
}

namespace
{
int ProcessorCount() noexcept
{
    cpu_set_t usable;
    // It fails where there are more than fit.
    return ::sched_getaffinity(0, sizeof usable, &usable) == 0 ? CPU_COUNT(&usable) : CPU_SETSIZE;
}

/// Threads that are started while it lives have all signals blocked.
class SignalsBlocked
{
public:
    SignalsBlocked() noexcept
    {
        sigset_t all;
        sigfillset(&all);
        ::pthread_sigmask(SIG_SETMASK, &all, &m_Before);
    }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;
    ~SignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &m_Before, nullptr); }

private:
    sigset_t m_Before{};
};
} // namespace

// ---- the helper ----

thr_Job::~thr_Job() = default;

int& thr_Helper::LeastProcessors() noexcept
{
    static int s_Least = 2;
    return s_Least;
}

std::unique_ptr<thr_Helper> thr_Helper::Start()
{
    if (ProcessorCount() < LeastProcessors()) return nullptr;
    std::unique_ptr<thr_Helper> helper(new thr_Helper(std::make_unique<Crew>()));
    Crew& crew = *helper->m_Crew;
    try
    {
        const SignalsBlocked blocked;
        crew.thread = std::thread([&crew] { crew.Work(); });
    }
    catch (const std::system_error&)
    {
        return nullptr;
    }
    return helper;
}

thr_Helper::thr_Helper(std::unique_ptr<Crew> crew) noexcept : m_Crew(std::move(crew)), m_Process(::getpid())
{
}

thr_Helper::~thr_Helper()
{
    if (!IsHere())
    {
        // To destroy what a thread of the parent waits at, or holds, would be a wait for ever.
        static_cast<void>(m_Crew.release());
        return;
    }
    if (!m_Crew->thread.joinable()) return;
    {
        const std::lock_guard lock(m_Crew->mutex);
        m_Crew->isEnd = true;
    }
    m_Crew->given.notify_one();
    m_Crew->thread.join();
}

bool thr_Helper::IsHere() const noexcept { return ::getpid() == m_Process; }

void thr_Helper::Give(std::shared_ptr<thr_Job> job)
{
    {
        const std::lock_guard lock(m_Crew->mutex);
        job->m_Done = false;
        m_Crew->waiting.push_back(std::move(job));
    }
    m_Crew->given.notify_one();
}

// The job is among those that wait, or somebody is at it.
void thr_Helper::Finish(const thr_Job& job)
{
    std::unique_lock lock(m_Crew->mutex);
    while (!job.m_Done)
        if (m_Crew->waiting.empty())
            m_Crew->ended.wait(lock);
        else
            m_Crew->RunFirst(lock);
}

void thr_Helper::Forget() noexcept
{
    const std::lock_guard lock(m_Crew->mutex);
    m_Crew->waiting.clear();
}
