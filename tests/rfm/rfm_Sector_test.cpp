#include "rfm_SectorArray.h"

#include "Thrown.h"
#include "nex_Exception.h"
#include "rfm_TestFile.h"
#include "utl_FaultPlan.h"
#include "utl_FileException.h"

#include <algorithm>
#include <climits>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

using testing::ElementsAre;
using Transfer = utl_FaultPlan::Transfer;

namespace
{
constexpr const char* kCorrupt = "***ERROR: VDX database is corrupt.";
constexpr std::size_t kSector = 4096;

std::string Numbered(int count, int seed = 0)
{
    std::string bytes(static_cast<std::size_t>(count), '\0');
    for (int i = 0; i < count; ++i)
        bytes[static_cast<std::size_t>(i)] = static_cast<char>('a' + (i / 7 + i + seed) % 23);
    return bytes;
}

class rfm_SectorArrayTest : public testing::Test
{
protected:
    std::unique_ptr<rfm_SectorArray> Create(int userHeaderLength = 20) const
    {
        return std::make_unique<rfm_SectorArray>(m_File.Name(), userHeaderLength);
    }
    std::unique_ptr<rfm_SectorArray> Open(utl_FileAccess access = utl_FileAccessRead) const
    {
        return std::make_unique<rfm_SectorArray>(m_File.Name(), access);
    }
    static void Put(rfm_SectorArray& array, int cell, const std::string& bytes)
    {
        rfm_SectorWriter writer = array.GetWriter(cell);
        EXPECT_EQ(writer.Write(bytes.data(), static_cast<int>(bytes.size())), static_cast<int>(bytes.size()));
        writer.End();
    }
    static std::string Get(rfm_SectorArray& array, int cell)
    {
        rfm_SectorReader reader = array.GetReader(cell);
        std::string bytes(static_cast<std::size_t>(reader.Length() - 4), '?');
        bytes.resize(static_cast<std::size_t>(reader.Read(bytes.data(), reader.Length() - 4)));
        return bytes;
    }
    std::string Word(std::size_t offset) const { return rfm_Hex(m_File.Bytes(offset, 4)); }
    std::string Link(std::size_t sector) const { return Word(sector * kSector + 4092); }
    std::string OpenFailure() const
    {
        return Thrown<nex_Exception>([&] { Open(); });
    }
    void PatchWord(std::size_t offset, std::uint32_t value) const
    {
        m_File.Patch(offset, rfm_IntBytes(value));
    }
    /// A closed file whose cells 0 and 1 have streams over sectors 1 to 3 and 4.
    void PutTwoStreams() const
    {
        const auto array = Create();
        Put(*array, 0, Numbered(10000));
        Put(*array, 1, "short");
        array->Flush();
    }

    /// Writes `longer` over cell 0 with no room for it, and reads what the file, as it is then, holds.
    void ExpectShortageLeaves(rfm_SectorArray& array, const std::string& before,
                              const std::string& longer) const
    {
        array.Flush();
        const int used = array.UsedCount();
        utl_FaultPlan plan({.room = static_cast<std::int64_t>(m_File.Size())});
        EXPECT_THROW(Put(array, 0, longer), utl_FileException);
        EXPECT_TRUE(plan.Fired());
        EXPECT_EQ(array.UsedCount(), used);
        array.File().Flush();
        EXPECT_TRUE(Get(*Open(), 0) == before);
        plan.Repair();
        Put(array, 0, longer);
        array.Flush();
        EXPECT_TRUE(Get(*Open(), 0) == longer);
    }

    rfm_TestFile m_File{".sdx"};
};
} // namespace

// --- bytes

TEST_F(rfm_SectorArrayTest, TheHeadIsAsItsPicture)
{
    {
        const auto array = Create(20);
        array->WriteUserHeader("ABCDEFGHIJKLMNOPQRST", 20);
        Put(*array, 2, "xyz");
        array->Flush();
    }
    const std::string bytes = m_File.Bytes();
    ASSERT_EQ(bytes.size(), 2 * kSector);
    EXPECT_EQ(bytes.substr(0, 8), "MRKTSA00");
    EXPECT_EQ(rfm_Hex(bytes.substr(8, 12)), "01 00 00 00 14 00 00 00 03 00 00 00");
    EXPECT_EQ(bytes.substr(20, 20), "ABCDEFGHIJKLMNOPQRST");
    EXPECT_EQ(rfm_Hex(bytes.substr(40, 16)), "00 00 00 00 00 00 00 00 01 00 00 00 00 00 00 00");
    EXPECT_EQ(rfm_Hex(bytes.substr(4092, 16)), "ff ff ff ff 07 00 00 00 78 79 7a 00 00 00 00 00");
    EXPECT_EQ(Link(1), "ff ff ff ff");
    EXPECT_EQ(bytes.substr(kSector + 7, 4085), std::string(4085, '\0'));
}

