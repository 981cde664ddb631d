#include "rfm_FileReprHdf.h"

#include "EnvironmentVariable.h"
#include "HdfFileMaker.h"
#include "TestFolder.h"
#include "Thrown.h"
#include "hdf_Exception.h"
#include "hdf_File.h"
#include "rfm_FileException.h"

#include <climits>
#include <gmock/gmock.h>
#include <memory>
#include <optional>

namespace
{
class rfm_FileReprHdfTest : public ::testing::Test
{
protected:
    void TearDown() override
    {
        m_File.reset();
        EXPECT_EQ(HdfFileMaker::OpenObjects(), 0) << "something stayed open";
    }

    cow_String Name() const { return m_Folder.Path("job.rdx"); }
    std::string ReadOnlyText() const
    {
        return std::string("*** ERROR: Attempt to write to read-only file:\n  ") + Name().CString();
    }

    /// As rfm_File::Open makes them: the HDF5 file is gone before the back end is used.
    rfm_FileReprHdf& Create()
    {
        m_File.reset();
        hdf_File file = hdf_File::Create(Name(), 0);
        return m_File.emplace(Name(), file, "rfm", utl_FileAccessCreate);
    }
    rfm_FileReprHdf& Reopen(utl_FileAccess access)
    {
        m_File.reset();
        hdf_File file = hdf_File::Open(Name(), access == utl_FileAccessRead ? 1 : 0);
        return m_File.emplace(Name(), file, "rfm", access);
    }
    std::string BytesAt(std::int64_t position, std::size_t count)
    {
        std::string bytes(count, '?');
        m_File->Seek(position);
        m_File->Read(bytes.data(), static_cast<int>(count));
        return bytes;
    }
    void Put(std::int64_t position, std::string_view bytes)
    {
        m_File->Seek(position);
        ASSERT_EQ(m_File->Write(bytes.data(), static_cast<int>(bytes.size())),
                  static_cast<int>(bytes.size()));
    }

    TestFolder m_Folder;
    std::optional<rfm_FileReprHdf> m_File;
};

std::string Zeros(std::size_t count) { return std::string(count, '\0'); }
} // namespace

// --- opening

TEST_F(rfm_FileReprHdfTest, ANewFileHasNoSizeAndIsWritable)
{
    const rfm_FileReprHdf& file = Create();
    EXPECT_FALSE(file.ReadOnly());
    EXPECT_EQ(file.Length(), 0);
    EXPECT_EQ(file.LogicalLength(), 0);
    EXPECT_EQ(file.PhysicalLength(), 0);
    EXPECT_EQ(file.Location(), 0);
    EXPECT_EQ(file.FileName(), Name());
}

TEST_F(rfm_FileReprHdfTest, AnExistingFileHasTheSizeOfItsDataset)
{
    Create();
    Put(0, "abcdef");
    for (const utl_FileAccess access : {utl_FileAccessRead, utl_FileAccessUpdate})
    {
        const rfm_FileReprHdf& file = Reopen(access);
        EXPECT_EQ(file.ReadOnly(), access == utl_FileAccessRead);
        EXPECT_EQ(file.Length(), 6);
        EXPECT_EQ(file.PhysicalLength(), 6);
        EXPECT_EQ(file.Location(), 0);
        EXPECT_EQ(BytesAt(0, 6), "abcdef");
    }
}

TEST_F(rfm_FileReprHdfTest, AnyOtherAccessIsAFaultOfTheCaller)
{
    hdf_File file = hdf_File::Create(Name(), 0);
    for (const int access : {-1, 3})
        EXPECT_EQ(Thrown<nex_AssertException>(
                      [&] { rfm_FileReprHdf(Name(), file, "rfm", static_cast<utl_FileAccess>(access)); }),
                  "!\"Incorrect file access.\"");
}

