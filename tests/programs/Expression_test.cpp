// What --where and --until ask of a row: each operator, absent values, and the place of each fault.
#include "Expression.h"
#include "Failure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace
{
using rfm_tool::Expression;
using rfm_tool::ExpressionField;
using rfm_tool::Failure;
using rfm_tool::Value;
using Type = ExpressionField::Type;

const std::vector<ExpressionField> kFields{{"id", Type::Number},
                                           {"x", Type::Number},
                                           {"weight", Type::Number},
                                           {"name", Type::Text},
                                           {"gap", Type::Number},
                                           {"item", Type::Any},
                                           {"nan", Type::Number},
                                           {"0", Type::Number},
                                           {"two words", Type::Number},
                                           {"row", Type::Number},
                                           {"gr\xc3\xb6\xc3\x9f"
                                            "e",
                                            Type::Number}};

class SampleRow : public rfm_tool::ExpressionRow
{
public:
    std::int64_t Number() const override { return 7; }
    Value ValueOf(int field) const override
    {
        const Value values[] = {Value::OfInt(20),
                                Value::OfDouble(1.5),
                                Value::OfFloat(0.1F),
                                Value::OfText("steel\tS235"),
                                Value(),
                                Value::OfText("text"),
                                Value::OfDouble(std::numeric_limits<double>::quiet_NaN()),
                                Value::OfInt(-3),
                                Value::OfInt(2),
                                Value::OfInt(99),
                                Value::OfInt(5)};
        return values[field];
    }
};

bool Holds(const std::string& text) { return Expression("--where", text, kFields).Holds(SampleRow()); }

std::string FailureOf(const std::string& text, int code = rfm_tool::ExitUsage)
{
    try
    {
        const Expression expression("--where", text, kFields);
    }
    catch (const Failure& failure)
    {
        EXPECT_EQ(failure.Code(), code) << text;
        return failure.what();
    }
    return "none";
}

TEST(Expression, ComparisonsOfNumbersHoldAsTheyRead)
{
    for (const char* const text :
         {"id == 20", "id = 20", "id != 21", "id < 20.5", "id <= 20", "id > 19", "id >= 20", "20 == id",
          "x < id", "-id < 0", "id > -1e9", "[0] = -3", "[two words] == 2", ".5 < x"})
        EXPECT_TRUE(Holds(text)) << text;
    for (const char* const text :
         {"id == 21", "id != 20", "id < 20", "id <= 19", "id > 20", "id >= 21", "x > id", "[0] > 0"})
        EXPECT_FALSE(Holds(text)) << text;
}

TEST(Expression, ArithmeticBindsTighterThanComparisonAndProductsTighterThanSums)
{
    for (const char* const text :
         {"1 + 2 * 3 == 7", "(1 + 2) * 3 == 9", "10 - 4 - 3 == 3", "8 / 4 / 2 == 1", "id % 6 == 2",
          "-2 * -2 == 4", "- - 2 == 2", "1 / 0 > 1e308", "id + x == 21.5"})
        EXPECT_TRUE(Holds(text)) << text;
}

TEST(Expression, AndBindsTighterThanOrAndNotTighterThanBoth)
{
    for (const char* const text : {"1 = 1 or 1 = 2 and 1 = 2", "not 1 = 2 and 1 = 1", "not (1 = 1 and 1 = 2)",
                                   "not not id = 20", "(1 = 2 or 1 = 1) and 2 = 2"})
        EXPECT_TRUE(Holds(text)) << text;
    EXPECT_FALSE(Holds("(1 = 1 or 1 = 2) and 1 = 2"));
    EXPECT_FALSE(Holds("not 1 = 1 or 1 = 2"));
}

TEST(Expression, TextsAreComparedByBytesAndWithGlobs)
{
    for (const char* const text : {"name == 'steel\\tS235'", "name == \"steel\\x09S235\"", "name > 'stee'",
                                   "name != 'x'", "name ~ 'steel*'", "name ~ '*S2?5'", "name ~ '[r-t]*[0-9]'",
                                   "not name ~ 'teel*'", "'it\\'s' == \"it's\"", "'a' < 'b'"})
        EXPECT_TRUE(Holds(text)) << text;
}

TEST(Expression, RowIsTheNumberOfTheRowAndInBracketsTheField)
{
    EXPECT_TRUE(Holds("row == 7"));
    EXPECT_TRUE(Holds("[row] == 99"));
    EXPECT_TRUE(Holds("gr\xc3\xb6\xc3\x9f"
                      "e == 5"));
}

TEST(Expression, AComparisonWithAnAbsentValueIsFalse)
{
    for (const char* const text : {"gap == 0", "gap != 0", "gap < 1", "gap >= 0", "gap + 1 > 0", "-gap < 1",
                                   "gap == gap", "present(gap)", "item + 1 > 0", "item == 3", "item != 3"})
        EXPECT_FALSE(Holds(text)) << text;
    for (const char* const text :
         {"not present(gap)", "present(id) and id = 20", "not gap == 0", "item == 'text'"})
        EXPECT_TRUE(Holds(text)) << text;
}

TEST(Expression, WhatIsNoNumberDiffersFromEverything)
{
    EXPECT_TRUE(Holds("nan != nan"));
    EXPECT_FALSE(Holds("nan == nan"));
    EXPECT_FALSE(Holds("nan < 1 or nan >= 1"));
}

TEST(Expression, AFloatIsFoundByTheDigitsThatAreShownOfIt)
{
    EXPECT_TRUE(Holds("weight == 0.1"));
    EXPECT_TRUE(Holds("0.1 >= weight"));
    EXPECT_FALSE(Holds("weight == 0.1 + 0")); // a sum is one of doubles
    EXPECT_TRUE(Holds("weight < 1e300"));
}

TEST(Expression, AFaultIsToldWithItsPlace)
{
    const std::string remedy = "; docs/cli.md tells what can be asked";
    EXPECT_EQ(FailureOf("id >"), "--where 'id >': at its end: expected a field, a number or a text" + remedy);
    EXPECT_EQ(FailureOf(""), "--where '': at its end: expected a field, a number or a text" + remedy);
    EXPECT_EQ(FailureOf("id > > 3"),
              "--where 'id > > 3': at 6, before > 3: expected a field, a number or a text" + remedy);
    EXPECT_EQ(FailureOf("0 < x < 5"),
              "--where '0 < x < 5': at 7, before < 5: expected and, or, or the end" + remedy);
    EXPECT_EQ(FailureOf("id > 3 && x > 1"),
              "--where 'id > 3 && x > 1': at 8, before && x > 1: expected and, or, or the end" + remedy);
    EXPECT_EQ(FailureOf("(id > 3"), "--where '(id > 3': at its end: expected )" + remedy);
    EXPECT_EQ(FailureOf("name == 'x"),
              "--where 'name == 'x': at 9, before 'x: the text is not closed" + remedy);
    EXPECT_EQ(
        FailureOf("name == '\\xg'"),
        "--where 'name == '\\\\xg'': at 10, before \\\\xg': expected two hexadecimal digits behind \\x" +
            remedy);
    EXPECT_EQ(FailureOf("[id > 3"),
              "--where '[id > 3': at 1, before [id > 3: expected ] behind the name of a field" + remedy);
    EXPECT_EQ(FailureOf("3d > 1"),
              "--where '3d > 1': at 1, before 3d > 1: that is no number, and names that begin "
              "with a digit stand in [ ]" +
                  remedy);
    EXPECT_EQ(FailureOf("1e999 > 1"),
              "--where '1e999 > 1': at 1, before 1e999 > 1: the number is too large or too small" + remedy);
    EXPECT_EQ(FailureOf("name > 3"),
              "--where 'name > 3': at 8, before 3: a text can't be compared with a number" + remedy);
    EXPECT_EQ(FailureOf("name + 1 > 3"),
              "--where 'name + 1 > 3': at 1, before name + 1 > 3: expected a number, found a text" + remedy);
    EXPECT_EQ(FailureOf("id"),
              "--where 'id': at 1, before id: expected a comparison, such as x > 0, or present(x)" + remedy);
    EXPECT_EQ(FailureOf("(id > 1) + 2 > 3"),
              "--where '(id > 1) + 2 > 3': at 1, before (id > 1) + 2 > 3: expected a "
              "number, found a comparison" +
                  remedy);
    EXPECT_EQ(FailureOf("id ~ '2*'"),
              "--where 'id ~ '2*'': at 1, before id ~ '2*': ~ takes a text and a glob" + remedy);
    EXPECT_EQ(FailureOf("(id > 1) = (x > 1)"), "--where '(id > 1) = (x > 1)': at 1, before (id > 1) = (x > "
                                               "1): expected a value, found a comparison; and, "
                                               "or and not join comparisons" +
                                                   remedy);
    EXPECT_EQ(FailureOf("present(3)"),
              "--where 'present(3)': at 9, before 3): expected a field, a number or a text" + remedy);
}

TEST(Expression, AnUnknownFieldIsToldWithTheOneThatWasMeant)
{
    EXPECT_EQ(FailureOf("id > 1 and wieght > 3", rfm_tool::ExitMissing),
              "--where 'id > 1 and wieght > 3': at 12: there is no field wieght; did you mean weight?");
    EXPECT_EQ(FailureOf("temperature > 3", rfm_tool::ExitMissing),
              "--where 'temperature > 3': at 1: there is no field temperature; there are row, id, x, weight, "
              "name, gap, "
              "item, nan, 0, two words, row, ...");
}

TEST(Expression, WhatIsTooLargeIsRefusedAndNotTheEndOfTheStack)
{
    EXPECT_THAT(FailureOf(std::string(100000, '(')),
                testing::HasSubstr("too many parentheses in each other"));
    std::string sum = "1";
    for (int i = 0; i < 50000; ++i) sum += "+1";
    EXPECT_THAT(FailureOf(sum + ">0"), testing::HasSubstr("the expression is too long"));
    EXPECT_TRUE(Holds(std::string(20001, '-') + "1 < 0"));
}
} // namespace
