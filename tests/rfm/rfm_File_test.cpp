#include "rfm_File.h"

#include "EnvironmentVariable.h"
#include "Forked.h"
#include "TestFolder.h"
#include "Thrown.h"
#include "hdf_Exception.h"
#include "hdf_File.h"
#include "rfm_Database.h"
#include "rfm_FileCache.h"
#include "rfm_FileRepr.h"
#include "utl_FileException.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
constexpr uid_t kNobody = 65534;
constexpr const char* kUrl = "mrkrdb://host:1234/dir/job.rdx";

/// A file in memory that counts its reads.
class MemoryFile : public rfm_FileRepr
{
public:
    explicit MemoryFile(std::string start, int& destroyed)
        : rfm_FileRepr("in memory"),
          bytes(std::move(start)),
          m_Destroyed(destroyed)
    {
    }
    ~MemoryFile() override { ++m_Destroyed; }
    bool ReadOnly() const override { return readOnly; }
    void Seek(utl_FileOffset position) override { m_Position = position; }
    void Flush() override {}
    void Extend(utl_FileOffset delta) override { ExtendBy(delta); }
    bool ExtendBy(utl_FileOffset delta) override
    {
        m_LogicalFileSize += delta;
        return false;
    }
    void TrimToLength() override {}
    int Read(char* buffer, int count) override
    {
        ++reads;
        const std::string piece =
            bytes.substr(static_cast<std::size_t>(m_Position.Value()), static_cast<std::size_t>(count));
        std::copy(piece.begin(), piece.end(), buffer);
        m_Position += static_cast<std::int64_t>(piece.size());
        return static_cast<int>(piece.size());
    }
    int Write(const char* buffer, int count) override
    {
        const auto start = static_cast<std::size_t>(m_Position.Value());
        bytes.resize(std::max(bytes.size(), start + static_cast<std::size_t>(count)));
        bytes.replace(start, static_cast<std::size_t>(count), buffer, static_cast<std::size_t>(count));
        m_Position += count;
        return count;
    }

    std::string bytes;
    int reads = 0;
    bool readOnly = false;

private:
    int& m_Destroyed;
};

class rfm_FileTest : public ::testing::Test
{
protected:
    cow_String Name() const { return m_Folder.Path("job.rdx"); }
    std::string Text(const char* before, const char* after = "") const
    {
        return std::string(before) + Name().CString() + after;
    }
    std::string ReadOnlyText() const { return Text("*** ERROR: Attempt to write to read-only file:\n  "); }
    std::string NoSuchFileText() const { return Text("*** ERROR: No such file: ", "."); }

    static std::string LogOf(auto action)
    {
        ::testing::internal::CaptureStderr();
        try
        {
            action();
        }
        catch (const rfm_FileException&)
        {
            return ::testing::internal::GetCapturedStderr() + "refused";
        }
        return ::testing::internal::GetCapturedStderr();
    }

    TestFolder m_Folder;
};
} // namespace

// --- opening

TEST_F(rfm_FileTest, CreateGivesAnEmptyWritableFileOfThatName)
{
    const rfm_File file = rfm_File::Open(Name(), utl_FileAccessCreate);
    EXPECT_EQ(file.FileName(), Name());
    EXPECT_FALSE(file.ReadOnly());
    EXPECT_EQ(file.Repr().Length(), 0);
    EXPECT_EQ(BytesOf(Name()), "");
}

TEST_F(rfm_FileTest, AnEmptyFileReachesThePlainBackend)
{
    PutBytes(Name(), "");
    EXPECT_TRUE(rfm_File::Open(Name(), utl_FileAccessRead).ReadOnly());
    EXPECT_FALSE(rfm_File::Open(Name(), utl_FileAccessUpdate).ReadOnly());
}

