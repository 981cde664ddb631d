#include "rfm_IOBuffer.h"

#include "MemoryStream.h"
#include "RandomSeed.h"
#include "Thrown.h"

#include <climits>
#include <gtest/gtest.h>
#include <numeric>
#include <random>
#include <vector>

namespace
{
constexpr const char* kReadOnly =
    "The output database was opened as read-only. Modification of data is not permitted.";
constexpr const char* kTooLarge = "rfm_IOBuffer::PrepWrite: Quantum is too large for buffer.";

/// Opens the two operations that carry the buffer's traffic.
class OpenBuffer : public rfm_IOBuffer
{
public:
    using rfm_IOBuffer::PrepRead;
    using rfm_IOBuffer::PrepWrite;
    using rfm_IOBuffer::RequireGranted;
    using rfm_IOBuffer::rfm_IOBuffer;
    using rfm_IOBuffer::Slice;
    std::string Granted(int quantum) const
    {
        return Slice() == nullptr ? std::string()
                                  : std::string(Slice(), static_cast<std::size_t>(SliceCount() * quantum));
    }
    void Fill(std::string_view text) { std::copy(text.begin(), text.end(), const_cast<char*>(Slice())); }
    int Count() const { return SliceCount(); }
};

std::string Pattern(int bytes)
{
    std::string text(static_cast<std::size_t>(bytes), '\0');
    for (std::size_t i = 0; i < text.size(); ++i) text[i] = static_cast<char>('a' + i * 7 / 3 % 26);
    return text;
}

std::string Read(rfm_IO& stream, int count)
{
    std::string bytes(static_cast<std::size_t>(count), '?');
    bytes.resize(static_cast<std::size_t>(stream.Read(bytes.data(), count)));
    return bytes;
}

int Write(rfm_IO& stream, std::string_view text)
{
    return stream.Write(text.data(), static_cast<int>(text.size()));
}
} // namespace

TEST(rfm_IOBuffer, ItStartsAtThePositionOfItsTarget)
{
    MemoryStream target("abcdef");
    target.Seek(2);
    rfm_IOBuffer buffer(&target, 4);
    EXPECT_EQ(buffer.Location(), 2);
    EXPECT_EQ(Read(buffer, 3), "cde");
    EXPECT_EQ(buffer.Location(), 5);
    EXPECT_EQ(buffer.Swapped(), target.Swapped());
    EXPECT_EQ(buffer.StringManager(), target.StringManager());
}

TEST(rfm_IOBuffer, ASizeBelowOneGives2048Bytes)
{
    for (const int size : {0, -1, INT_MIN})
    {
        MemoryStream target(Pattern(5000));
        OpenBuffer buffer(&target, size);
        EXPECT_TRUE(buffer.PrepRead(2048, 1));
        EXPECT_FALSE(buffer.PrepRead(2049, 1));
    }
}

TEST(rfm_IOBuffer, SmallReadsComeOutOfOneLoad)
{
    MemoryStream target(Pattern(2048));
    rfm_IOBuffer buffer(&target, 0);
    std::string all;
    for (int i = 0; i < 2048 / 16; ++i) all += Read(buffer, 16);
    EXPECT_EQ(all, target.bytes);
    EXPECT_EQ(target.reads, 1);
}

TEST(rfm_IOBuffer, ASeekToTheOwnLocationKeepsTheLoadedBlock)
{
    MemoryStream target(Pattern(100));
    rfm_IOBuffer buffer(&target, 50);
    Read(buffer, 10);
    target.bytes[10] = '!';
    buffer.Seek(10);
    EXPECT_EQ(Read(buffer, 1), Pattern(100).substr(10, 1));
    EXPECT_EQ(target.reads, 1);
    buffer.Seek(20);
    buffer.Seek(10);
    EXPECT_EQ(Read(buffer, 1), "!");
    EXPECT_EQ(target.reads, 2);
}

