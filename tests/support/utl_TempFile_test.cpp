#include "utl_TempFile.h"

#include "Descriptors.h"
#include "EnvironmentVariable.h"
#include "TestFolder.h"
#include "Thrown.h"
#include "utl_File.h"
#include "utl_FileException.h"

#include <cstdio>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <memory>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace
{
class utl_TempFileTest : public ::testing::Test
{
protected:
    std::size_t FileCount() const
    {
        return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(m_Folder.Path()),
                                                      std::filesystem::directory_iterator()));
    }
    static std::string ReadAndClose(int descriptor)
    {
        char bytes[64];
        FILE* stream = ::fdopen(descriptor, "r");
        if (stream == nullptr) return "no stream";
        const std::size_t count = std::fread(bytes, 1, sizeof bytes, stream);
        std::fclose(stream);
        return {bytes, count};
    }

    TestFolder m_Folder;
    EnvironmentVariable m_TempDirectory{"TMPDIR", m_Folder.Path().c_str()};
};
} // namespace

TEST_F(utl_TempFileTest, AnEmptyNameMakesAFreshEmptyFileOfThisUserAlone)
{
    const int before = OpenDescriptorCount();
    std::string name;
    {
        const utl_TempFile file("");
        const utl_TempFile other("");
        name = file.Name().View();
        EXPECT_NE(file.Name(), other.Name());
        EXPECT_TRUE(name.starts_with(m_Folder.Path() + "/"));
        struct stat status
        {
        };
        ASSERT_EQ(::stat(name.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode, S_IFREG | 0600U);
        EXPECT_EQ(status.st_size, 0);
        EXPECT_EQ(FileCount(), 2U);
        EXPECT_EQ(OpenDescriptorCount(), before);
    }
    EXPECT_EQ(FileCount(), 0U) << "they go with their objects";
}

TEST_F(utl_TempFileTest, ATemporaryDirectoryThatIsNoAbsolutePathIsNotUsed)
{
    for (const char* directory : {static_cast<const char*>(nullptr), "", "relative"})
    {
        const EnvironmentVariable given("TMPDIR", directory);
        const utl_TempFile file("");
        EXPECT_TRUE(file.Name().View().starts_with("/tmp/"));
    }
}

TEST_F(utl_TempFileTest, ADirectoryThatTakesNoFileIsRefusedWithItsName)
{
    const EnvironmentVariable given("TMPDIR", (m_Folder.Path() + "/none").c_str());
    const std::string text = Thrown<utl_FileException>([] { utl_TempFile(""); });
    EXPECT_NE(text.find(m_Folder.Path() + "/none/"), std::string::npos);
    EXPECT_NE(text.find("No such file or directory"), std::string::npos);
}

TEST_F(utl_TempFileTest, ANamedFileIsLeftToOthersToMakeAndGoesAtTheEnd)
{
    {
        utl_TempFile file(m_Folder.Path("errors"));
        EXPECT_EQ(file.Name(), m_Folder.Path("errors"));
        EXPECT_FALSE(file.OpenIfPresent());
        EXPECT_EQ(file.TakeDescriptor(), -1);
        PutBytes(file.Name(), "words");
        EXPECT_TRUE(file.OpenIfPresent());
    }
    EXPECT_EQ(FileCount(), 0U);
}

TEST_F(utl_TempFileTest, AFileThatHasGoneIsNoFailure)
{
    utl_TempFile file("");
    ASSERT_EQ(::unlink(file.Name().CString()), 0);
    EXPECT_FALSE(file.OpenIfPresent());
}

TEST_F(utl_TempFileTest, AnythingButAFileOfBytesIsNotOpened)
{
    utl_TempFile fifo(m_Folder.Path("fifo"));
    ASSERT_EQ(::mkfifo(fifo.Name().CString(), 0600), 0);
    EXPECT_FALSE(fifo.OpenIfPresent());
    EXPECT_EQ(fifo.TakeDescriptor(), -1);
}

TEST_F(utl_TempFileTest, WhoTakesTheDescriptorMayCloseItWithAStreamAndNobodyClosesItAgain)
{
    utl_TempFile file("");
    PutBytes(file.Name(), "words");
    ASSERT_TRUE(file.OpenIfPresent());
    const int taken = file.TakeDescriptor();
    EXPECT_EQ(::fcntl(taken, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    EXPECT_EQ(ReadAndClose(taken), "words");

    // Somebody else gets the number. Neither opening again nor the end of the object takes it from him.
    const int reused = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(reused, taken);
    ASSERT_TRUE(file.OpenIfPresent());
    EXPECT_TRUE(IsOpen(reused));
    EXPECT_EQ(ReadAndClose(file.TakeDescriptor()), "words") << "from its first byte again";
    EXPECT_TRUE(IsOpen(reused));
    ::close(reused);
}

TEST_F(utl_TempFileTest, ADescriptorThatNobodyTookIsClosedOnce)
{
    const int before = OpenDescriptorCount();
    {
        utl_TempFile file("");
        for (int round = 0; round < 200; ++round) ASSERT_TRUE(file.OpenIfPresent());
        EXPECT_EQ(OpenDescriptorCount(), before + 1);
    }
    EXPECT_EQ(OpenDescriptorCount(), before);
}

TEST_F(utl_TempFileTest, AFileOfBytesMayTakeTheNameAndIsRemovedWithIt)
{
    {
        utl_TempFile temporary("");
        utl_File file(temporary.Name(), utl_FileAccessCreate, 0);
        file.Seek(4096);
        ASSERT_EQ(file.Write("page", 4), 4);
        file.Close();
        EXPECT_EQ(BytesOf(temporary.Name()).substr(4096), "page");
        struct stat status
        {
        };
        ASSERT_EQ(::stat(temporary.Name().CString(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777U, 0600U);
    }
    EXPECT_EQ(FileCount(), 0U);
}

TEST_F(utl_TempFileTest, TheAvailableSpaceIsThatOfItsDirectory)
{
    const utl_TempFile file("");
    struct statvfs space
    {
    };
    ASSERT_EQ(::statvfs(m_Folder.Path().c_str(), &space), 0);
    const std::uint64_t whole = static_cast<std::uint64_t>(space.f_blocks) * space.f_frsize;
    EXPECT_GT(file.AvailableSpace(), 0U);
    EXPECT_LE(file.AvailableSpace(), whole);
    EXPECT_EQ(file.AvailableSpace() % space.f_frsize, 0U);

    const utl_TempFile proc("/proc/none");
    EXPECT_EQ(proc.AvailableSpace(), 0U);
    const utl_TempFile nowhere(m_Folder.Path("none/file"));
    EXPECT_THROW(nowhere.AvailableSpace(), utl_FileException);
}
