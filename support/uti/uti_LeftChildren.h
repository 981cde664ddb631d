#pragma once

#include "thr_Mutex.h"
#include "utl_Descriptor.h"

#include <vector>

/// The children that nobody waits for any more: detached ones, and the rare one that outlives a SIGKILL. The system keeps
/// what is left of an ended child until its parent asks, so they are asked for whenever another child is started or
/// let go, and at the end of the library.
/// Threads: any.
class uti_LeftChildren
{
public:
    /// Takes a process's descriptor over. A lack of memory is told on standard error.
    void Keep(utl_Descriptor process) noexcept;
    /// Forgets those that have ended.
    void Sweep();
    int Count();

private:
    thr_Mutex m_Mutex;
    std::vector<utl_Descriptor> m_Processes;
};