TEST(rfm_SectorFormat, TheNumbersBehindTheMagicAreLittleEndian)
{
    char bytes[12];
    const rfm_SectorHead head{.version = 1, .userHeaderLength = 20, .cellCount = 0x12345678};
    rfm_EncodeSectorHead(head, bytes);
    EXPECT_EQ(rfm_Hex({bytes, 12}), "01 00 00 00 14 00 00 00 78 56 34 12");
    EXPECT_EQ(rfm_DecodeSectorHead(bytes), head);
}

TEST_F(rfm_SectorArrayTest, AStreamRunsOverItsChain)
{
    const std::string data = Numbered(10000);
    PutTwoStreams();
    const std::string bytes = m_File.Bytes();
    EXPECT_EQ(Word(kSector), "14 27 00 00"); // 10004
    EXPECT_EQ(bytes.substr(kSector + 4, 4088), data.substr(0, 4088));
    EXPECT_EQ(Link(1), "02 00 00 00");
    EXPECT_EQ(bytes.substr(2 * kSector, 4092), data.substr(4088, 4092));
    EXPECT_EQ(Link(2), "03 00 00 00");
    EXPECT_EQ(bytes.substr(3 * kSector, 1820), data.substr(8180));
    EXPECT_EQ(Link(3), "ff ff ff ff");
    EXPECT_EQ(rfm_Hex(bytes.substr(40, 8)), "01 00 00 00 04 00 00 00");
}

// --- sizes

TEST_F(rfm_SectorArrayTest, CreatedAndClosedAFileIsOneSector)
{
    Create();
    EXPECT_EQ(m_File.Size(), 4096U);
    EXPECT_EQ(m_File.Bytes(), std::string(4092, '\0') + "\xFF\xFF\xFF\xFF");
}

TEST_F(rfm_SectorArrayTest, WhileItIsOpenAFileGrowsByAMebibyte)
{
    const auto array = Create();
    EXPECT_EQ(m_File.Size(), 1048576U);
    EXPECT_EQ(array->UsedCount(), 1);
    EXPECT_EQ(array->Capacity(), 256);
    while (array->UsedCount() < 256) array->Allocate();
    EXPECT_EQ(m_File.Size(), 1048576U);
    EXPECT_EQ(array->Allocate().Number(), 256U);
    EXPECT_EQ(m_File.Size(), 2097152U);
}

TEST_F(rfm_SectorArrayTest, AStreamTakesAsManySectorsAsItsLengthNeeds)
{
    const int sizes[] = {0, 1, 4087, 4088, 4089, 8179, 8180, 8181, 65536, 72101};
    const auto array = Create();
    int cell = 0;
    for (const int size : sizes)
    {
        const int before = array->UsedCount();
        Put(*array, cell, Numbered(size));
        EXPECT_EQ(array->UsedCount() - before, std::max(1, (size + 4 + 4091) / 4092)) << size;
        EXPECT_EQ(Get(*array, cell), Numbered(size));
        ++cell;
    }
}

TEST_F(rfm_SectorArrayTest, AWriterThatEndsWithASectorHasNotTakenTheNext)
{
    const auto array = Create();
    rfm_SectorWriter writer = array->GetWriter(0);
    const std::string data = Numbered(4089);
    writer.Write(data.data(), 4088);
    EXPECT_EQ(array->UsedCount(), 2);
    EXPECT_EQ(writer.Length(), 4092);
    writer.Write(data.data() + 4088, 1);
    EXPECT_EQ(array->UsedCount(), 3);
    writer.End();
    EXPECT_EQ(Get(*array, 0), data);
}

