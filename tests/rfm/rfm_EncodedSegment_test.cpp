#include "rfm_EncodedSegmentTable.h"

#include "Thrown.h"
#include "nex_Exception.h"
#include "rfm_ArmedSegment.h"
#include "rfm_CodecZip.h"
#include "rfm_Exc.h"
#include "rfm_TestFile.h"

#include <algorithm>
#include <climits>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>

using testing::ElementsAre;

namespace
{
constexpr int kSegment = 64;
constexpr const char* kCorrupt = "***ERROR: VDX database is corrupt.";

/// Stores bytes as they are, so that a test sees them in the file, and counts.
class PlainCodec : public rfm_Codec
{
public:
    struct Counts
    {
        int encoded = 0;
        int decoded = 0;
    };
    explicit PlainCodec(Counts& counts) : m_Counts(counts) {}
    void Encode(rfm_SegmentBuffer& out, const rfm_SegmentBuffer& in, int decodedLength) override
    {
        ++m_Counts.encoded;
        out.Require(decodedLength);
        std::copy_n(in.Data(), decodedLength, out.Writable(decodedLength));
    }
    int Decode(rfm_SegmentBuffer& out, const rfm_SegmentBuffer& in) override
    {
        ++m_Counts.decoded;
        const std::string_view bytes(in.Data(), static_cast<std::size_t>(in.Size()));
        if (bytes.starts_with("BAD")) rfm_ThrowEncodedCorrupt();
        const int length = std::min(in.Size(), out.Size());
        std::copy_n(in.Data(), length, out.Writable(length));
        return length;
    }
    int MostEncoded(int decodedLength) const noexcept override { return decodedLength; }

private:
    Counts& m_Counts;
};

class rfm_EncodedSegmentTest : public testing::Test
{
protected:
    void Create(int segmentSize = kSegment)
    {
        m_Table.reset();
        m_Table = std::make_unique<rfm_EncodedSegmentTable>(
            m_File.Name(), std::make_unique<PlainCodec>(m_Counts), segmentSize);
    }
    void Open(utl_FileAccess access)
    {
        m_Table.reset();
        m_Table = std::make_unique<rfm_EncodedSegmentTable>(m_File.Name(),
                                                            std::make_unique<PlainCodec>(m_Counts), access);
    }
    void Reopen(utl_FileAccess access = utl_FileAccessUpdate)
    {
        m_Table->Flush();
        Open(access);
    }
    void Write(int index, const std::string& bytes, int first = 0)
    {
        rfm_ArmedSegment segment(m_Table->GetSegment(index));
        segment->Write(bytes.data(), first, static_cast<int>(bytes.size()));
    }
    std::string Read(int index)
    {
        rfm_ArmedSegment segment(m_Table->GetSegment(index));
        std::string bytes(static_cast<std::size_t>(segment->DecodedLength()), '?');
        segment->Read(bytes.data(), 0, segment->DecodedLength());
        return bytes;
    }
    /// The words from `first` on, of sector 0.
    std::string Words(std::size_t first, std::size_t count) const
    {
        return rfm_Hex(m_File.Bytes(first, count * 4));
    }

    rfm_TestFile m_File{".sdx"};
    PlainCodec::Counts m_Counts;
    std::unique_ptr<rfm_EncodedSegmentTable> m_Table;
};

std::string Zeros(std::size_t count) { return std::string(count, '\0'); }
} // namespace

// --- the header

TEST(rfm_EncodedFormat, TheHeaderHasTheBytesOfItsPicture)
{
    char bytes[rfm_EncodedHeaderBytes];
    const rfm_EncodedHeader header{.segmentSize = 65536, .segmentCount = 0x01020304, .lastLength = 100};
    rfm_EncodeEncodedHeader(header, bytes);
    EXPECT_EQ(rfm_Hex({bytes, 20}), "a5 c1 41 61 01 00 00 00 00 00 01 00 04 03 02 01 64 00 00 00");
    EXPECT_EQ(rfm_DecodeEncodedHeader(bytes), header);
}

TEST_F(rfm_EncodedSegmentTest, ANewTableHasNoSegmentsAndNoLength)
{
    Create();
    EXPECT_EQ(m_Table->SegmentCount(), 0);
    EXPECT_EQ(m_Table->LogicalSize(), 0);
    m_Table->Flush();
    EXPECT_EQ(Words(20, 5), "a5 c1 41 61 01 00 00 00 40 00 00 00 00 00 00 00 40 00 00 00");
    Open(utl_FileAccessRead);
    EXPECT_EQ(m_Table->LogicalSize(), 0);
}

