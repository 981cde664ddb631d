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
