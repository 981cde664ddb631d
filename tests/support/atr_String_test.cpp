#include "atr_String.h"

#include "Thrown.h"
#include "cow_String.h"
#include "mem_Alloc.h"
#include "nex_Exception.h"

#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <sys/mman.h>

namespace
{
constexpr int kToTheEnd = 2147483647;

cow_String Adopted(std::string_view text)
{
    char* block = static_cast<char*>(mem_Malloc(text.size() + 1));
    std::memcpy(block, text.data(), text.size());
    return cow_String::Adopt(block, static_cast<int>(text.size()));
}

int SignOf(int order) { return order < 0 ? -1 : order > 0 ? 1 : 0; }
int NaturalOrder(const char* left, const char* right) { return SignOf(strnatcmp(left, right)); }

class atr_NaturalOrder : public ::testing::Test
{
protected:
    void TearDown() override { atr_setNaturalOrder(0); }
};
} // namespace

TEST(atr_String, AnEmptyTextHasNoRepresentationAndStillGivesACString)
{
    const cow_String nothing;
    EXPECT_EQ(nothing.Length(), 0);
    EXPECT_TRUE(nothing.IsEmpty());
    EXPECT_STREQ(nothing.CString(), "");
    EXPECT_EQ(nothing, cow_String(""));
    EXPECT_EQ(nothing, cow_String(static_cast<const char*>(nullptr)));
    EXPECT_EQ(nothing, cow_String("abc", 0));
    EXPECT_EQ(nothing, cow_String("abc", -1));
    EXPECT_EQ(nothing, cow_String(nullptr, 3));
}

TEST(atr_String, ATextIsMadeFromACStringALengthANumberAndAnAdoptedBlock)
{
    EXPECT_EQ(cow_String("abc").View(), "abc");
    EXPECT_EQ(cow_String("abc", 2).View(), "ab");
    EXPECT_EQ(cow_String(0).View(), "0");
    EXPECT_EQ(cow_String(INT_MAX).View(), "2147483647");
    EXPECT_EQ(cow_String(INT_MIN).View(), "-2147483648");
    EXPECT_EQ(Adopted("adopted").View(), "adopted");
    EXPECT_STREQ(Adopted("adopted").CString(), "adopted");
    EXPECT_EQ(Adopted("").Length(), 0);
}

TEST(atr_String, TheLengthCountsNulBytesWhileTheCStringEndsAtTheFirst)
{
    const cow_String text("a\0b", 3);
    EXPECT_EQ(text.Length(), 3);
    EXPECT_EQ(std::strlen(text.CString()), 1U);
    EXPECT_NE(text, cow_String("a"));
    EXPECT_NE(text, cow_String("a\0c", 3));
    EXPECT_EQ(text, cow_String("a\0b", 3));
}

TEST(atr_String, ACopySharesTheTextUntilOneOfThemChanges)
{
    cow_String text("shared");
    cow_String copy(text);
    cow_String assigned;
    assigned = text;
    EXPECT_EQ(copy.CString(), text.CString());
    EXPECT_EQ(assigned.CString(), text.CString());
    copy.append(" no more", 8);
    EXPECT_EQ(text.View(), "shared");
    EXPECT_EQ(copy.View(), "shared no more");
    EXPECT_EQ(assigned.CString(), text.CString());
}

TEST(atr_String, MessageAndLibraryTextsConvertAtTheCostOfACount)
{
    const cow_String text("both ways");
    const atr_String message(text);
    const cow_String back(message);
    EXPECT_EQ(message.CString(), text.CString());
    EXPECT_EQ(back.CString(), text.CString());
}

TEST(atr_String, ATextAssignedToItselfStays)
{
    cow_String text("itself");
    cow_String& same = text;
    text = same;
    EXPECT_EQ(text.View(), "itself");
    text = static_cast<cow_String&&>(same);
    EXPECT_EQ(text.View(), "itself");
}

TEST(atr_String, AMovedTextLeavesAnEmptyOne)
{
    cow_String text("moved");
    const cow_String target(static_cast<cow_String&&>(text));
    EXPECT_EQ(target.View(), "moved");
    EXPECT_TRUE(text.IsEmpty()); // NOLINT(bugprone-use-after-move): what is left is the point
}