TEST(rfm_IOBuffer, ASeekNeverTouchesTheTarget)
{
    MemoryStream target(Pattern(100));
    rfm_IOBuffer buffer(&target, 50);
    Read(buffer, 10);
    const int before = target.seeks;
    buffer.Seek(3);
    buffer.Seek(99);
    EXPECT_EQ(target.seeks, before);
    EXPECT_EQ(buffer.Location(), 99);
}

TEST(rfm_IOBuffer, AQuantumAcrossTheEndOfABlockIsReadWhole)
{
    MemoryStream target(Pattern(100));
    OpenBuffer buffer(&target, 10);
    ASSERT_TRUE(buffer.PrepRead(4, 99));
    EXPECT_EQ(buffer.Granted(4), target.bytes.substr(0, 8));
    ASSERT_TRUE(buffer.PrepRead(4, 1));
    EXPECT_EQ(buffer.Granted(4), target.bytes.substr(8, 4));
    EXPECT_EQ(buffer.Location(), 12);
    EXPECT_EQ(target.reads, 2);
}

TEST(rfm_IOBuffer, AQuantumBeyondTheBlockEndsAReadQuietlyAndFailsAWrite)
{
    MemoryStream target(Pattern(100));
    OpenBuffer buffer(&target, 10);
    EXPECT_FALSE(buffer.PrepRead(11, 1));
    EXPECT_EQ(buffer.Count(), 0);
    EXPECT_EQ(buffer.Slice(), nullptr);
    EXPECT_EQ(buffer.Location(), 0);
    EXPECT_EQ(Thrown<nex_TextException>([&] { buffer.PrepWrite(11, 1); }), kTooLarge);
    EXPECT_EQ(Read(buffer, 3), target.bytes.substr(0, 3));
}

TEST(rfm_IOBuffer, NothingIsGrantedAtTheEnd)
{
    MemoryStream target("abc");
    OpenBuffer buffer(&target, 10);
    EXPECT_FALSE(buffer.PrepRead(4, 1));
    EXPECT_TRUE(buffer.PrepRead(3, 5));
    EXPECT_EQ(buffer.Count(), 1);
    EXPECT_FALSE(buffer.PrepRead(1, 1));
}

TEST(rfm_IOBuffer, AReadIsShortAtTheEndAndThrowsNothing)
{
    MemoryStream target(Pattern(25));
    rfm_IOBuffer buffer(&target, 10);
    EXPECT_EQ(Read(buffer, 7), target.bytes.substr(0, 7));
    EXPECT_EQ(Read(buffer, 100), target.bytes.substr(7));
    EXPECT_EQ(Read(buffer, 1), "");
    EXPECT_EQ(buffer.Location(), 25);
}

TEST(rfm_IOBuffer, WritesReachTheTargetWhenTheBlockIsFull)
{
    MemoryStream target;
    rfm_IOBuffer buffer(&target, 4);
    EXPECT_EQ(Write(buffer, "abc"), 3);
    EXPECT_EQ(target.bytes, "");
    EXPECT_EQ(Write(buffer, "de"), 2);
    EXPECT_EQ(target.bytes, "abcd");
    EXPECT_EQ(buffer.Location(), 5);
    buffer.Flush();
    EXPECT_EQ(target.bytes, "abcde");
    EXPECT_EQ(target.flushes, 1);
}

TEST(rfm_IOBuffer, ThreeThousandBytesReachTheTargetWithoutAFlush)
{
    MemoryStream target;
    {
        rfm_IOBuffer buffer(&target, 2048);
        for (int i = 0; i < 3000; ++i) Write(buffer, Pattern(3000).substr(static_cast<std::size_t>(i), 1));
        EXPECT_EQ(target.bytes.size(), 2048U);
    }
    EXPECT_EQ(target.bytes, Pattern(3000));
}

TEST(rfm_IOBuffer, AWriteOfTheBlocksSizeGoesPastIt)
{
    MemoryStream target;
    {
        rfm_IOBuffer buffer(&target, 16);
        Write(buffer, "ab");
        Write(buffer, Pattern(40));
        EXPECT_EQ(target.bytes, "ab" + Pattern(40));
        EXPECT_EQ(target.writes, 2);
        Write(buffer, "cd");
    }
    EXPECT_EQ(target.bytes, "ab" + Pattern(40) + "cd");
}