TEST_F(rfm_SectorArrayTest, AReaderStopsAtTheEndOfTheChain)
{
    const auto array = Create();
    Put(*array, 0, Numbered(5000));
    rfm_SectorReader reader = array->GetReader(0);
    EXPECT_EQ(reader.Length(), 5004);
    std::string bytes(20000, '?');
    EXPECT_EQ(reader.Read(bytes.data(), 20000), 4088 + 4092)
        << "the rest of the last sector is delivered too";
    EXPECT_EQ(bytes.substr(0, 5000), Numbered(5000));
    EXPECT_EQ(reader.Read(bytes.data(), 1), 0);
}

TEST_F(rfm_SectorArrayTest, PiecesOfAnySizeMakeTheSameStream)
{
    const std::string data = Numbered(300000);
    for (const int piece : {1000, 4092, 5000, 131072, 300000})
    {
        const auto array = Create();
        {
            rfm_SectorWriter writer = array->GetWriter(0);
            for (int done = 0; done < 300000; done += piece)
                writer.Write(data.data() + done, std::min(piece, 300000 - done));
            writer.End();
        }
        std::string read(300000, '?');
        rfm_SectorReader reader = array->GetReader(0);
        for (int done = 0; done < 300000; done += piece)
            reader.Read(read.data() + done, std::min(piece, 300000 - done));
        EXPECT_TRUE(read == data) << piece;
    }
}

// --- writing over

TEST_F(rfm_SectorArrayTest, AShorterStreamKeepsItsChainAndALongerOneUsesItFirst)
{
    const auto array = Create();
    Put(*array, 0, Numbered(20000));
    Put(*array, 1, "between");
    const int used = array->UsedCount();
    Put(*array, 0, "tiny");
    EXPECT_EQ(Get(*array, 0), "tiny");
    array->Flush();
    EXPECT_EQ(Word(kSector), "08 00 00 00");
    EXPECT_EQ(Link(1), "02 00 00 00");
    EXPECT_EQ(m_File.Bytes(kSector + 8, 4084), Numbered(20000).substr(4, 4084)) << "old bytes stay";
    Put(*array, 0, Numbered(20000, 3));
    EXPECT_EQ(array->UsedCount(), used);
    Put(*array, 0, Numbered(25000, 5));
    EXPECT_EQ(array->UsedCount(), used + 2);
    EXPECT_EQ(Get(*array, 0), Numbered(25000, 5));
    EXPECT_EQ(Get(*array, 1), "between");
    array->Flush();
    EXPECT_EQ(Link(5), "07 00 00 00") << "the chain goes on behind the other stream";
}

TEST_F(rfm_SectorArrayTest, ALongChainInPiecesIsWrittenOverAndGrown)
{
    const auto array = Create();
    for (int round = 1; round <= 6; ++round)
        for (int cell = 0; cell < 3; ++cell) Put(*array, cell, Numbered(round * 40000, cell + round));
    for (int cell = 0; cell < 3; ++cell) EXPECT_TRUE(Get(*array, cell) == Numbered(240000, cell + 6)) << cell;
    EXPECT_EQ(array->UsedCount(), 1 + 3 * 59);
}

TEST_F(rfm_SectorArrayTest, ANewStreamIsOneWriteAndReadingItOne)
{
    const auto array = Create();
    array->Flush();
    {
        const utl_FaultPlan plan;
        Put(*array, 0, Numbered(65536));
        array->File().Flush();
        EXPECT_THAT(plan.WriteLog(), ElementsAre(Transfer{4096, 17 * 4096}));
    }
    Get(*array, 0); // learns how long streams are
    const utl_FaultPlan plan;
    EXPECT_EQ(Get(*array, 0), Numbered(65536));
    EXPECT_THAT(plan.ReadLog(), ElementsAre(Transfer{4096, 17 * 4096}));
}

TEST_F(rfm_SectorArrayTest, TheLengthComesLastWhenAStreamIsInPieces)
{
    const auto array = Create();
    Put(*array, 0, Numbered(4000));
    Put(*array, 1, "between");
    array->File().Flush();
    const utl_FaultPlan plan;
    Put(*array, 0, Numbered(9000));
    array->File().Flush();
    EXPECT_THAT(plan.WriteLog(), ElementsAre(Transfer{4096 + 4, 4092}, Transfer{3 * 4096, 2 * 4096},
                                             Transfer{4096 + 4092, 4}, Transfer{4096, 4}));
}