TEST_F(rfm_FileReprHdfTest, WhatEveryBackEndMayDoOtherwiseIsAsInTheBase)
{
    rfm_FileReprHdf& file = Create();
    Put(0, "abc");
    EXPECT_EQ(file.CheckStatus(), rfm_FileStatus::RfmFileUnchanged);
    EXPECT_EQ(file.CheckCache().Length(), 0);
    file.WriteSizeStamp(0);
    EXPECT_NO_THROW(file.VerifySizeStamp(0));
    EXPECT_EQ(BytesAt(0, 3), "abc");
}

// --- reading

TEST_F(rfm_FileReprHdfTest, ANewFileReadsNothingAndMoves)
{
    rfm_FileReprHdf& file = Create();
    char bytes[4] = {'w', 'x', 'y', 'z'};
    EXPECT_EQ(file.Read(bytes, 4), 4);
    EXPECT_EQ(std::string(bytes, 4), "wxyz");
    EXPECT_EQ(file.Location(), 4);
    EXPECT_EQ(file.ReadUpToEnd(bytes, 4), 0);
    EXPECT_EQ(file.Location(), 4);
}

TEST_F(rfm_FileReprHdfTest, AReadAcrossTheEndTakesWhatIsThereAndMovesByAll)
{
    rfm_FileReprHdf& file = Create();
    Put(0, "abcdef");
    EXPECT_EQ(BytesAt(4, 4), "ef??");
    EXPECT_EQ(file.Location(), 8);
    char bytes[4];
    file.Seek(4);
    EXPECT_EQ(file.ReadUpToEnd(bytes, 4), 2);
    EXPECT_EQ(file.Location(), 6);
}

TEST_F(rfm_FileReprHdfTest, ASeekGoesAnywhere)
{
    rfm_FileReprHdf& file = Create();
    for (const std::int64_t place : {std::int64_t{1} << 40, INT64_MAX - 1})
    {
        file.Seek(place);
        EXPECT_EQ(file.Location(), place);
        char byte = 'x';
        EXPECT_EQ(file.Read(&byte, 1), 1);
        EXPECT_EQ(byte, 'x');
        EXPECT_EQ(file.Location(), place + 1);
    }
    file.Seek(-5);
    EXPECT_EQ(file.Location(), -5) << "where no transfer starts";
}

TEST_F(rfm_FileReprHdfTest, APositionThatWouldLeave64BitsIsRefusedAndNothingMoves)
{
    rfm_FileReprHdf& file = Create();
    char bytes[2] = {'x', 'y'};
    file.Seek(INT64_MAX - 1);
    EXPECT_THROW(file.Read(bytes, 2), nex_TextException);
    EXPECT_THROW(file.Write(bytes, 2), nex_TextException);
    EXPECT_EQ(file.Location(), INT64_MAX - 1);
    EXPECT_EQ(Reopen(utl_FileAccessUpdate).Length(), 0);
}

TEST_F(rfm_FileReprHdfTest, BadParametersNameTheOperation)
{
    rfm_FileReprHdf& file = Create();
    char byte = 'x';
    const std::string read = "*** ERROR: Bad parameter passed to file method: rfm_FileReprHdf::Read.";
    const std::string write = "*** ERROR: Bad parameter passed to file method: rfm_FileReprHdf::Write.";
    EXPECT_EQ(Thrown<rfm_FileBadParameterExc>([&] { file.Read(nullptr, 1); }), read);
    EXPECT_EQ(Thrown<rfm_FileBadParameterExc>([&] { file.Read(&byte, -1); }), read);
    EXPECT_EQ(Thrown<rfm_FileBadParameterExc>([&] { file.Write(nullptr, 1); }), write);
    EXPECT_EQ(Thrown<rfm_FileBadParameterExc>([&] { file.Write(&byte, -1); }), write);
    file.Seek(-1);
    EXPECT_EQ(Thrown<rfm_FileBadParameterExc>([&] { file.Read(&byte, 1); }), read);
    EXPECT_EQ(Thrown<rfm_FileBadParameterExc>([&] { file.ReadUpToEnd(&byte, 1); }), read);
    EXPECT_EQ(file.Location(), -1);
    EXPECT_EQ(Thrown<rfm_FileBadParameterExc>([&] { file.Write(&byte, 1); }), write);
    file.Seek(0);
    EXPECT_EQ(file.Read(&byte, 0), 0);
    EXPECT_EQ(file.Write(&byte, 0), 0);
    EXPECT_EQ(file.Location(), 0);
}

