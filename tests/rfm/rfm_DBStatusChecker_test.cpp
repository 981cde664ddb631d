#include "rfm_DBStatusChecker.h"

#include "Forked.h"
#include "TestFolder.h"
#include "Thrown.h"
#include "utl_File.h"

#include <gmock/gmock.h>
#include <string>
#include <unistd.h>
#include <vector>

using ::testing::ElementsAre;

namespace
{
/// A checker that notes what it was told, as one in a server would act on it.
class NotingChecker : public rfm_DBStatusCheckerFile
{
public:
    using rfm_DBStatusCheckerFile::rfm_DBStatusCheckerFile;
    void StatusSeen(int status) override { notes.push_back(std::to_string(status)); }
    void FileChanged() override { notes.emplace_back("changed"); }
    std::vector<std::string> notes;
};

class rfm_DBStatusCheckerTest : public ::testing::Test
{
protected:
    rfm_DBStatusCheckerTest() { PutHeader("\1\0\0\0", "\x00\x21\x43\x65"); }

    cow_String Name() const { return m_Folder.Path("job.rdx"); }
    cow_String Semaphore() const { return m_Folder.Path("job.lsm"); }
    void PutHeader(const char* flushCount, const char* creationTime) const
    {
        std::string bytes(1024, '\0');
        bytes.replace(512, 4, flushCount, 4);
        bytes.replace(516, 4, creationTime, 4);
        PutBytes(Name(), bytes);
    }
    static constexpr const char* kTime = "\x00\x21\x43\x65";

    TestFolder m_Folder;
};
} // namespace

TEST_F(rfm_DBStatusCheckerTest, TheStatusesHaveTheirNumbers)
{
    EXPECT_EQ(rfm_FileStatus::RfmFileUnchanged, 0);
    EXPECT_EQ(rfm_FileStatus::RfmFileReplaced, 1);
    EXPECT_EQ(rfm_FileStatus::RfmFileUpdated, 2);
    EXPECT_EQ(rfm_FileStatus::RfmFileGone, 3);
    EXPECT_EQ(rfm_FileStatus::RfmFileInTransaction, 4);
}

TEST_F(rfm_DBStatusCheckerTest, NothingHasChangedAtFirst)
{
    NotingChecker checker(Name());
    EXPECT_EQ(checker.CheckStatus(), rfm_FileStatus::RfmFileUnchanged);
    EXPECT_EQ(checker.CheckStatus(), rfm_FileStatus::RfmFileUnchanged);
    EXPECT_THAT(checker.notes, ElementsAre("0", "0"));
}

TEST_F(rfm_DBStatusCheckerTest, AFlushIsAnUpdateOnce)
{
    NotingChecker checker(Name());
    PutHeader("\2\0\0\0", kTime);
    EXPECT_EQ(checker.CheckStatus(), rfm_FileStatus::RfmFileUpdated);
    EXPECT_EQ(checker.CheckStatus(), rfm_FileStatus::RfmFileUnchanged);
    EXPECT_THAT(checker.notes, ElementsAre("2", "changed", "0"));
}

TEST_F(rfm_DBStatusCheckerTest, EveryByteOfTheCountCounts)
{
    NotingChecker checker(Name());
    for (const char* count : {"\1\0\0\1", "\1\0\1\1", "\1\1\1\1", "\0\0\0\0"})
    {
        PutHeader(count, kTime);
        EXPECT_EQ(checker.CheckStatus(), rfm_FileStatus::RfmFileUpdated);
    }
}

TEST_F(rfm_DBStatusCheckerTest, AnotherCreationTimeMeansReplacedForGood)
{
    NotingChecker checker(Name());
    PutHeader("\2\0\0\0", "\x01\x21\x43\x65");
    EXPECT_EQ(checker.CheckStatus(), rfm_FileStatus::RfmFileReplaced);
    EXPECT_EQ(checker.CheckStatus(), rfm_FileStatus::RfmFileReplaced);
    EXPECT_THAT(checker.notes, ElementsAre("1", "1"));
    PutHeader("\2\0\0\0", kTime);
    EXPECT_EQ(checker.CheckStatus(), rfm_FileStatus::RfmFileUpdated) << "the numbers stayed as they were";
}

TEST_F(rfm_DBStatusCheckerTest, AnotherFileWithTheSameNumbersIsAReplacementToo)
{
    NotingChecker checker(Name());
    std::filesystem::rename(Name().CString(), m_Folder.Path("aside").CString());
    PutHeader("\1\0\0\0", kTime);
    EXPECT_EQ(checker.CheckStatus(), rfm_FileStatus::RfmFileReplaced);
    EXPECT_EQ(checker.CheckStatus(), rfm_FileStatus::RfmFileReplaced);
}

TEST_F(rfm_DBStatusCheckerTest, TheTimeOfAnOlderFormatIsComparedLikeAnyOther)
{
    std::string bytes(1024, '\0');
    bytes.replace(0, 12, std::string("TVNRTEST\x0B\0\0\0", 12));
    bytes.replace(516, 4, "old!");
    PutBytes(Name(), bytes);
    NotingChecker checker(Name());
    EXPECT_EQ(checker.CheckStatus(), rfm_FileStatus::RfmFileUnchanged);
    bytes.replace(516, 4, "new!");
    PutBytes(Name(), bytes);
    EXPECT_EQ(checker.CheckStatus(), rfm_FileStatus::RfmFileReplaced);
}

