#include "rfm_FileReprLocal.h"

#include "EnvironmentVariable.h"
#include "Forked.h"
#include "TestFolder.h"
#include "Thrown.h"
#include "omi_Swapper.h"
#include "rfm_Database.h"
#include "rfm_FileException.h"
#include "rfm_HeaderFormat.h"
#include "utl_FaultPlan.h"

#include <algorithm>
#include <cmath>
#include <gmock/gmock.h>
#include <limits>
#include <memory>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using ::testing::ElementsAre;
using Transfer = utl_FaultPlan::Transfer;

namespace
{
constexpr std::int64_t kStep = 1048576;
constexpr const char* kCorrupt =
    "***ERROR: The MARLEK database file is corrupt. If this file was transferred from another machine using "
    "FTP or "
    "equivalent, ensure that the file was copied using the binary mode instead of ASCII mode.";

class rfm_FileReprLocalTest : public ::testing::Test
{
protected:
    cow_String Name() const { return m_Folder.Path("job.rdx"); }
    cow_String Semaphore() const { return m_Folder.Path("job.lsm"); }
    bool SemaphoreIsThere() const { return std::filesystem::is_directory(Semaphore().CString()); }
    std::string ReadOnlyText() const
    {
        return std::string("*** ERROR: Attempt to write to read-only file:\n  ") + Name().CString();
    }
    /// A file of `size` bytes with `stamp` at 500.
    void PutStamped(std::size_t size, std::string_view stamp) const
    {
        std::string bytes(size, 'x');
        bytes.replace(rfm_SizeStampOffset, stamp.size(), stamp);
        PutBytes(Name(), bytes);
    }
    /// A header with the two counts, low byte first.
    void PutCounts(char flushCount, char creationTime) const
    {
        std::string bytes(1024, '\0');
        bytes[512] = flushCount;
        bytes[516] = creationTime;
        PutBytes(Name(), bytes);
    }
    std::string Verify() const
    {
        rfm_FileReprLocal file(Name(), utl_FileAccessRead, false);
        return Thrown<nex_TextException>([&] { file.VerifySizeStamp(rfm_SizeStampOffset); });
    }

    TestFolder m_Folder;
};

std::string Bytes(const char* text, std::size_t count) { return std::string(text, count); }
constexpr const char* kPasses = "nothing was thrown";
} // namespace

// --- opening

TEST_F(rfm_FileReprLocalTest, ANewFileHasNoSizeAndNoNews)
{
    rfm_FileReprLocal file(Name(), utl_FileAccessCreate, false);
    EXPECT_FALSE(file.ReadOnly());
    EXPECT_EQ(file.Length(), 0);
    EXPECT_EQ(file.PhysicalLength(), 0);
    EXPECT_EQ(file.Location(), 0);
    EXPECT_EQ(file.CheckStatus(), 0);
    PutCounts(9, 9);
    EXPECT_EQ(file.CheckStatus(), 0);
    std::filesystem::create_directory(Semaphore().CString());
    EXPECT_EQ(file.CheckStatus(), 0);
}

TEST_F(rfm_FileReprLocalTest, AnExistingFileHasTheSizeOfItsMedium)
{
    PutCounts(1, 1);
    for (const utl_FileAccess access : {utl_FileAccessRead, utl_FileAccessUpdate})
    {
        const rfm_FileReprLocal file(Name(), access, false);
        EXPECT_EQ(file.ReadOnly(), access == utl_FileAccessRead);
        EXPECT_EQ(file.Length(), 1024);
        EXPECT_EQ(file.LogicalLength(), 1024);
        EXPECT_EQ(file.PhysicalLength(), 1024);
        EXPECT_EQ(file.Location(), 0);
        EXPECT_EQ(file.FileName(), Name());
    }
}

TEST_F(rfm_FileReprLocalTest, AMissingFileIsTheSystemsRefusal)
{
    EXPECT_THROW(rfm_FileReprLocal(Name(), utl_FileAccessRead, false), utl_FileExceptionNoFile);
}

// --- transfers

