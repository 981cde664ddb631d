#include "utl_Platform.h"

#include <gtest/gtest.h>

TEST(utl_Platform, ThePlatformAndItsShellsHaveTheirNames)
{
    EXPECT_EQ(utl_getPlatform().View(), "linux");
    EXPECT_EQ(remoteShellCommand().View(), "rsh");
    EXPECT_EQ(secureShellCommand().View(), "ssh");
}
