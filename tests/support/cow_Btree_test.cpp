#include "cow_Btree.h"
#include "cow_Map.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <vector>

namespace
{
using Tree = cow_Btree<int, int>;

Tree TreeOf(const std::vector<int>& keys)
{
    Tree tree;
    for (const int key : keys) tree.InsertUnlessMember(key, key * 10);
    return tree;
}

template <class Entries> std::vector<int> Keys(const Entries& entries)
{
    std::vector<int> keys;
    for (const auto [key, value] : entries) keys.push_back(key);
    return keys;
}

// Every copy of it is counted: in a tree, each copied node copies one.
struct Counted
{
    Counted() = default;
    explicit Counted(int itsNumber) : number(itsNumber) {}
    Counted(const Counted& source) : number(source.number) { ++copies; }
    Counted& operator=(const Counted&) = default;
    ~Counted() = default;
    int number = 0;
    static inline int copies = 0;
};

cow_Btree<int, Counted> CountedTree(int size)
{
    cow_Btree<int, Counted> tree;
    for (int key = 0; key < size; ++key) tree.InsertUnlessMember(2 * key, Counted(key));
    return tree;
}
} // namespace

TEST(cow_Btree, AnEmptyTreeHasNoMembersAndAnswersItsDefault)
{
    Tree tree;
    EXPECT_EQ(tree.Count(), 0);
    EXPECT_EQ(tree.Height(), -1);
    EXPECT_EQ(tree.ConstFind(1), nullptr);
    EXPECT_EQ(tree.Find(1), nullptr);
    EXPECT_EQ(tree.ConstGet(1), 0);
    EXPECT_EQ(tree.Get(1), 0);
    EXPECT_FALSE(tree.Remove(1));
}

TEST(cow_Btree, InsertUnlessMemberKeepsTheValueOfAMember)
{
    Tree tree;
    EXPECT_TRUE(tree.InsertUnlessMember(1, 10));
    EXPECT_FALSE(tree.InsertUnlessMember(1, 11));
    EXPECT_EQ(tree.ConstGet(1), 10);
    EXPECT_EQ(tree.Count(), 1);
}

TEST(cow_Btree, RemoveTellsWhetherItRemoved)
{
    Tree tree = TreeOf({1, 2, 3});
    EXPECT_TRUE(tree.Remove(2));
    EXPECT_FALSE(tree.Remove(2));
    EXPECT_EQ(Keys(tree), (std::vector<int>{1, 3}));
    EXPECT_EQ(tree.Count(), 2);
}

TEST(cow_Btree, WhatIsWrittenToTheDefaultElementIsAnsweredForEveryAbsentKey)
{
    Tree tree = TreeOf({1});
    tree.Get(5) = 7;
    EXPECT_EQ(tree.ConstGet(6), 7);
    EXPECT_FALSE(tree.IsMember(5));
    EXPECT_EQ(tree.Count(), 1);
}

TEST(cow_Btree, AChainOfTwoBelowANodeStaysAndAChainOfThreeRotates)
{
    EXPECT_EQ(TreeOf({1, 2, 3}).Height(), 2) << "an exact balance would give 1";
    EXPECT_EQ(TreeOf({1, 2, 3, 4}).Height(), 2);
    EXPECT_EQ(TreeOf({4, 3, 2, 1}).Height(), 2);
}

TEST(cow_Btree, ALeftRightShapeKeepsItsDepth) { EXPECT_EQ(TreeOf({1, 3, 2}).Height(), 2); }

TEST(cow_Btree, ItHasTheHeightOfThePlainTreeAfterTheSameChanges)
{
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    Tree shared;
    omi_Btree<int, int> plain;
    for (int step = 0; step < 3000; ++step)
    {
        const int key = static_cast<int>(random() % 500);
        if (random() % 3 != 0)
            ASSERT_EQ(shared.InsertUnlessMember(key, step), plain.Insert(key, step));
        else
            ASSERT_EQ(shared.Remove(key), plain.Remove(key));
        ASSERT_EQ(shared.Height(), plain.root != nullptr ? plain.root->height : -1);
    }
}