TEST_F(rfm_FileReprLocalTest, AFileThatIsReplacedDuringTheOpenIsReadAnewAndToldAsReplaced)
{
    PutCounts(1, 1);
    const cow_String fresh = m_Folder.Path("fresh");
    PutBytes(fresh, std::string(2048, 'n'));
    utl_FaultPlan plan;
    plan.AtRead(1, [&] { std::filesystem::rename(fresh.CString(), Name().CString()); });
    rfm_FileReprLocal file(Name(), utl_FileAccessRead, false);
    char byte = 0;
    EXPECT_EQ(file.Read(&byte, 1), 1);
    EXPECT_EQ(byte, 'n');
    EXPECT_EQ(file.PhysicalLength(), 2048);
    EXPECT_EQ(file.CheckStatus(), rfm_FileStatus::RfmFileReplaced);
}

TEST_F(rfm_FileReprLocalTest, BadParametersNameTheOperation)
{
    rfm_FileReprLocal file(Name(), utl_FileAccessCreate, false);
    char byte = 'x';
    const std::string read = "*** ERROR: Bad parameter passed to file method: rfm_FileReprLocal::Read.";
    const std::string write = "*** ERROR: Bad parameter passed to file method: rfm_FileReprLocal::Write.";
    EXPECT_EQ(Thrown<rfm_FileBadParameterExc>([&] { file.Read(nullptr, 1); }), read);
    EXPECT_EQ(Thrown<rfm_FileBadParameterExc>([&] { file.Read(&byte, -1); }), read);
    EXPECT_EQ(Thrown<rfm_FileBadParameterExc>([&] { file.Write(nullptr, 0); }), write);
    EXPECT_EQ(Thrown<rfm_FileBadParameterExc>([&] { file.Write(&byte, -1); }), write);
    EXPECT_EQ(file.Read(&byte, 0), 0);
    EXPECT_EQ(file.Write(&byte, 0), 0);
    EXPECT_EQ(file.Location(), 0);
}

TEST_F(rfm_FileReprLocalTest, AReadIsShortAtTheEndAndMovesByWhatCame)
{
    PutBytes(Name(), "abcdef");
    rfm_FileReprLocal file(Name(), utl_FileAccessRead, false);
    char bytes[8] = {};
    file.Seek(4);
    EXPECT_EQ(file.Read(bytes, 8), 2);
    EXPECT_EQ(file.Location(), 6);
    EXPECT_EQ(file.Read(bytes, 8), 0);
    EXPECT_EQ(file.Location(), 6);
}

TEST_F(rfm_FileReprLocalTest, EveryChangeOfAFileOpenedForReadingIsRefused)
{
    PutBytes(Name(), "abcdef");
    rfm_FileReprLocal file(Name(), utl_FileAccessRead, false);
    EXPECT_EQ(Thrown<rfm_FileReadOnlyExc>([&] { file.Write("x", 1); }), ReadOnlyText());
    EXPECT_EQ(Thrown<rfm_FileReadOnlyExc>([&] { file.ExtendBy(1); }), ReadOnlyText());
    EXPECT_EQ(Thrown<rfm_FileReadOnlyExc>([&] { file.Extend(1); }), ReadOnlyText());
    EXPECT_EQ(Thrown<rfm_FileReadOnlyExc>([&] { file.TrimToLength(); }), ReadOnlyText());
    EXPECT_EQ(Thrown<rfm_FileReadOnlyExc>([&] { file.WriteSizeStamp(0); }), ReadOnlyText());
    EXPECT_EQ(Thrown<rfm_FileBadParameterExc>([&] { file.Write(nullptr, 1); }),
              "*** ERROR: Bad parameter passed to file method: rfm_FileReprLocal::Write.");
    EXPECT_EQ(file.Length(), 6);
    EXPECT_EQ(BytesOf(Name()), "abcdef");
}

TEST_F(rfm_FileReprLocalTest, AWritePastThePhysicalSizeRaisesItAndNotTheLength)
{
    rfm_FileReprLocal file(Name(), utl_FileAccessCreate, false);
    file.Write("abcdef", 6);
    EXPECT_EQ(file.PhysicalLength(), 6);
    EXPECT_EQ(file.Length(), 0);
    file.Seek(2);
    file.Write("xy", 2);
    EXPECT_EQ(file.PhysicalLength(), 6);
    EXPECT_EQ(file.Location(), 4);
}

