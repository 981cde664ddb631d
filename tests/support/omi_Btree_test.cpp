#include "omi_Btree.h"

#include <gtest/gtest.h>

#include <map>
#include <numeric>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{
using Tree = omi_Btree<int, int>;

Tree TreeOf(const std::vector<int>& keys)
{
    Tree tree;
    for (const int key : keys) tree.Insert(key, key * 10);
    return tree;
}

// The shape as text: key(left,right), with "." for a missing child and nothing behind a leaf.
std::string Shape(const Tree::Node* node)
{
    if (node == nullptr) return ".";
    std::string text = std::to_string(node->key);
    if (node->left == nullptr && node->right == nullptr) return text;
    return text.append("(").append(Shape(node->left)).append(",").append(Shape(node->right)).append(")");
}

std::vector<int> Keys(const Tree& tree)
{
    std::vector<int> keys;
    for (omi_BtreeIterator<int, int> walk(tree); !walk.AtEnd(); walk.Next()) keys.push_back(walk.Key());
    return keys;
}

// The true height of the subtree; -1 for none. Notes a node whose stored height is another one.
template <class N> int HeightAndCheck(const N* node, bool& right)
{
    if (node == nullptr) return -1;
    const int height = 1 + std::max(HeightAndCheck(node->left, right), HeightAndCheck(node->right, right));
    if (height != node->height) right = false;
    return height;
}

// The number of nodes on the longest way down.
template <class N> int Depth(const N* node)
{
    bool right = true;
    const int depth = 1 + HeightAndCheck(node, right);
    EXPECT_TRUE(right) << "a stored height is wrong";
    return depth;
}

// A chain of right children, as no order of inserts makes it: the worst that a tree can look like.
void HangChain(Tree& tree, int length)
{
    Tree::Node** link = &tree.root;
    for (int key = 0; key < length; ++key)
    {
        *link = new Tree::Node(key, key * 10);
        (*link)->height = length - 1 - key;
        link = &(*link)->right;
    }
    tree.count = length;
}

// A value that can be told to fail its next copies, and that counts how many of it live.
struct Fragile
{
    Fragile() { ++alive; }
    Fragile(const Fragile& source) : number(source.number)
    {
        if (copiesUntilFailure >= 0 && copiesUntilFailure-- == 0) throw std::runtime_error("copy refused");
        ++alive;
    }
    Fragile& operator=(const Fragile& source) = default;
    ~Fragile() { --alive; }

    int number = 0;
    static inline int alive = 0;
    static inline int copiesUntilFailure = -1;
};
} // namespace

TEST(omi_Btree, AnEmptyTreeHasNoEntriesAndAnswersItsDefault)
{
    const Tree tree;
    EXPECT_EQ(tree.Count(), 0);
    EXPECT_EQ(tree.root, nullptr);
    EXPECT_EQ(tree.Find(1), nullptr);
    EXPECT_EQ(tree.Get(1), 0);
    EXPECT_TRUE((omi_BtreeIterator<int, int>(tree).AtEnd()));
}

TEST(omi_Btree, AFailedLookupGivesTheDefaultValueOfTheTree)
{
    Tree tree = TreeOf({1});
    tree.defaultValue = -7;
    EXPECT_EQ(tree.Get(1), 10);
    EXPECT_EQ(tree.Get(2), -7);
}

TEST(omi_Btree, InsertingAKeyThatIsThereAnswersFalseAndKeepsTheFirstValue)
{
    Tree tree;
    EXPECT_TRUE(tree.Insert(5, 50));
    EXPECT_FALSE(tree.Insert(5, 51));
    EXPECT_EQ(tree.Count(), 1);
    EXPECT_EQ(tree.Get(5), 50);
}

TEST(omi_Btree, FindGivesTheNodeOfAKeyAndNullForAnAbsentOne)
{
    Tree tree = TreeOf({2, 1, 3});
    ASSERT_NE(tree.Find(3), nullptr);
    EXPECT_EQ(tree.Find(3)->value, 30);
    EXPECT_EQ(tree.root->Find(1), tree.root->left);
    EXPECT_EQ(tree.Find(4), nullptr);
}

