#include "utl_FileOffset.h"

#include "Thrown.h"
#include "nex_Exception.h"

#include <climits>
#include <gtest/gtest.h>

namespace
{
constexpr utl_FileOffset kLargest = INT64_MAX;
constexpr utl_FileOffset kSmallest = INT64_MIN;
constexpr const char* kOutOfRange = "***ERROR: A file position or length is out of range.";
} // namespace

TEST(utl_FileOffset, ItStartsAtZeroAndHoldsSixtyFourBits)
{
    EXPECT_EQ(utl_FileOffset().Value(), 0);
    EXPECT_EQ(utl_FileOffset(1LL << 40).Value(), 1099511627776);
    EXPECT_EQ(sizeof(utl_FileOffset), 8U);
}

TEST(utl_FileOffset, OffsetsCompareAndAddUp)
{
    EXPECT_LT(utl_FileOffset(-1), utl_FileOffset(0));
    EXPECT_EQ(utl_FileOffset(3) + 4, utl_FileOffset(7));
    EXPECT_EQ(utl_FileOffset(3) - 4, utl_FileOffset(-1));
    utl_FileOffset offset = 10;
    offset += 5;
    offset -= 1;
    EXPECT_EQ(offset, utl_FileOffset(14));
    EXPECT_EQ(kLargest - kLargest, utl_FileOffset(0));
    EXPECT_EQ(kSmallest + kLargest, utl_FileOffset(-1));
}

TEST(utl_FileOffset, ASumThatLeavesSixtyFourBitsIsRefusedAndChangesNothing)
{
    EXPECT_EQ(Thrown<nex_TextException>([] { static_cast<void>(kLargest + 1); }), kOutOfRange);
    EXPECT_EQ(Thrown<nex_TextException>([] { static_cast<void>(kSmallest - 1); }), kOutOfRange);
    utl_FileOffset offset = kLargest;
    EXPECT_EQ(Thrown<nex_TextException>([&] { offset += 1; }), kOutOfRange);
    EXPECT_EQ(offset, kLargest);
    EXPECT_EQ(Thrown<nex_TextException>([&] { offset -= -1; }), kOutOfRange);
    EXPECT_EQ(offset, kLargest);
}

TEST(utl_FileOffset, ADifferenceAsAnIntIsRefusedBeyondThirtyTwoBits)
{
    EXPECT_EQ(utl_FileOffset(5000000001).DiffAsInt32(5000000000), 1);
    EXPECT_EQ(utl_FileOffset(0).DiffAsInt32(-INT64_C(2147483647)), INT_MAX);
    EXPECT_EQ(utl_FileOffset(0).DiffAsInt32(INT64_C(2147483648)), INT_MIN);
    EXPECT_EQ(Thrown<nex_TextException>([] { utl_FileOffset(INT64_C(2147483648)).DiffAsInt32(0); }),
              kOutOfRange);
    EXPECT_EQ(Thrown<nex_TextException>([] { utl_FileOffset(0).DiffAsInt32(INT64_C(2147483649)); }),
              kOutOfRange);
    EXPECT_EQ(Thrown<nex_TextException>([] { kLargest.DiffAsInt32(kSmallest); }), kOutOfRange);
}