TEST_F(rfm_FileReprLocalTest, AFailedReadLeavesThePositionOfFileAndBackendTogether)
{
    std::string bytes;
    for (int i = 0; i < 100000; ++i) bytes += static_cast<char>('a' + i % 23);
    PutBytes(Name(), bytes);
    for (int failAt = 1;; ++failAt)
    {
        rfm_FileReprLocal file(Name(), utl_FileAccessRead, false);
        const utl_FaultPlan plan({.failRead = failAt});
        for (int place = 0; place + 999 <= 100000; place += 999)
        {
            const auto start = static_cast<std::size_t>(place);
            cow_String piece;
            const auto read = [&] { piece = file.ReadFixedString(999); };
            if (Thrown<utl_FileException>(read) != kPasses)
            {
                ASSERT_EQ(file.Location(), place);
                file.Seek(place);
                read();
            }
            ASSERT_EQ(piece.View(), std::string_view(bytes).substr(start, 999)) << place;
        }
        if (!plan.Fired()) break;
        ASSERT_LT(failAt, 1000);
    }
}

// --- growing

TEST_F(rfm_FileReprLocalTest, TheFirstGrowthTakesAWholeStep)
{
    rfm_FileReprLocal file(Name(), utl_FileAccessCreate, false);
    EXPECT_TRUE(file.GrowsBy(1024));
    EXPECT_TRUE(file.ExtendBy(1024));
    EXPECT_EQ(file.Length(), 1024);
    EXPECT_EQ(file.LogicalLength(), 1024);
    EXPECT_EQ(file.PhysicalLength(), kStep);
    EXPECT_EQ(BytesOf(Name()), std::string(kStep, '\0'));
}

TEST_F(rfm_FileReprLocalTest, AGrowthWithinTheStepLeavesTheMediumAlone)
{
    rfm_FileReprLocal file(Name(), utl_FileAccessCreate, false);
    file.ExtendBy(1024);
    const utl_FaultPlan plan;
    EXPECT_FALSE(file.GrowsBy(kStep - 1024));
    EXPECT_FALSE(file.ExtendBy(1000));
    EXPECT_FALSE(file.ExtendBy(0));
    EXPECT_EQ(file.PhysicalLength(), kStep);
    EXPECT_EQ(plan.Extends(), 0);
    EXPECT_FALSE(file.ExtendBy(kStep - 2024));
    EXPECT_EQ(file.Length(), kStep);
    EXPECT_EQ(file.PhysicalLength(), kStep) << "a whole number of steps isn't rounded further";
    EXPECT_TRUE(file.ExtendBy(1));
    EXPECT_EQ(file.PhysicalLength(), 2 * kStep);
    EXPECT_THAT(plan.ExtendLog(), ElementsAre(2 * kStep));
}

TEST_F(rfm_FileReprLocalTest, ExtendIsExtendBy)
{
    rfm_FileReprLocal file(Name(), utl_FileAccessCreate, false);
    file.Extend(3 * kStep);
    EXPECT_EQ(file.Length(), 3 * kStep);
    EXPECT_EQ(file.PhysicalLength(), 3 * kStep);
}

TEST_F(rfm_FileReprLocalTest, AGrowthThatTheDiskRefusesLeavesBothSizes)
{
    rfm_FileReprLocal file(Name(), utl_FileAccessCreate, false);
    file.ExtendBy(1000);
    utl_FaultPlan plan({.room = kStep});
    EXPECT_EQ(Thrown<utl_FileException>([&] { file.ExtendBy(kStep); }),
              std::string("*** ERROR: Can't extend file:\n  ") + Name().CString() +
                  ", reason:\n  No space left on device.");
    EXPECT_EQ(file.Length(), 1000);
    EXPECT_EQ(file.PhysicalLength(), kStep);
    plan.Repair();
    EXPECT_TRUE(file.ExtendBy(kStep));
    EXPECT_EQ(file.Length(), kStep + 1000);
}

