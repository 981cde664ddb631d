#include "omu_Primitive.h"

#include "Thrown.h"

#include <gtest/gtest.h>
#include <memory>

TEST(omu_PrimSequence, EachValueComesBackAsWhatItWasPut)
{
    omu_PrimSequence values;
    values.Put(-7);
    values.Put(0.5);
    values.Put(true);
    values.Put("literal");
    values.Put(cow_String("text"));
    int number = 0;
    double real = 0;
    bool truth = false;
    cow_String text;
    ASSERT_EQ(values.Count(), 5);
    values.Get(0, number);
    values.Get(1, real);
    values.Get(2, truth);
    values.Get(3, text);
    EXPECT_EQ(number, -7);
    EXPECT_EQ(real, 0.5);
    EXPECT_TRUE(truth);
    EXPECT_EQ(text.View(), "literal");
    values.Get(4, text);
    EXPECT_EQ(text.View(), "text");
}

TEST(omu_PrimSequence, AValueOfAnotherTypeIsNotConverted)
{
    omu_PrimSequence values;
    values.Put(7);
    double real = 2.5;
    EXPECT_EQ(Thrown<nex_AssertException>([&] { values.Get(0, real); }),
              "std::holds_alternative<T>(m_Values[index])");
    EXPECT_EQ(real, 2.5);
    int number = 0;
    EXPECT_EQ(Thrown<nex_AssertException>([&] { values.Get(1, number); }), "index >= 0 && index < Count()");
    EXPECT_EQ(Thrown<nex_AssertException>([&] { values.Get(-1, number); }), "index >= 0 && index < Count()");
}

TEST(omu_PrimSequence, ItsTextShowsAllKindsOfValues)
{
    omu_PrimTuple inner(1, '(');
    inner.Put(1);
    omu_PrimSequence values;
    values.Put(-99);
    values.Put(0.1);
    values.Put(false);
    values.Put("it's a \\");
    values.Put(inner);
    EXPECT_EQ(values.AsString().View(), R"([-99, 0.1, False, 'it\'s a \\', (1)])");
    EXPECT_EQ(omu_PrimSequence().AsString().View(), "[]");
    EXPECT_EQ(omu_PrimTuple(1, '{').AsString().View(), "{}");
}

TEST(omu_PrimSequence, ACopyAndAValueInsideAreIndependent)
{
    omu_PrimTuple inner(2, '(');
    inner.Put(1);
    omu_PrimSequence values;
    values.Put(inner);
    inner.Put(2);
    const std::unique_ptr<omu_Primitive> copy(values.Copy());
    values.Put(3);
    EXPECT_EQ(copy->AsString().View(), "[(1)]");
    EXPECT_EQ(values.GetPrimitive(0).AsString().View(), "(1)");
}

TEST(omu_PrimTuple, ItTakesAsManyValuesAsItHasRoomFor)
{
    omu_PrimTuple tuple(2, '(');
    tuple.Put("Remove");
    tuple.Put("box1");
    EXPECT_EQ(Thrown<nex_AssertException>([&] { tuple.Put(1); }), "Count() < m_Capacity");
    EXPECT_EQ(tuple.AsString().View(), "('Remove', 'box1')");
    EXPECT_EQ(tuple.Capacity(), 2);
}
