#include "utl_FilePath.h"

#include "Forked.h"
#include "TestFolder.h"

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

TEST(utl_UrlParser, AUrlIsToldByItsScheme)
{
    EXPECT_TRUE(utl_UrlParser::IsUrl("mrkrdb://host:1/x"));
    EXPECT_TRUE(utl_UrlParser::IsUrl("mrkrdb://"));
    EXPECT_FALSE(utl_UrlParser::IsUrl("mrkrdb:/host"));
    EXPECT_FALSE(utl_UrlParser::IsUrl("MRKRDB://host"));
    EXPECT_FALSE(utl_UrlParser::IsUrl("./mrkrdb://host"));
    EXPECT_FALSE(utl_UrlParser::IsUrl("job.rdx"));
    EXPECT_FALSE(utl_UrlParser::IsUrl(""));
}
