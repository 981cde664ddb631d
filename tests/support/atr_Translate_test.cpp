#include "atr_Translate.h"

#include "Thrown.h"
#include "nex_Exception.h"

#include <gtest/gtest.h>
#include <limits>
#include <string>

namespace
{
template <class... Values> std::string Message(const char* format, const Values&... values)
{
    return std::string(atr_Message(format, values...).View());
}
} // namespace

TEST(atr_Translate, AFormatWithoutPlaceholdersStaysAsItStands)
{
    EXPECT_EQ(Message("***ERROR: Unable to procede.  "), "***ERROR: Unable to procede.  ");
    EXPECT_EQ(Message(""), "");
    EXPECT_EQ(Message("100%"), "100%");
    EXPECT_EQ(Message("100%%!"), "100%!");
    EXPECT_EQ(Message("%_"), "%_");
}

TEST(atr_Translate, PlaceholdersAreFilledInTheirOrder)
{
    EXPECT_EQ(Message("%s, reason:\n%s", "file", "why"), "file, reason:\nwhy");
    EXPECT_EQ(Message("row %d of %s", 7, cow_String("table")), "row 7 of table");
    EXPECT_EQ(Message("%d%%", -3), "-3%");
}

TEST(atr_Translate, NumberedPlaceholdersAreFilledByTheirNumber)
{
    EXPECT_EQ(Message("%2$s before %1$s", "a", "b"), "b before a");
    EXPECT_EQ(Message("%1$s twice: %1$s", "x"), "x twice: x");
    EXPECT_EQ(Message("%2$04d|%1$.2f", 1.5, 7), "0007|1.50");
}

TEST(atr_Translate, ValuesTakeTheConversionOfTheirPlaceholder)
{
    EXPECT_EQ(Message("%5d|%x|%u", 42, 255, 1), "   42|ff|1");
    EXPECT_EQ(Message("%f|%.3f|%g", 0.5, 2.0, 0.25), "0.500000|2.000|0.25");
    EXPECT_EQ(Message("%.0f", std::numeric_limits<double>::max()).size(), 309U);
}

TEST(atr_Translate, AValueOfAnotherKindThanItsPlaceholderIsNeverMisread)
{
    EXPECT_EQ(Message("%s", 7), "7");
    EXPECT_EQ(Message("%s", 0.5), "0.500000");
    EXPECT_EQ(Message("%d", 0.5), "0.500000");
    EXPECT_EQ(Message("%d", "text"), "text");
}

TEST(atr_Translate, AValueIsNoFormat)
{
    EXPECT_EQ(Message("%s and %s", "%s%d%n", "b"), "%s%d%n and b");
    EXPECT_EQ(Message("<%s>", cow_String("a\0b", 3)), std::string("<a\0b>", 5));
}

TEST(atr_Translate, APlaceholderThatNobodyFilledStaysAsItStands)
{
    EXPECT_EQ(Message("%s and %s", "one"), "one and %s");
    EXPECT_EQ(Message("%2$s and %1$s", "one"), "%2$s and one");
    EXPECT_EQ(Message("%9$s"), "%9$s");
}

TEST(atr_Translate, AValueWithoutAPlaceholderIsLeftOut) { EXPECT_EQ(Message("%d", 1, 2), "1"); }

TEST(atr_Translate, APositionThatNoMessageHasIsAFaultOfTheCaller)
{
    atr_Translator message = atr_translate("%s");
    EXPECT_EQ(Thrown<nex_AssertException>([&] { atr_SubstituteFormat(message, 0, "x"); }),
              "position >= 1 && position <= kMostValues");
    EXPECT_EQ(Thrown<nex_AssertException>([&] { atr_SubstituteFormat(message, 9, 1); }),
              "position >= 1 && position <= kMostValues");
    atr_SubstituteFormat(message, 1, "x");
    EXPECT_EQ(message.Result().View(), "x");
}
