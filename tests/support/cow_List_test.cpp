#include "cow_List.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace
{
cow_List<int> ListOf(const std::vector<int>& values)
{
    cow_List<int> list;
    for (const int value : values) list.Append(value);
    return list;
}

std::vector<int> Values(const cow_1DArrayList<int>& list)
{
    return std::vector<int>(list.begin(), list.end());
}

struct Tagged
{
    int order = 0;
    int tag = 0;
    bool operator<(const Tagged& other) const { return order < other.order; }
};
} // namespace

TEST(cow_List, AnEmptyListHasNothing)
{
    const cow_List<int> list;
    EXPECT_EQ(list.Count(), 0);
    EXPECT_TRUE(list.IsEmpty());
    EXPECT_TRUE(Values(list).empty());
    EXPECT_TRUE(cow_1DArrayIter<int>(list).AtEnd());
}

TEST(cow_List, AppendedAndPrependedElementsStandInOrder)
{
    cow_List<int> list = ListOf({3, 4});
    list.Prepend(2);
    list.Prepend(1);
    list.Append(5);
    EXPECT_EQ(Values(list), (std::vector<int>{1, 2, 3, 4, 5}));
}

TEST(cow_List, AListCanBeAppendedToItself)
{
    cow_List<int> list = ListOf({1, 2});
    list.Append(list);
    EXPECT_EQ(Values(list), (std::vector<int>{1, 2, 1, 2}));
    list.Append(ListOf({9}));
    EXPECT_EQ(list.Count(), 5);
}

TEST(cow_List, AnElementOfTheListMayBeTheValueThatIsAdded)
{
    cow_List<cow_String> list;
    list.Append("first");
    for (int round = 0; round < 40; ++round)
    {
        list.Append(list.ConstGet(0));
        list.Prepend(list.ConstGet(0));
        list.InsertAfter(1, list.ConstGet(0));
    }
    EXPECT_EQ(list.Count(), 121);
    for (const cow_String& text : list) EXPECT_EQ(text, cow_String("first"));
}

TEST(cow_List, InsertAfterShiftsUpAndAppendsAtTheCount)
{
    cow_List<int> list = ListOf({1, 2, 3});
    list.InsertAfter(1, 9);
    EXPECT_EQ(Values(list), (std::vector<int>{1, 9, 2, 3}));
    list.InsertAfter(4, 8);
    list.InsertAfter(0, 7);
    EXPECT_EQ(Values(list), (std::vector<int>{7, 1, 9, 2, 3, 8}));
}

TEST(cow_List, RemoveIndexShiftsDownAndClearsTheOldEnd)
{
    cow_List<int> list = ListOf({1, 2, 3});
    list.RemoveIndex(0);
    EXPECT_EQ(Values(list), (std::vector<int>{2, 3}));
    EXPECT_EQ(list.Array().Block(0)->m_Elements[2], 0);
    list.RemoveIndex(1);
    EXPECT_EQ(Values(list), (std::vector<int>{2}));
}

TEST(cow_List, RemovedElementsLetGoOfWhatTheyHeld)
{
    const auto held = std::make_shared<int>(1);
    cow_List<std::shared_ptr<int>> list;
    for (int index = 0; index < 4; ++index) list.Append(held);
    ASSERT_EQ(held.use_count(), 5);
    list.RemoveFirst();
    EXPECT_EQ(held.use_count(), 4);
    list.RemoveLast();
    EXPECT_EQ(held.use_count(), 3);
    list.RemoveIndex(0);
    EXPECT_EQ(held.use_count(), 2);
    list.Clear();
    EXPECT_EQ(held.use_count(), 1);
}

TEST(cow_List, RemoveFirstAndRemoveLastTakeTheEnds)
{
    cow_List<int> list = ListOf({1, 2, 3});
    list.RemoveFirst();
    list.RemoveLast();
    EXPECT_EQ(Values(list), (std::vector<int>{2}));
    list.RemoveLast();
    EXPECT_EQ(list.Array().TableSize(), 0) << "an empty list holds no storage";
}

TEST(cow_List, RemoveFirstReleasesABlockThatTheHeadHasLeft)
{
    cow_List<int> list;
    for (int value = 0; value < 40; ++value) list.Append(value);
    for (int removed = 0; removed < 16; ++removed) list.RemoveFirst();
    EXPECT_EQ(list.Array().Block(0), nullptr);
    EXPECT_NE(list.Array().Block(1), nullptr);
    EXPECT_EQ(list.ConstGet(0), 16);
}

