#include "utl_PathFinder.h"

#include "EnvironmentVariable.h"
#include "TestFolder.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace
{
constexpr const char* kVariable = "RFM_TEST_SEARCH";

class utl_PathFinderTest : public ::testing::Test
{
protected:
    /// A file below `directory` of the folder, which anybody may run or nobody.
    void Put(const std::string& directory, const char* file, bool executable = true) const
    {
        std::filesystem::create_directories(m_Folder.Path() + "/" + directory);
        const cow_String path = m_Folder.Path((directory + "/" + file).c_str());
        PutBytes(path, "x");
        ASSERT_EQ(::chmod(path.CString(), executable ? 0755U : 0644U), 0);
    }
    std::string In(const char* name) const { return m_Folder.Path() + "/" + name; }
    static std::string Found(const char* subDirectory, const char* file, bool executable = true)
    {
        return std::string(
            utl_PathFinder::getSubDirPath(kVariable, subDirectory, file, executable, false, false).View());
    }

    TestFolder m_Folder;
};
} // namespace

TEST_F(utl_PathFinderTest, TheFirstDirectoryThatHasTheFileGivesThePath)
{
    Put("b/External/qlnsrv", "qlnsrv");
    Put("c/External/qlnsrv", "qlnsrv");
    const EnvironmentVariable search(kVariable, (In("a") + ":" + In("b") + ":" + In("c")).c_str());
    EXPECT_EQ(Found("External/qlnsrv", "qlnsrv"), In("b/External/qlnsrv/qlnsrv"));
    EXPECT_EQ(Found("External/qlnsrv", "qlnsrvd"), "");
    EXPECT_EQ(Found("External", "qlnsrv"), "");
}

TEST_F(utl_PathFinderTest, WithoutASubDirectoryTheFileStandsInTheDirectoryItself)
{
    Put("bin", "tool");
    const EnvironmentVariable search(kVariable, In("bin").c_str());
    EXPECT_EQ(Found("", "tool"), In("bin/tool"));
    EXPECT_EQ(Found("", ""), "");
}

TEST_F(utl_PathFinderTest, WithoutASearchPathNothingIsFound)
{
    {
        const EnvironmentVariable search(kVariable, nullptr);
        EXPECT_EQ(Found("", "sh"), "");
    }
    const EnvironmentVariable search(kVariable, "");
    EXPECT_EQ(Found("", "sh"), "");
}

TEST_F(utl_PathFinderTest, AnEmptyEntryIsNotTheCurrentDirectory)
{
    Put(".", "tool");
    Put("bin", "late");
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(m_Folder.Path());
    const EnvironmentVariable search(kVariable, ("::" + In("bin") + ":").c_str());
    EXPECT_EQ(Found("", "tool"), "");
    EXPECT_EQ(Found("", "late"), In("bin/late"));
    std::filesystem::current_path(before);
}

TEST_F(utl_PathFinderTest, OnlyWhenAskedForARunnableFileOthersArePassedOver)
{
    Put("a", "tool", false);
    Put("b", "tool", true);
    const EnvironmentVariable search(kVariable, (In("a") + ":" + In("b")).c_str());
    EXPECT_EQ(Found("", "tool", true), In("b/tool"));
    EXPECT_EQ(Found("", "tool", false), In("a/tool"));
}

TEST_F(utl_PathFinderTest, ADirectoryOfThatNameIsPassedOver)
{
    std::filesystem::create_directories(In("a/tool"));
    Put("b", "tool");
    const EnvironmentVariable search(kVariable, (In("a") + ":" + In("b")).c_str());
    EXPECT_EQ(Found("", "tool", true), In("b/tool"));
    EXPECT_EQ(Found("", "tool", false), In("b/tool"));
}