TEST_F(rfm_FileReprLocalTest, ASizeBeyondAllNumbersIsRefused)
{
    rfm_FileReprLocal file(Name(), utl_FileAccessCreate, false);
    file.ExtendBy(10);
    EXPECT_EQ(Thrown<nex_TextException>([&] { file.ExtendBy(INT64_MAX); }),
              "***ERROR: A file position or length is out of range.");
    EXPECT_EQ(Thrown<nex_TextException>([&] { file.ExtendBy(INT64_MAX - 100); }),
              "***ERROR: A file position or length is out of range.");
    EXPECT_EQ(file.Length(), 10);
}

TEST_F(rfm_FileReprLocalTest, TrimMakesTheFileAsLongAsItsLength)
{
    rfm_FileReprLocal file(Name(), utl_FileAccessCreate, false);
    file.ExtendBy(5);
    file.Write("abcdefgh", 8);
    file.TrimToLength();
    EXPECT_EQ(file.PhysicalLength(), 5);
    EXPECT_EQ(file.MediumSize(), 5);
    EXPECT_EQ(BytesOf(Name()), "abcde");
}

TEST_F(rfm_FileReprLocalTest, ConsecutiveAccessesNeedNoSeek)
{
    rfm_FileReprLocal file(Name(), utl_FileAccessCreate, false);
    const utl_FaultPlan plan;
    file.Write("abc", 3);
    file.Seek(3);
    file.Write("def", 3);
    file.Seek(6);
    EXPECT_EQ(plan.Writes(), 0);
    file.Flush();
    EXPECT_THAT(plan.WriteLog(), ElementsAre(Transfer{0, 6}));
}

// --- the size stamp

TEST(rfm_SizeStamp, ItIsFourZerosAndTheSizeAsADouble)
{
    char bytes[rfm_SizeStampBytes];
    rfm_EncodeSizeStamp(15368, false, bytes);
    EXPECT_EQ(Bytes(bytes, 12), Bytes("\x00\x00\x00\x00\x00\x00\x00\x00\x00\x04\xCE\x40", 12));
    rfm_EncodeSizeStamp(15368, true, bytes);
    EXPECT_EQ(Bytes(bytes, 12), Bytes("\x00\x00\x00\x00\x40\xCE\x04\x00\x00\x00\x00\x00", 12));
    EXPECT_TRUE(rfm_SizeStampAllows(bytes, true, 15368));
    EXPECT_FALSE(rfm_SizeStampAllows(bytes, true, 15367));
}

TEST_F(rfm_FileReprLocalTest, TheStampTellsThePhysicalSizeAndThePositionStays)
{
    rfm_FileReprLocal file(Name(), utl_FileAccessCreate, false);
    file.ExtendBy(1024);
    file.Seek(7);
    file.WriteSizeStamp(rfm_SizeStampOffset);
    EXPECT_EQ(file.Location(), 7);
    file.Flush();
    EXPECT_EQ(BytesOf(Name()).substr(500, 12), Bytes("\0\0\0\0\0\0\0\0\0\0\x30\x41", 12)); // 1048576.0
    file.VerifySizeStamp(rfm_SizeStampOffset);
    EXPECT_EQ(file.Location(), 7);
    file.ClearSizeStamp(rfm_SizeStampOffset);
    EXPECT_EQ(BytesOf(Name()).substr(500, 12), std::string(12, '\0'));
    EXPECT_EQ(file.Location(), 7);
}

TEST_F(rfm_FileReprLocalTest, AStampThatTellsAnotherSizeIsCorrupt)
{
    const std::string of1024 = Bytes("\0\0\0\0\0\0\0\0\0\0\x90\x40", 12);
    PutStamped(1024, of1024);
    EXPECT_EQ(Verify(), kPasses);
    PutStamped(1023, of1024);
    EXPECT_EQ(Verify(), kCorrupt);
    PutStamped(1025, of1024);
    EXPECT_EQ(Verify(), kCorrupt);
}