// --- writing

TEST_F(rfm_FileReprHdfTest, AWriteBeyondTheEndFillsTheGapWithZeros)
{
    Create();
    Put(5000, "abc");
    EXPECT_EQ(Reopen(utl_FileAccessRead).Length(), 5003);
    EXPECT_EQ(BytesAt(0, 5003), Zeros(5000) + "abc");
}

TEST_F(rfm_FileReprHdfTest, AWriteOfNothingBeyondTheEndMakesTheDatasetReachToIt)
{
    rfm_FileReprHdf& file = Create();
    Put(0, "abc");
    Put(5000, "");
    EXPECT_EQ(file.PhysicalLength(), 5000);
    EXPECT_EQ(file.MediumSize(), 5000);
    Put(2, "");
    EXPECT_EQ(file.PhysicalLength(), 5000);
    EXPECT_EQ(Reopen(utl_FileAccessRead).Length(), 5000);
    EXPECT_EQ(BytesAt(0, 5000), "abc" + Zeros(4997));
}

TEST_F(rfm_FileReprHdfTest, AWriteInTheMiddleLeavesTheLength)
{
    Create();
    Put(0, std::string(10000, 'a'));
    Put(4090, std::string(12, 'b'));
    EXPECT_EQ(Reopen(utl_FileAccessRead).Length(), 10000);
    EXPECT_TRUE(BytesAt(0, 10000) ==
                std::string(4090, 'a') + std::string(12, 'b') + std::string(10000 - 4102, 'a'));
}

TEST_F(rfm_FileReprHdfTest, AWritePastTheEndLeavesTheLogicalSize)
{
    rfm_FileReprHdf& file = Create();
    EXPECT_TRUE(file.ExtendBy(4));
    Put(0, "abcdefgh");
    EXPECT_EQ(file.Length(), 4);
    EXPECT_EQ(file.PhysicalLength(), 8);
    EXPECT_EQ(Reopen(utl_FileAccessRead).Length(), 8);
}

TEST_F(rfm_FileReprHdfTest, EveryValueOfAByteComesBack)
{
    Create();
    std::string bytes;
    for (int i = 0; i < 256; ++i) bytes += static_cast<char>(i);
    Put(0, bytes);
    Reopen(utl_FileAccessRead);
    EXPECT_EQ(BytesAt(0, 256), bytes);
}

TEST_F(rfm_FileReprHdfTest, WhatWasJustWrittenIsRead)
{
    Create();
    Put(0, "abcdef");
    EXPECT_EQ(BytesAt(2, 2), "cd");
    Put(2, "XY");
    EXPECT_EQ(BytesAt(0, 6), "abXYef");
}

// --- sizes

TEST_F(rfm_FileReprHdfTest, AReservationAlwaysSaysThatTheFileGrew)
{
    rfm_FileReprHdf& file = Create();
    EXPECT_TRUE(file.ExtendBy(100));
    EXPECT_EQ(file.Length(), 100);
    EXPECT_EQ(file.PhysicalLength(), 100);
    EXPECT_TRUE(file.ExtendBy(1));
    EXPECT_EQ(file.Length(), 101);
    file.Extend(9);
    EXPECT_EQ(file.Length(), 110);
    EXPECT_EQ(Reopen(utl_FileAccessRead).Length(), 0) << "the dataset grows at a write or a flush";
}

