#include "uti_FilePermissions.h"

#include "TestFolder.h"
#include "Thrown.h"
#include "utl_FileException.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

TEST(uti_FilePermissions, OnlyTheRightsOfEveryoneCount)
{
    const TestFolder folder;
    const cow_String file = folder.Path("password");
    PutBytes(file, "secret");
    for (unsigned mode = 0; mode <= 0777; ++mode)
    {
        ASSERT_EQ(::chmod(file.CString(), mode), 0);
        EXPECT_EQ(uti_GetFilePermissionsForEveryone(file.CString()), mode & 07U);
    }
}

TEST(uti_FilePermissions, ALinkStandsForWhatItPointsTo)
{
    const TestFolder folder;
    PutBytes(folder.Path("password"), "secret");
    ASSERT_EQ(::symlink("password", folder.Path("link").CString()), 0);
    ASSERT_EQ(::chmod(folder.Path("password").CString(), 0600), 0);
    EXPECT_EQ(uti_GetFilePermissionsForEveryone(folder.Path("link").CString()), 0U);
    ASSERT_EQ(::chmod(folder.Path("password").CString(), 0604), 0);
    EXPECT_EQ(uti_GetFilePermissionsForEveryone(folder.Path("link").CString()), 4U);
}

TEST(uti_FilePermissions, AFileThatCantBeLookedAtIsNotSafe)
{
    const TestFolder folder;
    EXPECT_EQ(
        Thrown<utl_FileException>([&] { uti_GetFilePermissionsForEveryone(folder.Path("none").CString()); }),
        "*** ERROR: Can't look at file:\n  " + folder.Path() +
            "/none, reason:\n  No such file or directory.");
}
