#include "cow_COW.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace
{
struct Number
{
    explicit Number(int itsValue) : value(itsValue) { ++alive; }
    Number(const Number& source) : value(source.value)
    {
        if (refusesCopies) throw std::runtime_error("copy refused");
        ++alive;
        ++copies;
    }
    Number& operator=(const Number&) = delete;
    ~Number() { --alive; }

    int value;
    static inline int alive = 0;
    static inline int copies = 0;
    static inline bool refusesCopies = false;
};

struct Shape
{
    Shape() = default;
    Shape(const Shape&) = default;
    Shape& operator=(const Shape&) = default;
    virtual ~Shape() = default;
    virtual Shape* Copy() const = 0;
    int corners = 0;
};

struct Star : Shape
{
    Shape* Copy() const override { return new Star(*this); }
};

// Out of line: inlined into a test, the optimiser takes the count for one that a release above could have
// freed.
[[gnu::noinline]] int SharersOf(const cow_COW<Number>& handle) { return handle.Count(); }

class cow_COWTest : public testing::Test
{
protected:
    void SetUp() override { Number::copies = 0; }
    void TearDown() override { EXPECT_EQ(Number::alive, 0); }
};
} // namespace

TEST_F(cow_COWTest, ASoleOwnerWritesWithoutACopy)
{
    cow_COW<Number> handle(new Number(1));
    const Number* object = &handle.ConstGet();
    handle.Get().value = 2;
    EXPECT_EQ(&handle.ConstGet(), object);
    EXPECT_EQ(Number::copies, 0);
}

TEST_F(cow_COWTest, ASharerGetsOneCopyWithItsFirstWriteAndTheOthersKeepTheObject)
{
    const cow_COW<Number> first(new Number(1));
    cow_COW<Number> second(first);
    EXPECT_EQ(first.Count(), 2);
    EXPECT_EQ(&second.ConstGet(), &first.ConstGet());
    second.Get().value = 2;
    second.Get().value = 3;
    EXPECT_EQ(Number::copies, 1);
    EXPECT_EQ(first.ConstGet().value, 1);
    EXPECT_EQ(second.ConstGet().value, 3);
    EXPECT_EQ(first.Count(), 1);
    EXPECT_EQ(second.Count(), 1);
}

TEST_F(cow_COWTest, ACopyThatFailsLeavesTheSharingAsItWas)
{
    const cow_COW<Number> first(new Number(1));
    cow_COW<Number> second(first);
    Number::refusesCopies = true;
    EXPECT_THROW(second.Get(), std::runtime_error);
    Number::refusesCopies = false;
    EXPECT_EQ(first.Count(), 2);
    EXPECT_EQ(&second.ConstGet(), &first.ConstGet());
}

TEST_F(cow_COWTest, AHandleMadeFromAValueHoldsACopyOfIt)
{
    const Number value(5);
    const cow_COW<Number> handle(value);
    EXPECT_EQ(handle.ConstGet().value, 5);
    EXPECT_NE(&handle.ConstGet(), &value);
}

TEST_F(cow_COWTest, TheVirtualPolicyKeepsTheClassOfTheObject)
{
    const cow_COW<Shape, cow_Virtual<Shape>> first(new Star);
    cow_COW<Shape, cow_Virtual<Shape>> second(first);
    second.Get().corners = 5;
    EXPECT_NE(dynamic_cast<const Star*>(&second.ConstGet()), nullptr);
    EXPECT_EQ(first.ConstGet().corners, 0);
}

TEST_F(cow_COWTest, AnArrayHandleCanBeEmptyAndTakesAHandle)
{
    cow_ArrayCOW<Number> handle;
    EXPECT_TRUE(handle.IsNull());
    EXPECT_EQ(handle.Count(), 0);
    EXPECT_THROW(handle.Get(), nex_AssertException);
    const cow_COW<Number> source(new Number(4));
    handle = source;
    EXPECT_FALSE(handle.IsNull());
    EXPECT_EQ(handle.ConstGet().value, 4);
    EXPECT_EQ(SharersOf(source), 2);
    handle = cow_ArrayCOW<Number>();
    EXPECT_TRUE(handle.IsNull());
    EXPECT_EQ(SharersOf(source), 1);
}
