#include "rfm_IO.h"

#include "MemoryStream.h"
#include "Thrown.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>

namespace
{
constexpr bool kLittleHost = std::endian::native == std::endian::little;

constexpr const char* kNullPointer = "***ERROR: Invalid array pointer.";
constexpr const char* kBadLength = "***ERROR: Invalid length when reading array.";
constexpr const char* kEndOfFile = "***ERROR: Unexpected End Of File.";
constexpr const char* kWriteFailed = "***ERROR: Write operation failed.";

std::string Bytes(const char* text, std::size_t count) { return std::string(text, count); }
} // namespace

TEST(rfm_IO, NumbersLieInTheFileWithTheirLowestByteFirst)
{
    MemoryStream stream;
    EXPECT_EQ(stream.Swapped(), !kLittleHost);
    stream.WriteInt(0x01020304);
    stream.WriteInt(-2);
    stream.WriteFloat(1.0F);
    stream.WriteDouble(-2.0);
    EXPECT_EQ(stream.bytes, Bytes("\x04\x03\x02\x01"
                                  "\xFE\xFF\xFF\xFF"
                                  "\x00\x00\x80\x3F"
                                  "\x00\x00\x00\x00\x00\x00\x00\xC0",
                                  20));
    stream.Seek(0);
    EXPECT_EQ(stream.ReadInt(), 0x01020304);
    EXPECT_EQ(stream.ReadInt(), -2);
    EXPECT_EQ(stream.ReadFloat(), 1.0F);
    EXPECT_EQ(stream.ReadDouble(), -2.0);
}

TEST(rfm_IO, AStreamOfTheOtherByteOrderReversesEachNumber)
{
    MemoryStream stream("", kLittleHost);
    const int ints[2] = {0x01020304, -2};
    const float floats[1] = {1.0F};
    const double doubles[1] = {-2.0};
    stream.WriteArray(ints, 2);
    stream.WriteArray(floats, 1);
    stream.WriteArray(doubles, 1);
    EXPECT_EQ(stream.bytes, Bytes("\x01\x02\x03\x04"
                                  "\xFF\xFF\xFF\xFE"
                                  "\x3F\x80\x00\x00"
                                  "\xC0\x00\x00\x00\x00\x00\x00\x00",
                                  20));
    EXPECT_EQ(ints[0], 0x01020304) << "the caller's array is not ours to change";
    EXPECT_EQ(doubles[0], -2.0);

    stream.Seek(0);
    int readInts[2] = {};
    EXPECT_EQ(stream.ReadArray(readInts, 2), 2);
    EXPECT_EQ(readInts[0], 0x01020304);
    EXPECT_EQ(readInts[1], -2);
    EXPECT_EQ(stream.ReadFloat(), 1.0F);
    EXPECT_EQ(stream.ReadDouble(), -2.0);
}

TEST(rfm_IO, ANotANumberKeepsItsBits)
{
    for (const bool swapped : {false, true})
    {
        MemoryStream stream("", swapped);
        const double nan = std::numeric_limits<double>::signaling_NaN();
        stream.WriteArray(&nan, 1);
        stream.Seek(0);
        double back = 0;
        stream.ReadArray(&back, 1);
        EXPECT_EQ(std::bit_cast<std::uint64_t>(back), std::bit_cast<std::uint64_t>(nan));
    }
}