TEST(omi_Btree, AChainOfTwoBelowANodeStaysAndAChainOfThreeRotates)
{
    EXPECT_EQ(Shape(TreeOf({1, 2, 3}).root), "1(.,2(.,3))");
    EXPECT_EQ(Shape(TreeOf({3, 2, 1}).root), "3(2(1,.),.)");
    EXPECT_EQ(Shape(TreeOf({1, 2, 3, 4}).root), "2(1,3(.,4))");
    EXPECT_EQ(Shape(TreeOf({4, 3, 2, 1}).root), "3(2(1,.),4)");
}

TEST(omi_Btree, ALeftRightShapeKeepsItsDepth)
{
    // Each ends with a single rotation of the root that leaves four levels; a double one would leave three.
    EXPECT_EQ(Shape(TreeOf({1, 4, 3, 2}).root), "4(1(.,3(2,.)),.)");
    EXPECT_EQ(Shape(TreeOf({4, 1, 2, 3}).root), "1(.,4(2(.,3),.))");
}

TEST(omi_Btree, KeysComeInAscendingOrderWhateverTheOrderOfInserts)
{
    EXPECT_EQ(Keys(TreeOf({5, 1, 4, 2, 3})), (std::vector<int>{1, 2, 3, 4, 5}));
}

TEST(omi_Btree, ALoopGivesKeysAndValuesAndMayChangeTheValues)
{
    Tree tree = TreeOf({2, 1});
    for (const auto [key, value] : tree) value += key;
    const Tree& readable = tree;
    std::vector<int> seen;
    for (const auto [key, value] : readable)
    {
        seen.push_back(key);
        seen.push_back(value);
    }
    EXPECT_EQ(seen, (std::vector<int>{1, 11, 2, 22}));
}

TEST(omi_Btree, FirstStartsAWalkAgain)
{
    const Tree tree = TreeOf({1, 2, 3});
    omi_BtreeIterator<int, int> walk(tree);
    walk.Next();
    EXPECT_EQ(walk.Value(), 20);
    walk.First();
    EXPECT_EQ(walk.Key(), 1);
}

TEST(omi_Btree, ARemovedNodeWithOneChildIsReplacedByIt)
{
    Tree tree = TreeOf({2, 1, 3, 4});
    EXPECT_TRUE(tree.Remove(3));
    EXPECT_EQ(Shape(tree.root), "2(1,4)");
}

TEST(omi_Btree, ARemovedNodeWithTwoChildrenIsReplacedByTheSmallestOnItsRight)
{
    Tree tree = TreeOf({4, 2, 8, 1, 6, 9, 7});
    ASSERT_EQ(Shape(tree.root), "4(2(1,.),8(6(.,7),9))");
    EXPECT_TRUE(tree.Remove(4));
    EXPECT_EQ(Shape(tree.root), "6(2(1,.),8(7,9))");
    EXPECT_EQ(tree.root->height, 2);
}

TEST(omi_Btree, RemovingAnAbsentKeyAnswersFalseAndChangesNothing)
{
    Tree tree = TreeOf({2, 1, 3});
    EXPECT_FALSE(tree.Remove(9));
    EXPECT_EQ(Shape(tree.root), "2(1,3)");
    EXPECT_EQ(tree.Count(), 3);
}

TEST(omi_Btree, TheKeyToRemoveMayBeTheKeyOfTheNode)
{
    Tree tree = TreeOf({1});
    EXPECT_TRUE(tree.Remove(tree.root->key));
    EXPECT_EQ(tree.root, nullptr);
}

TEST(omi_Btree, ACopyIsDeepAndHasTheSameShape)
{
    Tree tree = TreeOf({4, 2, 8, 1, 6, 9, 7});
    tree.defaultValue = 3;
    const Tree copy(tree);
    EXPECT_EQ(Shape(copy.root), Shape(tree.root));
    EXPECT_EQ(copy.Get(100), 3);
    tree.Find(6)->value = 0;
    tree.Remove(1);
    EXPECT_EQ(copy.Get(6), 60);
    EXPECT_EQ(copy.Count(), 7);

    Tree assigned = TreeOf({5});
    assigned = copy;
    Tree& same = assigned;
    assigned = same;
    EXPECT_EQ(Shape(assigned.root), Shape(copy.root));
    EXPECT_EQ(assigned.Get(100), 3);
}

