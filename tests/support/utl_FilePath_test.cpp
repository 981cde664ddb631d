#include "utl_FilePath.h"

#include "Forked.h"
#include "TestFolder.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
constexpr uid_t kNobody = 65534;
}

TEST(utl_FilePath, AFileExistsAndIsReadable)
{
    const TestFolder folder;
    PutBytes(folder.Path("job.rdx"), "x");
    const utl_FilePath path(folder.Path("job.rdx"), "");
    EXPECT_TRUE(path.Exists());
    EXPECT_TRUE(path.IsReadable());
    EXPECT_TRUE(path.IsWriteable());
    EXPECT_FALSE(path.IsExecutable());
    EXPECT_EQ(path.Path(), folder.Path("job.rdx"));
    ASSERT_EQ(::chmod(folder.Path("job.rdx").CString(), 0755), 0);
    EXPECT_TRUE(path.IsExecutable());
}

TEST(utl_FilePath, AMissingFileIsNothing)
{
    const TestFolder folder;
    const utl_FilePath path(folder.Path("none"), "");
    EXPECT_FALSE(path.Exists());
    EXPECT_FALSE(path.IsReadable());
    EXPECT_FALSE(path.IsWriteable());
    EXPECT_FALSE(path.IsExecutable());
}

TEST(utl_FilePath, AUrlCountsAsExistingAndReadableOnly)
{
    const utl_FilePath path("mrkrdb://host:1234/dir/job.rdx", "/base");
    EXPECT_TRUE(path.Exists());
    EXPECT_TRUE(path.IsReadable());
    EXPECT_FALSE(path.IsWriteable());
    EXPECT_FALSE(path.IsExecutable());
    EXPECT_EQ(path.Path().View(), "mrkrdb://host:1234/dir/job.rdx");
}

TEST(utl_FilePath, ARelativeNameStandsBelowItsBase)
{
    EXPECT_EQ(utl_FilePath("job.rdx", "/data").Path().View(), "/data/job.rdx");
    EXPECT_EQ(utl_FilePath("/job.rdx", "/data").Path().View(), "/job.rdx");
    EXPECT_EQ(utl_FilePath("job.rdx", "").Path().View(), "job.rdx");
}

TEST(utl_FilePath, RightsAreThoseOfTheProcess)
{
    const TestFolder folder;
    PutBytes(folder.Path("mine"), "x");
    ASSERT_EQ(::chmod(folder.Path().c_str(), 0755), 0);
    ASSERT_EQ(::chmod(folder.Path("mine").CString(), 0400), 0);
    const bool isRoot = ::geteuid() == 0;
    const int answers = ExitCodeOfForked(
        [&]
        {
            if (isRoot && ::setuid(kNobody) != 0) return 90;
            const utl_FilePath path(folder.Path("mine"), "");
            return (path.Exists() ? 4 : 0) + (path.IsReadable() ? 2 : 0) + (path.IsWriteable() ? 1 : 0);
        });
    // Another user may only see that it is there; its owner may read it.
    EXPECT_EQ(answers, isRoot ? 4 : 6);
}

TEST(utl_Stat, WhatASymbolicLinkPointsToCounts)
{
    const TestFolder folder;
    ASSERT_EQ(::symlink(folder.Path("target").CString(), folder.Path("link").CString()), 0);
    EXPECT_FALSE(utl_Stat(folder.Path("link")).Exists());
    PutBytes(folder.Path("target"), "");
    EXPECT_TRUE(utl_Stat(folder.Path("link")).Exists());
    EXPECT_TRUE(utl_Stat(cow_String(std::string_view(folder.Path()))).Exists());
    EXPECT_FALSE(utl_Stat("").Exists());
}

TEST(utl_Stat, OnlyAFileOfBytesIsARegularFile)
{
    const TestFolder folder;
    PutBytes(folder.Path("file"), "x");
    EXPECT_TRUE(utl_Stat(folder.Path("file")).IsRegularFile());
    EXPECT_FALSE(utl_Stat(folder.Path(".")).IsRegularFile());
    EXPECT_FALSE(utl_Stat(folder.Path("none")).IsRegularFile());
}

TEST(utl_FilePath, ADirectoryThatMayBeEnteredIsNoProgram)
{
    const TestFolder folder;
    EXPECT_TRUE(utl_FilePath(folder.Path("."), "").IsReadable());
    EXPECT_FALSE(utl_FilePath(folder.Path("."), "").IsExecutable());
}

TEST(utl_FilePath, AnAbsolutePathStandsBehindTheCurrentDirectory)
{
    const TestFolder folder;
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder.Path());
    EXPECT_EQ(utl_FilePath("sub/../job.rdx", "").AbsolutePathName(), folder.Path("sub/../job.rdx"));
    EXPECT_EQ(utl_FilePath("job.rdx", "base").AbsolutePathName(), folder.Path("base/job.rdx"));
    EXPECT_EQ(utl_FilePath("/there/job.rdx", "").AbsolutePathName().View(), "/there/job.rdx");
    EXPECT_EQ(utl_FilePath("mrkrdb://h:1/x", "").AbsolutePathName().View(), "mrkrdb://h:1/x");
    EXPECT_EQ(utl_FilePath("", "").AbsolutePathName().View(), "");
    std::filesystem::current_path("/");
    EXPECT_EQ(utl_FilePath("job.rdx", "").AbsolutePathName().View(), "/job.rdx");
    std::filesystem::current_path(before);
}

TEST(utl_FilePath, WithoutACurrentDirectoryARelativePathHasNoAbsoluteOne)
{
    const TestFolder folder;
    const int answer = ExitCodeOfForked(
        [&]
        {
            const std::string gone = folder.Path() + "/gone";
            if (::mkdir(gone.c_str(), 0777) != 0 || ::chdir(gone.c_str()) != 0 || ::rmdir(gone.c_str()) != 0)
                return 90;
            return utl_FilePath("job.rdx", "").AbsolutePathName().IsEmpty() ? 0 : 1;
        });
    EXPECT_EQ(answer, 0);
}
