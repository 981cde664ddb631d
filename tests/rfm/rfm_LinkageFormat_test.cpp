#include "rfm_LinkageFormat.h"

#include "rfm_HeaderFormat.h"
#include "rfm_LinkageList.h"
#include "rfm_TestFile.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

namespace
{
constexpr bool kAsIs = false;
constexpr bool kReversed = true;
constexpr double kLimit = 9007199254740992.0; // 2^53

std::string Encoded(const rfm_LinkageEntry& entry, bool swapped)
{
    char bytes[rfm_LinkageEntryBytes];
    rfm_EncodeLinkageEntry(entry, swapped, bytes);
    return {bytes, sizeof bytes};
}

std::vector<double> NumbersThatNoWriterStores()
{
    const double infinity = std::numeric_limits<double>::infinity();
    return {-1.0, -0.25, -1e300, kLimit + 2, 1e300, infinity, -infinity, std::nan("")};
}

std::string BlockOf(const std::vector<double>& offsets)
{
    std::string bytes(rfm_LinkageBlockBytes, '\0');
    for (std::size_t slot = 0; slot < offsets.size(); ++slot)
        bytes.replace(slot * 28 + 16, 8, rfm_DoubleBytes(offsets[slot]));
    return bytes;
}
} // namespace

TEST(rfm_LinkageFormat, AnEntryHasTheBytesOfItsPicture)
{
    const rfm_LinkageEntry entry{.allocation = 16, .length = 10, .offset = 15360, .next = 0x201};
    const std::string bytes = Encoded(entry, kAsIs);
    EXPECT_EQ(rfm_Hex(bytes), "00 00 00 00 00 00 30 40 00 00 00 00 00 00 24 40 "
                              "00 00 00 00 00 00 ce 40 01 02 00 00");
    rfm_LinkageEntry decoded;
    ASSERT_TRUE(rfm_DecodeLinkageEntry(bytes.data(), kAsIs, decoded));
    EXPECT_EQ(decoded.allocation, 16);
    EXPECT_EQ(decoded.length, 10);
    EXPECT_EQ(decoded.offset, 15360);
    EXPECT_EQ(decoded.next, 0x201U);
}

TEST(rfm_LinkageFormat, TheOtherByteOrderReversesEachNumberInItsPlace)
{
    const rfm_LinkageEntry entry{.allocation = 16, .length = 10, .offset = 15360, .next = 0x201};
    const std::string bytes = Encoded(entry, kReversed);
    EXPECT_EQ(rfm_Hex(bytes), "40 30 00 00 00 00 00 00 40 24 00 00 00 00 00 00 "
                              "40 ce 00 00 00 00 00 00 00 00 02 01");
    rfm_LinkageEntry decoded;
    ASSERT_TRUE(rfm_DecodeLinkageEntry(bytes.data(), kReversed, decoded));
    EXPECT_EQ(decoded.offset, 15360);
    EXPECT_EQ(decoded.next, 0x201U);
}

TEST(rfm_LinkageFormat, EachNumberThatNoWriterStoresIsRefusedInEachField)
{
    const std::string sound = Encoded({.allocation = 16, .length = 10, .offset = 15360, .next = 7}, kAsIs);
    for (const double bad : NumbersThatNoWriterStores())
        for (const std::size_t field : {0U, 8U, 16U})
        {
            std::string bytes = sound;
            bytes.replace(field, 8, rfm_DoubleBytes(bad));
            rfm_LinkageEntry entry{.allocation = 1, .length = 1, .offset = 1, .next = 1};
            EXPECT_FALSE(rfm_DecodeLinkageEntry(bytes.data(), kAsIs, entry)) << bad << " at " << field;
            EXPECT_EQ(entry.offset, 0) << "a refused entry is free";
        }
}

TEST(rfm_LinkageFormat, StoredNumbersAreReadByAddingAHalfAndTruncating)
{
    const auto read = [](double stored)
    {
        std::string bytes(28, '\0');
        bytes.replace(16, 8, rfm_DoubleBytes(stored));
        rfm_LinkageEntry entry;
        EXPECT_TRUE(rfm_DecodeLinkageEntry(bytes.data(), kAsIs, entry)) << stored;
        return entry.offset;
    };
    EXPECT_EQ(read(0.0), 0);
    EXPECT_EQ(read(-0.0), 0);
    EXPECT_EQ(read(10.49), 10);
    EXPECT_EQ(read(10.5), 11);
    EXPECT_EQ(read(4503599627370496.0), 4503599627370496); // 2^52: exact up to here
    EXPECT_EQ(read(kLimit), 9007199254740992);
}