TEST_F(rfm_SectorArrayTest, AWriterThatFailsOrIsLeftLeavesTheFileAsItWas)
{
    const auto array = Create();
    Put(*array, 0, Numbered(4000));
    array->Flush();
    const int used = array->UsedCount();
    {
        rfm_SectorWriter writer = array->GetWriter(1);
        writer.Write(Numbered(500000).data(), 500000);
    }
    EXPECT_EQ(array->UsedCount(), used);
    EXPECT_FALSE(array->HasChain(1));
    Put(*array, 1, "now");
    EXPECT_EQ(Get(*array, 1), "now");
    EXPECT_EQ(Get(*array, 0), Numbered(4000));
}

TEST_F(rfm_SectorArrayTest, WithoutRoomTheFailureIsToldAndTheSameStreamFitsLater)
{
    const auto array = Create();
    Put(*array, 0, Numbered(4000));
    array->Flush();
    utl_FaultPlan plan({.room = 1048576});
    EXPECT_THROW(Put(*array, 1, Numbered(2000000)), utl_FileException);
    EXPECT_FALSE(array->HasChain(1));
    EXPECT_EQ(Get(*array, 0), Numbered(4000));
    plan.Repair();
    Put(*array, 1, Numbered(2000000));
    EXPECT_TRUE(Get(*array, 1) == Numbered(2000000));
}

// A chain of two runs that needs one sector more than there is room for.
TEST_F(rfm_SectorArrayTest, AChainInPiecesThatCannotGrowKeepsItsStream)
{
    const auto array = Create();
    Put(*array, 0, Numbered(4000));
    Put(*array, 1, Numbered(10000)); // sectors 2 to 4
    Put(*array, 0, Numbered(8000));  // sectors 1 and 5
    while (array->UsedCount() < array->Capacity()) array->Allocate();
    ExpectShortageLeaves(*array, Numbered(8000), Numbered(12000, 5));
}

// A chain of one run that needs two sectors, with room for one.
TEST_F(rfm_SectorArrayTest, AChainThatCanGrowOnlyInPartKeepsItsStream)
{
    const auto array = Create();
    Put(*array, 0, Numbered(4000));
    while (array->UsedCount() < array->Capacity() - 1) array->Allocate();
    ExpectShortageLeaves(*array, Numbered(4000), Numbered(12000, 5));
}

// --- sectors

TEST_F(rfm_SectorArrayTest, SectorsAreLinkedOneByOne)
{
    const auto array = Create();
    rfm_Sector first = array->Allocate();
    EXPECT_EQ(first.Number(), 1U);
    EXPECT_EQ(first.Capacity(), 4092);
    EXPECT_TRUE(first.Next().IsNull());
    rfm_Sector second = first.NextOrAllocate();
    EXPECT_EQ(second.Number(), 2U);
    EXPECT_EQ(first.Next().Number(), 2U);
    EXPECT_EQ(first.NextOrAllocate().Number(), 2U);
    first.SetNext(rfm_Sector());
    EXPECT_TRUE(first.Next().IsNull());
    EXPECT_EQ(second.Write("abc", 3, 10), 3);
    char bytes[3];
    EXPECT_EQ(second.Read(bytes, 3, 10), 3);
    EXPECT_EQ(std::string(bytes, 3), "abc");
    array->File().Flush();
    EXPECT_EQ(m_File.Bytes(2 * kSector + 10, 3), "abc");
}

TEST_F(rfm_SectorArrayTest, NothingIsDoneWithTheNullSector)
{
    const auto array = Create();
    rfm_Sector null;
    EXPECT_TRUE(null.IsNull());
    EXPECT_TRUE(null.Next().IsNull());
    EXPECT_EQ(Thrown<nex_AssertException>([&] { null.SetNext(array->At(0)); }), "!IsNull()");
    EXPECT_EQ(Thrown<nex_AssertException>([&] { null.NextOrAllocate(); }), "!IsNull()");
}

TEST_F(rfm_SectorArrayTest, ACellWithoutAChainHasNoReader)
{
    const auto array = Create();
    Put(*array, 3, "x");
    for (const int cell : {0, 2, 4, 5000})
    {
        EXPECT_FALSE(array->HasChain(cell));
        EXPECT_EQ(Thrown<nex_AssertException>([&] { array->GetReader(cell); }), "cell && *cell");
    }
    EXPECT_EQ(array->CellCount(), 4);
}