TEST(rfm_IOBuffer, AfterAReadAWriteGoesToTheLocationNotToTheEndOfTheBlock)
{
    MemoryStream target("abcdefghij");
    {
        rfm_IOBuffer buffer(&target, 8);
        Read(buffer, 3);
        Write(buffer, "XY");
        EXPECT_EQ(buffer.Location(), 5);
        EXPECT_EQ(Read(buffer, 2), "fg");
        EXPECT_EQ(target.bytes, "abcXYfghij");
        buffer.Seek(9);
        Write(buffer, "Z!");
    }
    EXPECT_EQ(target.bytes, "abcXYfghiZ!");
}

TEST(rfm_IOBuffer, WritingNeverReadsTheTarget)
{
    MemoryStream target(Pattern(100));
    {
        rfm_IOBuffer buffer(&target, 8);
        buffer.Seek(50);
        Write(buffer, "0123456789");
        buffer.Seek(3);
        Write(buffer, "x");
    }
    EXPECT_EQ(target.reads, 0);
}

TEST(rfm_IOBuffer, AShortWriteOfTheTargetIsGoneOnWith)
{
    MemoryStream target;
    target.mostPerWrite = 3;
    rfm_IOBuffer buffer(&target, 8);
    Write(buffer, "abcdefg");
    buffer.Flush();
    EXPECT_EQ(target.bytes, "abcdefg");
    EXPECT_EQ(target.writes, 3);
}

TEST(rfm_IOBuffer, ATargetThatTakesNothingIsAFailureAndNoEndlessLoop)
{
    MemoryStream target;
    target.mostPerWrite = 0;
    rfm_IOBuffer buffer(&target, 8);
    Write(buffer, "abc");
    EXPECT_EQ(Thrown<nex_TextException>([&] { buffer.Flush(); }), "***ERROR: Write operation failed.");
    target.mostPerWrite = 99;
}

TEST(rfm_IOBuffer, ATargetThatThrowsLeavesTheBlockForTheNextTry)
{
    MemoryStream target;
    rfm_IOBuffer buffer(&target, 8);
    Write(buffer, "abcdef");
    target.failing = true;
    EXPECT_EQ(Thrown<nex_TextException>([&] { buffer.Flush(); }), "the target failed");
    EXPECT_EQ(buffer.Location(), 6);
    EXPECT_THROW(buffer.Seek(0), nex_TextException);
    EXPECT_EQ(buffer.Location(), 6);
    EXPECT_THROW(Write(buffer, "ghi"), nex_TextException);
    EXPECT_EQ(buffer.Location(), 6);
    target.failing = false;
    Write(buffer, "GHI");
    buffer.Flush();
    EXPECT_EQ(target.bytes, "abcdefGHI");
}

TEST(rfm_IOBuffer, AFailureInTheDestructorIsOneLineOnStandardError)
{
    MemoryStream target;
    ::testing::internal::CaptureStderr();
    {
        rfm_IOBuffer buffer(&target, 8);
        Write(buffer, "abc");
        target.failing = true;
    }
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "the target failed\n");
}

TEST(rfm_IOBuffer, TheLengthCountsWhatIsNotYetWritten)
{
    MemoryStream target("abc");
    rfm_IOBuffer buffer(&target, 100);
    EXPECT_EQ(buffer.Length(), 3);
    buffer.Seek(3);
    Write(buffer, "defgh");
    EXPECT_EQ(buffer.Length(), 8);
    EXPECT_EQ(target.bytes, "abc");
    buffer.Seek(1);
    EXPECT_EQ(buffer.Length(), 8);
}

TEST(rfm_IOBuffer, LengthBeyondTheEndIsThePosition)
{
    MemoryStream target("abc");
    rfm_IOBuffer buffer(&target, 8);
    buffer.Seek(1000);
    EXPECT_EQ(buffer.Length(), 1000);
    EXPECT_EQ(Read(buffer, 1), "");
    EXPECT_EQ(target.bytes, "abc");
}