TEST(rfm_LinkageFormat, AnyHandleMayFollow)
{
    for (const std::uint32_t next : {0U, 1U, 511U, 512U, 0x80000000U, 0xFFFFFFFFU})
    {
        const std::string bytes = Encoded({.allocation = 0, .length = 0, .offset = 1, .next = next}, kAsIs);
        rfm_LinkageEntry entry;
        ASSERT_TRUE(rfm_DecodeLinkageEntry(bytes.data(), kAsIs, entry));
        EXPECT_EQ(entry.next, next);
    }
}

TEST(rfm_LinkageBlock, ItsEntriesFollowWithoutGapOrHeader)
{
    rfm_LinkageBlock block;
    block.entries[0].offset = 20000;
    block.entries[511] = {.allocation = 4, .length = 3, .offset = 2048, .next = 9};
    std::string bytes(rfm_LinkageBlockBytes, '\x55');
    rfm_EncodeLinkageSlots(block, 0, 511, kAsIs, bytes.data());

    std::string expected(14336, '\0');
    expected.replace(16, 8, rfm_DoubleBytes(20000));
    expected.replace(14308, 28,
                     rfm_DoubleBytes(4) + rfm_DoubleBytes(3) + rfm_DoubleBytes(2048) + rfm_IntBytes(9));
    EXPECT_EQ(bytes, expected);
}

TEST(rfm_LinkageBlock, OnlyTheSlotsAskedForAreEncodedInTheirPlaces)
{
    rfm_LinkageBlock block;
    block.entries[3] = {.allocation = 8, .length = 5, .offset = 15360, .next = 0};
    std::string bytes(rfm_LinkageBlockBytes, '\x55');
    rfm_EncodeLinkageSlots(block, 3, 4, kAsIs, bytes.data());

    std::string expected(14336, '\x55');
    expected.replace(84, 28,
                     rfm_DoubleBytes(8) + rfm_DoubleBytes(5) + rfm_DoubleBytes(15360) + rfm_IntBytes(0));
    expected.replace(112, 28, std::string(28, '\0'));
    EXPECT_EQ(bytes, expected);
}

TEST(rfm_LinkageBlock, ItKnowsFirstAndLastOfTheSlotsThatChanged)
{
    rfm_LinkageBlock block;
    block.Change(7);
    block.Change(3);
    block.Change(5);
    EXPECT_EQ(block.firstChanged, 3U);
    EXPECT_EQ(block.lastChanged, 7U);
    EXPECT_FALSE(block.dirty);
    block.SetUnchanged();
    block.Change(511);
    EXPECT_EQ(block.firstChanged, 511U);
    EXPECT_EQ(block.lastChanged, 511U);
}

TEST(rfm_LinkageBlock, TheSlotsInUseEndAtTheFirstFreeOne)
{
    const auto used = [](const std::vector<double>& offsets)
    {
        rfm_LinkageBlock block;
        block.dirty = true;
        EXPECT_TRUE(rfm_DecodeLinkageBlock(BlockOf(offsets).data(), kAsIs, block));
        EXPECT_FALSE(block.dirty);
        return block.used;
    };
    EXPECT_EQ(used({}), 1U);
    EXPECT_EQ(used({15360}), 1U);
    EXPECT_EQ(used({0, 1}), 2U);
    EXPECT_EQ(used({0, 15360, 1, 0, 15364}), 3U);
    EXPECT_EQ(used(std::vector<double>(511, 2000)), 511U);
    EXPECT_EQ(used(std::vector<double>(512, 2000)), 512U);
}

TEST(rfm_LinkageBlock, OneBadNumberInAnySlotRefusesTheBlock)
{
    for (const std::size_t slot : {0U, 1U, 2U, 511U})
        for (const std::size_t field : {0U, 8U, 16U})
        {
            std::string bytes = BlockOf({0, 15360});
            bytes.replace(slot * 28 + field, 8, rfm_DoubleBytes(-1));
            rfm_LinkageBlock block;
            EXPECT_FALSE(rfm_DecodeLinkageBlock(bytes.data(), kAsIs, block)) << slot << ", " << field;
        }
}

