#include "rfm_KnownSegments.h"

#include "RandomSeed.h"
#include "Thrown.h"
#include "nex_Exception.h"
#include "rfm_CodecZip.h"
#include "rfm_EncodedFormat.h"
#include "rfm_FileReprEncoded.h"
#include "rfm_SegmentBuffer.h"
#include "rfm_TestFile.h"
#include "zip_Compress.h"

#include <algorithm>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>

namespace
{
constexpr int kSegment = 65536;
constexpr int kPiece = kSegment / 16 + 1;
constexpr int kSegments = 40; // more than there are buffers
constexpr const char* kCorrupt = "***ERROR: VDX database is corrupt.";

/// Bytes that compress by about half.
std::string MakeBytes(int count, unsigned seed)
{
    std::mt19937 random(seed);
    std::string bytes(static_cast<std::size_t>(count), '\0');
    for (std::size_t i = 0; i < bytes.size(); i += 2) bytes[i] = static_cast<char>(random());
    return bytes;
}

rfm_SegmentBuffer BufferOf(const std::string& bytes)
{
    rfm_SegmentBuffer buffer(static_cast<int>(bytes.size()));
    std::memcpy(buffer.Writable(buffer.Size()), bytes.data(), bytes.size());
    return buffer;
}

// --- what is known

TEST(rfm_KnownSegments, ASegmentThatWasNotSeenHasNoFront)
{
    rfm_KnownSegments known(kSegment);
    known.Note(1, BufferOf(MakeBytes(kSegment, 1)));
    EXPECT_FALSE(known.Has(2));
    EXPECT_EQ(known.ChooseFront(2, 10), 0);
    EXPECT_FALSE(known.IsFront(2, BufferOf(MakeBytes(kSegment, 1)), kPiece));
}

TEST(rfm_KnownSegments, AFrontIsWholePiecesUpToTheEndOfTheRead)
{
    rfm_KnownSegments known(kSegment);
    known.Note(0, BufferOf(MakeBytes(kSegment, 1)));
    EXPECT_EQ(known.ChooseFront(0, 1), kPiece);
    EXPECT_EQ(known.ChooseFront(0, kPiece), kPiece);
    EXPECT_EQ(known.ChooseFront(0, kPiece + 1), 2 * kPiece);
    EXPECT_EQ(known.ChooseFront(0, 14 * kPiece), 14 * kPiece);
}

TEST(rfm_KnownSegments, AReadNearTheEndWantsAll)
{
    rfm_KnownSegments known(kSegment);
    known.Note(0, BufferOf(MakeBytes(kSegment, 1)));
    EXPECT_EQ(known.ChooseFront(0, kSegment), 0);
    EXPECT_EQ(known.ChooseFront(0, 14 * kPiece + 1), 0);
}

TEST(rfm_KnownSegments, AFrontThatWasNotEnoughMakesTheNextSixteenWhole)
{
    rfm_KnownSegments known(kSegment);
    known.Note(0, BufferOf(MakeBytes(kSegment, 1)));
    known.WantedMore();
    for (int load = 0; load < 16; ++load) EXPECT_EQ(known.ChooseFront(0, 1), 0) << load;
    EXPECT_EQ(known.ChooseFront(0, 1), kPiece);
}

TEST(rfm_KnownSegments, AnyByteThatDiffersInTheFrontIsNoticedAndNoneBehindIt)
{
    rfm_KnownSegments known(kSegment);
    const std::string bytes = MakeBytes(kSegment, 1);
    known.Note(0, BufferOf(bytes));
    constexpr int kFront = 3 * kPiece;
    EXPECT_TRUE(known.IsFront(0, BufferOf(bytes), kFront));
    for (int at = 0; at < kSegment; at = at < kPiece + 40 ? at + 1 : at + 997)
    {
        std::string changed = bytes;
        changed[static_cast<std::size_t>(at)] ^= 0x10;
        EXPECT_EQ(known.IsFront(0, BufferOf(changed), kFront), at >= kFront) << at;
    }
}

TEST(rfm_KnownSegments, BytesThatChangedPlacesAreNoticed)
{
    rfm_KnownSegments known(kSegment);
    std::string bytes = MakeBytes(kSegment, 1);
    known.Note(0, BufferOf(bytes));
    std::swap_ranges(bytes.begin(), bytes.begin() + 8, bytes.begin() + 8); // between lanes
    EXPECT_FALSE(known.IsFront(0, BufferOf(bytes), kPiece));
    std::swap_ranges(bytes.begin(), bytes.begin() + 8, bytes.begin() + 8);
    ASSERT_TRUE(known.IsFront(0, BufferOf(bytes), kPiece));
    std::swap_ranges(bytes.begin(), bytes.begin() + 32, bytes.begin() + 32); // between blocks
    EXPECT_FALSE(known.IsFront(0, BufferOf(bytes), kPiece));
}

TEST(rfm_KnownSegments, TheLastLookCounts)
{
    rfm_KnownSegments known(kSegment);
    known.Note(0, BufferOf(MakeBytes(kSegment, 1)));
    known.Note(0, BufferOf(MakeBytes(kSegment, 2)));
    EXPECT_FALSE(known.IsFront(0, BufferOf(MakeBytes(kSegment, 1)), kPiece));
    EXPECT_TRUE(known.IsFront(0, BufferOf(MakeBytes(kSegment, 2)), kPiece));
}

TEST(rfm_KnownSegments, SegmentsTooSmallForAFrontAreNotKept)
{
    rfm_KnownSegments known(zip_FrontSlack);
    known.Note(0, BufferOf(MakeBytes(zip_FrontSlack, 1)));
    EXPECT_FALSE(known.Has(0));
}

TEST(rfm_KnownSegments, MemoryIsBoundedByForgettingAll)
{
    constexpr int kMost = 32'768;
    constexpr int kSmall = 600;
    rfm_KnownSegments known(kSmall);
    const rfm_SegmentBuffer buffer = BufferOf(MakeBytes(kSmall, 1));
    for (int index = 0; index < kMost; ++index) known.Note(index, buffer);
    known.Note(7, buffer);
    EXPECT_TRUE(known.Has(0));
    known.Note(kMost, buffer);
    EXPECT_FALSE(known.Has(0));
    EXPECT_TRUE(known.Has(kMost));
}

// --- reading

class CountingCodec : public rfm_CodecZip
{
public:
    struct Counts
    {
        int whole = 0;
        int fronts = 0;
        bool frontsFail = false;
        bool operator==(const Counts&) const = default;
    };
    explicit CountingCodec(Counts& counts) : rfm_CodecZip(6), m_Counts(counts) {}
    int Decode(rfm_SegmentBuffer& out, const rfm_SegmentBuffer& in) override
    {
        ++m_Counts.whole;
        return rfm_CodecZip::Decode(out, in);
    }
    bool DecodeFront(rfm_SegmentBuffer& out, const rfm_SegmentBuffer& in, int count) override
    {
        ++m_Counts.fronts;
        return !m_Counts.frontsFail && rfm_CodecZip::DecodeFront(out, in, count);
    }

private:
    Counts& m_Counts;
};
using Counts = CountingCodec::Counts;

void PrintTo(const Counts& counts, std::ostream* out)
{
    *out << counts.whole << " whole, " << counts.fronts << " fronts";
}

class ReadsOfKnownSegments : public testing::Test
{
protected:
    void SetUp() override
    {
        {
            rfm_FileReprEncoded repr(m_File.Name(), std::make_unique<rfm_CodecZip>(6), kSegment);
            repr.Write(m_Content.data(), static_cast<int>(m_Content.size()));
        }
        Open(utl_FileAccessRead);
        VisitAll();
    }
    void Open(utl_FileAccess access)
    {
        m_Repr = std::make_unique<rfm_FileReprEncoded>(m_File.Name(), access,
                                                       std::make_unique<CountingCodec>(m_Counts));
    }
    /// Each segment but the first, which stays in memory, stepping about; the last ones visited are still in memory then.
    void VisitAll()
    {
        for (const int index : Steps()) Expect(index, kSegment - 1, 1);
        m_Counts = {};
    }
    static std::vector<int> Steps()
    {
        std::vector<int> steps;
        for (int start = 3; start >= 1; --start)
            for (int index = start; index < kSegments; index += 3) steps.push_back(index);
        return steps;
    }
    std::string Bytes(int index, int first, int count) const
    {
        return m_Content.substr(static_cast<std::size_t>(index) * kSegment + static_cast<std::size_t>(first),
                                static_cast<std::size_t>(count));
    }
    std::string Read(int index, int first, int count)
    {
        std::string bytes(static_cast<std::size_t>(count), '?');
        m_Repr->Seek(std::int64_t{index} * kSegment + first);
        bytes.resize(static_cast<std::size_t>(m_Repr->Read(bytes.data(), count)));
        return bytes;
    }
    void Expect(int index, int first, int count)
    {
        ASSERT_TRUE(Read(index, first, count) == Bytes(index, first, count)) << index << " " << first;
    }
    /// Where the stream of a segment begins in the file: behind its length.
    std::size_t StreamOf(int index) const
    {
        return rfm_LoadWord(m_File.Bytes(40 + 4 * static_cast<std::size_t>(index), 4).data()) * 4096 + 4;
    }
    void Damage(std::size_t place) const
    {
        m_File.Patch(place, std::string(1, static_cast<char>(m_File.Bytes(place, 1)[0] ^ 0x55)));
    }