TEST(cow_Btree, ACopySharesTheRootAndCostsNoNode)
{
    const auto tree = CountedTree(1000);
    Counted::copies = 0;
    const auto copy = tree.begin();
    cow_Btree<int, Counted> another(tree);
    EXPECT_EQ(another.ConstFind(10), tree.ConstFind(10)) << "the very same node";
    EXPECT_EQ(Counted::copies, 1) << "the default element alone";
    another.Clear();
    EXPECT_EQ(tree.Count(), 1000);
    EXPECT_EQ((*copy).key, 0);
}

TEST(cow_Btree, AWriteIntoASharedTreeCopiesThePathAndNothingElse)
{
    const auto tree = CountedTree(1000);
    cow_Btree<int, Counted> copy(tree);
    Counted::copies = 0;
    copy.Find(0)->number = -1;
    EXPECT_GE(Counted::copies, 2);
    EXPECT_LE(Counted::copies, tree.Height() + 1);
    EXPECT_EQ(tree.ConstGet(0).number, 0);
    EXPECT_EQ(copy.ConstGet(0).number, -1);
    EXPECT_EQ(copy.ConstFind(1998), tree.ConstFind(1998));

    Counted::copies = 0;
    copy.Find(0)->number = -2;
    EXPECT_EQ(Counted::copies, 0) << "the path is the copy's own by now";
}

TEST(cow_Btree, AnInsertIntoASharedTreeCopiesThePathAndNothingElse)
{
    const auto tree = CountedTree(1000);
    cow_Btree<int, Counted> copy(tree);
    Counted::copies = 0;
    EXPECT_TRUE(copy.InsertUnlessMember(501, Counted(5)));
    EXPECT_LE(Counted::copies, 1 + tree.Height() + 1);
    EXPECT_EQ(tree.Count(), 1000);
    EXPECT_FALSE(tree.IsMember(501));
    EXPECT_TRUE(copy.IsMember(501));
}

TEST(cow_Btree, ARemovalFromASharedTreeCopiesThePathAndWhatItRotates)
{
    const auto tree = CountedTree(1000);
    cow_Btree<int, Counted> copy(tree);
    Counted::copies = 0;
    EXPECT_TRUE(copy.Remove(0));
    EXPECT_LE(Counted::copies, 2 * (tree.Height() + 1)) << "a rotation may raise a sibling at each step";
    EXPECT_TRUE(tree.IsMember(0));
    EXPECT_EQ(Keys(tree).size(), 1000U);
    EXPECT_EQ(Keys(copy).size(), 999U);
}

TEST(cow_Btree, RefusedChangesCopyNothing)
{
    const auto tree = CountedTree(1000);
    cow_Btree<int, Counted> copy(tree);
    const Counted value(1);
    Counted::copies = 0;
    EXPECT_FALSE(copy.InsertUnlessMember(10, value));
    EXPECT_FALSE(copy.Remove(11));
    EXPECT_EQ(copy.Find(11), nullptr);
    EXPECT_EQ(Counted::copies, 0);
}

TEST(cow_Btree, AWalkSeesTheTreeAsItWasWhenTheWalkBegan)
{
    Tree tree = TreeOf({1, 2, 3, 4, 5});
    cow_BtreeIterator<int, int> walk(tree);
    for (const int key : {1, 2, 3, 4, 5}) tree.Remove(key);
    std::vector<int> seen;
    for (; !walk.AtEnd(); walk.Next()) seen.push_back(walk.Key());
    EXPECT_EQ(seen, (std::vector<int>{1, 2, 3, 4, 5}));
    walk.First();
    EXPECT_EQ(walk.Value(), 10);
}

