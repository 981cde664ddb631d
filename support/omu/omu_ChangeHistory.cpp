#include "omu_ChangeHistory.h"

template class thr_ThreadSingleton<omu_ChangeHistory>;

void omu_ChangeHistory::addChange(const omu_PrimTuple& change)
{
    m_Changes.Append(Report(change));
    if (m_Changes.Count() > kMostChanges) m_Changes.RemoveFirst();
}