TEST_F(rfm_FileReprHdfTest, AFlushMakesTheDatasetAsLongAsTheFileSays)
{
    rfm_FileReprHdf& file = Create();
    file.ExtendBy(9000);
    Put(0, "abc");
    file.Flush();
    EXPECT_EQ(Reopen(utl_FileAccessRead).Length(), 9000);
    EXPECT_EQ(BytesAt(0, 9000), "abc" + Zeros(8997));
}

TEST_F(rfm_FileReprHdfTest, SoDoesTheTrimAtAClose)
{
    rfm_FileReprHdf& file = Create();
    file.ExtendBy(9000);
    Put(0, "abc");
    file.TrimToLength();
    EXPECT_EQ(file.Length(), 9000);
    EXPECT_EQ(Reopen(utl_FileAccessRead).Length(), 9000);
}

TEST_F(rfm_FileReprHdfTest, NeitherMakesItShorter)
{
    rfm_FileReprHdf& file = Create();
    Put(0, "abcdef");
    file.Flush();
    file.TrimToLength();
    EXPECT_EQ(Reopen(utl_FileAccessRead).Length(), 6);
}

TEST_F(rfm_FileReprHdfTest, EveryChangeOfAFileOpenedForReadingIsRefused)
{
    Create();
    Put(0, "abcdef");
    rfm_FileReprHdf& file = Reopen(utl_FileAccessRead);
    EXPECT_EQ(Thrown<rfm_FileReadOnlyExc>([&] { file.Write("x", 1); }), ReadOnlyText());
    EXPECT_EQ(Thrown<rfm_FileReadOnlyExc>([&] { file.Write(nullptr, -1); }), ReadOnlyText());
    EXPECT_EQ(Thrown<rfm_FileReadOnlyExc>([&] { file.Flush(); }), ReadOnlyText());
    EXPECT_EQ(Thrown<rfm_FileReadOnlyExc>([&] { file.Extend(1); }), ReadOnlyText());
    EXPECT_EQ(Thrown<rfm_FileReadOnlyExc>([&] { file.ExtendBy(1); }), ReadOnlyText());
    EXPECT_EQ(Thrown<rfm_FileReadOnlyExc>([&] { file.TrimToLength(); }), ReadOnlyText());
    EXPECT_EQ(file.Length(), 6);
    EXPECT_EQ(file.Location(), 0);
}

// --- a model in memory

TEST_F(rfm_FileReprHdfTest, SmallAndLargeTransfersInAnyOrderAreThoseOfAString)
{
    Create();
    std::string model;
    unsigned state = 7;
    const auto upTo = [&](unsigned limit)
    { return (state = state * 1664525 + 1013904223) >> 8 & 0xFFFFFF ? (state >> 8) % limit : 0; };
    std::size_t next = 0;
    for (int step = 0; step < 3000; ++step)
    {
        const unsigned kind = upTo(10);
        const std::size_t count = kind == 0 ? upTo(300000) + 1 : upTo(3000) + 1;
        const std::size_t place = upTo(3) != 0 ? next : upTo(static_cast<unsigned>(model.size()) + 5000);
        next = place + count;
        if (kind < 6 && next < 4000000)
        {
            const std::string bytes(count, static_cast<char>(upTo(256)));
            model.resize(std::max(model.size(), next));
            model.replace(place, count, bytes);
            Put(static_cast<std::int64_t>(place), bytes);
        }
        else
        {
            const std::string there = place < model.size() ? model.substr(place, count) : "";
            ASSERT_TRUE(BytesAt(static_cast<std::int64_t>(place), count) ==
                        there + std::string(count - there.size(), '?'))
                << "step " << step << ", " << count << " bytes at " << place;
            next = place + count;
        }
        if (step % 500 == 499) Reopen(utl_FileAccessUpdate);
    }
    ASSERT_EQ(m_File->MediumSize(), static_cast<std::int64_t>(model.size()));
    EXPECT_TRUE(BytesAt(0, model.size()) == model);
}
