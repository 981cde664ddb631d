#include "uti_LeftChildren.h"

#include "nex_Report.h"
#include "uti_Process.h"

#include <algorithm>
#include <mutex>

namespace
{
class Locked
{
public:
    explicit Locked(thr_Mutex& mutex) : m_Mutex(mutex) { m_Mutex.Lock(); }
    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;
    ~Locked() { m_Mutex.Unlock(); }

private:
    thr_Mutex& m_Mutex;
};
} // namespace

void uti_LeftChildren::Keep(utl_Descriptor process) noexcept
{
    try
    {
        const Locked locked(m_Mutex);
        m_Processes.push_back(std::move(process));
    }
    catch (const std::exception& failure)
    {
        nex_ReportUnthrown(failure);
    }
}

void uti_LeftChildren::Sweep()
{
    const Locked locked(m_Mutex);
    std::erase_if(m_Processes,
                  [](const utl_Descriptor& process) { return uti_Ended(process.Get()).has_value(); });
}

int uti_LeftChildren::Count()
{
    const Locked locked(m_Mutex);
    return static_cast<int>(m_Processes.size());
}