TEST_F(rfm_EncodedSegmentTest, TheLastLengthComesFromTheObjectWhenThereIsOne)
{
    Create();
    Write(0, "abc");
    m_Table->Flush();
    EXPECT_EQ(Words(32, 2), "01 00 00 00 03 00 00 00");
    Write(0, "abcdef");
    EXPECT_EQ(m_Table->LogicalSize(), 6);
    m_Table->Flush();
    EXPECT_EQ(Words(36, 1), "06 00 00 00");
    Reopen();
    EXPECT_EQ(m_Table->LogicalSize(), 6);
    m_Table->Flush();
    EXPECT_EQ(Words(32, 2), "01 00 00 00 06 00 00 00") << "from the field, without an object";
}

TEST_F(rfm_EncodedSegmentTest, NumbersThatCannotStandTogetherAreCorrupt)
{
    Create();
    Write(1, "abc");
    m_Table->Flush();
    m_Table.reset();
    const std::string whole = m_File.Bytes();
    const auto failure = [&](std::size_t offset, std::uint32_t value)
    {
        m_File.Write(whole);
        m_File.Patch(offset, rfm_IntBytes(value));
        return Thrown<nex_Exception>([&] { Open(utl_FileAccessRead); });
    };
    EXPECT_EQ(failure(20, 0x6141C1A4), "tmp[0] == MAGIC");
    for (const std::uint32_t version : {0U, 2U, 0xFFFFFFFFU})
        EXPECT_EQ(failure(24, version), "tmp[1] == CURRENT_VERSION");
    for (const std::uint32_t size : {0U, 0x40000001U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU, 2U})
        EXPECT_EQ(failure(28, size), kCorrupt) << size;
    for (const std::uint32_t count : {0U, 0x80000000U, 0xFFFFFFFFU})
        EXPECT_EQ(failure(32, count), kCorrupt) << count;
    for (const std::uint32_t last : {65U, 0x80000000U, 0xFFFFFFFFU})
        EXPECT_EQ(failure(36, last), kCorrupt) << last;
    EXPECT_EQ(failure(12, 19), "cnt == sizeof(tmp)");
    EXPECT_EQ(failure(28, 3), "nothing was thrown");
    EXPECT_EQ(failure(36, 64), "nothing was thrown");
    EXPECT_EQ(failure(28, 0x40000000), "nothing was thrown");
}

TEST_F(rfm_EncodedSegmentTest, AHeaderThatClaimsBytesWhichNoDatabaseCanNameIsRefused)
{
    Create();
    Write(0, "a");
    m_Table->Flush();
    m_Table.reset();
    m_File.Patch(28, rfm_IntBytes(1 << 30));
    m_File.Patch(32, rfm_IntBytes((1 << 23) + 1)); // 2^23 segments of 2^30 bytes, and the last
    m_File.Patch(36, rfm_IntBytes(0));
    EXPECT_EQ(Thrown<nex_Exception>([&] { Open(utl_FileAccessRead); }), "nothing was thrown");
    m_Table.reset();
    m_File.Patch(36, rfm_IntBytes(1));
    EXPECT_EQ(Thrown<nex_Exception>([&] { Open(utl_FileAccessRead); }), kCorrupt);
}

TEST_F(rfm_EncodedSegmentTest, AHeaderMayClaimMoreSegmentsThanMemoryHasRoomFor)
{
    Create();
    Write(0, std::string(kSegment, 'a'));
    m_Table->Flush();
    m_Table.reset();
    m_File.Patch(32, rfm_IntBytes(0x7FFFFFFF));
    Open(utl_FileAccessUpdate);
    EXPECT_EQ(m_Table->LogicalSize(), std::int64_t{0x7FFFFFFF} * kSegment);
    EXPECT_EQ(Read(0x7FFFFFFD), Zeros(kSegment));
    EXPECT_EQ(Read(0), std::string(kSegment, 'a'));
    EXPECT_EQ(m_Table->ObjectCount(), 2);
}