TEST_F(rfm_FileReprLocalTest, TheStampsFirstBytesCountOnlyWhenItTellsNoSize)
{
    PutStamped(1024, Bytes("zzzz\0\0\0\0\0\0\x90\x40", 12));
    EXPECT_EQ(Verify(), kPasses);
    PutStamped(1024, Bytes("\x0A\x00\x0D\x0A\0\0\0\0\0\0\0\0", 12));
    EXPECT_EQ(Verify(), kPasses);
    PutStamped(1024, Bytes("\x0A\x00\x0A\x0A\0\0\0\0\0\0\0\0", 12));
    EXPECT_EQ(Verify(), kCorrupt);
    PutStamped(1024, Bytes("\x0D\x0A\x00\x0D\0\0\0\0\0\0\0\0", 12));
    EXPECT_EQ(Verify(), kCorrupt);
}

TEST_F(rfm_FileReprLocalTest, AStampOfZerosPassesWhateverTheSize)
{
    for (const std::size_t size : {std::size_t{512}, std::size_t{1024}, std::size_t{99999}})
    {
        PutStamped(size, std::string(12, '\0'));
        EXPECT_EQ(Verify(), kPasses);
    }
    PutBytes(Name(), "");
    EXPECT_EQ(Verify(), kPasses) << "missing bytes count as zero";
}

TEST_F(rfm_FileReprLocalTest, AStampIsReadByAddingAHalfAndTruncating)
{
    PutStamped(1024, Bytes("\0\0\0\0\x00\x00\x00\x00\x00\xFE\x8F\x40", 12)); // 1023.75
    EXPECT_EQ(Verify(), kPasses);
    PutStamped(1024, Bytes("\0\0\0\0\x00\x00\x00\x00\x00\x00\xD0\x3F", 12)); // 0.25 is no size
    EXPECT_EQ(Verify(), kPasses);
}

TEST_F(rfm_FileReprLocalTest, AStampThatNoWriterCanHaveLeftIsCorrupt)
{
    for (const double stored : {-1.0, std::nan(""), std::numeric_limits<double>::infinity(), 1e300, -0.6})
    {
        char bytes[rfm_SizeStampBytes] = {};
        omi_Store(bytes + 4, stored, omi_Swapper(omi_Swapper::Stored));
        PutStamped(1024, std::string_view(bytes, sizeof bytes));
        EXPECT_EQ(Verify(), kCorrupt) << stored;
    }
}

TEST_F(rfm_FileReprLocalTest, AfterACloseTheFileIsAsLongAsItsLengthAndTheStampSaysSo)
{
    const auto create = [&] {
        return rfm_Database::Create(rfm_File::Open(Name(), utl_FileAccessCreate), "TEST", "demo", 0x65432100);
    };
    create().Close();
    EXPECT_EQ(BytesOf(Name()).size(), 15368U);
    EXPECT_EQ(BytesOf(Name()).substr(500, 12), Bytes("\x00\x00\x00\x00\x00\x00\x00\x00\x00\x04\xCE\x40", 12));
}

TEST_F(rfm_FileReprLocalTest, AFileWithoutItsLastByteFailsTheCheckAtOpen)
{
    rfm_Database::Create(rfm_File::Open(Name(), utl_FileAccessCreate), "TEST", "demo", 1).Close();
    std::filesystem::resize_file(Name().CString(), 15367);
    EXPECT_EQ(Thrown<nex_TextException>(
                  [&] { rfm_Database::Open(rfm_File::Open(Name(), utl_FileAccessRead), "TEST"); }),
              kCorrupt);
}

// --- the reader semaphore

TEST(rfm_Semaphore, ItsNameIsMadeFromTheFiles)
{
    EXPECT_EQ(rfm_SemaphorePath("job.rdx").View(), "job.lsm");
    EXPECT_EQ(rfm_SemaphorePath("job.dat").View(), "job.dat.lsm");
    EXPECT_EQ(rfm_SemaphorePath("job.RDX").View(), "job.RDX.lsm");
    EXPECT_EQ(rfm_SemaphorePath("job.rdx.old").View(), "job.rdx.old.lsm");
    EXPECT_EQ(rfm_SemaphorePath("a.rdx/b").View(), "a.rdx/b.lsm");
    EXPECT_EQ(rfm_SemaphorePath("job.x.rdx").View(), "job.x.lsm");
    EXPECT_EQ(rfm_SemaphorePath("jobrdx").View(), "jobrdx.lsm");
    EXPECT_EQ(rfm_SemaphorePath(".rdx").View(), ".lsm");
    EXPECT_EQ(rfm_SemaphorePath("").View(), ".lsm");
}