TEST(atr_String, FindAnswersTheFirstPlaceAndTheLengthWhenThereIsNone)
{
    const cow_String text("abcabc");
    EXPECT_EQ(text.Find("bc"), 1);
    EXPECT_EQ(text.Find("bc", 1), 1);
    EXPECT_EQ(text.Find("bc", 2), 4);
    EXPECT_EQ(text.Find("bc", 5), 6);
    EXPECT_EQ(text.Find("x"), 6);
    EXPECT_EQ(text.Find("abc", 7), 6);
    EXPECT_EQ(text.Find("abc", -5), 0);
    EXPECT_EQ(text.Find("", 2), 2);
    EXPECT_EQ(cow_String().Find("a"), 0);
}

TEST(atr_String, RfindAnswersTheLastPlaceInItsPart)
{
    const cow_String text("abcabc");
    EXPECT_EQ(text.rfind("bc"), 4);
    EXPECT_EQ(text.rfind("bc", 0, 5), 1);
    EXPECT_EQ(text.rfind("bc", 2, kToTheEnd), 4);
    EXPECT_EQ(text.rfind("ab", 1, 3), 6);
    EXPECT_EQ(text.rfind("x"), 6);
    EXPECT_EQ(text.rfind("abc", 7), 6);
    EXPECT_EQ(text.rfind("abc", 0, -1), 6);
    EXPECT_EQ(text.rfind("abc", -5), 3);
}

TEST(atr_String, SubstrGivesWhatLiesThereAndToTheEndForTheLargestCount)
{
    const cow_String text("abcdef");
    EXPECT_EQ(text.Substr(1, 2).View(), "bc");
    EXPECT_EQ(text.Substr(4, kToTheEnd).View(), "ef");
    EXPECT_EQ(text.Substr(4).View(), "ef");
    EXPECT_EQ(text.Substr(4, 9).View(), "ef");
    EXPECT_EQ(text.Substr(-3, 2).View(), "ab");
    EXPECT_TRUE(text.Substr(6).IsEmpty());
    EXPECT_TRUE(text.Substr(2, 0).IsEmpty());
    EXPECT_TRUE(text.Substr(2, -1).IsEmpty());
    EXPECT_EQ(text.Substr(0).CString(), text.CString());
}

TEST(atr_String, AppendMayTakeItsOwnText)
{
    cow_String text("ab");
    text.append(text.CString() + 1, 1);
    EXPECT_EQ(text.View(), "abb");
    text.append(text);
    EXPECT_EQ(text.View(), "abbabb");
    text.append(nullptr, 4).append("zz", 0).append("\0!", 2);
    EXPECT_EQ(text, cow_String("abbabb\0!", 8));
    cow_String empty;
    empty.append(text);
    EXPECT_EQ(empty.CString(), text.CString());
    EXPECT_EQ((cow_String("left") + "right").View(), "leftright");
}

TEST(atr_String, EraseTakesOutUpToTheEnd)
{
    cow_String text("abcdef");
    const cow_String before(text);
    text.Erase(1, 2);
    EXPECT_EQ(text.View(), "adef");
    text.Erase(2);
    EXPECT_EQ(text.View(), "ad");
    text.Erase(2);
    text.Erase(0, 0);
    text.Erase(1, -1);
    EXPECT_EQ(text.View(), "ad");
    text.Erase(-1, kToTheEnd);
    EXPECT_TRUE(text.IsEmpty());
    EXPECT_EQ(before.View(), "abcdef");
}

TEST(atr_String, SubstituteReplacesFromTheLeftAndAnswersHowMany)
{
    cow_String text("aaaa");
    EXPECT_EQ(text.Substitute("aa", "b"), 2);
    EXPECT_EQ(text.View(), "bb");
    EXPECT_EQ(text.Substitute("b", "bb", 1), 1);
    EXPECT_EQ(text.View(), "bbb");
    EXPECT_EQ(text.Substitute("b", "", 2), 2);
    EXPECT_EQ(text.View(), "b");
    EXPECT_EQ(text.Substitute("x", "y"), 0);
    EXPECT_EQ(text.Substitute("", "y"), 0);
    EXPECT_EQ(text.Substitute("b", "c", 0), 0);
    EXPECT_EQ(text.View(), "b");
    EXPECT_EQ(text.Substitute(text, text + "!"), 1);
    EXPECT_EQ(text.View(), "b!");
}

