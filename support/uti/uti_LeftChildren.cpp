#include "uti_LeftChildren.h"

#include "nex_Report.h"
#include "uti_Process.h"

#include <vector>

void uti_LeftChildren::Keep(utl_Descriptor process) noexcept
{
    try
    {
        const thr_Locked<thr_Mutex> locked(m_Mutex);
        m_Processes.push_back(std::move(process));
    }
    catch (const std::exception& failure)
    {
        nex_ReportUnthrown(failure);
    }
}

void uti_LeftChildren::Sweep()
{
    const thr_Locked<thr_Mutex> locked(m_Mutex);
    std::erase_if(m_Processes,
                  [](const utl_Descriptor& process) { return uti_Ended(process.Get()).has_value(); });
}

int uti_LeftChildren::Count()
{
    const thr_Locked<thr_Mutex> locked(m_Mutex);
    return static_cast<int>(m_Processes.size());
}