TEST_F(rfm_EncodedSegmentTest, SegmentsThatSayNothingAreForgotten)
{
    Create();
    Write(0, std::string(kSegment, 'a'));
    m_Table->GetSegment(100000);
    Reopen(utl_FileAccessRead);
    for (int index = 0; index < 50000; ++index) Read(index);
    EXPECT_LT(m_Table->ObjectCount(), 25000) << "16384 of them have their bytes in memory";
    EXPECT_EQ(Read(0), std::string(kSegment, 'a'));
}

TEST_F(rfm_EncodedSegmentTest, SegmentsThatWereOnlyExtendedAreForgotten)
{
    Create();
    Write(0, std::string(kSegment, 'a'));
    for (int index = 1; index < 20000; ++index) m_Table->GetSegment(index);
    EXPECT_LT(m_Table->ObjectCount(), 5000);
    EXPECT_EQ(m_Table->LogicalSize(), std::int64_t{19999} * kSegment);
    EXPECT_EQ(Read(10000), Zeros(kSegment));
    EXPECT_EQ(Read(0), std::string(kSegment, 'a'));
}

TEST_F(rfm_EncodedSegmentTest, WhatATruncationDroppedIsNotForgottenBeforeItIsWrittenOver)
{
    Create();
    for (int index = 0; index < 3; ++index) Write(index, std::string(kSegment, 'a'));
    m_Table->Flush();
    m_Table->Truncate(1);
    for (int index = 1; index < 20000; ++index) m_Table->GetSegment(index);
    EXPECT_EQ(Read(1), Zeros(kSegment));
    EXPECT_EQ(Read(2), Zeros(kSegment));
}

// --- arming

TEST_F(rfm_EncodedSegmentTest, OnlyTheFirstArmLoadsAndACachedSegmentIsNotLoadedAgain)
{
    Create();
    Write(0, "abc");
    Reopen();
    EXPECT_EQ(m_Counts.decoded, 0);
    rfm_EncodedSegment* segment = m_Table->GetSegment(0);
    segment->Arm();
    segment->Arm();
    segment->Disarm();
    EXPECT_TRUE(segment->IsArmed());
    segment->Disarm();
    EXPECT_FALSE(segment->IsArmed());
    EXPECT_TRUE(segment->IsLoaded());
    EXPECT_EQ(Read(0), "abc");
    EXPECT_EQ(m_Counts.decoded, 1);
}

TEST_F(rfm_EncodedSegmentTest, AnEvictedSegmentIsStoredIfDirtyAndLoadedAgain)
{
    Create(0x100000); // one buffer
    Write(0, "first");
    EXPECT_EQ(m_Counts.encoded, 0);
    Write(1, "second");
    EXPECT_EQ(m_Counts.encoded, 1);
    EXPECT_FALSE(m_Table->GetSegment(0)->IsLoaded());
    EXPECT_EQ(Read(0).substr(0, 6), std::string("first\0", 6));
    EXPECT_EQ(m_Counts.encoded, 2);
    EXPECT_EQ(Read(1), "second");
    Read(0);
    Read(1);
    EXPECT_EQ(m_Counts.encoded, 2) << "both are clean by now";
    EXPECT_GE(m_Counts.decoded, 3);
}

TEST_F(rfm_EncodedSegmentTest, ALoadThatFailsLeavesTheSegmentUnarmedAndItsBufferToOthers)
{
    Create(0x100000);
    Write(0, "BAD");
    Write(1, "good");
    Reopen();
    for (int attempt = 0; attempt < 2; ++attempt)
    {
        EXPECT_EQ(Thrown<nex_TextException>([&] { Read(0); }), kCorrupt);
        EXPECT_FALSE(m_Table->GetSegment(0)->IsArmed());
        EXPECT_FALSE(m_Table->GetSegment(0)->IsLoaded());
    }
    EXPECT_EQ(Read(1), "good");
    EXPECT_EQ(m_Table->Cache().Count(), 1) << "the buffer was handed on";
}