TEST(cow_Btree, KeysAndValuesComeAsListsInTheOrderOfTheKeys)
{
    const Tree tree = TreeOf({3, 1, 2});
    const cow_List<int> keys = cow_BtreeUtils<int, int>::cow_Keys(tree);
    const cow_List<int> values = cow_BtreeUtils<int, int>::cow_Values(tree);
    EXPECT_EQ(std::vector<int>(keys.begin(), keys.end()), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(std::vector<int>(values.begin(), values.end()), (std::vector<int>{10, 20, 30}));
}

TEST(cow_Btree, ClearLeavesCopiesAlone)
{
    Tree tree = TreeOf({1, 2});
    const Tree copy(tree);
    tree.Clear();
    EXPECT_EQ(tree.Count(), 0);
    EXPECT_TRUE(Keys(tree).empty());
    EXPECT_EQ(copy.Count(), 2);
}

TEST(cow_Btree, AChainOfNodesIsReleasedWithoutRecursionOnBothSides)
{
    using Node = cow_BtreeNode<int, Counted>;
    const int length = 200000;
    for (const bool toTheLeft : {true, false})
    {
        cow_BtreeLink<int, Counted> top;
        for (int key = 0; key < length; ++key)
        {
            cow_BtreeLink<int, Counted> above(new Node(key, Counted()));
            (toTheLeft ? above.Get().left : above.Get().right) = std::move(top);
            top = std::move(above);
        }
        EXPECT_EQ(top.ConstGet().key, length - 1);
        const cow_BtreeLink<int, Counted> shared(toTheLeft ? top.ConstGet().left : top.ConstGet().right);
        top = cow_BtreeLink<int, Counted>();
        EXPECT_EQ(shared.Count(), 1) << "the shared rest stays";
        EXPECT_EQ(shared.ConstGet().key, length - 2);
    }
}

TEST(cow_Btree, RandomChangesOfSharingTreesAgreeWithModels)
{
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    std::vector<Tree> trees(4);
    std::vector<std::map<int, int>> models(4);
    for (int step = 0; step < 10000; ++step)
    {
        const std::size_t which = random() % trees.size();
        const int key = static_cast<int>(random() % 200);
        switch (random() % 12)
        {
        case 0:
        {
            const std::size_t source = random() % trees.size();
            trees[which] = Tree(trees[source]);
            models[which] = std::map<int, int>(models[source]);
            break;
        }
        case 1:
        case 2:
        case 3:
        case 4: ASSERT_EQ(trees[which].Remove(key), models[which].erase(key) == 1); break;
        case 5:
            if (int* value = trees[which].Find(key); value != nullptr) *value = models[which].at(key) = step;
            break;
        default:
            ASSERT_EQ(trees[which].InsertUnlessMember(key, step), models[which].emplace(key, step).second);
        }
    }
    for (std::size_t which = 0; which < trees.size(); ++which)
    {
        ASSERT_EQ(trees[which].Count(), static_cast<int>(models[which].size()));
        auto expected = models[which].begin();
        for (const auto [key, value] : trees[which])
        {
            ASSERT_NE(expected, models[which].end());
            EXPECT_EQ(key, expected->first);
            EXPECT_EQ(value, expected->second);
            ++expected;
        }
    }
}

TEST(cow_Map, InsertGivesAKeyItsLatestValueAndTellsWhetherItIsNew)
{
    cow_Map<cow_String, int> map;
    EXPECT_TRUE(map.IsEmpty());
    EXPECT_TRUE(map.Insert("b", 1));
    EXPECT_TRUE(map.Insert("a", 2));
    const cow_Map<cow_String, int> before(map);
    EXPECT_FALSE(map.Insert("b", 3));
    EXPECT_EQ(map.ConstGet("b"), 3);
    EXPECT_EQ(before.ConstGet("b"), 1);
    EXPECT_EQ(map.ConstGet("none"), 0);
    EXPECT_TRUE(map.IsMember("a"));
    EXPECT_FALSE(map.IsMember("none"));
    EXPECT_EQ(map.Count(), 2);
    std::vector<int> values;
    for (const auto [key, value] : map) values.push_back(value);
    EXPECT_EQ(values, (std::vector<int>{2, 3}));
    EXPECT_TRUE(map.Remove("a"));
    EXPECT_EQ(map.Tree().Count(), 1);
}
