#include "omi_Swapper.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>

TEST(omi_Swapper, StoredNumbersAreLittleEndianAndPipesBigEndian)
{
    const bool littleHost = std::endian::native == std::endian::little;
    EXPECT_EQ(omi_Swapper(omi_Swapper::Stored), !littleHost);
    EXPECT_EQ(omi_Swapper(omi_Swapper::Pipe), littleHost);
    EXPECT_EQ(static_cast<int>(omi_Swapper::Pipe), 0);
    EXPECT_EQ(static_cast<int>(omi_Swapper::Stored), 1);
}

TEST(omi_Swapper, AStoredNumberHasTheBytesOfTheFormatOnAnyHost)
{
    char bytes[8];
    omi_Store(bytes, 0x01020304, omi_Swapper(omi_Swapper::Stored));
    EXPECT_EQ(std::memcmp(bytes, "\x04\x03\x02\x01", 4), 0);
    omi_Store(bytes, 1.0, omi_Swapper(omi_Swapper::Stored));
    EXPECT_EQ(std::memcmp(bytes, "\0\0\0\0\0\0\xF0\x3F", 8), 0);
    omi_Store(bytes, 1.0F, omi_Swapper(omi_Swapper::Pipe));
    EXPECT_EQ(std::memcmp(bytes, "\x3F\x80\0\0", 4), 0);
    omi_Store(bytes, std::int16_t{0x0102}, omi_Swapper(omi_Swapper::Pipe));
    EXPECT_EQ(std::memcmp(bytes, "\1\2", 2), 0);
    omi_Store(bytes, std::int16_t{0x0102}, omi_Swapper(omi_Swapper::Stored));
    EXPECT_EQ(std::memcmp(bytes, "\2\1", 2), 0);
    omi_Store(bytes, std::int64_t{0x0102030405060708}, omi_Swapper(omi_Swapper::Pipe));
    EXPECT_EQ(std::memcmp(bytes, "\1\2\3\4\5\6\7\x08", 8), 0);
}

TEST(omi_Swapper, ANumberIsLoadedFromAnyAddress)
{
    char bytes[9] = {0, 4, 3, 2, 1, 0, 0, 0, 0};
    EXPECT_EQ(omi_Load<int>(bytes + 1, omi_Swapper(omi_Swapper::Stored)), 0x01020304);
    EXPECT_EQ(omi_Load<int>(bytes + 1, omi_Swapper(omi_Swapper::Pipe)), 0x04030201);
    omi_Store(bytes + 1, -2.5, true);
    EXPECT_EQ(omi_Load<double>(bytes + 1, true), -2.5);
}

TEST(omi_SwapperGuts, EachWordOfAnArrayIsReversedOnItsOwn)
{
    const char stored[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    std::uint32_t words[2] = {};
    omi_SwapperGuts::InternalizeArray(stored, words, 2);
    EXPECT_EQ(std::memcmp(words, "\4\3\2\1\x08\7\6\5", 8), 0);
    std::uint64_t word = 0;
    omi_SwapperGuts::InternalizeArray(stored, &word, 1);
    EXPECT_EQ(std::memcmp(&word, "\x08\7\6\5\4\3\2\1", 8), 0);

    char back[8];
    omi_SwapperGuts::ExternalizeArray(words, back, 2);
    EXPECT_EQ(std::memcmp(back, stored, 8), 0);
    omi_SwapperGuts::ExternalizeArray(&word, back, 1);
    EXPECT_EQ(std::memcmp(back, stored, 8), 0);
}

TEST(omi_SwapperGuts, AnArrayMayBeReversedWhereItLies)
{
    std::uint32_t words[3] = {0x01020304, 0, 0xFFFFFF00};
    omi_SwapperGuts::InternalizeArray(reinterpret_cast<const char*>(words), words, 3);
    EXPECT_EQ(words[0], 0x04030201U);
    EXPECT_EQ(words[2], 0x00FFFFFFU);
    omi_SwapperGuts::CopyBytes(words, words, sizeof words);
    EXPECT_EQ(words[0], 0x04030201U);
}

TEST(omi_SwapperGuts, NoWordsMoveNothing)
{
    std::uint32_t word = 7;
    omi_SwapperGuts::InternalizeArray("abcd", &word, 0);
    EXPECT_EQ(word, 7U);
    char byte = 'x';
    omi_SwapperGuts::CopyBytes(&byte, "y", 0);
    EXPECT_EQ(byte, 'x');
}

TEST(omi_Swapper, ANotANumberKeepsItsBitsThroughASwap)
{
    const double nan = std::numeric_limits<double>::signaling_NaN();
    char bytes[8];
    omi_Store(bytes, nan, true);
    const double back = omi_Load<double>(bytes, true);
    EXPECT_EQ(std::bit_cast<std::uint64_t>(back), std::bit_cast<std::uint64_t>(nan));
}
