#include "omi_TimeCounter.h"

#include <ctime>
#include <gtest/gtest.h>

TEST(omi_TimeCounter, ItRunsForwardInSecondsOfTheSystemsCounter)
{
    timespec before{};
    timespec after{};
    ::clock_gettime(CLOCK_MONOTONIC, &before);
    const double first = omi_gettimecounter();
    const double second = omi_gettimecounter();
    ::clock_gettime(CLOCK_MONOTONIC, &after);
    EXPECT_LE(first, second);
    EXPECT_GE(first, static_cast<double>(before.tv_sec));
    EXPECT_LE(second, static_cast<double>(after.tv_sec) + 1.0);
}