    const std::string m_Content = MakeBytes(kSegments * kSegment, 5);
    rfm_TestFile m_File{".sdx"};
    Counts m_Counts;
    std::unique_ptr<rfm_FileReprEncoded> m_Repr;
};

TEST_F(ReadsOfKnownSegments, TheSecondVisitDecodesAFront)
{
    Expect(3, 5000, 100);
    Expect(6, 20000, 4096);
    EXPECT_EQ(m_Counts, (Counts{.whole = 0, .fronts = 2}));
}

TEST_F(ReadsOfKnownSegments, AReadInsideTheFrontCostsNothingMore)
{
    Expect(3, 5000, 3000);
    Expect(3, 0, 5000);
    EXPECT_EQ(m_Counts, (Counts{.whole = 0, .fronts = 1}));
}

TEST_F(ReadsOfKnownSegments, TheFirstReadBehindTheFrontDecodesAll)
{
    Expect(3, 0, 100);
    Expect(3, 60000, 100);
    Expect(3, 0, kSegment);
    EXPECT_EQ(m_Counts, (Counts{.whole = 1, .fronts = 1}));
    // and such a reader gets whole segments for a while
    for (int index = 6; index < 6 + 3 * 8; index += 3) Expect(index, 0, 100);
    EXPECT_EQ(m_Counts, (Counts{.whole = 9, .fronts = 1}));
}

TEST_F(ReadsOfKnownSegments, AReadAcrossABoundaryIsRight)
{
    Expect(3, kSegment - 50, 100);
    Expect(9, kSegment - 50, 100);
    Expect(3, kSegment - 70, 200);
}

TEST_F(ReadsOfKnownSegments, AReaderWhoGoesOnGetsWholeSegments)
{
    for (int index = 1; index < 20; ++index) Expect(index, 0, kSegment);
    EXPECT_EQ(m_Counts.fronts, 0);
}

TEST_F(ReadsOfKnownSegments, AFileThatIsOpenForUpdateHasNoFronts)
{
    Open(utl_FileAccessUpdate);
    VisitAll();
    Expect(3, 5000, 100);
    EXPECT_EQ(m_Counts, (Counts{.whole = 1, .fronts = 0}));
}

TEST_F(ReadsOfKnownSegments, ANewContentIsReadThoughTheOldOneIsKnown)
{
    const std::string other = MakeBytes(kSegment, 77);
    {
        rfm_FileReprEncoded writer(m_File.Name(), utl_FileAccessUpdate, std::make_unique<rfm_CodecZip>(6));
        writer.Seek(3 * kSegment);
        writer.Write(other.data(), kSegment);
    }
    m_Repr->Refresh();
    EXPECT_TRUE(Read(3, 5000, 100) == other.substr(5000, 100));
    EXPECT_EQ(m_Counts, (Counts{.whole = 1, .fronts = 1}));
}

TEST_F(ReadsOfKnownSegments, DamageInAFrontIsToldAsInAnyOtherRead)
{
    Damage(StreamOf(3) + 1000);
    EXPECT_EQ(Thrown<nex_TextException>([&] { Read(3, 8000, 100); }), kCorrupt);
    EXPECT_EQ(Thrown<nex_TextException>([&] { Read(3, 8000, 100); }), kCorrupt) << "the second time";
    Expect(6, 8000, 100);
}

TEST_F(ReadsOfKnownSegments, DamageBehindAFrontIsToldByTheReadThatComesThere)
{
    Damage(StreamOf(3) + 25000);
    Expect(3, 100, 100);
    EXPECT_EQ(Thrown<nex_TextException>([&] { Read(3, 60000, 100); }), kCorrupt);
    EXPECT_EQ(Thrown<nex_TextException>([&] { Read(3, 60000, 100); }), kCorrupt) << "the second time";
}

TEST_F(ReadsOfKnownSegments, WhatDoesNotCompressIsReadRight)
{
    std::mt19937 random(9);
    std::string noise(kSegments * kSegment, '\0');
    for (char& byte : noise) byte = static_cast<char>(random());
    m_Repr.reset();
    {
        rfm_FileReprEncoded repr(m_File.Name(), std::make_unique<rfm_CodecZip>(6), kSegment);
        repr.Write(noise.data(), static_cast<int>(noise.size()));
    }
    Open(utl_FileAccessRead);
    for (int round = 0; round < 2; ++round)
        for (const int index : Steps())
            ASSERT_TRUE(Read(index, 9000, 500) ==
                        noise.substr(static_cast<std::size_t>(index) * kSegment + 9000, 500))
                << index;
}

TEST_F(ReadsOfKnownSegments, FrontsThatFailAreTriedOnceInSeventeen)
{
    m_Counts.frontsFail = true;
    for (const int index : Steps()) Expect(index, 9000, 500);
    EXPECT_GE(m_Counts.fronts, 1);
    EXPECT_LE(m_Counts.fronts, 3) << "of 39 loads at most";
}

TEST_F(ReadsOfKnownSegments, AnyStepsGiveTheBytesOfTheFile)
{
    std::mt19937 random(RandomSeed());
    for (int step = 0; step < 600; ++step)
    {
        const int first = static_cast<int>(random() % m_Content.size());
        const int most = step % 3 == 0 ? 200'000 : 5'000;
        const int count = static_cast<int>(random() % static_cast<unsigned>(most));
        const int length = std::min(count, static_cast<int>(m_Content.size()) - first);
        ASSERT_TRUE(Read(first / kSegment, first % kSegment, count) ==
                    m_Content.substr(static_cast<std::size_t>(first), static_cast<std::size_t>(length)))
            << first << " " << count;
    }
    EXPECT_GT(m_Counts.fronts, 20);
}
} // namespace