TEST_F(rfm_FileTest, AnEmptyFileFailsLaterAsADatabase)
{
    PutBytes(Name(), "");
    const rfm_File file = rfm_File::Open(Name(), utl_FileAccessRead);
    EXPECT_EQ(Thrown<nex_TextException>([&] { rfm_Database::Open(file, ""); }),
              Text("***ERROR: \"", "\"  is not an MARLEK database file."));
    EXPECT_FALSE(rfm_Database::IsMagic(file, ""));
}

TEST_F(rfm_FileTest, AFileShorterThanAMagicIsPlain)
{
    for (const char* start : {"M", "MRKTS", "\x89HDF\r\n"})
    {
        PutBytes(Name(), start);
        EXPECT_TRUE(rfm_File::Open(Name(), utl_FileAccessRead).ReadOnly());
        EXPECT_FALSE(rfm_File::Open(Name(), utl_FileAccessUpdate).ReadOnly());
    }
}

TEST_F(rfm_FileTest, TheFlagHasNoEffect)
{
    PutBytes(Name(), "abc");
    for (const bool flag : {false, true})
    {
        const rfm_File file = rfm_File::Open(Name(), utl_FileAccessRead, flag);
        EXPECT_TRUE(file.ReadOnly());
        EXPECT_EQ(file.Repr().ReadFixedString(3).View(), "abc");
    }
}

TEST_F(rfm_FileTest, AMissingFileIsNoSuchFileForReadAndUpdate)
{
    EXPECT_EQ(Thrown<rfm_FileNoSuchFile>([&] { rfm_File::Open(Name(), utl_FileAccessRead); }),
              NoSuchFileText());
    EXPECT_EQ(Thrown<rfm_FileNoSuchFile>([&] { rfm_File::Open(Name(), utl_FileAccessUpdate); }),
              NoSuchFileText());
}

TEST_F(rfm_FileTest, ADirectoryIsRefusedWithItsName)
{
    const cow_String folder(std::string_view(m_Folder.Path()));
    for (const utl_FileAccess access : {utl_FileAccessRead, utl_FileAccessUpdate, utl_FileAccessCreate})
        EXPECT_NE(Thrown<utl_FileException>([&] { rfm_File::Open(folder, access); })
                      .find(m_Folder.Path() + ", reason:\n  Is a directory."),
                  std::string::npos);
}

TEST_F(rfm_FileTest, MissingRightsHaveTheirOwnTexts)
{
    PutBytes(Name(), "abc");
    ASSERT_EQ(::chmod(m_Folder.Path().c_str(), 0755), 0);
    ASSERT_EQ(::chmod(Name().CString(), 0444), 0);
    const auto textAsNobody = [&](utl_FileAccess access, auto expected)
    {
        return ExitCodeOfForked(
            [&]
            {
                if (::geteuid() == 0 && ::setuid(kNobody) != 0) return 90;
                return expected(Thrown<rfm_FileException>([&] { rfm_File::Open(Name(), access); })) ? 0 : 1;
            });
    };
    EXPECT_EQ(
        textAsNobody(utl_FileAccessUpdate, [&](const std::string& text) { return text == ReadOnlyText(); }),
        0);
    ASSERT_EQ(::chmod(Name().CString(), 0), 0);
    EXPECT_EQ(textAsNobody(utl_FileAccessRead, [&](const std::string& text)
                           { return text == Text("*** ERROR: No permission to read: ", "."); }),
              0);
    ASSERT_EQ(::chmod(Name().CString(), 0600), 0);
}

TEST_F(rfm_FileTest, AUrlCannotBeCreatedOrUpdated)
{
    const std::string expected = std::string("*** ERROR: Attempt to write to read-only file:\n  ") + kUrl;
    for (const char* hdf : {static_cast<const char*>(nullptr), "1"})
    {
        const EnvironmentVariable variable("MRK_HDF_RDX", hdf);
        EXPECT_EQ(Thrown<rfm_FileReadOnlyExc>([] { rfm_File::Open(kUrl, utl_FileAccessCreate); }), expected);
        EXPECT_EQ(Thrown<rfm_FileReadOnlyExc>([] { rfm_File::Open(kUrl, utl_FileAccessUpdate); }), expected);
        EXPECT_EQ(Thrown<rfm_FileReadOnlyExc>([] { rfm_File::CreateCompressed(kUrl); }), expected);
    }
}