TEST_F(rfm_SectorArrayTest, APartialSectorAtTheEndIsNotInUse)
{
    PutTwoStreams();
    m_File.Patch(5 * kSector, "tail");
    {
        const auto array = Open(utl_FileAccessUpdate);
        EXPECT_EQ(array->UsedCount(), 5);
        Put(*array, 2, "new");
        array->Flush();
    }
    EXPECT_EQ(m_File.Size(), 6 * kSector);
    EXPECT_EQ(rfm_Hex(m_File.Bytes(5 * kSector, 8)), "07 00 00 00 6e 65 77 00");
    EXPECT_EQ(Get(*Open(), 2), "new");
}

TEST_F(rfm_SectorArrayTest, AFileThatWasNotClosedCountsAllItsSectorsAsUsed)
{
    const auto array = Create();
    Put(*array, 0, "abc");
    array->Flush();
    const auto reader = Open();
    EXPECT_EQ(reader->UsedCount(), 256);
    EXPECT_EQ(Get(*reader, 0), "abc");
}

TEST_F(rfm_SectorArrayTest, AReaderLeavesTheFileAlone)
{
    PutTwoStreams();
    m_File.Patch(5 * kSector, "tail");
    const std::string before = m_File.Bytes();
    Get(*Open(), 0);
    EXPECT_EQ(m_File.Bytes(), before);
}

// --- user header

TEST_F(rfm_SectorArrayTest, TheUserHeaderIsCappedAtItsLength)
{
    char bytes[10] = {};
    {
        const auto array = Create(6);
        EXPECT_EQ(array->WriteUserHeader("0123456789", 10), 6);
        EXPECT_EQ(array->ReadUserHeader(bytes, 10), 6);
        array->Flush();
    }
    EXPECT_EQ(m_File.Bytes(20, 6), "012345");
    EXPECT_EQ(Open()->ReadUserHeader(bytes, 4), 4);
    EXPECT_EQ(std::string(bytes, 4), "0123");
}

// --- the directory

TEST_F(rfm_SectorArrayTest, NoCellsTakeNoChain)
{
    Create()->Flush();
    EXPECT_EQ(m_File.Size(), 4096U);
    EXPECT_EQ(Word(16), "00 00 00 00");
    EXPECT_EQ(Link(0), "ff ff ff ff");
    EXPECT_EQ(Open()->CellCount(), 0);
}

TEST_F(rfm_SectorArrayTest, AThousandAndThirteenCellsFitTheFirstSector)
{
    const auto array = Create();
    Put(*array, 1012, "a");
    array->Flush();
    EXPECT_EQ(array->UsedCount(), 2);
    EXPECT_EQ(Link(0), "ff ff ff ff");
    EXPECT_EQ(Word(4088), "01 00 00 00");
    Put(*array, 1013, "b");
    EXPECT_EQ(array->UsedCount(), 3);
    array->Flush();
    EXPECT_EQ(array->UsedCount(), 4);
    EXPECT_EQ(Link(0), "03 00 00 00");
    EXPECT_EQ(Word(3 * kSector), "02 00 00 00");
    EXPECT_EQ(Link(3), "ff ff ff ff");
}

TEST_F(rfm_SectorArrayTest, EachLaterSectorHasAThousandAndTwentyThreeCells)
{
    {
        const auto array = Create();
        Put(*array, 1013 + 1022, "a");
        array->Flush();
        EXPECT_EQ(array->UsedCount(), 3);
        Put(*array, 1013 + 1023, "b");
        array->Flush();
        EXPECT_EQ(array->UsedCount(), 5);
        Put(*array, 1013 + 1023 + 1022, "c");
        array->Flush();
        EXPECT_EQ(array->UsedCount(), 6);
    }
    EXPECT_EQ(Link(0), "02 00 00 00");
    EXPECT_EQ(Link(2), "04 00 00 00");
    EXPECT_EQ(Link(4), "ff ff ff ff");
    EXPECT_EQ(Word(2 * kSector + 4088), "01 00 00 00");
    const auto array = Open();
    EXPECT_EQ(array->CellCount(), 1013 + 2 * 1023);
    EXPECT_EQ(Get(*array, 1013 + 1022), "a");
    EXPECT_EQ(Get(*array, 1013 + 1023), "b");
    EXPECT_EQ(Get(*array, 1013 + 1023 + 1022), "c");
    EXPECT_FALSE(array->HasChain(1013 + 1021));
}