TEST(rfm_IO, APartialElementAtTheEndIsDropped)
{
    for (const bool swapped : {false, true})
    {
        int values[2] = {};
        MemoryStream stream(Bytes("\1\0\0\0\2\0\0", 7), swapped);
        EXPECT_EQ(stream.ReadArray(values, 2), 1);
        EXPECT_EQ(values[0], swapped ? 0x01000000 : 1);
        double numbers[2] = {};
        MemoryStream shortOne(Bytes("\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 15), swapped);
        EXPECT_EQ(shortOne.ReadArray(numbers, 2), 1);
        float singles[2] = {};
        MemoryStream empty("", swapped);
        EXPECT_EQ(empty.ReadArray(singles, 2), 0);
    }
}

TEST(rfm_IO, AScalarThatIsNotWholeIsTheEndOfTheFile)
{
    EXPECT_EQ(Thrown<nex_TextException>([] { MemoryStream("123").ReadInt(); }), kEndOfFile);
    EXPECT_EQ(Thrown<nex_TextException>([] { MemoryStream("123").ReadFloat(); }), kEndOfFile);
    EXPECT_EQ(Thrown<nex_TextException>([] { MemoryStream("1234567").ReadDouble(); }), kEndOfFile);
    EXPECT_EQ(Thrown<nex_TextException>([] { MemoryStream("").ReadInt(); }), kEndOfFile);
}

TEST(rfm_IO, ANullPointerIsRefusedBeforeTheLength)
{
    MemoryStream stream("12345678");
    EXPECT_EQ(Thrown<nex_TextException>([&] { stream.ReadArray(static_cast<int*>(nullptr), 0); }),
              kNullPointer);
    EXPECT_EQ(Thrown<nex_TextException>([&] { stream.ReadArray(static_cast<float*>(nullptr), 1); }),
              kNullPointer);
    EXPECT_EQ(Thrown<nex_TextException>([&] { stream.ReadArray(static_cast<double*>(nullptr), 1); }),
              kNullPointer);
    EXPECT_EQ(Thrown<nex_TextException>([&] { stream.WriteArray(static_cast<const int*>(nullptr), 1); }),
              kNullPointer);
    EXPECT_EQ(Thrown<nex_TextException>([&] { stream.WriteArray(static_cast<const float*>(nullptr), 1); }),
              kNullPointer);
    EXPECT_EQ(Thrown<nex_TextException>([&] { stream.WriteArray(static_cast<const double*>(nullptr), -1); }),
              kNullPointer);
    EXPECT_EQ(stream.reads + stream.writes, 0);
}

TEST(rfm_IO, ReadingAnArrayOfNoElementsIsRefused)
{
    MemoryStream stream("12345678");
    int number = 0;
    double real = 0;
    float single = 0;
    EXPECT_EQ(Thrown<nex_TextException>([&] { stream.ReadArray(&number, 0); }), kBadLength);
    EXPECT_EQ(Thrown<nex_TextException>([&] { stream.ReadArray(&single, -1); }), kBadLength);
    EXPECT_EQ(Thrown<nex_TextException>([&] { stream.ReadArray(&real, 0); }), kBadLength);
    EXPECT_EQ(stream.reads, 0);
}

TEST(rfm_IO, WritingAnArrayOfNoElementsSaysWhenReading)
{
    MemoryStream stream;
    const int number = 0;
    const float single = 0;
    const double real = 0;
    EXPECT_EQ(Thrown<nex_TextException>([&] { stream.WriteArray(&number, 0); }), kBadLength);
    EXPECT_EQ(Thrown<nex_TextException>([&] { stream.WriteArray(&single, -1); }), kBadLength);
    EXPECT_EQ(Thrown<nex_TextException>([&] { stream.WriteArray(&real, 0); }), kBadLength);
    EXPECT_EQ(stream.writes, 0);
}

TEST(rfm_IO, AnArrayBeyondTwoGibibytesIsRefused)
{
    MemoryStream stream;
    int number = 0;
    double real = 0;
    EXPECT_EQ(Thrown<nex_TextException>([&] { stream.ReadArray(&number, 536870912); }), kBadLength);
    EXPECT_EQ(Thrown<nex_TextException>([&] { stream.WriteArray(&real, 268435456); }), kBadLength);
    EXPECT_EQ(stream.reads + stream.writes, 0);
}

TEST(rfm_IO, AnArrayIsWrittenWithOneCallAndAShortOneIsAFailure)
{
    const int values[3] = {1, 2, 3};
    for (const bool swapped : {false, true})
    {
        MemoryStream stream("", swapped);
        stream.WriteArray(values, 3);
        EXPECT_EQ(stream.writes, 1);
        stream.mostPerWrite = 11;
        EXPECT_EQ(Thrown<nex_TextException>([&] { stream.WriteArray(values, 3); }), kWriteFailed);
        EXPECT_EQ(stream.writes, 2);
        EXPECT_EQ(Thrown<nex_TextException>(
                      [&]
                      {
                          stream.mostPerWrite = 3;
                          stream.WriteInt(1);
                      }),
                  kWriteFailed);
    }
}

TEST(rfm_IO, AFixedStringKeepsItsNulBytesAndItsLength)
{
    MemoryStream stream(Bytes("ab\0d\0rest", 9));
    const cow_String text = stream.ReadFixedString(5);
    EXPECT_EQ(text, cow_String("ab\0d\0", 5));
    EXPECT_EQ(stream.Location(), 5);
}

TEST(rfm_IO, AFixedStringOfNoLengthTouchesNothing)
{
    MemoryStream stream("abc");
    EXPECT_TRUE(stream.ReadFixedString(0).IsEmpty());
    EXPECT_TRUE(stream.ReadFixedString(-1).IsEmpty());
    stream.WriteFixedString("abc", 0);
    EXPECT_EQ(stream.reads + stream.writes, 0);
}

TEST(rfm_IO, AFixedStringThatIsNotWholeIsTheEndOfTheFile)
{
    MemoryStream stream("abc");
    EXPECT_EQ(Thrown<nex_TextException>([&] { stream.ReadFixedString(4); }), kEndOfFile);
}

TEST(rfm_IO, ALongFixedStringIsCutWithoutATerminator)
{
    MemoryStream stream;
    stream.WriteFixedString("sixsix", 4);
    EXPECT_EQ(stream.bytes, "sixs");
}

TEST(rfm_IO, AShortFixedStringIsPaddedWithNulBytes)
{
    MemoryStream stream;
    stream.WriteFixedString("ab", 4);
    EXPECT_EQ(stream.bytes, Bytes("ab\0\0", 4));
    stream.WriteFixedString("", 2);
    EXPECT_EQ(stream.bytes, Bytes("ab\0\0\0\0", 6));
    stream.WriteFixedString(cow_String("c\0d", 3), 4);
    EXPECT_EQ(stream.bytes, Bytes("ab\0\0\0\0c\0\0\0", 10));
}

TEST(rfm_IO, TheResultOfAFixedStringsWriteIsNotLookedAt)
{
    MemoryStream stream;
    stream.mostPerWrite = 1;
    stream.WriteFixedString("abc", 3);
    EXPECT_EQ(stream.bytes, "a");
}

// --- texts

TEST(rfm_IOS, ATextInAStreamIsAReferenceIntoThePool)
{
    MemoryStream stream;
    stream.WriteString("first");
    stream.WriteString("second");
    EXPECT_EQ(stream.bytes, Bytes("\0\0\0\0\0\0\0\0"
                                  "\0\0\0\0\0\0\xF0\x3F",
                                  16));
    stream.Seek(0);
    EXPECT_EQ(stream.ReadString().View(), "first");
    EXPECT_EQ(stream.ReadString().View(), "second");
    EXPECT_EQ(Thrown<nex_TextException>([&] { stream.ReadString(); }), kEndOfFile);
}

TEST(rfm_IOS, ManyTextsMoveAndAPartialReferenceIsDropped)
{
    constexpr int kCount = 4096 * 2 + 7;
    std::vector<cow_String> texts;
    for (int i = 0; i < kCount; ++i) texts.emplace_back(i);
    MemoryStream stream;
    stream.WriteArray(texts.data(), kCount);
    ASSERT_EQ(stream.bytes.size(), 8U * kCount);
    stream.bytes.pop_back();
    stream.Seek(0);
    std::vector<cow_String> back(kCount + 1);
    EXPECT_EQ(stream.ReadArray(back.data(), kCount + 1), kCount - 1);
    texts.pop_back();
    back.resize(kCount - 1);
    EXPECT_TRUE(back == texts);
}

TEST(rfm_IOS, TextsHaveTheChecksOfNumbers)
{
    MemoryStream stream("12345678");
    cow_String text("x");
    EXPECT_EQ(Thrown<nex_TextException>([&] { stream.ReadArray(static_cast<cow_String*>(nullptr), 1); }),
              kNullPointer);
    EXPECT_EQ(Thrown<nex_TextException>([&] { stream.ReadArray(&text, 0); }), kBadLength);
    EXPECT_EQ(
        Thrown<nex_TextException>([&] { stream.WriteArray(static_cast<const cow_String*>(nullptr), 1); }),
        kNullPointer);
    EXPECT_EQ(Thrown<nex_TextException>([&] { stream.WriteArray(&text, -1); }), kBadLength);
    EXPECT_EQ(stream.reads + stream.writes, 0);
    stream.mostPerWrite = 7;
    EXPECT_EQ(Thrown<nex_TextException>([&] { stream.WriteString(text); }), kWriteFailed);
}

TEST(rfm_IOS, ACountThatNoStreamHoldsCostsNoMemory)
{
    MemoryStream stream("12345678");
    stream.pool.Encode(stream.bytes.data(), std::vector<cow_String>{"only"}.data(), 1);
    cow_String text;
    EXPECT_EQ(stream.ReadArray(&text, 2147483647), 1);
    EXPECT_EQ(text.View(), "only");
}