TEST_F(rfm_FileTest, AnyOtherAccessIsAFaultOfTheCaller)
{
    for (const int access : {-1, 3})
        EXPECT_EQ(
            Thrown<nex_AssertException>([&] { rfm_File::Open(Name(), static_cast<utl_FileAccess>(access)); }),
            "!\"Incorrect file access.\"");
}

// --- which backend

TEST_F(rfm_FileTest, NothingIsLoggedUnlessItIsAskedFor)
{
    const EnvironmentVariable variable("MRK_RFM_LOGIFY", nullptr);
    EXPECT_EQ(LogOf([&] { rfm_File::Open(Name(), utl_FileAccessCreate); }), "");
    EXPECT_EQ(LogOf([&] { rfm_File::Open(Name(), utl_FileAccessUpdate); }), "");
    EXPECT_EQ(LogOf([&] { rfm_File::Open(Name(), utl_FileAccessRead); }), "");
}

TEST_F(rfm_FileTest, TheLogTellsTheBackendInOneLineWhateverTheVariableHolds)
{
    for (const char* value : {"", "0", "yes"})
    {
        const EnvironmentVariable variable("MRK_RFM_LOGIFY", value);
        EXPECT_EQ(LogOf([&] { rfm_File::Open(Name(), utl_FileAccessCreate); }),
                  "*** Informational: Creating File based RDX.\n");
        EXPECT_EQ(LogOf([&] { rfm_File::Open(Name(), utl_FileAccessUpdate); }),
                  "*** Informational: Updating File based RDX.\n");
        EXPECT_EQ(LogOf([&] { rfm_File::Open(Name(), utl_FileAccessRead); }),
                  "*** Informational: Opening File based RDX.\n");
    }
}

TEST_F(rfm_FileTest, AnExistingPlainFileStaysPlainWhateverNewFilesAreToBe)
{
    PutBytes(Name(), "plain");
    const EnvironmentVariable hdf("MRK_HDF_RDX", "");
    const EnvironmentVariable log("MRK_RFM_LOGIFY", "");
    EXPECT_EQ(LogOf([&] { rfm_File::Open(Name(), utl_FileAccessUpdate); }),
              "*** Informational: Updating File based RDX.\n");
    EXPECT_EQ(LogOf([&] { rfm_File::Open(Name(), utl_FileAccessRead); }),
              "*** Informational: Opening File based RDX.\n");
}

TEST_F(rfm_FileTest, TheVariableForNewFilesMakesAnHdf5FileWhateverItHolds)
{
    for (const char* value : {"", "0", "1"})
    {
        const EnvironmentVariable hdf("MRK_HDF_RDX", value);
        const rfm_File file = rfm_File::Open(Name(), utl_FileAccessCreate);
        EXPECT_EQ(file.FileName(), Name());
        EXPECT_FALSE(file.ReadOnly());
        EXPECT_EQ(file.Repr().Length(), 0);
        EXPECT_TRUE(hdf_File::IsHdf5(Name()));
    }
}

TEST_F(rfm_FileTest, AnHdf5FileIsLoggedAsOne)
{
    const EnvironmentVariable log("MRK_RFM_LOGIFY", "");
    {
        const EnvironmentVariable hdf("MRK_HDF_RDX", "");
        EXPECT_EQ(LogOf([&] { rfm_File::Open(Name(), utl_FileAccessCreate); }),
                  "*** Informational: Creating HDF5 based RDX.\n");
    }
    // Only for a new file does the variable decide.
    const EnvironmentVariable hdf("MRK_HDF_RDX", nullptr);
    EXPECT_EQ(LogOf([&] { EXPECT_FALSE(rfm_File::Open(Name(), utl_FileAccessUpdate).ReadOnly()); }),
              "*** Informational: Updating HDF5 based RDX.\n");
    EXPECT_EQ(LogOf([&] { EXPECT_TRUE(rfm_File::Open(Name(), utl_FileAccessRead).ReadOnly()); }),
              "*** Informational: Opening HDF5 based RDX.\n");
}