TEST_F(rfm_SectorArrayTest, ADirectoryThatWasReadIsGrownInItsChain)
{
    {
        const auto array = Create();
        Put(*array, 1500, "a");
        array->Flush();
    }
    for (const int cell : {1600, 3000, 4200})
    {
        const auto array = Open(utl_FileAccessUpdate);
        Put(*array, cell, "x");
        array->Flush();
    }
    const auto array = Open();
    EXPECT_EQ(array->UsedCount(), 1 + 4 + 4) << "four streams, and four later sectors of cells";
    for (const int cell : {1500, 1600, 3000, 4200}) EXPECT_TRUE(array->HasChain(cell)) << cell;
}

TEST_F(rfm_SectorArrayTest, SectorsLinkedBehindTheDirectoryAreUsedBeforeNewOnes)
{
    {
        const auto array = Create();
        Put(*array, 0, "a");
        rfm_Sector spare = array->Allocate();
        array->At(0).SetNext(spare);
        array->Flush();
        Put(*array, 1013, "b");
        array->Flush();
        EXPECT_EQ(array->UsedCount(), 4);
    }
    EXPECT_EQ(Link(0), "02 00 00 00");
    EXPECT_EQ(Get(*Open(), 1013), "b");
}

TEST_F(rfm_SectorArrayTest, TheFirstSectorIsWrittenLast)
{
    const auto array = Create();
    Put(*array, 3000, "a");
    array->File().Flush();
    const utl_FaultPlan plan;
    array->Flush();
    EXPECT_THAT(plan.WriteLog(),
                ElementsAre(Transfer{3 * 4096, 4096}, Transfer{2 * 4096, 4096}, Transfer{0, 4096}));
}

TEST_F(rfm_SectorArrayTest, AFlushThatFailsAnywhereIsMadeGoodByTheNext)
{
    for (int failAt = 1;; ++failAt)
    {
        const auto array = Create();
        Put(*array, 0, "first");
        array->Flush();
        bool reported = false;
        bool fired = false;
        {
            utl_FaultPlan plan({.failWrite = failAt, .tornAtHalf = true});
            try
            {
                Put(*array, 0, Numbered(9000));
                Put(*array, 5000, "last");
                array->Flush();
            }
            catch (const utl_FileException&)
            {
                reported = true;
            }
            fired = plan.Fired();
        }
        EXPECT_EQ(reported, fired);
        if (reported)
        {
            Put(*array, 0, Numbered(9000));
            Put(*array, 5000, "last");
            array->Flush();
        }
        const auto reader = Open();
        EXPECT_EQ(Get(*reader, 0), Numbered(9000)) << failAt;
        EXPECT_EQ(Get(*reader, 5000), "last") << failAt;
        if (!fired) break;
        ASSERT_LT(failAt, 100);
    }
}

// --- what is no such file, and damage

TEST_F(rfm_SectorArrayTest, AFileThatIsNoneOfTheseFailsItsAssertions)
{
    PutTwoStreams();
    const std::string whole = m_File.Bytes();
    const auto opened = [&](const std::string& bytes)
    {
        m_File.Write(bytes);
        return Thrown<nex_AssertException>([&] { Open(); });
    };
    EXPECT_EQ(opened(""), "cnt == sizeof(magic)");
    EXPECT_EQ(opened("MRKTSA0"), "cnt == sizeof(magic)");
    EXPECT_EQ(opened("MRKTSA00"), "cnt == sizeof(tmp)");
    EXPECT_EQ(opened(whole.substr(0, 19)), "cnt == sizeof(tmp)");
    EXPECT_EQ(opened("MRKTSA01" + whole.substr(8)), "strncmp( magic, MAGIC, sizeof(magic) ) == 0");
    for (const std::uint32_t version : {0U, 2U, 0x01000000U, 0xFFFFFFFFU})
        EXPECT_EQ(opened("MRKTSA00" + rfm_IntBytes(version) + whole.substr(12)),
                  "tmp[HEADER_VERSION] == CURRENT_VERSION");
}

TEST_F(rfm_SectorArrayTest, AHeaderWithoutItsWholeSectorIsCorrupt)
{
    PutTwoStreams();
    const std::string whole = m_File.Bytes();
    for (const std::size_t length : {20U, 40U, 4095U})
    {
        m_File.Write(whole.substr(0, length));
        EXPECT_EQ(OpenFailure(), kCorrupt) << length;
    }
}

