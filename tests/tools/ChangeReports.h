#pragma once

#include "omu_ChangeHistory.h"
#include "thr_ThreadSingleton.h"

#include <string>

inline omu_ChangeHistory& History() { return thr_ThreadSingleton<omu_ChangeHistory>::Instance(); }

/// The reports of this thread's changes since the last call, one a line.
inline std::string Reports()
{
    std::string reports;
    for (const auto& report : History().Changes())
    {
        reports += report.ConstGet().AsString().View();
        reports += "\n";
    }
    History().Clear();
    return reports;
}
