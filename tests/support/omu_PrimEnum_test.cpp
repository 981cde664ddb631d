#include "omu_PrimEnum.h"

#include "Thrown.h"
#include "cls_ReadVisitor.h"
#include "cls_WriteVisitor.h"
#include "omu_Library.h"
#include "omu_ValueErrorException.h"

#include <gtest/gtest.h>
#include <memory>

enum class Colour
{
    Red = 4,
    Green = 0,
};

template <>
const omu_PrimEnumEntry omu_PrimEnum<Colour, 1>::table[] = {{"RED", 4}, {"GREEN", 0}, {nullptr, 0}};
// A second table of the same enumeration, with a name of its own.
template <>
const omu_PrimEnumEntry omu_PrimEnum<Colour, 2>::table[] = {{"RED", 4}, {"BLUE", 9}, {nullptr, 0}};

namespace
{
using Paint = omu_PrimEnum<Colour, 1>;
using OtherPaint = omu_PrimEnum<Colour, 2>;

// Catches what `action` throws, for its source name.
template <class Action> omu_ValueErrorException Refusal(Action action)
{
    try
    {
        action();
    }
    catch (const omu_ValueErrorException& failure)
    {
        return failure;
    }
    ADD_FAILURE() << "nothing was thrown";
    return omu_ValueErrorException("");
}

class omu_PrimEnumStored : public ::testing::Test
{
protected:
    void SetUp() override { omu_initialize(m_Count); }
    void TearDown() override { omu_finalize(m_Count); }
    int m_Count = 0;
};
} // namespace

TEST(omu_PrimEnum, AValueAndItsNameGoTogether)
{
    const Paint red(Colour::Red);
    EXPECT_EQ(red.AsString().View(), "RED");
    EXPECT_EQ(red.Value(), 4);
    EXPECT_EQ(Paint(cow_String("GREEN")).AsEnum(), Colour::Green);
    EXPECT_EQ(Paint(OtherPaint(Colour::Red)).AsEnum(), Colour::Red);
}

TEST(omu_PrimEnum, SetValueTakesValuesAndNamesOfTheTableOnly)
{
    Paint paint(Colour::Red);
    EXPECT_TRUE(paint.SetValue(0));
    EXPECT_EQ(paint.AsString().View(), "GREEN");
    EXPECT_FALSE(paint.SetValue(1));
    EXPECT_FALSE(paint.SetValue(cow_String("red")));
    EXPECT_FALSE(paint.SetValue(cow_String("RED ")));
    EXPECT_FALSE(paint.SetValue(cow_String("")));
    EXPECT_EQ(paint.AsEnum(), Colour::Green) << "a refused value changes nothing";
    EXPECT_TRUE(paint.SetValue(cow_String("RED")));
    EXPECT_EQ(paint.AsEnum(), Colour::Red);
}

TEST(omu_PrimEnum, EqualMeansTheSameValueAndName)
{
    EXPECT_EQ(Paint(Colour::Red), Paint(cow_String("RED")));
    EXPECT_FALSE(Paint(Colour::Red) == Paint(Colour::Green));
    EXPECT_TRUE(Paint(Colour::Red) == OtherPaint(Colour::Red));
    const std::unique_ptr<Paint> copy(Paint(Colour::Red).Copy());
    EXPECT_EQ(*copy, Paint(Colour::Red));
}

TEST(omu_PrimEnum, ThePermissibleValuesAreTheTable)
{
    const Paint paint(Colour::Red);
    const cow_Map<cow_String, unsigned> values = paint.PermissibleValues();
    EXPECT_EQ(values.Count(), 2);
    EXPECT_EQ(values.ConstGet("RED"), 4U);
    EXPECT_TRUE(values.IsMember("GREEN"));
    EXPECT_EQ(paint.PermissibleValuesAsString().View(), "GREEN, RED");
}

TEST(omu_PrimEnum, EachConstructorRefusesInItsOwnWords)
{
    EXPECT_EQ(Refusal([] { Paint{static_cast<Colour>(7)}; }).UserReport().View(),
              "omu_PrimEnum(Enum) - Enum value not allowed: 7  Permissible: GREEN, RED");
    EXPECT_EQ(Refusal([] { Paint{OtherPaint(cow_String("BLUE"))}; }).UserReport().View(),
              "omu_PrimEnum(const omu_PrimEnumBase&) - str not allowed: BLUE");
    EXPECT_EQ(Refusal([] { Paint{cow_String("red")}; }).UserReport().View(),
              "omu_PrimEnum(const cow_String&) - str not allowed: red  Permissible: GREEN, RED");
}

TEST(omu_PrimEnum, ARefusalIsACommandExceptionThatNamesTheTemplateAndItsLine)
{
    const omu_ValueErrorException failure = Refusal([] { Paint{cow_String("x")}; });
    EXPECT_EQ(failure.SourceName().View(), "omu_PrimEnum");
    EXPECT_GT(failure.Line(), 0);
    EXPECT_TRUE(
        failure.AsString().View().starts_with("omu_ValueErrorException: omu_PrimEnum(const cow_String&)"));
    EXPECT_NE(Thrown<nex_CommandException>([] { Paint{cow_String("x")}; }), "nothing was thrown");
}

TEST_F(omu_PrimEnumStored, AValueTravelsAsItsName)
{
    cls_WriteStream written;
    Paint(Colour::Red).DBWrite(written.Visitor());
    const cow_String bytes = written.Bytes();
    EXPECT_LT(bytes.Find("RED"), bytes.Length());
    const cls_ReadStream stream(bytes);
    EXPECT_EQ(Paint(stream.Visitor(0)).AsEnum(), Colour::Red);
}

TEST_F(omu_PrimEnumStored, AStoredNameThatTheTableDoesNotHaveIsRefusedInTheReadersWords)
{
    cls_WriteStream written;
    OtherPaint(cow_String("BLUE")).DBWrite(written.Visitor());
    const cls_ReadStream stream(written.Bytes());
    const omu_ValueErrorException failure = Refusal([&] { Paint{stream.Visitor(0)}; });
    EXPECT_EQ(failure.UserReport().View(),
              "omu_PrimEnum(const cls_ReadVisitor&) - str not allowed: BLUE  Permissible: GREEN, RED");
    EXPECT_EQ(failure.SourceName().View(), "omu_PrimEnum");
}

TEST_F(omu_PrimEnumStored, ACopyIsAStoredObjectOfItsOwn)
{
    Paint first(Colour::Red);
    cls_WriteStream written;
    first.DBWrite(written.Visitor());
    Paint copy(first);
    copy.SetValue(cow_String("GREEN"));
    copy.DBWrite(written.Visitor());
    first.DBWrite(written.Visitor());
    first = copy;
    const cls_ReadStream stream(written.Bytes());
    ASSERT_EQ(stream.Count(), 3);
    EXPECT_EQ(Paint(stream.Visitor(0)).AsEnum(), Colour::Red);
    EXPECT_EQ(Paint(stream.Visitor(1)).AsEnum(), Colour::Green);
    EXPECT_EQ(stream.Visitor(2).GetUid(), stream.Visitor(0).GetUid());
}