TEST_F(rfm_SectorArrayTest, NumbersThatTheFileCannotBeRightWithAreCorrupt)
{
    PutTwoStreams();
    for (const std::uint32_t length : {0x80000000U, 0xFFFFFFFFU, 4073U, 0x7FFFFFFFU})
    {
        PatchWord(12, length);
        EXPECT_EQ(OpenFailure(), kCorrupt) << length;
    }
    PatchWord(12, 20);
    const std::uint32_t most = 1013 + 4 * 1023;
    for (const std::uint32_t count : {most + 1, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU})
    {
        PatchWord(16, count);
        EXPECT_EQ(OpenFailure(), kCorrupt) << count;
    }
}

TEST_F(rfm_SectorArrayTest, ADirectoryWhoseChainEndsEarlyFailsItsAssertion)
{
    PutTwoStreams();
    for (const std::uint32_t count : {1014U, 1013U + 4 * 1023})
    {
        PatchWord(16, count);
        EXPECT_EQ(OpenFailure(), "remaining == 0");
    }
}

TEST_F(rfm_SectorArrayTest, ADirectoryThatLeadsOutOfTheFileOrBackIsCorrupt)
{
    {
        const auto array = Create();
        Put(*array, 3000, "a"); // the directory goes on in sectors 2 and 3
        array->Flush();
    }
    for (const std::uint32_t link : {0U, 4U, 0x7FFFFFFFU, 0xFFFFFFFEU})
    {
        PatchWord(4092, link);
        EXPECT_EQ(OpenFailure(), kCorrupt) << link;
    }
    PatchWord(4092, 2);
    PatchWord(2 * kSector + 4092, 2);
    EXPECT_EQ(OpenFailure(), kCorrupt);
}

TEST_F(rfm_SectorArrayTest, ACellThatLeadsOutOfTheFileIsCorruptForItsStreamAlone)
{
    PutTwoStreams();
    for (const std::uint32_t cell : {5U, 0x7FFFFFFFU, 0xFFFFFFFFU})
    {
        PatchWord(40, cell);
        const auto array = Open();
        EXPECT_EQ(Thrown<nex_TextException>([&] { Get(*array, 0); }), kCorrupt) << cell;
        EXPECT_EQ(Get(*array, 1), "short");
        EXPECT_EQ(Thrown<nex_TextException>([&] { Open(utl_FileAccessUpdate); }), kCorrupt) << cell;
    }
}

// Else the sectors that it takes would have the numbers that lead out of the file.
TEST_F(rfm_SectorArrayTest, AWriterRefusesAFileThatWasCutInFrontOfAStream)
{
    PutTwoStreams();
    std::filesystem::resize_file(m_File.Name(), 4 * kSector);
    EXPECT_EQ(Get(*Open(), 0), Numbered(10000));
    EXPECT_EQ(Thrown<nex_TextException>([&] { Open(utl_FileAccessUpdate); }), kCorrupt);
    EXPECT_EQ(m_File.Size(), 4 * kSector);
}

TEST_F(rfm_SectorArrayTest, AChainThatWasCutDoesNotGoOnInSectorsTakenSince)
{
    {
        const auto array = Create();
        Put(*array, 1, "short");
        Put(*array, 0, Numbered(10000)); // sectors 2 to 4
        array->Flush();
    }
    std::filesystem::resize_file(m_File.Name(), 3 * kSector);
    const auto array = Open(utl_FileAccessUpdate);
    Put(*array, 2, Numbered(9000, 3)); // takes sectors 3 to 5
    EXPECT_EQ(Thrown<nex_TextException>([&] { Get(*array, 0); }), kCorrupt);
    EXPECT_EQ(Thrown<nex_TextException>([&] { Put(*array, 0, Numbered(12000)); }), kCorrupt);
    EXPECT_EQ(Get(*array, 2), Numbered(9000, 3));
    Put(*array, 1, Numbered(9000, 5)); // an old chain that grows: these links are ours
    EXPECT_EQ(Get(*array, 1), Numbered(9000, 5));
    Put(*array, 1, Numbered(20000, 7));
    EXPECT_EQ(Get(*array, 1), Numbered(20000, 7));
}

TEST_F(rfm_SectorArrayTest, ADirectoryThatWasCutDoesNotGrowIntoSectorsTakenSince)
{
    {
        const auto array = Create();
        Put(*array, 0, "a");
        array->At(0).SetNext(array->Allocate()); // no cells are in it yet
        array->Flush();
    }
    std::filesystem::resize_file(m_File.Name(), 2 * kSector);
    const auto array = Open(utl_FileAccessUpdate);
    Put(*array, 1013, Numbered(9000)); // takes sector 2
    EXPECT_EQ(Thrown<nex_TextException>([&] { array->Flush(); }), kCorrupt);
    EXPECT_EQ(Get(*Open(), 0), "a");
}

