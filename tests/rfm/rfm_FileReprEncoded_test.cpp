#include "rfm_FileReprEncoded.h"

#include "Forked.h"
#include "RandomSeed.h"
#include "Thrown.h"
#include "rfm.h"
#include "rfm_CodecZip.h"
#include "rfm_FileException.h"
#include "rfm_TestFile.h"
#include "utl_FaultPlan.h"
#include "utl_FileException.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>
#include <zlib.h>

namespace
{
constexpr int kSegment = 65536;
constexpr const char* kCorrupt = "***ERROR: VDX database is corrupt.";

std::string Noise(int count, unsigned seed = 3)
{
    std::mt19937 random(seed);
    std::string bytes(static_cast<std::size_t>(count), '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    return bytes;
}
std::string Zeros(std::size_t count) { return std::string(count, '\0'); }

class rfm_FileReprEncodedTest : public testing::Test
{
protected:
    void Create(int segmentSize = kSegment)
    {
        m_Repr.reset();
        m_Repr = std::make_unique<rfm_FileReprEncoded>(m_File.Name(), std::make_unique<rfm_CodecZip>(6),
                                                       segmentSize);
    }
    void Open(utl_FileAccess access = utl_FileAccessRead)
    {
        m_Repr.reset();
        m_Repr =
            std::make_unique<rfm_FileReprEncoded>(m_File.Name(), access, std::make_unique<rfm_CodecZip>(6));
    }
    void Write(std::int64_t place, const std::string& bytes)
    {
        m_Repr->Seek(place);
        ASSERT_EQ(m_Repr->Write(bytes.data(), static_cast<int>(bytes.size())),
                  static_cast<int>(bytes.size()));
    }
    std::string Read(std::int64_t place, int count)
    {
        m_Repr->Seek(place);
        return ReadOn(count);
    }
    std::string ReadOn(int count)
    {
        std::string bytes(static_cast<std::size_t>(count), '?');
        bytes.resize(static_cast<std::size_t>(m_Repr->Read(bytes.data(), count)));
        return bytes;
    }
    /// A closed file of one full segment and nothing behind it, as another writer may leave it.
    void PutOneFullSegment()
    {
        Create();
        Write(0, std::string(kSegment, 'x'));
        m_Repr.reset();
        m_File.Patch(32, rfm_IntBytes(1));
        m_File.Patch(36, rfm_IntBytes(kSegment));
    }
    /// What the closed file says: cells, segments, last length.
    std::string Says() const { return rfm_Hex(m_File.Bytes(16, 4)) + " | " + rfm_Hex(m_File.Bytes(32, 8)); }
    std::string ReadOnlyText() const
    {
        return std::string("*** ERROR: Attempt to write to read-only file:\n  ") + m_File.Name();
    }

    /// By how many MiB the memory of a process rises that opens the file; kRefused more when that is corrupt.
    static constexpr int kRefused = 100;
    int CostOfOpening() const
    {
        return ExitCodeOfForked(
            [&]
            {
                const int before = MostMemory();
                int result = 0;
                try
                {
                    rfm_FileReprEncoded(m_File.Name(), utl_FileAccessRead, std::make_unique<rfm_CodecZip>(6));
                }
                catch (const nex_TextException&)
                {
                    result = kRefused;
                }
                return result + (MostMemory() - before) / 1024;
            });
    }
    /// What this process had in memory at most, in KiB.
    static int MostMemory()
    {
        std::ifstream status("/proc/self/status");
        for (std::string word; status >> word;)
            if (word == "VmHWM:" && status >> word) return std::stoi(word);
        throw std::runtime_error("no VmHWM");
    }

    rfm_TestFile m_File{".sdx"};
    std::unique_ptr<rfm_FileReprEncoded> m_Repr;
};
} // namespace

// --- worked sizes

TEST_F(rfm_FileReprEncodedTest, ANewFileClosedAtOnceIsOneSector)
{
    Create();
    EXPECT_EQ(m_Repr->Length(), 0);
    EXPECT_EQ(m_File.Size(), 1048576U);
    EXPECT_EQ(m_File.Bytes(0, 4092), Zeros(4092)) << "nothing describes it before the first flush";
    m_Repr.reset();
    EXPECT_EQ(m_File.Size(), 4096U);
    EXPECT_EQ(Says(), "00 00 00 00 | 01 00 00 00 00 00 00 00");
    EXPECT_EQ(
        rfm_Hex(m_File.Bytes(0, 44)),
        "4d 52 4b 54 53 41 30 30 01 00 00 00 14 00 00 00 00 00 00 00 a5 c1 41 61 01 00 00 00 00 00 01 00 "
        "01 00 00 00 00 00 00 00 00 00 00 00");
    Open();
    EXPECT_EQ(m_Repr->Length(), 0);
    EXPECT_EQ(ReadOn(10), "");
}

TEST_F(rfm_FileReprEncodedTest, AHundredBytesTakeTwoSectors)
{
    Create();
    Write(0, std::string(100, 'x'));
    m_Repr.reset();
    EXPECT_EQ(m_File.Size(), 8192U);
    EXPECT_EQ(Says(), "01 00 00 00 | 01 00 00 00 64 00 00 00");
    EXPECT_EQ(rfm_Hex(m_File.Bytes(40, 8)), "01 00 00 00 00 00 00 00");
    // Any zlib reads it.
    const std::string sector = m_File.Bytes(4096, 4096);
    std::string inflated(100, '?');
    unsigned long length = 100;
    ASSERT_EQ(::uncompress(reinterpret_cast<Bytef*>(inflated.data()), &length,
                           reinterpret_cast<const Bytef*>(sector.data()) + 4,
                           rfm_LoadWord(sector.data()) - 4),
              Z_OK);
    EXPECT_EQ(inflated, std::string(100, 'x'));
}

TEST_F(rfm_FileReprEncodedTest, AWriteThatEndsOnASegmentBoundaryHasAlreadyMadeTheNextSegment)
{
    Create();
    Write(0, std::string(kSegment, 'x'));
    EXPECT_EQ(m_Repr->Length(), kSegment);
    m_Repr.reset();
    EXPECT_EQ(Says(), "01 00 00 00 | 02 00 00 00 00 00 00 00");
    Open();
    EXPECT_EQ(m_Repr->Length(), kSegment);
    EXPECT_EQ(m_Repr->PhysicalLength(), kSegment);
}

TEST_F(rfm_FileReprEncodedTest, ASegmentOfNoiseTakesSeventeenSectors)
{
    Create();
    Write(0, Noise(kSegment));
    m_Repr.reset();
    const int encoded = static_cast<int>(rfm_LoadWord(m_File.Bytes(4096, 4).data())) - 4;
    EXPECT_GT(encoded, kSegment);
    EXPECT_EQ(m_File.Size(), 4096U * (1 + (static_cast<unsigned>(encoded) + 4 + 4091) / 4092));
    EXPECT_EQ(m_File.Size(), 4096U * 18);
}

TEST_F(rfm_FileReprEncodedTest, TheFileOfACreatedDatabaseIsCompressedWithSegmentsOf64KiB)
{
    rfm_File::CreateCompressed(m_File.Name());
    EXPECT_EQ(rfm_Hex(m_File.Bytes(28, 4)), "00 00 01 00");
}

// --- reading and writing

TEST_F(rfm_FileReprEncodedTest, BytesComeBackAcrossSegmentsAndReopening)
{
    const std::string data = Noise(5 * kSegment + 123);
    Create();
    Write(0, data);
    EXPECT_TRUE(Read(0, 5 * kSegment + 200) == data);
    EXPECT_EQ(Read(kSegment - 3, 6), data.substr(kSegment - 3, 6));
    Open(utl_FileAccessUpdate);
    EXPECT_TRUE(Read(0, 5 * kSegment + 200) == data);
    Write(2 * kSegment - 5, "0123456789");
    Open();
    EXPECT_EQ(Read(2 * kSegment - 6, 12).substr(1, 10), "0123456789");
    EXPECT_TRUE(Read(3 * kSegment, 2 * kSegment + 123) == data.substr(3 * kSegment));
}

TEST_F(rfm_FileReprEncodedTest, AReadAtTheEndIsShortAndMovesByWhatCame)
{
    Create();
    Write(0, "abcdef");
    EXPECT_EQ(Read(4, 10), "ef");
    EXPECT_EQ(m_Repr->Location(), 6);
    EXPECT_EQ(ReadOn(10), "");
    EXPECT_EQ(m_Repr->Location(), 6);
}

TEST_F(rfm_FileReprEncodedTest, AReadToTheEndOfAFullLastSegmentMovesOnToANewEmptyOne)
{
    PutOneFullSegment();
    Open(utl_FileAccessUpdate);
    EXPECT_EQ(Read(kSegment - 10, 10), "xxxxxxxxxx");
    EXPECT_EQ(m_Repr->Location(), kSegment);
    EXPECT_EQ(m_Repr->Length(), kSegment);
    m_Repr.reset();
    EXPECT_EQ(Says(), "01 00 00 00 | 02 00 00 00 00 00 00 00");
    Open();
    EXPECT_EQ(Read(kSegment, 10), "");
}

TEST_F(rfm_FileReprEncodedTest, ASeekToTheEndOfFullSegmentsGrowsTheTableAndNotTheLength)
{
    PutOneFullSegment();
    Open(utl_FileAccessUpdate);
    m_Repr->Seek(kSegment);
    EXPECT_EQ(m_Repr->Length(), kSegment);
    m_Repr.reset();
    EXPECT_EQ(Says(), "01 00 00 00 | 02 00 00 00 00 00 00 00");
}

TEST_F(rfm_FileReprEncodedTest, AReaderGrowsNothingInTheFile)
{
    PutOneFullSegment();
    const std::string before = m_File.Bytes();
    Open();
    EXPECT_EQ(Read(kSegment - 1, 1), "x");
    EXPECT_EQ(ReadOn(1), "");
    EXPECT_EQ(m_Repr->Location(), kSegment);
    m_Repr->Seek(kSegment);
    EXPECT_EQ(m_Repr->Length(), kSegment);
    testing::internal::CaptureStderr();
    m_Repr.reset();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "nor did it try to";
    EXPECT_TRUE(m_File.Bytes() == before);
}

TEST_F(rfm_FileReprEncodedTest, BehindTheEndThereIsNoSeek)
{
    Create();
    Write(0, "abc");
    EXPECT_EQ(Thrown<nex_AssertException>([&] { m_Repr->Seek(4); }), "location <= m_LogicalFileSize");
    EXPECT_THROW(m_Repr->Seek(-1), utl_FileException);
    EXPECT_EQ(m_Repr->Location(), 3);
    m_Repr->Seek(3);
}

TEST_F(rfm_FileReprEncodedTest, BadParametersNameTheOperation)
{
    Create();
    char byte = 'x';
    const std::string read = "*** ERROR: Bad parameter passed to file method: rfm_FileReprEncoded::Read.";
    const std::string write = "*** ERROR: Bad parameter passed to file method: rfm_FileReprEncoded::Write.";
    EXPECT_EQ(Thrown<rfm_FileBadParameterExc>([&] { m_Repr->Read(nullptr, 1); }), read);
    EXPECT_EQ(Thrown<rfm_FileBadParameterExc>([&] { m_Repr->Read(&byte, -1); }), read);
    EXPECT_EQ(Thrown<rfm_FileBadParameterExc>([&] { m_Repr->Write(nullptr, 0); }), write);
    EXPECT_EQ(Thrown<rfm_FileBadParameterExc>([&] { m_Repr->Write(&byte, -1); }), write);
    EXPECT_EQ(m_Repr->Write(&byte, 0), 0);
}

TEST_F(rfm_FileReprEncodedTest, EveryChangeOfAFileOpenedForReadingIsRefused)
{
    Create();
    Write(0, "abc");
    Open();
    EXPECT_TRUE(m_Repr->ReadOnly());
    EXPECT_EQ(Thrown<rfm_FileReadOnlyExc>([&] { m_Repr->Write("x", 1); }), ReadOnlyText());
    EXPECT_EQ(Thrown<rfm_FileReadOnlyExc>([&] { m_Repr->Write(nullptr, -1); }), ReadOnlyText());
    EXPECT_EQ(Thrown<rfm_FileReadOnlyExc>([&] { m_Repr->Extend(1); }), ReadOnlyText());
    EXPECT_EQ(Thrown<rfm_FileReadOnlyExc>([&] { m_Repr->ExtendBy(-1); }), ReadOnlyText());
    EXPECT_EQ(Thrown<rfm_FileReadOnlyExc>([&] { m_Repr->Flush(); }), ReadOnlyText());
    EXPECT_EQ(Thrown<rfm_FileReadOnlyExc>([&] { m_Repr->TrimToLength(); }), ReadOnlyText());
}

TEST_F(rfm_FileReprEncodedTest, TheStatusIsUnchangedForEver)
{
    Create();
    Write(0, Zeros(1024));
    m_Repr->Flush();
    rfm_FileReprEncoded reader(m_File.Name(), utl_FileAccessRead, std::make_unique<rfm_CodecZip>(6));
    Write(512, "\x09");
    m_Repr->Flush();
    EXPECT_EQ(reader.CheckStatus(), rfm_FileStatus::RfmFileUnchanged);
    EXPECT_EQ(m_Repr->CheckStatus(), rfm_FileStatus::RfmFileUnchanged);
    reader.Seek(512);
    char byte = 0;
    reader.Read(&byte, 1);
    EXPECT_EQ(byte, 0) << "the first segment stays as it was at open";
    EXPECT_EQ(m_Repr->CheckCache().Length(), 0);
}

TEST_F(rfm_FileReprEncodedTest, ACreatedFileLeavesTheOldOneToItsReaders)
{
    Create();
    Write(0, "old");
    m_Repr->Flush();
    rfm_FileReprEncoded reader(m_File.Name(), utl_FileAccessRead, std::make_unique<rfm_CodecZip>(6));
    Create();
    EXPECT_EQ(m_Repr->Length(), 0);
    char bytes[3];
    EXPECT_EQ(reader.Read(bytes, 3), 3);
    EXPECT_EQ(std::string(bytes, 3), "old");
}

// --- extending

TEST_F(rfm_FileReprEncodedTest, WhatWasOnlyExtendedReadsAsZeroAndTakesNoRoom)
{
    Create();
    Write(0, "abc");
    EXPECT_FALSE(m_Repr->ExtendBy(10 * kSegment));
    EXPECT_EQ(m_Repr->Length(), 10 * kSegment + 3);
    EXPECT_EQ(m_Repr->PhysicalLength(), 10 * kSegment + 3);
    EXPECT_EQ(m_Repr->Location(), 3) << "the position stays";
    EXPECT_TRUE(Read(0, 10 * kSegment + 10) == "abc" + Zeros(10 * kSegment));
    m_Repr.reset();
    EXPECT_EQ(m_File.Size(), 8192U);
    EXPECT_EQ(Says(), "01 00 00 00 | 0b 00 00 00 03 00 00 00");
    Open();
    EXPECT_TRUE(Read(0, 10 * kSegment + 10) == "abc" + Zeros(10 * kSegment));
}

TEST_F(rfm_FileReprEncodedTest, EveryBufferStartsAsZerosWhateverItHeldBefore)
{
    Create();
    for (int i = 0; i < 20; ++i) Write(i * kSegment, std::string(kSegment, 'x'));
    m_Repr->ExtendBy(20 * kSegment);
    for (int i = 20; i < 40; ++i) EXPECT_TRUE(Read(i * kSegment, kSegment) == Zeros(kSegment)) << i;
}

TEST_F(rfm_FileReprEncodedTest, TheSameWritesMakeTheSameFile)
{
    std::string bytes[2];
    for (std::string& one : bytes)
    {
        Create();
        for (int i = 0; i < 40; ++i) Write(i * 50000, Noise(50000, static_cast<unsigned>(i)));
        m_Repr->ExtendBy(100000);
        Write(1000, "change");
        m_Repr.reset();
        one = m_File.Bytes();
    }
    EXPECT_TRUE(bytes[0] == bytes[1]);
}

TEST_F(rfm_FileReprEncodedTest, ANegativeDeltaCountsFromThePosition)
{
    Create();
    Write(0, std::string(3 * kSegment + 50, 'x'));
    m_Repr->Seek(2 * kSegment);
    EXPECT_FALSE(m_Repr->ExtendBy(-100));
    EXPECT_EQ(m_Repr->Length(), 2 * kSegment - 100);
    EXPECT_EQ(m_Repr->PhysicalLength(), 2 * kSegment - 100);
    EXPECT_EQ(m_Repr->Location(), 2 * kSegment - 100);
    m_Repr->ExtendBy(200);
    EXPECT_EQ(Read(2 * kSegment - 102, 102), "xx" + Zeros(100)) << "what was cut off does not come back";
    EXPECT_TRUE(Read(0, 3 * kSegment) == std::string(2 * kSegment - 100, 'x') + Zeros(200));
    Open();
    EXPECT_EQ(m_Repr->Length(), 2 * kSegment + 100);
    EXPECT_TRUE(Read(0, 3 * kSegment) == std::string(2 * kSegment - 100, 'x') + Zeros(200));
}

TEST_F(rfm_FileReprEncodedTest, AnEndInTheLastSegmentIsRefused)
{
    Create();
    Write(0, std::string(kSegment + 50, 'x'));
    EXPECT_EQ(Thrown<nex_AssertException>([&] { m_Repr->ExtendBy(-10); }), "index < m_NumSegments");
    EXPECT_EQ(m_Repr->Length(), kSegment + 50);
    EXPECT_THROW(m_Repr->ExtendBy(-kSegment - 51), utl_FileException);
    EXPECT_EQ(m_Repr->Length(), kSegment + 50);
}

TEST_F(rfm_FileReprEncodedTest, ALengthBeyondAllNumbersIsRefused)
{
    Create();
    Write(0, "abc");
    const char* outOfRange = "***ERROR: A file position or length is out of range.";
    EXPECT_EQ(Thrown<nex_TextException>([&] { m_Repr->ExtendBy(INT64_MAX); }), outOfRange);
    EXPECT_EQ(Thrown<nex_TextException>([&] { m_Repr->ExtendBy(std::int64_t{1} << 50); }), outOfRange);
    EXPECT_EQ(m_Repr->Length(), 3);
    m_Repr->ExtendBy((std::int64_t{1} << 46));
    EXPECT_EQ(Read(std::int64_t{1} << 46, 10), Zeros(3));
}

// --- faults

TEST_F(rfm_FileReprEncodedTest, AFailureAnywhereIsReportedAndNothingIsLostWhenItPasses)
{
    const std::string data = Noise(24 * kSegment + 100);
    for (int failAt = 1;; ++failAt)
    {
        SCOPED_TRACE(failAt);
        Create();
        bool fired = false;
        int reported = 0;
        {
            utl_FaultPlan plan({.failWrite = failAt, .failExtend = failAt, .tornAtHalf = true});
            std::size_t done = 0;
            while (done < data.size())
            {
                const std::size_t piece = std::min<std::size_t>(50000, data.size() - done);
                try
                {
                    m_Repr->Seek(static_cast<std::int64_t>(done));
                    m_Repr->Write(data.data() + done, static_cast<int>(piece));
                    done += piece;
                }
                catch (const utl_FileException&)
                {
                    ASSERT_LT(++reported, 10);
                }
            }
            for (bool flushed = false; !flushed;) try
                {
                    m_Repr->Flush();
                    flushed = true;
                }
                catch (const utl_FileException&)
                {
                    ASSERT_LT(++reported, 10);
                }
            fired = plan.Fired();
        }
        EXPECT_EQ(reported > 0, fired);
        Open();
        EXPECT_EQ(m_Repr->Length(), static_cast<std::int64_t>(data.size()));
        EXPECT_TRUE(ReadOn(static_cast<int>(data.size())) == data);
        if (!fired) break;
        ASSERT_LT(failAt, 1000);
    }
}

// Segment 0 leads to the others: whatever call of a flush is the last, it's touched only when they are new.
TEST_F(rfm_FileReprEncodedTest, SegmentZeroTakesItsSectorsInItsTurnAndIsWrittenLast)
{
    const std::string first = Noise(9000, 1);
    const std::string second = Noise(9000, 2);
    bool secondWasNewBeforeFirst = false;
    for (int failAt = 1;; ++failAt)
    {
        SCOPED_TRACE(failAt);
        ASSERT_LT(failAt, 100);
        Create();
        Write(0, std::string(2 * kSegment, 'x'));
        m_Repr->Flush();
        Write(0, first);
        Write(kSegment, second);
        bool fired = false;
        {
            const utl_FaultPlan plan({.failWrite = failAt, .staysBroken = true});
            const std::string text = Thrown<utl_FileException>([&] { m_Repr->Flush(); });
            fired = plan.Fired();
            EXPECT_EQ(text != "nothing was thrown", fired);
        }
        const auto inFile = [&](std::int64_t place)
        {
            try
            {
                rfm_FileReprEncoded reader(m_File.Name(), utl_FileAccessRead,
                                           std::make_unique<rfm_CodecZip>(6));
                std::string bytes(9000, '?');
                reader.Seek(place);
                reader.Read(bytes.data(), 9000);
                return bytes;
            }
            catch (const nex_TextException&)
            {
                return std::string("torn");
            }
        };
        const bool firstIsOld = inFile(0) == std::string(9000, 'x');
        EXPECT_TRUE(inFile(0) != first || inFile(kSegment) == second);
        secondWasNewBeforeFirst |= firstIsOld && inFile(kSegment) == second;
        if (!fired) break;
    }
    EXPECT_TRUE(secondWasNewBeforeFirst);
    const auto link = [&](int sector)
    { return m_File.Bytes(static_cast<std::size_t>(sector) * 4096 + 4092, 4); };
    EXPECT_EQ(link(1), rfm_IntBytes(3)) << "as if it had been written first";
    EXPECT_EQ(link(3), rfm_IntBytes(4));
    EXPECT_EQ(link(2), rfm_IntBytes(5));
}

TEST_F(rfm_FileReprEncodedTest, AFullDiskIsReportedAndWithRoomAgainTheFlushIsWhole)
{
    const std::string data = Noise(40 * kSegment);
    Create();
    Write(0, std::string(10, 'x'));
    m_Repr->Flush();
    {
        utl_FaultPlan plan({.room = 1048576});
        EXPECT_THROW(
            {
                m_Repr->Seek(0);
                m_Repr->Write(data.data(), static_cast<int>(data.size()));
            },
            utl_FileException);
        EXPECT_THROW(m_Repr->Flush(), utl_FileException);
        const auto place = static_cast<std::size_t>(m_Repr->Location().Value());
        EXPECT_LE(place, data.size());
        EXPECT_TRUE(Read(0, kSegment) == data.substr(0, kSegment)) << "what is in memory can be read";
        plan.Repair();
        Write(static_cast<std::int64_t>(place), data.substr(place));
        m_Repr->Flush();
    }
    Open();
    EXPECT_TRUE(ReadOn(static_cast<int>(data.size())) == data);
}

TEST_F(rfm_FileReprEncodedTest, ADestructorThatCannotFlushSaysSoInOneLineAndThrowsNothing)
{
    Create();
    Write(0, Noise(kSegment));
    const utl_FaultPlan plan({.failWrite = 1, .staysBroken = true});
    testing::internal::CaptureStderr();
    m_Repr.reset();
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(said.find("*** ERROR: Can't write file:"), 0U) << said;
    EXPECT_LE(std::count(said.begin(), said.end(), '\n'), 2) << said;
}

TEST_F(rfm_FileReprEncodedTest, AFailedReadLeavesThePositionAndCanBeRepeated)
{
    const std::string data = Noise(6 * kSegment);
    Create();
    Write(0, data);
    for (int failAt = 1;; ++failAt)
    {
        Open();
        const utl_FaultPlan plan({.failRead = failAt}); // of the reads behind the opening
        std::string read;
        while (read.size() < data.size())
        {
            try
            {
                const std::string piece = ReadOn(3 * kSegment / 2);
                ASSERT_FALSE(piece.empty());
                read += piece;
            }
            catch (const utl_FileException&)
            {
                ASSERT_TRUE(plan.Fired());
                EXPECT_EQ(m_Repr->Location(), static_cast<std::int64_t>(read.size()));
            }
        }
        EXPECT_TRUE(read == data);
        if (!plan.Fired()) break;
        ASSERT_LT(failAt, 1000);
    }
}

// --- damage

TEST_F(rfm_FileReprEncodedTest, DamageInOneSegmentHurtsThatOneAlone)
{
    const std::string data = Noise(4 * kSegment);
    Create();
    Write(0, data);
    m_Repr.reset();
    const std::uint32_t sector = rfm_LoadWord(m_File.Bytes(40 + 4 * 2, 4).data());
    m_File.Patch(sector * 4096 + 2000, "damage");
    Open(utl_FileAccessUpdate);
    EXPECT_TRUE(Read(0, 2 * kSegment) == data.substr(0, 2 * kSegment)) << "up to its beginning";
    EXPECT_EQ(Thrown<nex_TextException>([&] { ReadOn(1); }), kCorrupt);
    EXPECT_EQ(Thrown<nex_TextException>([&] { Read(2 * kSegment + 10, 1); }), kCorrupt);
    EXPECT_EQ(m_Repr->Location(), 2 * kSegment);
    EXPECT_TRUE(Read(3 * kSegment, kSegment) == data.substr(3 * kSegment));
    m_Repr->Flush();
}

TEST_F(rfm_FileReprEncodedTest, AnEndThatCannotBeReadRefusesTheExtensionAndNoFlush)
{
    const std::string data = Noise(kSegment + 30000);
    for (const int delta : {10, kSegment, 5 * kSegment})
    {
        Create();
        Write(0, data);
        m_Repr.reset();
        const std::uint32_t sector = rfm_LoadWord(m_File.Bytes(44, 4).data());
        m_File.Patch(sector * 4096 + 2000, "damage");
        Open(utl_FileAccessUpdate);
        EXPECT_EQ(Thrown<nex_TextException>([&] { m_Repr->ExtendBy(delta); }), kCorrupt);
        EXPECT_EQ(m_Repr->Length(), kSegment + 30000);
        Write(0, "news");
        m_Repr->Flush();
        Open();
        EXPECT_EQ(m_Repr->Length(), kSegment + 30000);
        EXPECT_TRUE(ReadOn(kSegment) == "news" + data.substr(4, kSegment - 4));
    }
}

TEST_F(rfm_FileReprEncodedTest, AReadOverADamagedSegmentMovesNothing)
{
    const std::string data = Noise(3 * kSegment);
    Create();
    Write(0, data);
    m_Repr.reset();
    const std::uint32_t sector = rfm_LoadWord(m_File.Bytes(48, 4).data());
    m_File.Patch(sector * 4096 + 2000, "damage");
    Open(utl_FileAccessUpdate);
    m_Repr->Seek(100);
    EXPECT_EQ(Thrown<nex_TextException>([&] { ReadOn(3 * kSegment); }), kCorrupt);
    EXPECT_EQ(m_Repr->Location(), 100);
    EXPECT_TRUE(ReadOn(kSegment) == data.substr(100, kSegment));
    EXPECT_EQ(Thrown<nex_TextException>([&] { ReadOn(3 * kSegment); }), kCorrupt);
    m_Repr->Write("here", 4);
    EXPECT_EQ(Read(100 + kSegment, 4), "here");
}

TEST_F(rfm_FileReprEncodedTest, AStreamThatInflatesToMoreThanItsSegmentIsCorrupt)
{
    Create();
    Write(0, Zeros(kSegment));
    m_Repr.reset();
    m_File.Patch(28, rfm_IntBytes(kSegment - 1));
    EXPECT_EQ(Thrown<nex_TextException>([&] { Open(); }), kCorrupt);
}

// 64 MiB of zeros in a file that says its segments have 64 KiB. Made and opened in processes of their own, so that what
// the one needed is not counted for the other.
TEST_F(rfm_FileReprEncodedTest, ADecompressionBombCostsNoMoreThanItsSegment)
{
    ASSERT_EQ(ExitCodeOfForked(
                  [&]
                  {
                      rfm_FileReprEncoded bomb(m_File.Name(), std::make_unique<rfm_CodecZip>(6), 1 << 26);
                      const std::string zeros(1 << 26, '\0');
                      bomb.Write(zeros.data(), static_cast<int>(zeros.size()));
                      return 0;
                  }),
              0);
    EXPECT_LT(m_File.Size(), 100000U);
    constexpr int kSlack = 16; // what any process takes for its first file and its first exception, sanitized
    const int honest = CostOfOpening();
    EXPECT_GE(honest, 60) << "as long as it tells the truth, it costs what it says";
    EXPECT_LE(honest, 64 + kSlack);
    m_File.Patch(28, rfm_IntBytes(kSegment));
    const int bomb = CostOfOpening();
    EXPECT_GE(bomb, kRefused);
    EXPECT_LE(bomb, kRefused + kSlack);
}

TEST_F(rfm_FileReprEncodedTest, ALengthBeyondWhatASegmentCanTakeIsCorruptHoweverLongTheChain)
{
    Create();
    Write(0, "abc");
    m_Repr.reset();
    const std::uint32_t stored = rfm_LoadWord(m_File.Bytes(4096, 4).data());
    const std::string stream = m_File.Bytes(4100, stored - 4);
    for (const std::size_t length :
         {72101U, 72102U}) // the room that a segment is encoded in, and a byte more
    {
        {
            rfm_SectorArray array(m_File.Name(), utl_FileAccessUpdate);
            rfm_SectorWriter writer = array.GetWriter(0);
            writer.Write((stream + Zeros(length - stream.size())).data(), static_cast<int>(length));
            writer.End();
        }
        if (length == 72101)
        {
            Open();
            EXPECT_EQ(ReadOn(10), "abc");
            m_Repr.reset();
        }
        else
            EXPECT_EQ(Thrown<nex_TextException>([&] { Open(); }), kCorrupt);
    }
}

TEST_F(rfm_FileReprEncodedTest, ASparseFileThatClaimsTheLongestStreamIsCorrupt)
{
    Create();
    Write(0, Noise(10000));
    m_Repr.reset();
    std::filesystem::resize_file(m_File.Name(), std::uintmax_t{4096} * 525001);
    m_File.Patch(4096 + 4092, rfm_IntBytes(400000));
    for (const std::uint32_t below : {0U, 1U, 2U, 3U})
    {
        m_File.Patch(4096, rfm_IntBytes(0x7FFFFFFF - below));
        EXPECT_EQ(Thrown<nex_TextException>([&] { Open(); }), kCorrupt);
    }
}

TEST_F(rfm_FileReprEncodedTest, FilesOfAFewBytesAreNoneOrFailAnAssertion)
{
    for (const char* start : {"", "MRKTS"})
    {
        m_File.Write(start);
        EXPECT_EQ(rfm_File::Open(m_File.Name(), utl_FileAccessRead).Repr().Length(),
                  static_cast<std::int64_t>(std::string(start).size()))
            << "a plain file";
    }
    for (const char* start : {"MRKTSA", "MRKTSA0"})
    {
        m_File.Write(start);
        EXPECT_EQ(Thrown<nex_AssertException>([&] { rfm_File::Open(m_File.Name(), utl_FileAccessRead); }),
                  "cnt == sizeof(magic)");
    }
    m_File.Write("MRKTSA00");
    EXPECT_EQ(Thrown<nex_AssertException>([&] { rfm_File::Open(m_File.Name(), utl_FileAccessUpdate); }),
              "cnt == sizeof(tmp)");
}

TEST_F(rfm_FileReprEncodedTest, AnotherVersionIsTakenForThisKindAndThenFailsAnAssertion)
{
    Create();
    m_Repr.reset();
    m_File.Patch(8, rfm_IntBytes(2));
    EXPECT_EQ(Thrown<nex_AssertException>([&] { rfm_File::Open(m_File.Name(), utl_FileAccessRead); }),
              "tmp[HEADER_VERSION] == CURRENT_VERSION");
}

TEST_F(rfm_FileReprEncodedTest, AFileThatWasNeverFlushedIsNoCompressedFile)
{
    Create();
    Write(0, "abc");
    EXPECT_NE(m_File.Bytes(0, 6), "MRKTSA");
    rfm_File reader = rfm_File::Open(m_File.Name(), utl_FileAccessRead);
    EXPECT_EQ(Thrown<nex_TextException>([&] { rfm_Database::Open(reader, "TEST"); }),
              std::string("***ERROR: \"") + m_File.Name() + "\"  is not an MARLEK database file.");
}

TEST_F(rfm_FileReprEncodedTest, AnyDamagedByteOfHeadersDirectoryAndChainsIsAnswered)
{
    const std::string data = Noise(kSegment + 3000);
    Create();
    Write(0, data);
    m_Repr.reset();
    const std::string whole = m_File.Bytes();
    int refused = 0;
    for (std::size_t sector = 0; sector < whole.size() / 4096; ++sector)
        for (const std::size_t place : {0,  1,  2,  3,  4,  8,  11, 12, 15, 16, 19,   20,   24,  28,
                                        31, 32, 35, 36, 39, 40, 43, 44, 47, 48, 4092, 4093, 4095})
            for (const char value : {'\0', '\x01', '\x7F', '\x80', '\xFF'})
            {
                m_File.Write(whole);
                m_File.Patch(sector * 4096 + place, std::string(1, value));
                try
                {
                    Open();
                    const std::string read = ReadOn(2 * kSegment);
                    EXPECT_LE(static_cast<std::int64_t>(read.size()), m_Repr->Length().Value());
                }
                catch (const nex_TextException& failure)
                {
                    EXPECT_STREQ(failure.what(), kCorrupt);
                    ++refused;
                }
                catch (const nex_AssertException&)
                {
                    ++refused;
                }
            }
    EXPECT_GT(refused, 1000);
}

TEST_F(rfm_FileReprEncodedTest, AHeaderThatClaimsHugeSegmentsTakesNoMemoryForThem)
{
    Create();
    Write(0, "abc");
    m_Repr.reset();
    m_File.Patch(28, rfm_IntBytes(1U << 30));
    m_File.Patch(32, rfm_IntBytes(1U << 23));
    m_File.Patch(36, rfm_IntBytes(1U << 30));
    Open();
    constexpr std::int64_t kLargest = std::int64_t{1} << 53;
    EXPECT_EQ(m_Repr->Length(), kLargest);
    EXPECT_FALSE(m_Repr->MayHold((std::int64_t{2} << 30) + 1));
    EXPECT_EQ(Read(0, 6), "abc" + Zeros(3));
    EXPECT_EQ(Read(kLargest - 2, 6), Zeros(2));
}

TEST_F(rfm_FileReprEncodedTest, ADatabaseIsOpenedAgainAndItsFirstSegmentNotDecodedForEveryLook)
{
    {
        rfm_Database database =
            rfm_Database::Create(rfm_File::CreateCompressed(m_File.Name()), "TEST", "text", 5);
        auto array = database.ArrayDouble(1, -1, 4096);
        for (int i = 0; i < 100000; ++i)
        {
            const double value = i;
            array.Write(&value, 1);
        }
        array.Flush();
        database.Flush();
        EXPECT_EQ(database.FileStatus(), rfm_FileStatus::RfmFileUnchanged);
        array = {};
        database.Close();
    }
    rfm_Database database = rfm_Database::Open(rfm_File::Open(m_File.Name(), utl_FileAccessRead), "TEST");
    EXPECT_STREQ(database.Description().CString(), "text");
    auto array = database.ArrayDouble(rfm_Handle(4), -1, 0);
    EXPECT_EQ(array.Length(), 100000);
    const utl_FaultPlan plan;
    for (int i = 0; i < 50; ++i) database.Description();
    EXPECT_EQ(plan.Reads(), 0);
}

// --- against a model

TEST_F(rfm_FileReprEncodedTest, AnyOrderOfOperationsEqualsAStringOfBytes)
{
    std::mt19937 random(RandomSeed());
    const auto below = [&](std::int64_t bound)
    { return std::uniform_int_distribution<std::int64_t>(0, bound - 1)(random); };
    const int segmentSize = static_cast<int>(1 + below(3000));
    std::string model;
    Create(segmentSize);
    for (int step = 0; step < 4000; ++step)
    {
        const std::int64_t place = below(static_cast<std::int64_t>(model.size()) + 1);
        switch (below(12))
        {
        case 0:
        case 1:
        case 2:
        case 3:
        {
            std::string bytes(static_cast<std::size_t>(below(2 * segmentSize) + 1),
                              static_cast<char>(below(256)));
            if (below(2) == 0)
                bytes = Noise(static_cast<int>(bytes.size()), static_cast<unsigned>(below(1000)));
            if (model.size() > 400000) bytes.resize(1);
            Write(place, bytes);
            model.resize(std::max(model.size(), static_cast<std::size_t>(place) + bytes.size()));
            model.replace(static_cast<std::size_t>(place), bytes.size(), bytes);
            break;
        }
        case 4:
        case 5:
        case 6:
        case 7:
        {
            const auto count = static_cast<int>(below(3 * segmentSize));
            ASSERT_TRUE(Read(place, count) ==
                        model.substr(static_cast<std::size_t>(place), static_cast<std::size_t>(count)))
                << "step " << step;
            break;
        }
        case 8:
            if (model.size() > 400000) break;
            m_Repr->ExtendBy(place % (2 * segmentSize));
            model.resize(model.size() + static_cast<std::size_t>(place % (2 * segmentSize)));
            break;
        case 9:
            if (below(5) > 0 ||
                place / segmentSize >= (static_cast<std::int64_t>(model.size()) - 1) / segmentSize)
                break;
            m_Repr->Seek(static_cast<std::int64_t>(model.size()));
            m_Repr->ExtendBy(place - static_cast<std::int64_t>(model.size()));
            model.resize(static_cast<std::size_t>(place));
            break;
        case 10: m_Repr->Flush(); break;
        default:
            if (below(8) > 0) break;
            Open(utl_FileAccessUpdate);
        }
        ASSERT_EQ(m_Repr->Length(), static_cast<std::int64_t>(model.size())) << "step " << step;
    }
    Open();
    EXPECT_TRUE(Read(0, static_cast<int>(model.size()) + 1) == model);
}
