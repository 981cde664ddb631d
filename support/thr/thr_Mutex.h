#pragma once

#include <mutex>

/// A mutex of one process. The argument of the constructor is the spin count that some platforms want.
class thr_Mutex
{
public:
    explicit thr_Mutex(unsigned int = 0) {}
    void Lock() { m_Mutex.lock(); }
    void Unlock() { m_Mutex.unlock(); }

private:
    std::mutex m_Mutex;
};

/// The one lock under which process-wide objects are made and torn down; reached through `omi_Singleton`.
class thr_GlobalLock : public thr_Mutex
{
};

/// Holds a lock as long as it lives.
template <class Lock> class thr_Locked
{
public:
    explicit thr_Locked(Lock& lock) : m_Lock(lock) { m_Lock.Lock(); }
    ~thr_Locked() { m_Lock.Unlock(); }
    thr_Locked(const thr_Locked&) = delete;
    thr_Locked& operator=(const thr_Locked&) = delete;

private:
    Lock& m_Lock;
};