TEST(rfm_IOBuffer, ExtendSettlesFlushesAndExtendsAtTheLocation)
{
    MemoryStream target("abc");
    rfm_IOBuffer buffer(&target, 8);
    buffer.Seek(3);
    Write(buffer, "de");
    buffer.Extend(4);
    EXPECT_EQ(target.bytes, std::string("abcde\0\0\0\0", 9));
    EXPECT_EQ(target.flushes, 1);
    EXPECT_EQ(buffer.Location(), 5);
}

TEST(rfm_IOBuffer, DiscardForgetsWhatWasWritten)
{
    MemoryStream target("abc");
    rfm_IOBuffer buffer(&target, 8);
    Write(buffer, "XY");
    buffer.Discard();
    EXPECT_EQ(buffer.Location(), 0);
    buffer.Flush();
    EXPECT_EQ(target.bytes, "abc");
}

TEST(rfm_IOBuffer, OnAReadOnlyTargetEveryWriteIsRefused)
{
    MemoryStream target("abc");
    target.readOnly = true;
    MemoryStream other("xyz");
    rfm_IOBuffer source(&other, 8);
    OpenBuffer buffer(&target, 8);
    EXPECT_TRUE(buffer.ReadOnly());
    const int number = 1;
    const float single = 1;
    const double real = 1;
    const cow_String text("x");
    EXPECT_EQ(Thrown<nex_TextException>([&] { Write(buffer, "x"); }), kReadOnly);
    EXPECT_EQ(Thrown<nex_TextException>([&] { Write(buffer, ""); }), kReadOnly);
    EXPECT_EQ(Thrown<nex_TextException>([&] { buffer.WriteArray(&number, 1); }), kReadOnly);
    EXPECT_EQ(Thrown<nex_TextException>([&] { buffer.WriteArray(&single, 1); }), kReadOnly);
    EXPECT_EQ(Thrown<nex_TextException>([&] { buffer.WriteArray(&real, 1); }), kReadOnly);
    EXPECT_EQ(Thrown<nex_TextException>([&] { buffer.WriteArray(&text, 1); }), kReadOnly);
    EXPECT_EQ(Thrown<nex_TextException>([&] { buffer.PrepWrite(99, 1); }), kReadOnly);
    EXPECT_EQ(Thrown<nex_TextException>([&] { buffer.Append(source); }), kReadOnly);
    EXPECT_EQ(Read(buffer, 3), "abc");
    buffer.Flush();
    EXPECT_EQ(target.bytes, "abc");
}

// --- arrays

TEST(rfm_IOBuffer, ArraysHaveTheBytesOfTheStreamBehindTheBlock)
{
    const int ints[5] = {1, -2, 3, 0x01020304, INT_MIN};
    const float floats[3] = {1.0F, -0.5F, 0.0F};
    const double doubles[3] = {1.0, -0.5, 1e300};
    for (const bool swapped : {false, true})
    {
        for (const int capacity : {8, 10, 16, 17, 2048})
        {
            MemoryStream direct("", swapped);
            direct.WriteArray(ints, 5);
            direct.WriteArray(floats, 3);
            direct.WriteArray(doubles, 3);

            MemoryStream target("", swapped);
            rfm_IOBuffer buffer(&target, capacity);
            buffer.WriteArray(ints, 5);
            buffer.WriteArray(floats, 3);
            buffer.WriteArray(doubles, 3);
            buffer.Flush();
            ASSERT_EQ(target.bytes, direct.bytes) << capacity;

            int readInts[5] = {};
            float readFloats[3] = {};
            double readDoubles[4] = {};
            buffer.Seek(0);
            EXPECT_EQ(buffer.ReadArray(readInts, 5), 5);
            EXPECT_EQ(buffer.ReadArray(readFloats, 3), 3);
            EXPECT_EQ(buffer.ReadArray(readDoubles, 4), 3) << capacity;
            EXPECT_TRUE(std::equal(ints, ints + 5, readInts));
            EXPECT_TRUE(std::equal(floats, floats + 3, readFloats));
            EXPECT_TRUE(std::equal(doubles, doubles + 3, readDoubles));
        }
    }
}

