#pragma once

#include <memory>
#include <sys/types.h>

/// Work that any thread may do: it touches nothing that others use at the same time.
class thr_Job
{
public:
    virtual ~thr_Job();
    virtual void Run() noexcept = 0;

private:
    friend class thr_Helper;
    bool m_Done = false; // guarded by the helper's lock
};

/// One thread that does jobs for its owner, in the order in which they were given.
///
///   Give                     the thread is free,           Run returns
///   ------> [ waiting ] --------------------------> [ running ] ------> [ done ]
///               |             or Finish                 |
///               | Forget                                | Forget
///               v                                       v
///             (gone)                        (gone when Run returns)
///
/// Its owner is one thread, which does jobs as well while it waits for one: so two threads are at work where the owner
/// has nothing else to do, and a helper that gets no processor holds nobody up for more than the job it is at.
/// A process that forks has no such thread in the child: what IsHere says there is false, and all that may be done with
/// the helper then is to destroy it, which leaves its memory to the end of the child.
class thr_Helper
{
public:
    /// Null where there are too few processors, or where the system has no thread to give. The thread takes no signals:
    /// they are for those of the program.
    static std::unique_ptr<thr_Helper> Start();
    /// How many make a helper worth its while: 2. Tests also want one where there is a single one.
    static int& LeastProcessors() noexcept;
    thr_Helper(const thr_Helper&) = delete;
    thr_Helper& operator=(const thr_Helper&) = delete;
    /// Returns when the thread has ended, which does no further job before.
    ~thr_Helper();

    bool IsHere() const noexcept;
    /// A job may be given again when it is done.
    void Give(std::shared_ptr<thr_Job> job);
    /// Returns when that job, which was given and not forgotten, is done, whoever does it.
    void Finish(const thr_Job& job);
    /// Nobody waits for any of the jobs given so far.
    void Forget() noexcept;

private:
    struct Crew;
    explicit thr_Helper(std::unique_ptr<Crew> crew) noexcept;

    std::unique_ptr<Crew> m_Crew;
    const pid_t m_Process;
};
