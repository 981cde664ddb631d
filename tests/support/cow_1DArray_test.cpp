#include "cow_1DArray.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{
using Array = cow_1DArray<int>;

Array Counting(int size)
{
    Array array;
    array.Grow(size);
    for (int index = 0; index < size; ++index) array.Get(index) = index;
    return array;
}

int BlocksMade(const Array& array)
{
    int made = 0;
    for (int slot = 0; slot < array.TableSize(); ++slot) made += array.Block(slot) != nullptr ? 1 : 0;
    return made;
}

// Blocks that the two arrays do not share.
int BlocksApart(const Array& left, const Array& right)
{
    int apart = 0;
    for (int slot = 0; slot < left.TableSize(); ++slot)
        apart += left.Block(slot) != right.Block(slot) ? 1 : 0;
    return apart;
}

template <class Step> std::string ConditionBrokenBy(Step step)
{
    try
    {
        step();
    }
    catch (const nex_AssertException& broken)
    {
        return broken.UserReport().CString();
    }
    return "none";
}

struct Fragile
{
    Fragile() = default;
    Fragile(const Fragile&) = default;
    Fragile& operator=(const Fragile& source)
    {
        if (this == &source) return *this;
        if (refuses) throw std::runtime_error("assignment refused");
        number = source.number;
        return *this;
    }
    ~Fragile() = default;
    int number = 0;
    static inline bool refuses = false;
};
} // namespace

TEST(cow_1DArray, ADefaultArrayIsAllZeroWithoutATable)
{
    const Array array;
    EXPECT_EQ(array.TableSize(), 0);
    EXPECT_EQ(array.BlockExponent(), 0);
    EXPECT_EQ(array.End(), 0);
    EXPECT_EQ(array.First(), 0);
    EXPECT_EQ(array.Sharers(), 0);
}

TEST(cow_1DArray, ACapacityChoosesBlockExponentAndTableSize)
{
    struct Case
    {
        int capacity, exponent, tableSize;
    };
    // From 256 on the exponent is floor(log2 n) - 3, and the table has 8 to 16 slots more.
    for (const Case& expected :
         {Case{0, 4, 16}, Case{1, 4, 16}, Case{255, 4, 16}, Case{256, 5, 24}, Case{257, 5, 25},
          Case{288, 5, 25}, Case{289, 5, 26}, Case{384, 5, 28}, Case{511, 5, 32}, Case{512, 6, 24},
          Case{1000000, 16, 32}, Case{2147483647, 28, 24}})
    {
        SCOPED_TRACE(expected.capacity);
        const Array array(expected.capacity);
        EXPECT_EQ(array.BlockExponent(), expected.exponent);
        EXPECT_EQ(array.TableSize(), expected.tableSize);
        EXPECT_EQ(array.End(), expected.capacity);
        EXPECT_EQ(array.First(), 0);
        EXPECT_EQ(BlocksMade(array), 0);
        EXPECT_GE(std::int64_t{array.TableSize()} << array.BlockExponent(), expected.capacity);
    }
}

TEST(cow_1DArray, GrowingGivesTheTableSixteenSlotsMoreThanTheNeed)
{
    Array array;
    array.Grow(1);
    EXPECT_EQ(array.BlockExponent(), 4);
    EXPECT_EQ(array.TableSize(), 17);
    array.Grow(17 * 16);
    EXPECT_EQ(array.TableSize(), 17) << "the need is met, so the size stays";
    array.Grow(17 * 16 + 1);
    EXPECT_EQ(array.TableSize(), 18 + 16);
    array.Grow(1);
    EXPECT_EQ(array.TableSize(), 18 + 16);
    EXPECT_EQ(array.End(), 1);
}

TEST(cow_1DArray, GrowingToNothingGivesEverythingBackAndForgetsTheExponent)
{
    Array array(1000);
    array.Get(999) = 1;
    array.Grow(0);
    EXPECT_EQ(array.TableSize(), 0);
    EXPECT_EQ(array.BlockExponent(), 0);
    EXPECT_EQ(array.End(), 0);
    EXPECT_EQ(array.First(), 0);
    array.Grow(1);
    EXPECT_EQ(array.BlockExponent(), 4);
    EXPECT_EQ(array.ConstGet(0), 0);
}

TEST(cow_1DArray, GrowingToNothingLeavesACopyAlone)
{
    Array array = Counting(40);
    const Array copy(array);
    array.Grow(0);
    EXPECT_EQ(copy.ConstGet(39), 39);
    EXPECT_EQ(copy.Sharers(), 1);
}

TEST(cow_1DArray, AnElementNeverWrittenIsADefaultOneAndReadingItMakesItsBlock)
{
    const Array array(100);
    EXPECT_EQ(array.PartialArrayConstGet(99), 0);
    EXPECT_EQ(BlocksMade(array), 1);
    EXPECT_NE(array.Block(99 / 16), nullptr);
}

