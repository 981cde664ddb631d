#pragma once

#include "cow_List.h"
#include "omu_Primitive.h"
#include "thr_ThreadSingleton.h"

/// What changed in the repositories, as one thread did it: a row of reports, each a tuple that begins with a word such
/// as "Insert". Whoever follows the changes takes the reports and clears the history. Reached through
/// `thr_ThreadSingleton`.
class RFM_EXPORT omu_ChangeHistory
{
public:
    using Report = cow_ArrayCOW<omu_PrimTuple, cow_Virtual<omu_PrimTuple>>;

    /// How many reports are kept: in a process where nobody takes them the oldest go, or its memory would fill.
    static constexpr int kMostChanges = 10000;

    void addChange(const omu_PrimTuple& change);
    /// The reports, the oldest first.
    const cow_List<Report>& Changes() const noexcept { return m_Changes; }
    void Clear() { m_Changes.Clear(); }

private:
    cow_List<Report> m_Changes;
};

extern template class RFM_EXPORT thr_ThreadSingleton<omu_ChangeHistory>;