TEST(rfm_IOBuffer, AnArrayReadDropsAPartialElementAndStaysBeforeIt)
{
    for (const int capacity : {4, 5, 64})
    {
        MemoryStream target(std::string("\1\0\0\0\2\0\0", 7), omi_Swapper(omi_Swapper::Stored));
        rfm_IOBuffer buffer(&target, capacity);
        int values[3] = {};
        EXPECT_EQ(buffer.ReadArray(values, 3), 1) << capacity;
        EXPECT_EQ(values[0], 1);
        EXPECT_EQ(buffer.Location(), 4);
        EXPECT_EQ(Thrown<nex_TextException>([&] { buffer.ReadInt(); }), "***ERROR: Unexpected End Of File.");
        EXPECT_EQ(Read(buffer, 9), std::string("\2\0\0", 3));
    }
}

TEST(rfm_IOBuffer, ArraysOfNothingMoveNothing)
{
    MemoryStream target("12345678");
    rfm_IOBuffer buffer(&target, 8);
    EXPECT_EQ(buffer.ReadArray(static_cast<int*>(nullptr), 0), 0);
    EXPECT_EQ(buffer.ReadArray(static_cast<cow_String*>(nullptr), 0), 0);
    buffer.WriteArray(static_cast<const double*>(nullptr), 0);
    EXPECT_EQ(buffer.Location(), 0);
    EXPECT_EQ(target.reads + target.writes, 0);
}

TEST(rfm_IOBuffer, ANumberThatIsWiderThanTheBlockCannotBeWritten)
{
    MemoryStream target;
    rfm_IOBuffer buffer(&target, 4);
    const double real = 1;
    const cow_String text("x");
    EXPECT_EQ(Thrown<nex_TextException>([&] { buffer.WriteArray(&real, 1); }), kTooLarge);
    EXPECT_EQ(Thrown<nex_TextException>([&] { buffer.WriteArray(&text, 1); }), kTooLarge);
    double back = 0;
    EXPECT_EQ(buffer.ReadArray(&back, 1), 0);
}

TEST(rfm_IOBuffer, ATransferThatIsGrantedNothingStopsWithItsText)
{
    EXPECT_EQ(Thrown<nex_TextException>([] { OpenBuffer::RequireGranted(0, "no room in the block"); }),
              "no room in the block");
    EXPECT_NO_THROW(OpenBuffer::RequireGranted(1, "no room in the block"));
}

TEST(rfm_IOBuffer, TextsMoveThroughTheBlockASliceAtATime)
{
    const std::vector<cow_String> texts = {"a", "b", "", "d", "e"};
    for (const int capacity : {8, 12, 17, 2048})
    {
        MemoryStream target;
        rfm_IOBuffer buffer(&target, capacity);
        buffer.WriteArray(texts.data(), 5);
        buffer.WriteString("last");
        buffer.Flush();
        EXPECT_EQ(target.bytes.size(), 48U);
        buffer.Seek(0);
        std::vector<cow_String> back(5);
        EXPECT_EQ(buffer.ReadArray(back.data(), 5), 5);
        EXPECT_TRUE(back == texts);
        EXPECT_EQ(buffer.ReadString().View(), "last");
        EXPECT_EQ(Thrown<nex_TextException>([&] { buffer.ReadString(); }),
                  "***ERROR: Unexpected End Of File.");
    }
}

// --- fixed strings

TEST(rfm_IOBuffer, AFixedStringGivesWhatIsThere)
{
    MemoryStream target(std::string("ab\0defghij", 10));
    rfm_IOBuffer buffer(&target, 4);
    EXPECT_TRUE(buffer.ReadFixedString(0).IsEmpty());
    EXPECT_TRUE(buffer.ReadFixedString(-1).IsEmpty());
    EXPECT_EQ(target.reads, 0);
    EXPECT_EQ(buffer.ReadFixedString(6), cow_String("ab\0def", 6));
    EXPECT_EQ(buffer.ReadFixedString(2147483647).View(), "ghij");
    EXPECT_TRUE(buffer.ReadFixedString(1).IsEmpty());
}