TEST_F(rfm_DBStatusCheckerTest, TheHalfOfTheTimeBehindItsFirstFourBytesDoesNotCount)
{
    NotingChecker checker(Name());
    std::string bytes = BytesOf(Name());
    bytes.replace(520, 4, "more");
    PutBytes(Name(), bytes);
    EXPECT_EQ(checker.CheckStatus(), rfm_FileStatus::RfmFileUnchanged);
}

TEST_F(rfm_DBStatusCheckerTest, AFileThatWentIsGoneUntilItIsBack)
{
    NotingChecker checker(Name());
    std::filesystem::rename(Name().CString(), m_Folder.Path("aside").CString());
    EXPECT_EQ(checker.CheckStatus(), rfm_FileStatus::RfmFileGone);
    EXPECT_EQ(checker.CheckStatus(), rfm_FileStatus::RfmFileGone);
    std::filesystem::rename(m_Folder.Path("aside").CString(), Name().CString());
    EXPECT_EQ(checker.CheckStatus(), rfm_FileStatus::RfmFileUnchanged);
    EXPECT_THAT(checker.notes, ElementsAre("3", "3", "0"));
}

TEST_F(rfm_DBStatusCheckerTest, TheSemaphoreComesBeforeEverythingElse)
{
    NotingChecker checker(Name());
    PutHeader("\2\0\0\0", kTime);
    std::filesystem::create_directory(Semaphore().CString());
    EXPECT_EQ(checker.CheckStatus(), rfm_FileStatus::RfmFileInTransaction);
    std::filesystem::rename(Name().CString(), m_Folder.Path("aside").CString());
    EXPECT_EQ(checker.CheckStatus(), rfm_FileStatus::RfmFileInTransaction);
    std::filesystem::rename(m_Folder.Path("aside").CString(), Name().CString());
    std::filesystem::remove(Semaphore().CString());
    EXPECT_EQ(checker.CheckStatus(), rfm_FileStatus::RfmFileUpdated);
    EXPECT_THAT(checker.notes, ElementsAre("4", "4", "2", "changed"));
}

TEST_F(rfm_DBStatusCheckerTest, WhateverHasTheSemaphoresNameCounts)
{
    NotingChecker checker(Name());
    PutBytes(Semaphore(), "a file");
    EXPECT_EQ(checker.CheckStatus(), rfm_FileStatus::RfmFileInTransaction);
}

TEST_F(rfm_DBStatusCheckerTest, BehindAUrlThereIsNoSemaphore)
{
    // A folder named as the scheme makes a local file out of a URL.
    const int status = ExitCodeOfForked(
        [&]
        {
            if (::chdir(m_Folder.Path().c_str()) != 0) return 90;
            std::filesystem::create_directory("mrkrdb:");
            std::filesystem::create_directory("mrkrdb:/job.lsm");
            std::filesystem::copy_file("job.rdx", "mrkrdb:/job.rdx");
            NotingChecker plain("mrkrdb:/job.rdx");
            NotingChecker url("mrkrdb://job.rdx");
            return 10 * plain.CheckStatus() + url.CheckStatus();
        });
    EXPECT_EQ(status, 40);
}

TEST_F(rfm_DBStatusCheckerTest, WhatAShortFileLacksCountsAsZero)
{
    PutBytes(Name(), std::string(513, '\7'));
    NotingChecker checker(Name());
    std::string bytes(1024, '\0');
    bytes[512] = '\7';
    PutBytes(Name(), bytes);
    EXPECT_EQ(checker.CheckStatus(), rfm_FileStatus::RfmFileUnchanged);
    PutBytes(Name(), "");
    EXPECT_EQ(checker.CheckStatus(), rfm_FileStatus::RfmFileUpdated);
}

TEST_F(rfm_DBStatusCheckerTest, AMissingFileCannotBeWatched)
{
    EXPECT_THROW(NotingChecker(m_Folder.Path("none")), utl_FileExceptionNoFile);
}

TEST_F(rfm_DBStatusCheckerTest, ADirectoryInItsPlaceIsTheSystemsRefusal)
{
    NotingChecker checker(Name());
    ASSERT_EQ(::unlink(Name().CString()), 0);
    std::filesystem::create_directory(Name().CString());
    EXPECT_NE(Thrown<utl_FileException>([&] { checker.CheckStatus(); }).find("Is a directory"),
              std::string::npos);
}

TEST_F(rfm_DBStatusCheckerTest, AFileThatIsCreatedAnewUnderTheNameIsLookedAtByName)
{
    rfm_DBStatusCheckerFileLocal checker(Name());
    utl_File reader(Name(), utl_FileAccessRead, 0);
    {
        utl_File writer(Name(), utl_FileAccessCreate, 0);
        writer.Extend(1024);
    }
    EXPECT_EQ(checker.CheckStatus(), rfm_FileStatus::RfmFileReplaced);
    EXPECT_EQ(reader.FileSize(), 1024);
    char bytes[4] = {};
    reader.Seek(516);
    reader.Read(bytes, 4);
    EXPECT_EQ(std::string(bytes, 4), std::string(kTime, 4)) << "its reader keeps the old file";
}
