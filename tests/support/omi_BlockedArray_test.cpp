#include "omi_BlockedArray.h"

#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <random>
#include <string>

TEST(omi_BlockedArray, ACellOfAnAbsentBlockIsTheDefault)
{
    omi_BlockedArray<unsigned> cells(7U, 10);
    EXPECT_EQ(cells.Cell(0), 7U);
    EXPECT_EQ(cells.Cell(std::numeric_limits<int>::max()), 7U);
    cells.SetCell(5000, 1U);
    EXPECT_EQ(cells.Cell(0), 7U);
    EXPECT_FALSE(cells.HasBlock(0));
}

TEST(omi_BlockedArray, SettingACellMakesItsBlockAndLeavesTheOthersOfTheBlockDefault)
{
    omi_BlockedArray<unsigned> cells(7U, 4);
    cells.SetCell(17, 1U);
    EXPECT_EQ(cells.Cell(17), 1U);
    EXPECT_EQ(cells.Cell(16), 7U);
    EXPECT_EQ(cells.Cell(31), 7U);
    EXPECT_TRUE(cells.HasBlock(16));
    EXPECT_TRUE(cells.HasBlock(31));
    EXPECT_FALSE(cells.HasBlock(15));
    EXPECT_FALSE(cells.HasBlock(32));
}

TEST(omi_BlockedArray, ACellOfTheArrayMayBeTheValueThatIsSet)
{
    omi_BlockedArray<std::string> cells("default of some length", 0);
    cells.SetCell(100, cells.Cell(3));
    cells.SetCell(200, cells.Cell(100));
    EXPECT_EQ(cells.Cell(200), "default of some length");
}

TEST(omi_BlockedArray, TheHighestIndexIsAnOrdinaryOne)
{
    omi_BlockedArray<unsigned> cells(0U, 20);
    cells.SetCell(std::numeric_limits<int>::max(), 9U);
    EXPECT_EQ(cells.Cell(std::numeric_limits<int>::max()), 9U);
    EXPECT_EQ(cells.Cell(std::numeric_limits<int>::max() - 1), 0U);
}

TEST(omi_BlockedArray, ANegativeIndexIsRefusedAndChangesNothing)
{
    omi_BlockedArray<unsigned> cells(0U, 10);
    EXPECT_THROW(cells.SetCell(-1, 1U), nex_AssertException);
    EXPECT_THROW(cells.Cell(std::numeric_limits<int>::min()), nex_AssertException);
    EXPECT_THROW(cells.HasBlock(-1), nex_AssertException);
    EXPECT_FALSE(cells.HasBlock(0));
}

TEST(omi_BlockedArray, AnExponentOutOfRangeIsRefused)
{
    EXPECT_THROW(omi_BlockedArray<int>(0, -1), nex_AssertException);
    EXPECT_THROW(omi_BlockedArray<int>(0, 25), nex_AssertException);
}

TEST(omi_BlockedArray, RandomCellsAgreeWithAModel)
{
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    omi_BlockedArray<int> cells(-1, 3);
    std::map<int, int> model;
    for (int step = 0; step < 2000; ++step)
    {
        const int index = static_cast<int>(random() % 10000);
        cells.SetCell(index, step);
        model[index] = step;
    }
    for (int index = 0; index < 10100; ++index)
    {
        const auto set = model.find(index);
        ASSERT_EQ(cells.Cell(index), set != model.end() ? set->second : -1);
    }
}