TEST(rfm_IOBuffer, AFixedStringIsWrittenCutOrPadded)
{
    MemoryStream target;
    rfm_IOBuffer buffer(&target, 64);
    buffer.WriteFixedString("sixsix", 4);
    buffer.WriteFixedString("ab", 4);
    buffer.Flush();
    EXPECT_EQ(target.bytes, std::string("sixsab\0\0", 8));
}

// --- append

TEST(rfm_IOBuffer, AppendCopiesTheRestOfItsSourceToTheLocation)
{
    for (const int capacity : {1, 7, 64})
    {
        MemoryStream source(Pattern(100));
        MemoryStream target("0123456789");
        rfm_IOBuffer reader(&source, 16);
        rfm_IOBuffer writer(&target, capacity);
        reader.Seek(90);
        writer.Seek(5);
        writer.Append(reader);
        writer.Flush();
        EXPECT_EQ(target.bytes, "01234" + Pattern(100).substr(90));
        writer.Append(reader);
        writer.Flush();
        EXPECT_EQ(target.bytes.size(), 15U);
        EXPECT_EQ(source.writes, 0);
    }
}

TEST(rfm_IOBuffer, AppendStopsAtTheLengthThatItWasGiven)
{
    MemoryStream source(Pattern(100));
    MemoryStream target;
    rfm_IOBuffer reader(&source, 16);
    rfm_IOBuffer writer(&target, 16);
    writer.Append(reader, 37);
    writer.Append(reader, 0);
    writer.Append(reader, -5);
    writer.Flush();
    EXPECT_EQ(target.bytes, Pattern(37));
    EXPECT_EQ(reader.Location(), 37);
}

// --- random use against a model

TEST(rfm_IOBuffer, RandomUseLooksLikeTheStreamBehindIt)
{
    std::mt19937 random(RandomSeed());
    const auto below = [&](int bound) { return static_cast<int>(random() % static_cast<unsigned>(bound)); };
    for (int round = 0; round < 60; ++round)
    {
        const bool swapped = round % 2 == 1;
        MemoryStream target("", swapped);
        MemoryStream model("", swapped);
        target.mostPerWrite = round % 3 == 0 ? 5 : INT_MAX;
        {
            rfm_IOBuffer buffer(&target, 8 + below(40));
            for (int step = 0; step < 400; ++step)
            {
                const int count = 1 + below(60);
                std::vector<int> ints(static_cast<std::size_t>(count));
                std::iota(ints.begin(), ints.end(), step * 1000);
                switch (below(7))
                {
                case 0:
                {
                    const int place = below(static_cast<int>(model.bytes.size()) + 1);
                    buffer.Seek(place);
                    model.Seek(place);
                    break;
                }
                case 1: ASSERT_EQ(Read(buffer, count), Read(model, count)); break;
                case 2:
                {
                    std::vector<int> mine(static_cast<std::size_t>(count));
                    std::vector<int> theirs(static_cast<std::size_t>(count));
                    const std::int64_t place = model.position;
                    const int read = buffer.ReadArray(mine.data(), count);
                    ASSERT_EQ(read, model.ReadArray(theirs.data(), count));
                    mine.resize(static_cast<std::size_t>(read));
                    theirs.resize(static_cast<std::size_t>(read));
                    ASSERT_TRUE(mine == theirs);
                    model.Seek(place + read * 4); // the buffer stays before a partial element
                    break;
                }
                case 3: buffer.Flush(); break;
                case 4:
                    ASSERT_EQ(Write(buffer, Pattern(count)), count);
                    Write(model, Pattern(count));
                    break;
                default: buffer.WriteArray(ints.data(), count); model.WriteArray(ints.data(), count);
                }
                ASSERT_EQ(buffer.Location(), model.Location());
                ASSERT_EQ(buffer.Length(), model.Length());
            }
        }
        ASSERT_TRUE(target.bytes == model.bytes) << "round " << round;
    }
}