TEST_F(rfm_FileTest, TheVariableForNewFilesPlaysNoPartForACompressedOne)
{
    const EnvironmentVariable log("MRK_RFM_LOGIFY", "");
    for (const char* value : {static_cast<const char*>(nullptr), "1"})
    {
        const EnvironmentVariable hdf("MRK_HDF_RDX", value);
        EXPECT_EQ(LogOf([&] { rfm_File::CreateCompressed(Name()); }),
                  "*** Informational: Creating Compressed File based SDX.\n");
        EXPECT_EQ(BytesOf(Name()).substr(0, 8), "MRKTSA00");
    }
}

TEST_F(rfm_FileTest, ReadingAUrlIsLeftToTheRemoteBackendWithoutALog)
{
    const EnvironmentVariable log("MRK_RFM_LOGIFY", "");
    const EnvironmentVariable path("PATH", m_Folder.Path().c_str()); // no assistant is there
    const EnvironmentVariable temp("TMPDIR", m_Folder.Path().c_str());
    const auto open = [] { rfm_File::Open("mrkrdb://localhost/job.rdx", utl_FileAccessRead); };
    EXPECT_EQ(LogOf(open), "refused");
    EXPECT_NE(Thrown<rfm_FileConnectExc>(open), "nothing was thrown");
    rfm_FileCache::Finalize();
}

TEST_F(rfm_FileTest, ACompressedFileIsToldByItsMagic)
{
    const EnvironmentVariable log("MRK_RFM_LOGIFY", "");
    for (const char* hdf : {static_cast<const char*>(nullptr), "1"})
    {
        const EnvironmentVariable variable("MRK_HDF_RDX", hdf);
        rfm_File::CreateCompressed(Name());
        EXPECT_EQ(LogOf([&] { rfm_File::Open(Name(), utl_FileAccessRead); }),
                  "*** Informational: Opening Compressed File based SDX.\n");
        EXPECT_EQ(LogOf([&] { rfm_File::Open(Name(), utl_FileAccessUpdate); }),
                  "*** Informational: Updating Compressed File based SDX.\n");
        EXPECT_TRUE(rfm_File::Open(Name(), utl_FileAccessRead).ReadOnly());
        EXPECT_FALSE(rfm_File::Open(Name(), utl_FileAccessUpdate).ReadOnly());
    }
}

TEST_F(rfm_FileTest, SixBytesOfTheMagicAreEnoughToBeTakenForACompressedFile)
{
    const EnvironmentVariable log("MRK_RFM_LOGIFY", "");
    for (const char* magic : {"MRKTSA", "MRKTSA99 and more"})
    {
        PutBytes(Name(), magic);
        EXPECT_THROW(rfm_File::Open(Name(), utl_FileAccessRead), nex_AssertException);
        EXPECT_THROW(rfm_File::Open(Name(), utl_FileAccessUpdate), nex_AssertException);
    }
    PutBytes(Name(), "MRKTSa00");
    EXPECT_EQ(LogOf([&] { rfm_File::Open(Name(), utl_FileAccessRead); }),
              "*** Informational: Opening File based RDX.\n");
}

TEST_F(rfm_FileTest, ACopyIntoACompressedFileAndBackIsTrue)
{
    std::string bytes;
    for (int i = 0; i < 300000; ++i) bytes += static_cast<char>(i % 251);
    PutBytes(m_Folder.Path("source"), bytes);
    rfm_File::CreateCompressed(Name()).Copy(rfm_File::Open(m_Folder.Path("source"), utl_FileAccessRead));
    rfm_File::Open(m_Folder.Path("back"), utl_FileAccessCreate)
        .Copy(rfm_File::Open(Name(), utl_FileAccessRead));
    EXPECT_TRUE(BytesOf(m_Folder.Path("back")) == bytes);
    EXPECT_LT(BytesOf(Name()).size(), bytes.size() / 5);
}

