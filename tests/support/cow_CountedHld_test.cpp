#include "cow_CountedHld.h"

#include <gtest/gtest.h>
#include <type_traits>

namespace
{
struct Watched
{
    explicit Watched(int& deleted) : m_Deleted(deleted) {}
    ~Watched() { ++m_Deleted; }
    Watched(const Watched&) = delete;
    Watched& operator=(const Watched&) = delete;
    int& m_Deleted;
};

class Handle : public cow_CountedHld<Watched>
{
public:
    using cow_CountedHld<Watched>::cow_CountedHld;
    const Watched* Object() const { return m_Object; }
};
} // namespace

TEST(cow_CountedHld, CopiesShareOneObjectAndTheLastOneDeletesIt)
{
    int deleted = 0;
    {
        const Handle first(new Watched(deleted));
        EXPECT_EQ(first.Count(), 1);
        {
            const Handle second(first);
            EXPECT_EQ(first.Count(), 2);
            EXPECT_EQ(second.Count(), 2);
            EXPECT_EQ(second.Object(), first.Object());
        }
        EXPECT_EQ(first.Count(), 1);
        EXPECT_EQ(deleted, 0);
    }
    EXPECT_EQ(deleted, 1);
}

TEST(cow_CountedHld, TheLastHandleToBeAssignedOverDeletesTheObject)
{
    int deletedLeft = 0;
    int deletedRight = 0;
    Handle left(new Watched(deletedLeft));
    const Handle right(new Watched(deletedRight));
    left = right;
    EXPECT_EQ(deletedLeft, 1);
    EXPECT_EQ(deletedRight, 0);
    EXPECT_EQ(right.Count(), 2);
}

TEST(cow_CountedHld, AnAssignmentToItselfKeepsTheObject)
{
    int deleted = 0;
    Handle handle(new Watched(deleted));
    Handle& same = handle;
    handle = same;
    EXPECT_EQ(handle.Count(), 1);
    EXPECT_EQ(deleted, 0);
}

TEST(cow_CountedHld, AMoveTakesTheObjectWithItsCount)
{
    int deleted = 0;
    Handle source(new Watched(deleted));
    Handle target(static_cast<Handle&&>(source));
    EXPECT_EQ(target.Count(), 1);
    // What is left behind is the point here.
    // NOLINTBEGIN(bugprone-use-after-move,clang-analyzer-cplusplus.Move)
    EXPECT_TRUE(source.IsNull());
    EXPECT_EQ(source.Count(), 0);
    // NOLINTEND(bugprone-use-after-move,clang-analyzer-cplusplus.Move)
    target = Handle();
    EXPECT_EQ(deleted, 1);
}

TEST(cow_CountedHld, AnEmptyHandleHasNoCountAndNothingToDelete)
{
    const Handle empty;
    EXPECT_TRUE(empty.IsNull());
    EXPECT_EQ(empty.Count(), 0);
    const Handle copy(empty);
    EXPECT_TRUE(copy.IsNull());
    EXPECT_TRUE(Handle(nullptr).IsNull());
    EXPECT_EQ(Handle(nullptr).Count(), 0);
}

TEST(cow_CountedHld, TheCountIsAPlainIntOfFourBytes)
{
    EXPECT_EQ(sizeof(cow_Counter), 4U);
    EXPECT_TRUE((std::is_same_v<decltype(cow_Counter::m_Value), int>));
}