TEST(cow_List, RemoveTakesTheFirstEqualElementAndIgnoresAnAbsentOne)
{
    cow_List<int> list = ListOf({1, 2, 1});
    list.Remove(1);
    EXPECT_EQ(Values(list), (std::vector<int>{2, 1}));
    list.Remove(7);
    EXPECT_EQ(list.Count(), 2);
}

TEST(cow_List, SortOrdersByLessAndKeepsTheOrderOfEqualElements)
{
    cow_List<Tagged> list;
    for (const Tagged& value : {Tagged{2, 0}, Tagged{1, 1}, Tagged{2, 2}, Tagged{1, 3}}) list.Append(value);
    list.Sort();
    std::vector<int> tags;
    for (const Tagged& value : list) tags.push_back(value.tag);
    EXPECT_EQ(tags, (std::vector<int>{1, 3, 0, 2}));
}

TEST(cow_List, SortingACopyLeavesTheListAlone)
{
    const cow_List<int> list = ListOf({3, 1, 2});
    cow_List<int> copy(list);
    copy.Sort();
    EXPECT_EQ(Values(copy), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(Values(list), (std::vector<int>{3, 1, 2}));
}

TEST(cow_List, ACopySharesUntilItWrites)
{
    const cow_List<int> list = ListOf({1, 2, 3});
    cow_List<int> copy(list);
    EXPECT_EQ(list.Array().Sharers(), 2);
    copy.Get(0) = 9;
    EXPECT_EQ(list.Array().Sharers(), 1);
    EXPECT_EQ(list.ConstGet(0), 1);
    EXPECT_EQ(copy.ConstGet(0), 9);
}

TEST(cow_List, AWalkSeesTheListAsItWasWhenTheWalkBegan)
{
    cow_List<int> list = ListOf({1, 2, 3});
    cow_1DArrayIter<int> walk(list);
    list.Clear();
    std::vector<int> seen;
    for (; !walk.AtEnd(); walk.Next()) seen.push_back(walk.Value());
    EXPECT_EQ(seen, (std::vector<int>{1, 2, 3}));
    EXPECT_THROW(walk.Value(), nex_AssertException);
    walk.First();
    EXPECT_EQ(walk.Value(), 1);
    EXPECT_EQ(walk.Index(), 0);
}

TEST(cow_List, WhatIsOutOfRangeIsRefusedAndChangesNothing)
{
    cow_List<int> list = ListOf({1, 2});
    EXPECT_THROW(list.Get(2), nex_AssertException);
    EXPECT_THROW(list.ConstGet(-1), nex_AssertException);
    EXPECT_THROW(list.RemoveIndex(2), nex_AssertException);
    EXPECT_THROW(list.InsertAfter(3, 0), nex_AssertException);
    EXPECT_THROW(list.InsertAfter(-1, 0), nex_AssertException);
    EXPECT_EQ(Values(list), (std::vector<int>{1, 2}));
    cow_List<int> empty;
    EXPECT_THROW(empty.RemoveFirst(), nex_AssertException);
    EXPECT_THROW(empty.RemoveLast(), nex_AssertException);
    EXPECT_EQ(empty.Count(), 0);
}

TEST(cow_List, RandomChangesAgreeWithAModel)
{
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    cow_List<int> list;
    cow_List<int> snapshot;
    std::vector<int> model;
    std::vector<int> snapshotModel;
    for (int step = 0; step < 20000; ++step)
    {
        const std::size_t at = random() % (model.size() + 1);
        const auto place = model.begin() + static_cast<std::ptrdiff_t>(at);
        switch (random() % 9)
        {
        case 0: list.Append(step), model.push_back(step); break;
        case 1: list.Prepend(step), model.insert(model.begin(), step); break;
        case 2: list.InsertAfter(static_cast<int>(at), step), model.insert(place, step); break;
        case 3: list.Prepend(-step), model.insert(model.begin(), -step); break;
        case 4:
            if (at < model.size()) list.RemoveIndex(static_cast<int>(at)), model.erase(place);
            break;
        case 5:
            if (!model.empty()) list.RemoveFirst(), model.erase(model.begin());
            break;
        case 6:
            if (!model.empty()) list.RemoveLast(), model.pop_back();
            break;
        case 7:
            if (at < model.size()) list.Get(static_cast<int>(at)) = step, *place = step;
            break;
        default:
            ASSERT_EQ(Values(snapshot), snapshotModel) << "a snapshot changed with the list";
            snapshot = list;
            snapshotModel = model;
        }
    }
    EXPECT_EQ(Values(list), model);
}