TEST(omi_Btree, TextKeysFollowTheOrderOfTexts)
{
    omi_Btree<cow_String, int> tree;
    tree.Insert("b", 1);
    tree.Insert("\xC3", 2);
    tree.Insert("a", 3);
    tree.Insert("", 4);
    std::vector<int> values;
    for (const auto [key, value] : tree) values.push_back(value);
    EXPECT_EQ(values, (std::vector<int>{4, 3, 1, 2}));
}

TEST(omi_Btree, RandomInsertsAndRemovalsAgreeWithAModel)
{
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    Tree tree;
    std::map<int, int> model;
    for (int step = 0; step < 4000; ++step)
    {
        const int key = static_cast<int>(random() % 300);
        if (random() % 2 == 0)
            ASSERT_EQ(tree.Insert(key, step), model.emplace(key, step).second);
        else
            ASSERT_EQ(tree.Remove(key), model.erase(key) == 1);
        ASSERT_EQ(tree.Count(), static_cast<int>(model.size()));
    }
    Depth(tree.root);
    auto expected = model.begin();
    for (const auto [key, value] : tree)
    {
        ASSERT_NE(expected, model.end());
        EXPECT_EQ(key, expected->first);
        EXPECT_EQ(value, expected->second);
        ++expected;
    }
    EXPECT_EQ(expected, model.end());
}

TEST(omi_Btree, OrderedAndAlternatingInsertsStayShallow)
{
    const int count = 20000;
    std::vector<int> ascending(count);
    std::iota(ascending.begin(), ascending.end(), 0);
    const std::vector<int> descending(ascending.rbegin(), ascending.rend());
    std::vector<int> outsideIn;
    for (int low = 0, high = count - 1; low < high; ++low, --high)
    {
        outsideIn.push_back(low);
        outsideIn.push_back(high);
    }
    EXPECT_EQ(Depth(TreeOf(ascending).root), 15);
    EXPECT_EQ(Depth(TreeOf(descending).root), 15);
    EXPECT_LE(Depth(TreeOf(outsideIn).root), 20);
}

TEST(omi_Btree, ATreeThatIsOneLongChainIsCopiedWalkedSearchedAndDestroyedWithoutAStack)
{
    const int length = 300000;
    Tree tree;
    HangChain(tree, length);
    Tree copy(tree);
    EXPECT_EQ(copy.Count(), length);
    int expected = 0;
    for (const auto [key, value] : copy) EXPECT_EQ(key, expected++);
    EXPECT_EQ(expected, length);
    EXPECT_EQ(copy.Get(length - 1), (length - 1) * 10);
    EXPECT_TRUE(copy.Insert(length, 1));
    EXPECT_TRUE(copy.Remove(length - 1));
    EXPECT_EQ(copy.Get(length), 1);
    EXPECT_EQ(copy.Count(), length);
}

TEST(omi_Btree, AValueThatFailsToCopyLosesNothingAndLeavesTheTreesAsTheyWere)
{
    {
        omi_Btree<int, Fragile> tree;
        for (int key = 0; key < 20; ++key) tree.Insert(key, Fragile());
        const int aliveBefore = Fragile::alive;
        int failures = 0;
        for (int failAt = 0;; ++failAt)
        {
            Fragile::copiesUntilFailure = failAt;
            try
            {
                omi_Btree<int, Fragile> copy;
                copy = tree;
                EXPECT_EQ(copy.Count(), 20);
                break;
            }
            catch (const std::runtime_error&)
            {
                ++failures;
                EXPECT_EQ(Fragile::alive, aliveBefore);
            }
        }
        EXPECT_EQ(failures, 21) << "the default value and each entry had its turn";

        Fragile::copiesUntilFailure = 0;
        EXPECT_THROW(tree.Insert(99, Fragile()), std::runtime_error);
        EXPECT_EQ(tree.Count(), 20);
        EXPECT_EQ(tree.Find(99), nullptr);
        Fragile::copiesUntilFailure = -1;
    }
    EXPECT_EQ(Fragile::alive, 0);
}