TEST(rfm_Semaphore, ANameAndItsRdxFormShareTheSemaphore)
{
    EXPECT_EQ(rfm_SemaphorePath("job"), rfm_SemaphorePath("job.rdx"));
}

TEST_F(rfm_FileReprLocalTest, TheSemaphoreIsAnEmptyDirectoryBesideTheFile)
{
    rfm_FileReprLocal file(Name(), utl_FileAccessCreate, false);
    file.SemaphoreSet();
    EXPECT_TRUE(SemaphoreIsThere());
    EXPECT_TRUE(std::filesystem::is_empty(Semaphore().CString()));
    file.SemaphoreClear();
    EXPECT_FALSE(SemaphoreIsThere());
}

TEST_F(rfm_FileReprLocalTest, SettingAndClearingTheSemaphoreHandOverWhatWasWritten)
{
    rfm_FileReprLocal file(Name(), utl_FileAccessCreate, false);
    file.Write("abc", 3);
    file.SemaphoreSet();
    EXPECT_EQ(BytesOf(Name()), "abc");
    file.Write("def", 3);
    file.SemaphoreClear();
    EXPECT_EQ(BytesOf(Name()), "abcdef");
}

TEST_F(rfm_FileReprLocalTest, ASemaphoreThatCannotBeMadeOrRemovedIsNotReported)
{
    rfm_FileReprLocal file(Name(), utl_FileAccessCreate, false);
    file.SemaphoreClear();
    PutBytes(Semaphore(), "in the way");
    EXPECT_NO_THROW(file.SemaphoreSet());
    EXPECT_NO_THROW(file.SemaphoreClear());
    EXPECT_EQ(BytesOf(Semaphore()), "in the way");
}

TEST_F(rfm_FileReprLocalTest, AReaderNeitherSetsNorClearsTheSemaphore)
{
    PutCounts(1, 1);
    rfm_FileReprLocal file(Name(), utl_FileAccessRead, false);
    file.SemaphoreSet();
    EXPECT_FALSE(SemaphoreIsThere());
    std::filesystem::create_directory(Semaphore().CString());
    file.SemaphoreClear();
    EXPECT_TRUE(SemaphoreIsThere());
}

TEST_F(rfm_FileReprLocalTest, AWriterIsNotLockedOutByItself)
{
    PutCounts(1, 1);
    rfm_FileReprLocal writer(Name(), utl_FileAccessUpdate, false);
    rfm_FileReprLocal reader(Name(), utl_FileAccessRead, false);
    EXPECT_FALSE(reader.IsHeldByWriter());
    writer.SemaphoreSet();
    EXPECT_FALSE(writer.IsHeldByWriter());
    EXPECT_TRUE(reader.IsHeldByWriter());
    EXPECT_EQ(reader.CheckStatus(), 4);
    writer.SemaphoreClear();
    EXPECT_FALSE(reader.IsHeldByWriter());
    EXPECT_EQ(reader.CheckStatus(), 0);
}

TEST_F(rfm_FileReprLocalTest, AskingWhetherAWriterHoldsTheFileUsesUpThePendingUpdate)
{
    PutCounts(1, 1);
    rfm_FileReprLocal reader(Name(), utl_FileAccessRead, false);
    PutCounts(2, 1);
    EXPECT_FALSE(reader.IsHeldByWriter());
    EXPECT_EQ(reader.CheckStatus(), 0);
    PutCounts(3, 1);
    EXPECT_EQ(reader.CheckStatus(), 2);
}