TEST(atr_String, ATextOfTwoGibibytesIsRefused)
{
    // Room that is reserved and never touched: the length is refused before a byte is read.
    const auto bytes = static_cast<std::size_t>(INT_MAX);
    void* room = ::mmap(nullptr, bytes, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(room, MAP_FAILED);
    const std::string_view tooLong(static_cast<const char*>(room), bytes);
    EXPECT_EQ(Thrown<nex_TextException>([&] { cow_String{tooLong}; }),
              "***ERROR: A text of 2 GiB or more can't be held in a string.");
    cow_String text("kept");
    EXPECT_EQ(Thrown<nex_TextException>([&] { text.append(tooLong.data(), INT_MAX - 1); }),
              "***ERROR: A text of 2 GiB or more can't be held in a string.");
    EXPECT_EQ(text.View(), "kept");
    ::munmap(room, bytes);
}

TEST(atr_String, NamesAreOrderedByUnsignedBytesUpToTheirNul)
{
    EXPECT_TRUE(cow_String("a") < cow_String("b"));
    EXPECT_TRUE(cow_String("B") < cow_String("a"));
    EXPECT_TRUE(cow_String("a") < cow_String("aa"));
    EXPECT_TRUE(cow_String() < cow_String("a"));
    EXPECT_TRUE(cow_String("z") < cow_String("\xE9"));
    EXPECT_TRUE(cow_String("a10") < cow_String("a2"));
    EXPECT_EQ(atr_Compare("same", "same"), 0);
    EXPECT_EQ(atr_Compare(cow_String("a\0b", 3), cow_String("a\0c", 3)), 0);
}

TEST_F(atr_NaturalOrder, ItIsOffUntilTheProgramTurnsItOn)
{
    EXPECT_EQ(atr_getNaturalOrder(), 0);
    EXPECT_LT(atr_Compare("a10", "a2"), 0);
    atr_setNaturalOrder(1);
    EXPECT_NE(atr_getNaturalOrder(), 0);
    EXPECT_GT(atr_Compare("a10", "a2"), 0);
    EXPECT_TRUE(cow_String("a2") < cow_String("a10"));
}

TEST(atr_NaturalOrderOfCStrings, RunsOfDigitsCompareAsNumbersOfAnyLength)
{
    EXPECT_EQ(NaturalOrder("a2", "a10"), -1);
    EXPECT_EQ(NaturalOrder("a10", "a2"), 1);
    EXPECT_EQ(NaturalOrder("10", "10"), 0);
    EXPECT_EQ(NaturalOrder("99999999999999999999998", "99999999999999999999999"), -1);
    EXPECT_EQ(NaturalOrder("9", "99999999999999999999999"), -1);
    EXPECT_EQ(NaturalOrder("x2y10", "x2y9"), 1);
}

TEST(atr_NaturalOrderOfCStrings, LeadingZerosTellEqualNumbersApart)
{
    EXPECT_EQ(NaturalOrder("a1", "a01"), -1);
    EXPECT_EQ(NaturalOrder("a01", "a1"), 1);
    EXPECT_EQ(NaturalOrder("a007", "a10"), -1);
    EXPECT_EQ(NaturalOrder("0", "00"), -1);
}

TEST(atr_NaturalOrderOfCStrings, EverythingElseComparesByUnsignedBytes)
{
    EXPECT_EQ(NaturalOrder("", ""), 0);
    EXPECT_EQ(NaturalOrder("a", ""), 1);
    EXPECT_EQ(NaturalOrder("a", "a1"), -1);
    EXPECT_EQ(NaturalOrder("1", "a"), -1);
    EXPECT_EQ(NaturalOrder("z", "\xE9"), -1);
}