// HDF5 looks for its mark at powers of two as well: what a plain database holds there is its own affair.
TEST_F(rfm_FileTest, APlainDatabaseWithTheMarkOfHdf5InsideIsPlain)
{
    std::string bytes(4096, '\0');
    bytes.replace(0, 4, "TVNR");
    bytes.replace(2048, 8, "\x89HDF\r\n\x1a\n");
    PutBytes(Name(), bytes);
    ASSERT_TRUE(hdf_File::IsHdf5(Name()));
    const EnvironmentVariable log("MRK_RFM_LOGIFY", "");
    EXPECT_EQ(LogOf([&] { rfm_File::Open(Name(), utl_FileAccessRead); }),
              "*** Informational: Opening File based RDX.\n");
    EXPECT_EQ(LogOf([&] { rfm_File::Open(Name(), utl_FileAccessUpdate); }),
              "*** Informational: Updating File based RDX.\n");
}

TEST_F(rfm_FileTest, TheMarkOfHdf5AloneIsRefusedInItsWordsWithTheName)
{
    PutBytes(Name(), "\x89HDF\r\n\x1a\n and more");
    for (const utl_FileAccess access : {utl_FileAccessRead, utl_FileAccessUpdate})
        EXPECT_THAT(Thrown<hdf_Exception>([&] { rfm_File::Open(Name(), access); }),
                    ::testing::StartsWith(Text("*** ERROR: HDF5 can't open file:\n  ", ", reason:\n  H5")));
}

TEST_F(rfm_FileTest, CreateOverAFileOfAnyKindMakesAPlainOne)
{
    PutBytes(Name(), "MRKTSA00");
    const rfm_File file = rfm_File::Open(Name(), utl_FileAccessCreate);
    EXPECT_EQ(BytesOf(Name()), "");
}

// --- the handle

TEST_F(rfm_FileTest, CopiesShareOneFileAndItsPositionAndTheLastOneClosesIt)
{
    int destroyed = 0;
    {
        rfm_File first(new MemoryFile("abcdef", destroyed));
        {
            const rfm_File second(first);
            EXPECT_EQ(second.Repr().ReadFixedString(2).View(), "ab");
            first.Repr().Seek(4);
            EXPECT_EQ(second.Repr().ReadFixedString(2).View(), "ef");
        }
        EXPECT_EQ(destroyed, 0);
    }
    EXPECT_EQ(destroyed, 1);
}

TEST_F(rfm_FileTest, ABackendThatGivesNothingOfItsOwnHasPlainAnswers)
{
    int destroyed = 0;
    MemoryFile file("abc", destroyed);
    EXPECT_EQ(file.CheckStatus(), rfm_FileStatus::RfmFileUnchanged);
    EXPECT_EQ(file.CheckCache().Length(), 0);
    file.WriteSizeStamp(0);
    EXPECT_NO_THROW(file.VerifySizeStamp(0));
    EXPECT_EQ(file.bytes, "abc");
    EXPECT_EQ(file.Length(), 0);
    EXPECT_EQ(file.LogicalLength(), 0);
    EXPECT_EQ(file.PhysicalLength(), 0);
    EXPECT_EQ(file.FileName().View(), "in memory");
    EXPECT_FALSE(file.IsHeldByWriter());
    EXPECT_FALSE(file.Swapped());
}

// --- copying

namespace
{
struct Copied
{
    std::string target;
    int reads;
};

Copied Copy(const std::string& source, std::int64_t from, const std::string& target, std::int64_t to)
{
    int destroyed = 0;
    auto* reader = new MemoryFile(source, destroyed);
    auto* writer = new MemoryFile(target, destroyed);
    const rfm_File sourceFile(reader);
    rfm_File targetFile(writer);
    reader->Seek(from);
    writer->Seek(to);
    targetFile.Copy(sourceFile);
    return {writer->bytes, reader->reads};
}
} // namespace