TEST(cow_1DArray, ACopySharesTheTableAndRaisesItsCount)
{
    const Array array = Counting(100);
    Array copy;
    copy = array;
    EXPECT_EQ(array.Sharers(), 2);
    EXPECT_EQ(BlocksApart(array, copy), 0);
    EXPECT_EQ(array.Block(0)->m_Count, 1) << "the table is shared, not yet the blocks";
}

TEST(cow_1DArray, AWriterCopiesOnlyTheBlockThatItTouches)
{
    const Array array = Counting(1000);
    Array copy(array);
    copy.Get(500) = -1;
    EXPECT_EQ(array.Sharers(), 1);
    EXPECT_EQ(BlocksApart(array, copy), 1);
    EXPECT_EQ(array.Block(500 / 16)->m_Count, 1);
    EXPECT_EQ(array.Block(0)->m_Count, 2);
    copy.Get(501) = -2;
    EXPECT_EQ(BlocksApart(array, copy), 1);
    EXPECT_EQ(array.ConstGet(500), 500);
    EXPECT_EQ(copy.ConstGet(500), -1);
    EXPECT_EQ(copy.ConstGet(499), 499);
}

TEST(cow_1DArray, AWriterWithABlockOfItsOwnCopiesNothing)
{
    Array array = Counting(20);
    const auto* block = array.Block(0);
    array.Get(3) = -1;
    EXPECT_EQ(array.Block(0), block);
    EXPECT_EQ(block->m_Count, 1);
}

TEST(cow_1DArray, AssignmentSharesAndReleasesWhatWasHeld)
{
    const Array array = Counting(20);
    Array other = Counting(5);
    other = array;
    EXPECT_EQ(array.Sharers(), 2);
    Array& same = other;
    other = same;
    EXPECT_EQ(other.ConstGet(19), 19);
    EXPECT_EQ(array.Sharers(), 2);
}

TEST(cow_1DArray, AHeadInAnEmptyArrayStandsInTheLastElementBeforeTheEnd)
{
    Array array;
    array.GetHead() = 7;
    EXPECT_EQ(array.TableSize(), 16);
    EXPECT_EQ(array.BlockExponent(), 4);
    EXPECT_EQ(array.First(), 255);
    EXPECT_EQ(array.End(), 256);
    EXPECT_EQ(array.ConstGet(0), 7);
}

TEST(cow_1DArray, AHeadMovesBlocksToTheEndOfTheTableOnlyWhenNoRoomIsInFront)
{
    Array array = Counting(20);
    ASSERT_EQ(array.TableSize(), 18);
    const auto* firstBlock = array.Block(0);
    array.GetHead() = -1;
    EXPECT_EQ(array.TableSize(), 18);
    EXPECT_EQ(array.First(), 16 * 16 - 1);
    EXPECT_EQ(array.End(), 16 * 16 + 20);
    EXPECT_EQ(array.Block(16), firstBlock);
    EXPECT_EQ(array.Block(0), nullptr);
    EXPECT_EQ(BlocksMade(array), 3);

    for (int head = 2; head <= 256; ++head) array.GetHead() = -head;
    EXPECT_EQ(array.First(), 0);
    EXPECT_EQ(array.Block(16), firstBlock);
    EXPECT_EQ(array.ConstGet(0), -256);
    EXPECT_EQ(array.ConstGet(256), 0);

    array.GetHead() = -257;
    EXPECT_EQ(array.TableSize(), 18 + 16) << "every slot was in use";
    EXPECT_EQ(array.First(), 16 * 16 - 1);
    EXPECT_EQ(array.Block(16 + 16), firstBlock);
    EXPECT_EQ(array.ConstGet(0), -257);
    EXPECT_EQ(array.ConstGet(276), 19);
}

TEST(cow_1DArray, AHeadLeavesACopyAlone)
{
    const Array array = Counting(20);
    Array copy(array);
    copy.GetHead() = -1;
    EXPECT_EQ(array.Size(), 20);
    EXPECT_EQ(array.First(), 0);
    EXPECT_EQ(array.ConstGet(0), 0);
    EXPECT_EQ(copy.Size(), 21);
    EXPECT_EQ(copy.ConstGet(1), 0);
    EXPECT_EQ(copy.ConstGet(20), 19);
}

TEST(cow_1DArray, RemovingTheHeadMovesNothingAndReleasesABlockWhenTheHeadLeavesIt)
{
    Array array = Counting(40);
    const auto* second = array.Block(1);
    for (int removed = 0; removed < 15; ++removed) array.RemoveHead();
    EXPECT_EQ(array.First(), 15);
    ASSERT_NE(array.Block(0), nullptr);
    EXPECT_EQ(array.Block(0)->m_Elements[14], 0) << "what goes is cleared";
    array.RemoveHead();
    EXPECT_EQ(array.Block(0), nullptr);
    EXPECT_EQ(array.Block(1), second);
    EXPECT_EQ(array.ConstGet(0), 16);
    EXPECT_EQ(array.Size(), 24);
}

