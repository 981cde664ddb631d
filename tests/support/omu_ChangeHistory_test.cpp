#include "omu_ChangeHistory.h"

#include <gtest/gtest.h>
#include <thread>

namespace
{
omu_PrimTuple Change(int number)
{
    omu_PrimTuple change(2, '(');
    change.Put("Modify");
    change.Put(number);
    return change;
}
} // namespace

TEST(omu_ChangeHistory, ReportsStandInTheirOrderUntilTheyAreCleared)
{
    omu_ChangeHistory history;
    history.addChange(Change(1));
    history.addChange(Change(2));
    ASSERT_EQ(history.Changes().Count(), 2);
    EXPECT_EQ(history.Changes().ConstGet(0).ConstGet().AsString().View(), "('Modify', 1)");
    EXPECT_EQ(history.Changes().ConstGet(1).ConstGet().AsString().View(), "('Modify', 2)");
    history.Clear();
    EXPECT_EQ(history.Changes().Count(), 0);
}

TEST(omu_ChangeHistory, EachThreadHasItsOwn)
{
    omu_ChangeHistory& mine = thr_ThreadSingleton<omu_ChangeHistory>::Instance();
    mine.Clear();
    int others = -1;
    std::thread(
        [&others]
        {
            omu_ChangeHistory& history = thr_ThreadSingleton<omu_ChangeHistory>::Instance();
            history.addChange(Change(1));
            others = history.Changes().Count();
        })
        .join();
    EXPECT_EQ(others, 1);
    EXPECT_EQ(mine.Changes().Count(), 0);
}

TEST(omu_ChangeHistory, WhenNobodyTakesTheReportsTheOldestGo)
{
    omu_ChangeHistory history;
    for (int number = 0; number < omu_ChangeHistory::kMostChanges + 3; ++number)
        history.addChange(Change(number));
    ASSERT_EQ(history.Changes().Count(), omu_ChangeHistory::kMostChanges);
    int oldest = 0;
    history.Changes().ConstGet(0).ConstGet().Get(1, oldest);
    EXPECT_EQ(oldest, 3);
}