TEST_F(rfm_SectorArrayTest, ALengthThatNoStreamHasIsCorrupt)
{
    PutTwoStreams();
    for (const std::uint32_t length : {0U, 3U, 4U * 4092 + 1, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU})
    {
        PatchWord(kSector, length);
        EXPECT_EQ(Thrown<nex_TextException>([&] { Get(*Open(), 0); }), kCorrupt) << length;
    }
    PatchWord(kSector, 4);
    EXPECT_EQ(Get(*Open(), 0), "");
}

TEST_F(rfm_SectorArrayTest, AReaderAskedForAsMuchAsANumberCanSayReadsRunsThatFit)
{
    constexpr std::uint32_t kFar = 400000;
    PutTwoStreams();
    std::filesystem::resize_file(m_File.Name(),
                                 kSector * 525001); // sparse; a stream could have INT_MAX bytes
    PatchWord(kSector + 4092, kFar);
    PatchWord(kFar * kSector + 4092, 0xFFFFFFFF);
    for (const int below : {0, 1, 2, 3})
    {
        PatchWord(kSector, static_cast<std::uint32_t>(INT_MAX - below));
        const auto array = Open();
        rfm_SectorReader reader = array->GetReader(0);
        ASSERT_EQ(reader.Length(), INT_MAX - below);
        std::string bytes(3 * kSector, '?'); // the chain ends before these are used up
        EXPECT_EQ(reader.Read(bytes.data(), reader.Length()), 4088 + 4092);
        EXPECT_TRUE(bytes.substr(0, 4088 + 4092) == Numbered(4088) + std::string(4092, '\0'));
    }
}

TEST_F(rfm_SectorArrayTest, ALinkThatLeadsOutOfTheFileOrBackIsCorruptToReaderAndWriter)
{
    PutTwoStreams();
    for (const std::uint32_t link : {0U, 1U, 2U, 5U, 0x80000000U, 0xFFFFFFFEU})
    {
        PatchWord(2 * kSector + 4092, link);
        const std::string before = m_File.Bytes();
        const auto array = Open(utl_FileAccessUpdate);
        EXPECT_EQ(Thrown<nex_TextException>([&] { Get(*array, 0); }), kCorrupt) << link;
        EXPECT_EQ(Thrown<nex_TextException>([&] { Put(*array, 0, Numbered(20000)); }), kCorrupt) << link;
        EXPECT_EQ(Get(*array, 1), "short");
        EXPECT_EQ(m_File.Bytes(), before) << "nothing was written over";
    }
}

TEST(rfm_SectorTrail, AnySectorMayComeOnce)
{
    rfm_SectorTrail trail;
    for (const unsigned sector : {5U, 6U, 9U, 3U, 4U, 20U, 1U})
        EXPECT_NO_THROW(trail.Enter(sector)) << sector;
    for (const unsigned sector : {5U, 6U, 9U, 3U, 4U, 20U, 1U})
        EXPECT_EQ(Thrown<nex_TextException>([&] { trail.Enter(sector); }), kCorrupt) << sector;
}

TEST_F(rfm_SectorArrayTest, AWholeFileInOneDescendingChainIsReadInStepsThatFit)
{
    constexpr int kSectors = 3000;
    {
        const auto array = Create();
        Put(*array, 0, Numbered(kSectors * 4092 - 4));
        array->Flush();
        // The same sectors from the last to the first; sector 1 stays in front with the length.
        for (unsigned n = kSectors; n > 2; --n) array->At(n).SetNext(array->At(n - 1));
        array->At(2).SetNext(rfm_Sector());
        array->At(1).SetNext(array->At(kSectors));
    }
    const auto array = Open();
    const utl_FaultPlan plan;
    const std::string data = Numbered(kSectors * 4092 - 4);
    EXPECT_TRUE(Get(*array, 0).substr(4088, 4092) == data.substr(data.size() - 4092));
    std::int64_t moved = 0;
    for (const Transfer& transfer : plan.ReadLog()) moved += transfer.bytes;
    EXPECT_LT(moved, 3 * kSectors * 4096) << "sectors that were read in vain";
}