TEST_F(rfm_EncodedSegmentTest, WhatCouldNotBeLoadedIsNeverStored)
{
    Create(0x100000);
    Write(0, "BAD");
    Reopen();
    const std::string before = m_File.Bytes(4096, 4096);
    EXPECT_THROW(Read(0), nex_TextException);
    EXPECT_EQ(Thrown<nex_TextException>([&] { m_Table->GetSegment(0)->SetDecodedLength(5); }), kCorrupt);
    EXPECT_FALSE(m_Table->GetSegment(0)->IsDirty());
    EXPECT_EQ(m_Table->GetSegment(0)->DecodedLength(), 3);
    EXPECT_EQ(Thrown<nex_TextException>([&] { Write(1, "makes it a full one"); }), kCorrupt);
    EXPECT_EQ(m_Table->SegmentCount(), 1);
    m_Table->Flush();
    EXPECT_EQ(m_File.Bytes(4096, 4096), before);
}

TEST_F(rfm_EncodedSegmentTest, FaultsOfTheCallerHaveTheirTexts)
{
    Create();
    rfm_EncodedSegment* segment = m_Table->GetSegment(0);
    char bytes[kSegment + 1] = {};
    rfm_SegmentBuffer buffer(kSegment);
    EXPECT_EQ(Thrown<nex_AssertException>([&] { segment->Disarm(); }), "m_Armed > 0");
    EXPECT_EQ(Thrown<nex_AssertException>([&] { segment->Read(bytes, 0, 0); }), "m_Armed");
    EXPECT_EQ(Thrown<nex_AssertException>([&] { segment->Write(bytes, 0, 1); }), "m_Armed");
    EXPECT_EQ(Thrown<nex_AssertException>([&] { segment->BufferTaken(0, nullptr); }), "buffer");
    {
        rfm_ArmedSegment armed(segment);
        armed->Write("abc", 0, 3);
        EXPECT_EQ(Thrown<nex_AssertException>([&] { armed->Read(bytes, 1, 3); }),
                  "first + length <= m_DecodedLength");
        EXPECT_EQ(Thrown<nex_AssertException>([&] { armed->Write(bytes, 1, kSegment); }),
                  "firstOut + length <= m_Buffer->Size()");
        EXPECT_EQ(Thrown<nex_AssertException>([&] { armed->BufferTaken(0, &buffer); }), "!m_Armed");
    }
    segment->SetDecodedLength(kSegment + 1);
    EXPECT_EQ(Thrown<nex_AssertException>([&] { segment->Arm(); }), "m_DecodedLength <= m_Buffer->Size()");
    EXPECT_FALSE(segment->IsArmed());
    EXPECT_EQ(Thrown<nex_AssertException>([&] { m_Table->GetSegment(-1); }), "index >= 0");
    EXPECT_EQ(Thrown<nex_AssertException>([&] { m_Table->GetSegment(INT_MAX); }), "index < INT_MAX");
}

TEST_F(rfm_EncodedSegmentTest, AWriteOfNothingChangesNothing)
{
    Create();
    rfm_ArmedSegment segment(m_Table->GetSegment(0));
    segment->Write("x", 10, 0);
    EXPECT_FALSE(segment->IsDirty());
    EXPECT_EQ(segment->DecodedLength(), 0);
}

TEST_F(rfm_EncodedSegmentTest, AssigningAHandleArmsTheNewSegmentBeforeTheOldOneGoes)
{
    Create(0x100000);
    rfm_ArmedSegment current(m_Table->GetSegment(0));
    current = rfm_ArmedSegment(m_Table->GetSegment(1));
    EXPECT_EQ(m_Table->Cache().Count(), 2);
    EXPECT_FALSE(m_Table->GetSegment(0)->IsArmed());
    const rfm_ArmedSegment copy = current;
    current = {};
    EXPECT_TRUE(m_Table->GetSegment(1)->IsArmed());
}

// --- storing

TEST_F(rfm_EncodedSegmentTest, AStreamIsItsLengthPlusFourThenItsBytes)
{
    Create();
    Write(0, "abc");
    m_Table->Flush();
    EXPECT_EQ(rfm_Hex(m_File.Bytes(4096, 8)), "07 00 00 00 61 62 63 00");
    EXPECT_EQ(Words(40, 1), "01 00 00 00");
}

