#include "rfm_RemoteFormat.h"

#include "RemoteFileScene.h"

namespace
{
TEST(rfm_RemoteFormat, TheAnswerToTheHandshakeHasTheBytesOfItsPicture)
{
    EXPECT_EQ(Hex(rfm_EncodeRemoteAnswer(1, 0x100000)), "0001"
                                                        "00100000");
}

TEST(rfm_RemoteFormat, TheRequestsHaveTheBytesOfTheirPictures)
{
    EXPECT_EQ(Hex(rfm_EncodeRemoteSizeRequest()), "01");
    EXPECT_EQ(Hex(rfm_EncodeRemoteStatusRequest()), "03");
    EXPECT_EQ(Hex(rfm_EncodeRemotePageRequest({}, 0x123400, 1024)), "02"
                                                                    "0000"
                                                                    "0000000000123400"
                                                                    "00000400");
    EXPECT_EQ(
        Hex(rfm_EncodeRemotePageRequest(std::vector<std::int64_t>{1024, 0x7FFFFFFFFFFFFC00}, 2048, 1024)),
        "02"
        "0002"
        "0000000000000400"
        "7ffffffffffffc00"
        "0000000000000800"
        "00000400");
}

TEST(rfm_RemoteFormat, TheLowerVersionIsTheCommonOne)
{
    EXPECT_EQ(rfm_RemoteCommonVersion(1, 1), 1);
    EXPECT_EQ(rfm_RemoteCommonVersion(1, 32767), 1);
    EXPECT_EQ(rfm_RemoteCommonVersion(1, 0), 0);
}

TEST(rfm_RemoteFormat, WhatTheOtherEndClaimsHasBounds)
{
    for (const int size : {1024, 1025, 64 * 1024 * 1024}) EXPECT_TRUE(rfm_IsRemotePageSize(size)) << size;
    for (const int size : {-1024, 0, 1023, 64 * 1024 * 1024 + 1})
        EXPECT_FALSE(rfm_IsRemotePageSize(size)) << size;

    for (const std::int64_t start : {std::int64_t{0}, std::int64_t{1024}, INT64_MAX - 2047})
        EXPECT_TRUE(rfm_IsRemotePageStart(start, 1024)) << start;
    for (const std::int64_t start : {std::int64_t{-1024}, std::int64_t{1}, INT64_MAX - 1023, INT64_MAX})
        EXPECT_FALSE(rfm_IsRemotePageStart(start, 1024)) << start;

    for (const int length : {0, 1, 1024}) EXPECT_TRUE(rfm_IsRemotePageLength(length, 1024)) << length;
    for (const int length : {-1, 1025, INT32_MIN})
        EXPECT_FALSE(rfm_IsRemotePageLength(length, 1024)) << length;

    for (const int count : {0, 1, 1 << 20}) EXPECT_TRUE(rfm_IsRemoteListLength(count)) << count;
    for (const int count : {-1, (1 << 20) + 1, INT32_MAX})
        EXPECT_FALSE(rfm_IsRemoteListLength(count)) << count;
}
} // namespace
