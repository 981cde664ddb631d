#include "rfm_CodecZip.h"

#include "Thrown.h"
#include "nex_Exception.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <string>

namespace
{
constexpr const char* kCorrupt = "***ERROR: VDX database is corrupt.";

rfm_SegmentBuffer BufferOf(const std::string& bytes)
{
    rfm_SegmentBuffer buffer(static_cast<int>(bytes.size()));
    std::copy(bytes.begin(), bytes.end(), buffer.Writable(buffer.Size()));
    return buffer;
}
std::string ContentOf(const rfm_SegmentBuffer& buffer)
{
    return {buffer.Data(), static_cast<std::size_t>(buffer.Size())};
}
std::string Noise(int count)
{
    std::mt19937 random(1);
    std::string bytes(static_cast<std::size_t>(count), '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    return bytes;
}

class rfm_CodecZipTest : public testing::Test
{
protected:
    rfm_SegmentBuffer Encoded(const std::string& bytes, int length)
    {
        rfm_SegmentBuffer out;
        m_Codec.Encode(out, BufferOf(bytes), length);
        return out;
    }
    std::string Decoded(const rfm_SegmentBuffer& in, int room)
    {
        rfm_SegmentBuffer out(room);
        const int length = m_Codec.Decode(out, in);
        EXPECT_EQ(out.Size(), room);
        return ContentOf(out).substr(0, static_cast<std::size_t>(length));
    }
    rfm_CodecZip m_Codec{6};
};
} // namespace

TEST(rfm_CodecZip, TheWorkBlockOfASegmentHas72101Bytes)
{
    EXPECT_EQ(rfm_CodecZip::WorkBytes(65536), 72101);
    EXPECT_EQ(rfm_CodecZip::WorkBytes(0), 12);
    EXPECT_EQ(rfm_CodecZip::WorkBytes(1), 13);
    EXPECT_EQ(rfm_CodecZip::WorkBytes(1 << 30), 1181116018);
}

TEST_F(rfm_CodecZipTest, WhatWasEncodedComesBack)
{
    const std::string bytes = std::string(5000, 'a') + Noise(3000);
    EXPECT_EQ(Decoded(Encoded(bytes, 8000), 8000), bytes);
    EXPECT_EQ(Decoded(Encoded(bytes, 8000), 65536), bytes);
}

TEST_F(rfm_CodecZipTest, OnlyTheFirstBytesOfTheSegmentCount)
{
    EXPECT_EQ(Decoded(Encoded("abcdefgh", 3), 8), "abc");
    EXPECT_EQ(ContentOf(Encoded("abcdefgh", 3)), ContentOf(Encoded("abc", 3)));
}

TEST_F(rfm_CodecZipTest, NoBytesAreASmallStreamAndDecodeToNothing)
{
    const rfm_SegmentBuffer encoded = Encoded("x", 0);
    EXPECT_GE(encoded.Size(), 8);
    EXPECT_LE(encoded.Size(), 12);
    EXPECT_EQ(Decoded(encoded, 100), "");
    EXPECT_EQ(Decoded(encoded, 0), "");
}

TEST_F(rfm_CodecZipTest, ATailOfFourBytesDoesNotMatter)
{
    const std::string bytes(1000, 'q');
    EXPECT_EQ(Decoded(BufferOf(ContentOf(Encoded(bytes, 1000)) + std::string("\xFF\0\x12z", 4)), 1000),
              bytes);
}

TEST_F(rfm_CodecZipTest, AStreamThatExpandsToMoreThanTheSegmentIsCorrupt)
{
    const rfm_SegmentBuffer encoded = Encoded(std::string(1001, 'q'), 1001);
    EXPECT_EQ(Thrown<nex_TextException>([&] { Decoded(encoded, 1000); }), kCorrupt);
    EXPECT_EQ(Decoded(encoded, 1001).size(), 1001U);
}

TEST_F(rfm_CodecZipTest, DamageAndAnEarlyEndAreCorrupt)
{
    std::string stream = ContentOf(Encoded(Noise(500), 500));
    EXPECT_EQ(Thrown<nex_TextException>([&] { Decoded(BufferOf(stream.substr(0, 300)), 500); }), kCorrupt);
    EXPECT_EQ(Thrown<nex_TextException>([&] { Decoded(rfm_SegmentBuffer(), 500); }), kCorrupt);
    stream[200] = static_cast<char>(stream[200] ^ 1);
    EXPECT_EQ(Thrown<nex_TextException>([&] { Decoded(BufferOf(stream), 500); }), kCorrupt);
}

TEST_F(rfm_CodecZipTest, DataThatDoNotCompressFitTheWorkBlock)
{
    const std::string bytes = Noise(65536);
    const rfm_SegmentBuffer encoded = Encoded(bytes, 65536);
    EXPECT_GT(encoded.Size(), 65536);
    EXPECT_LE(encoded.Size(), 72101);
    EXPECT_EQ(Decoded(encoded, 65536), bytes);
}

TEST_F(rfm_CodecZipTest, TheHighestInflationStillFitsTheRoomThatIsOffered)
{
    const std::string zeros(1 << 24, '\0');
    const rfm_SegmentBuffer encoded = Encoded(zeros, 1 << 24);
    EXPECT_LT(encoded.Size(), 17000);
    EXPECT_EQ(Decoded(encoded, 1 << 24).size(), zeros.size());
}

TEST_F(rfm_CodecZipTest, TheOutputIsEncodedIntoTheMemoryThatIsThere)
{
    rfm_SegmentBuffer out(72101);
    const char* memory = out.Data();
    for (const int length : {65536, 10, 65536})
    {
        m_Codec.Encode(out, BufferOf(std::string(65536, 'z')), length);
        EXPECT_EQ(out.Data(), memory);
    }
}

TEST(rfm_CodecZip, ALevelThatIsNoneIsAFaultOfTheCaller)
{
    rfm_SegmentBuffer out;
    EXPECT_EQ(Thrown<nex_AssertException>([&] { rfm_CodecZip(77).Encode(out, BufferOf("abc"), 3); }),
              "result == 0 && \"zip_compress2\"");
}