TEST_F(rfm_EncodedSegmentTest, ATailOfFourBytesOfAnyValueDoesNotMatter)
{
    {
        rfm_EncodedSegmentTable table(m_File.Name(), std::make_unique<rfm_CodecZip>(6), 65536);
        rfm_ArmedSegment segment(table.GetSegment(0));
        segment->Write("compressed", 0, 10);
        table.Flush();
    }
    const std::uint32_t length = rfm_LoadWord(m_File.Bytes(4096, 4).data());
    for (const char* tail : {"\x01\x02\x03\x04", "\xFF\xFF\xFF\xFF"})
    {
        m_File.Patch(4096 + length, tail);
        rfm_EncodedSegmentTable table(m_File.Name(), std::make_unique<rfm_CodecZip>(6), utl_FileAccessRead);
        const rfm_ArmedSegment segment(table.GetSegment(0));
        char bytes[10];
        segment->Read(bytes, 0, 10);
        EXPECT_EQ(std::string(bytes, 10), "compressed");
    }
}

TEST_F(rfm_EncodedSegmentTest, ARewrittenSegmentKeepsItsSectorsAndUsesThemFirst)
{
    Create(20000);
    Write(0, std::string(20000, 'a'));
    m_Table->GetSegment(1);
    m_Table->Flush();
    const int used = m_Table->UsedCount();
    m_Table->Truncate(1);
    m_Table->GetSegment(0)->SetDecodedLength(100);
    m_Table->Flush();
    EXPECT_EQ(Words(4096, 1), "68 00 00 00");
    Write(0, std::string(19000, 'b'), 0);
    m_Table->Flush();
    EXPECT_EQ(m_Table->UsedCount(), used);
    EXPECT_EQ(Read(0), std::string(19000, 'b'));
}

TEST_F(rfm_EncodedSegmentTest, AFlushWithoutNewsWritesHeaderAndDirectory)
{
    Create();
    Write(0, "abc");
    m_Table->Flush();
    const std::string before = m_File.Bytes();
    m_File.Patch(0, std::string(44, 'x'));
    m_Table->Flush();
    EXPECT_EQ(m_Counts.encoded, 1);
    EXPECT_TRUE(m_File.Bytes() == before);
}

TEST_F(rfm_EncodedSegmentTest, ALengthAloneDoesNotStoreASegmentThatWasNeverWritten)
{
    Create();
    m_Table->GetSegment(0)->SetDecodedLength(50);
    EXPECT_FALSE(m_Table->GetSegment(0)->IsDirty());
    m_Table->Flush();
    EXPECT_EQ(m_Counts.encoded, 0);
    EXPECT_EQ(m_Table->CellCount(), 0);
    EXPECT_EQ(Words(40, 1), "00 00 00 00");
    EXPECT_EQ(Read(0), Zeros(50));
}

TEST_F(rfm_EncodedSegmentTest, ANewLengthStoresASegmentAgainAlsoWhenItsBytesAreNotInMemory)
{
    Create();
    Write(0, "abcdef");
    Reopen();
    m_Table->GetSegment(0)->SetDecodedLength(3);
    EXPECT_TRUE(m_Table->GetSegment(0)->IsDirty());
    m_Table->Flush();
    EXPECT_EQ(rfm_Hex(m_File.Bytes(4096, 8)), "07 00 00 00 61 62 63 64") << "the old byte behind it stays";
    m_Table->GetSegment(0)->SetDecodedLength(3);
    EXPECT_FALSE(m_Table->GetSegment(0)->IsDirty()) << "the same length is no news";
}

TEST_F(rfm_EncodedSegmentTest, ASegmentBehindTheDirectorysCellsHasNoStream)
{
    Create();
    Write(0, std::string(kSegment, 'a'));
    m_Table->GetSegment(5);
    Reopen();
    EXPECT_EQ(m_Table->CellCount(), 1);
    EXPECT_EQ(m_Table->SegmentCount(), 6);
    EXPECT_EQ(Read(3), Zeros(kSegment));
    EXPECT_EQ(Read(5), "");
}

// --- growing and truncating

TEST_F(rfm_EncodedSegmentTest, FarBehindTheEndOnlyThatObjectIsMade)
{
    Create();
    m_Table->GetSegment(1000000);
    EXPECT_EQ(m_Table->ObjectCount(), 1);
    EXPECT_EQ(m_Table->SegmentCount(), 1000001);
    EXPECT_EQ(m_Table->LogicalSize(), std::int64_t{1000000} * kSegment);
}

TEST_F(rfm_EncodedSegmentTest, TheOldLastSegmentBecomesAFullOne)
{
    Create();
    Write(0, "abc");
    m_Table->GetSegment(1);
    EXPECT_EQ(Read(0), "abc" + Zeros(kSegment - 3));
    EXPECT_EQ(m_Table->LogicalSize(), kSegment);
}