TEST_F(rfm_FileReprLocalTest, ASnapUsesUpThePendingUpdate)
{
    rfm_Database writer =
        rfm_Database::Create(rfm_File::Open(Name(), utl_FileAccessCreate), "TEST", "demo", 1);
    writer.Flush();
    rfm_Database reader = rfm_Database::Open(rfm_File::Open(Name(), utl_FileAccessRead), "TEST");
    writer.Flush();
    EXPECT_EQ(reader.Snap(), 1);
    EXPECT_EQ(reader.FileStatus(), rfm_FileStatus::RfmFileUnchanged);
    writer.Flush();
    EXPECT_EQ(reader.FileStatus(), rfm_FileStatus::RfmFileUpdated);
    EXPECT_EQ(reader.Snap(), 1);
}

// --- PAUSE_FOR_TRANSACTION

namespace
{
/// A forked child that brackets a transaction, with pipes on its standard input and error.
class PausingWriter
{
public:
    explicit PausingWriter(const cow_String& name)
    {
        int input[2];
        int error[2];
        if (::pipe(input) != 0 || ::pipe(error) != 0) throw std::runtime_error("no pipe");
        m_Child = ::fork();
        if (m_Child == 0)
        {
            ::dup2(input[0], 0);
            ::dup2(error[1], 2);
            for (const int descriptor : {input[0], input[1], error[0], error[1]}) ::close(descriptor);
            ::_exit(Run(name));
        }
        ::close(input[0]);
        ::close(error[1]);
        m_Input = input[1];
        m_Error = error[0];
    }
    ~PausingWriter()
    {
        EndInput();
        ::close(m_Error);
        int status = 0;
        ::waitpid(m_Child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    void Answer(std::string_view line)
    {
        EXPECT_EQ(::write(m_Input, line.data(), line.size()), static_cast<ssize_t>(line.size()));
    }
    void EndInput()
    {
        if (m_Input >= 0) ::close(m_Input);
        m_Input = -1;
    }
    /// Waits for that many bytes on the child's standard error.
    std::string Says(std::size_t count)
    {
        std::string text;
        char byte = 0;
        while (text.size() < count && ::read(m_Error, &byte, 1) == 1) text += byte;
        return text;
    }

private:
    static int Run(const cow_String& name)
    {
        ::setenv("PAUSE_FOR_TRANSACTION", "", 1);
        rfm_FileReprLocal file(name, utl_FileAccessCreate, false);
        file.SemaphoreSet();
        const bool isThere = std::filesystem::is_directory(rfm_SemaphorePath(name).CString());
        std::fputs(isThere ? "held." : "not held.", stderr);
        file.SemaphoreClear();
        std::fputs("left:", stderr);
        for (int c = std::getchar(); c != EOF; c = std::getchar()) std::fputc(c, stderr);
        return 0;
    }
    pid_t m_Child = -1;
    int m_Input = -1;
    int m_Error = -1;
};
} // namespace

TEST_F(rfm_FileReprLocalTest, WithPausesEachStepOfATransactionWaitsForALine)
{
    PausingWriter writer(Name());
    EXPECT_EQ(writer.Says(20), "Before transaction: ");
    EXPECT_FALSE(SemaphoreIsThere());
    writer.Answer("one\n");
    EXPECT_EQ(writer.Says(5 + 19), "held.After transaction: ");
    EXPECT_FALSE(SemaphoreIsThere()) << "removed before the pause";
    writer.Answer("two\nthree");
    writer.EndInput();
    EXPECT_EQ(writer.Says(99), "left:three");
}

TEST_F(rfm_FileReprLocalTest, AtTheEndOfTheInputNoPauseWaits)
{
    PausingWriter writer(Name());
    writer.EndInput();
    EXPECT_EQ(writer.Says(99), "Before transaction: held.After transaction: left:");
}

TEST_F(rfm_FileReprLocalTest, AReaderDoesNotPause)
{
    PutCounts(1, 1);
    const EnvironmentVariable pause("PAUSE_FOR_TRANSACTION", "1");
    rfm_FileReprLocal file(Name(), utl_FileAccessRead, false);
    ::testing::internal::CaptureStderr();
    file.SemaphoreSet();
    file.SemaphoreClear();
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}