TEST(rfm_FileCopy, TheRestOfTheSourceComesToThePosition)
{
    EXPECT_EQ(Copy("abcdef", 2, "0123456789", 3).target, "012cdef789");
    EXPECT_EQ(Copy("abcdef", 0, "01", 2).target, "01abcdef");
}

TEST(rfm_FileCopy, ASourceAtItsEndCopiesNothing)
{
    EXPECT_EQ(Copy("abcdef", 6, "0123", 1).target, "0123");
    EXPECT_EQ(Copy("", 0, "0123", 4).target, "0123");
}

TEST(rfm_FileCopy, FourKibibytesTakeTwoReadsTheSecondGivingNothing)
{
    const std::string source(4096, 'x');
    const Copied copied = Copy(source, 0, "", 0);
    EXPECT_EQ(copied.target, source);
    EXPECT_EQ(copied.reads, 2);
    EXPECT_EQ(Copy(source + "y", 0, "", 0).reads, 3);
}

// A back end whose reads never say that the file has ended.
TEST_F(rfm_FileTest, ACopyOfAnHdf5FileEndsAtItsEnd)
{
    const std::string bytes(4096 + 7, 'x');
    const EnvironmentVariable hdf("MRK_HDF_RDX", "");
    const rfm_File source = rfm_File::Open(m_Folder.Path("source"), utl_FileAccessCreate);
    source.Repr().Write(bytes.data(), static_cast<int>(bytes.size()));
    source.Repr().Seek(0);
    int destroyed = 0;
    auto* target = new MemoryFile("", destroyed);
    rfm_File targetFile(target);
    targetFile.Copy(source);
    EXPECT_TRUE(target->bytes == bytes);
    targetFile.Copy(source);
    EXPECT_TRUE(target->bytes == bytes) << "a source at its end copies nothing";
}

TEST_F(rfm_FileTest, ACopyBetweenFilesMovesEveryByte)
{
    std::string bytes;
    for (int i = 0; i < 300000; ++i) bytes += static_cast<char>(i % 251);
    PutBytes(m_Folder.Path("source"), bytes);
    {
        rfm_File target = rfm_File::Open(Name(), utl_FileAccessCreate);
        target.Copy(rfm_File::Open(m_Folder.Path("source"), utl_FileAccessRead));
    }
    EXPECT_TRUE(BytesOf(Name()) == bytes);
}

// --- texts

TEST(rfm_FileException, EveryFailureOfTheFamilyHasItsText)
{
    EXPECT_STREQ(rfm_FileReadOnlyExc("f").what(), "*** ERROR: Attempt to write to read-only file:\n  f");
    EXPECT_STREQ(rfm_FileNoSuchFile("f").what(), "*** ERROR: No such file: f.");
    EXPECT_STREQ(rfm_FileNotReadable("f").what(), "*** ERROR: No permission to read: f.");
    EXPECT_STREQ(rfm_FileBadParameterExc("C::Read").what(),
                 "*** ERROR: Bad parameter passed to file method: C::Read.");
    EXPECT_STREQ(rfm_FileConnectExc("f", "why").what(),
                 "*** ERROR: Can't connect to remote file:\nf, reason:\nwhy");
    EXPECT_STREQ(rfm_FileFailExc("f", "why").what(),
                 "*** ERROR: Lost connection to remote file:\nf, reason:\nwhy");
    EXPECT_STREQ(rfm_FileCacheExc().what(), "*** ERROR: Insufficient space in for network RDX local cache.");
}

TEST_F(rfm_FileTest, ARefusalKnowsItsPlaceInTheSource)
{
    try
    {
        rfm_File::Open(Name(), utl_FileAccessRead);
        FAIL() << "nothing was thrown";
    }
    catch (const rfm_FileException& failure)
    {
        EXPECT_TRUE(failure.SourceName().View().ends_with("rfm_File.cpp"));
        EXPECT_GT(failure.Line(), 0);
    }
}