TEST_F(rfm_EncodedSegmentTest, TheLastSegmentIsFilledWithZerosAlsoWhenItHadNoObject)
{
    Create();
    Write(0, "abc");
    Reopen();
    m_Table->GetSegment(2);
    EXPECT_TRUE(m_Table->GetSegment(0)->IsDirty());
    Reopen(utl_FileAccessRead);
    EXPECT_EQ(Read(0), "abc" + Zeros(kSegment - 3));
    EXPECT_EQ(Words(4096, 1), "44 00 00 00") << "stored in full";
}

TEST_F(rfm_EncodedSegmentTest, AStreamThatDecodesShortIsFollowedByZeros)
{
    Create();
    Write(0, "abc");
    m_Table->Flush();
    m_Table.reset();
    m_File.Patch(32, rfm_IntBytes(2)); // a full segment 0, whose stream was not stored again
    m_File.Patch(36, rfm_IntBytes(0));
    Open(utl_FileAccessRead);
    EXPECT_EQ(Read(0), "abc" + Zeros(kSegment - 3));
}

TEST_F(rfm_EncodedSegmentTest, AReaderThatGrewItsTableStoresNothing)
{
    Create(0x100000);
    Write(0, "abc");
    m_Table->Flush();
    m_Table.reset();
    const std::string before = m_File.Bytes();
    Open(utl_FileAccessRead);
    m_Table->GetSegment(1);
    Read(0);
    Read(1); // takes the buffer of segment 0
    EXPECT_EQ(m_Counts.encoded, 1);
    m_Table.reset();
    EXPECT_TRUE(m_File.Bytes() == before);
}

TEST_F(rfm_EncodedSegmentTest, TruncatingNeedsACountBelowThePresentOne)
{
    Create();
    m_Table->GetSegment(3);
    EXPECT_EQ(Thrown<nex_AssertException>([&] { m_Table->Truncate(4); }), "index < m_NumSegments");
    EXPECT_EQ(Thrown<nex_AssertException>([&] { m_Table->Truncate(-1); }), "index >= 0");
    m_Table->Truncate(3);
    EXPECT_EQ(m_Table->SegmentCount(), 3);
    EXPECT_EQ(m_Table->LogicalSize(), 3 * kSegment);
}

TEST_F(rfm_EncodedSegmentTest, ADroppedSegmentIsNeverAskedForItsBuffer)
{
    Create(0x100000);
    m_Table->GetSegment(2);
    Write(1, "dropped");
    m_Table->Truncate(1);
    EXPECT_EQ(m_Table->Cache().Count(), 0);
    Write(0, "kept");
    EXPECT_EQ(m_Counts.encoded, 0);
    m_Table->Flush();
    EXPECT_EQ(m_Counts.encoded, 1);
    EXPECT_FALSE(m_Table->HasChain(1));
}

TEST_F(rfm_EncodedSegmentTest, WhatATruncationDroppedDoesNotComeBack)
{
    Create();
    for (int index = 0; index < 4; ++index)
        Write(index, std::string(kSegment, static_cast<char>('a' + index)));
    m_Table->Flush();
    const int used = m_Table->UsedCount();
    m_Table->Truncate(1);
    Reopen();
    m_Table->GetSegment(3)->SetDecodedLength(10);
    EXPECT_EQ(Read(1), Zeros(kSegment));
    Reopen();
    EXPECT_EQ(Read(0), std::string(kSegment, 'a'));
    EXPECT_EQ(Read(1), Zeros(kSegment));
    EXPECT_EQ(Read(2), Zeros(kSegment));
    EXPECT_EQ(Read(3), Zeros(10));
    EXPECT_EQ(m_Table->UsedCount(), used) << "their sectors serve again";
}

TEST_F(rfm_EncodedSegmentTest, AShortenedSegmentHasZerosWhenItGrowsBack)
{
    for (const bool loaded : {true, false})
    {
        Create();
        Write(0, "abcdef");
        if (!loaded) Reopen();
        rfm_EncodedSegment* segment = m_Table->GetSegment(0);
        segment->SetDecodedLength(2);
        segment->SetDecodedLength(6);
        EXPECT_EQ(Read(0), "ab" + Zeros(4)) << loaded;
    }
}