TEST(rfm_LinkageList, AHandleIsABlockIndexAndASlot)
{
    rfm_LinkageList list;
    for (int i = 0; i < 2; ++i)
    {
        auto block = std::make_unique<rfm_LinkageBlock>();
        block->used = 3;
        block->entries[1].offset = 5000 + i;
        block->entries[2].offset = 1;
        block->entries[4].offset = 6000; // behind a free slot
        list.Append(std::move(block));
    }
    ASSERT_EQ(list.Find(0x201), &list.Block(1).entries[1]);
    EXPECT_EQ(list.Find(0x201)->offset, 5001);
    EXPECT_EQ(list.Find(0), &list.Block(0).entries[0]) << "slot 0 is found without complaint";
    EXPECT_EQ(list.Find(3), nullptr) << "a slot that is not in use";
    EXPECT_EQ(list.Find(0x400), nullptr) << "a block that is not there";
    EXPECT_EQ(list.Find(0xFFFFFFFF), nullptr);

    EXPECT_TRUE(list.IsValid(1));
    EXPECT_TRUE(list.IsValid(0x202)) << "a space without extent has a handle";
    EXPECT_TRUE(list.IsValid(4)) << "the slots in use are not looked at here";
    EXPECT_FALSE(list.IsValid(0));
    EXPECT_FALSE(list.IsValid(0x200)) << "slot 0 is no object";
    EXPECT_FALSE(list.IsValid(3));
    EXPECT_FALSE(list.IsValid(0x401));
    EXPECT_FALSE(list.IsValid(0xFFFFFFFF));
}

TEST(rfm_LinkagePlaces, BlocksMayTouchButNotOverlap)
{
    rfm_LinkagePlaces places;
    EXPECT_TRUE(places.Take(1024));
    EXPECT_FALSE(places.Take(1024));
    EXPECT_FALSE(places.Take(1025));
    EXPECT_FALSE(places.Take(15359));
    EXPECT_TRUE(places.Take(15360));
    EXPECT_TRUE(places.Take(100000));
    EXPECT_FALSE(places.Take(100000 - 14335));
    EXPECT_TRUE(places.Take(100000 - 14336));
}

TEST(rfm_HeaderFormat, AStampIsFourZerosAndTheSize)
{
    char bytes[rfm_SizeStampBytes];
    rfm_EncodeSizeStamp(15368, kAsIs, bytes);
    EXPECT_EQ(rfm_Hex({bytes, sizeof bytes}), "00 00 00 00 00 00 00 00 00 04 ce 40");
    EXPECT_TRUE(rfm_SizeStampAllows(bytes, kAsIs, 15368));
    EXPECT_FALSE(rfm_SizeStampAllows(bytes, kAsIs, 15367));
    EXPECT_FALSE(rfm_SizeStampAllows(bytes, kAsIs, 15369));
}

TEST(rfm_HeaderFormat, AStampOfNothingPassesWhenItsFirstBytesAreAsWritten)
{
    const auto allows = [](std::string_view start)
    { return rfm_SizeStampAllows((std::string(start) + std::string(8, '\0')).data(), kAsIs, 777); };
    EXPECT_TRUE(allows({"\0\0\0\0", 4}));
    EXPECT_TRUE(allows({"\x0a\0\x0d\x0a", 4}));
    EXPECT_FALSE(allows({"\x0a\0\x0a\0", 4})) << "what a transfer in text mode makes of it";
    EXPECT_FALSE(allows({"\0\0\0\x01", 4}));
}

TEST(rfm_HeaderFormat, AStampThatNoWriterStoresNeverPasses)
{
    for (const double bad : NumbersThatNoWriterStores())
    {
        const std::string bytes = std::string(4, '\0') + rfm_DoubleBytes(bad);
        EXPECT_FALSE(rfm_SizeStampAllows(bytes.data(), kAsIs, 0)) << bad;
        EXPECT_FALSE(rfm_SizeStampAllows(bytes.data(), kAsIs, -1)) << bad;
    }
}