TEST(cow_1DArray, IndicesCountFromTheFirstElement)
{
    Array array = Counting(5);
    array.RemoveHead();
    array.Get(0) = 100;
    EXPECT_EQ(array.PartialArrayConstGet(0), 100);
    EXPECT_EQ(array.ConstGet(3), 4);
    array.Grow(5);
    EXPECT_EQ(array.End(), 6) << "the first element and the size give the end";
}

TEST(cow_1DArray, FilledFromAnArrayItHoldsThatAndNothingElse)
{
    const std::vector<int> source{3, 1, 2};
    Array array = Counting(100);
    array.SetFromArray(source.data(), 3);
    EXPECT_EQ(array.Size(), 3);
    EXPECT_EQ(array.ConstGet(0), 3);
    EXPECT_EQ(array.ConstGet(2), 2);
    array.SetFromArray(nullptr, 0);
    EXPECT_EQ(array.Size(), 0);
}

TEST(cow_1DArray, WhatIsOutOfRangeIsRefusedWithTheConditionAndChangesNothing)
{
    Array array = Counting(3);
    const std::string range = "index >= 0 && index < Size()";
    EXPECT_EQ(ConditionBrokenBy([&] { array.Get(3); }), range);
    EXPECT_EQ(ConditionBrokenBy([&] { array.Get(-1); }), range);
    EXPECT_EQ(ConditionBrokenBy([&] { array.ConstGet(std::numeric_limits<int>::max()); }), range);
    EXPECT_EQ(ConditionBrokenBy([&] { array.PartialArrayConstGet(std::numeric_limits<int>::min()); }), range);
    EXPECT_EQ(ConditionBrokenBy([&] { array.Grow(-1); }), "size >= 0");
    EXPECT_EQ(ConditionBrokenBy([&] { array.SetFromArray(nullptr, 1); }), "source != nullptr || size == 0");
    EXPECT_EQ(ConditionBrokenBy([&] { Array negative(-1); }), "capacity >= 0");
    EXPECT_EQ(ConditionBrokenBy([&] { Array().RemoveHead(); }), "Size() > 0");
    array.RemoveHead();
    EXPECT_EQ(ConditionBrokenBy([&] { array.Grow(std::numeric_limits<int>::max()); }),
              "m_First + size <= INT_MAX");
    Array huge(std::numeric_limits<int>::max());
    EXPECT_EQ(ConditionBrokenBy([&] { huge.GetHead(); }), "m_End + shift <= INT_MAX");
    EXPECT_EQ(array.Size(), 2);
    EXPECT_EQ(array.ConstGet(0), 1);
}

TEST(cow_1DArray, ABlockThatFailsToCopyLeavesBothArraysAsTheyWere)
{
    cow_1DArray<Fragile> array;
    array.Grow(20);
    array.Get(3).number = 3;
    cow_1DArray<Fragile> copy(array);
    Fragile::refuses = true;
    EXPECT_THROW(copy.Get(3), std::runtime_error);
    Fragile::refuses = false;
    EXPECT_EQ(copy.ConstGet(3).number, 3);
    copy.Get(3).number = 4;
    EXPECT_EQ(array.ConstGet(3).number, 3);
}

TEST(cow_1DArray, RandomChangesOfSharingArraysAgreeWithAModel)
{
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    std::vector<Array> arrays(4);
    std::vector<std::vector<int>> models(4);
    for (int step = 0; step < 20000; ++step)
    {
        const std::size_t which = random() % arrays.size();
        Array& array = arrays[which];
        std::vector<int>& model = models[which];
        const auto choice = random() % 10;
        if (choice < 3)
        {
            array.Grow(array.Size() + 1);
            array.Get(array.Size() - 1) = step;
            model.push_back(step);
        }
        else if (choice < 6)
        {
            array.GetHead() = step;
            model.insert(model.begin(), step);
        }
        else if (choice < 8 && !model.empty())
        {
            array.RemoveHead();
            model.erase(model.begin());
        }
        else if (choice == 8 && !model.empty())
        {
            const std::size_t index = random() % model.size();
            array.Get(static_cast<int>(index)) = -step;
            model[index] = -step;
        }
        else if (random() % 20 == 0)
        {
            const std::size_t source = random() % arrays.size();
            array = Array(arrays[source]);
            model = std::vector<int>(models[source]);
        }
        ASSERT_EQ(array.Size(), static_cast<int>(model.size()));
    }
    for (std::size_t which = 0; which < arrays.size(); ++which)
    {
        for (std::size_t index = 0; index < models[which].size(); ++index)
            ASSERT_EQ(arrays[which].ConstGet(static_cast<int>(index)), models[which][index]);
    }
}
