#include "rfm_SegmentBufferCache.h"

#include "Thrown.h"
#include "nex_Exception.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{
std::string ContentOf(const rfm_SegmentBuffer& buffer)
{
    return {buffer.Data(), static_cast<std::size_t>(buffer.Size())};
}

/// Notes who was asked for a buffer, and with what in it.
class Holder : public rfm_SegmentBufferHolder
{
public:
    void BufferTaken(int index, rfm_SegmentBuffer* buffer) override
    {
        if (refuses) nex_ThrowText("the disk is full");
        taken.push_back(index);
        contents.push_back(buffer->Data()[0]);
    }
    bool refuses = false;
    std::vector<int> taken;
    std::string contents;
};

class rfm_SegmentBufferCacheTest : public testing::Test
{
protected:
    void Use(int index)
    {
        m_Cache.Acquire(index)->Fill(static_cast<char>('A' + index));
        m_Cache.Release(index, &m_Holder);
    }
    Holder m_Holder;
    rfm_SegmentBufferCache m_Cache{65536};
};
} // namespace

// --- one buffer

TEST(rfm_SegmentBuffer, AnEmptyOneHasNoMemory)
{
    const rfm_SegmentBuffer buffer;
    EXPECT_EQ(buffer.Size(), 0);
    EXPECT_EQ(buffer.Data(), nullptr);
}

TEST(rfm_SegmentBuffer, ANewOneIsCleared)
{
    for (int round = 0; round < 3; ++round)
    {
        rfm_SegmentBuffer buffer(1000);
        EXPECT_EQ(ContentOf(buffer), std::string(1000, '\0'));
        buffer.Fill('x');
        EXPECT_EQ(ContentOf(buffer), std::string(1000, 'x'));
    }
}

TEST(rfm_SegmentBuffer, ACopyHasBytesOfItsOwn)
{
    rfm_SegmentBuffer first(4);
    first.Fill('a');
    rfm_SegmentBuffer second(first);
    first.Fill('b');
    EXPECT_EQ(ContentOf(second), "aaaa");
    second = first;
    EXPECT_EQ(ContentOf(second), "bbbb");
    EXPECT_NE(second.Data(), first.Data());
}

TEST(rfm_SegmentBuffer, SwappingExchangesMemoryAndSize)
{
    rfm_SegmentBuffer first(4);
    rfm_SegmentBuffer second(2);
    const char* memory = first.Data();
    first.Swap(second);
    EXPECT_EQ(first.Size(), 2);
    EXPECT_EQ(second.Size(), 4);
    EXPECT_EQ(second.Data(), memory);
}

TEST(rfm_SegmentBuffer, ShrinkingOnlyLowersTheSize)
{
    rfm_SegmentBuffer buffer(10);
    buffer.Fill('x');
    const char* memory = buffer.Data();
    buffer.Shrink(3);
    EXPECT_EQ(ContentOf(buffer), "xxx");
    EXPECT_EQ(buffer.Data(), memory);
    EXPECT_EQ(Thrown<nex_AssertException>([&] { buffer.Shrink(4); }), "newSize <= m_Size");
    EXPECT_EQ(Thrown<nex_AssertException>([&] { buffer.Shrink(-1); }), "newSize >= 0");
    EXPECT_EQ(buffer.Size(), 3);
}

TEST(rfm_SegmentBuffer, MemoryThatSufficesIsUsedAgain)
{
    rfm_SegmentBuffer buffer(10);
    const char* memory = buffer.Data();
    buffer.Shrink(1);
    buffer.Require(10);
    EXPECT_EQ(buffer.Data(), memory);
    buffer.Require(11);
    EXPECT_EQ(buffer.Size(), 11);
}

TEST(rfm_SegmentBuffer, ClearingStopsWhereNobodyHasWritten)
{
    rfm_SegmentBuffer buffer(8);
    std::copy_n("abcd", 4, buffer.Writable(4));
    buffer.ClearFrom(2);
    EXPECT_EQ(ContentOf(buffer), std::string("ab\0\0\0\0\0\0", 8));
    buffer.ClearFrom(5);
    EXPECT_EQ(ContentOf(buffer), std::string("ab\0\0\0\0\0\0", 8));
    buffer.Fill('z');
    buffer.ClearFrom(0);
    EXPECT_EQ(ContentOf(buffer), std::string(8, '\0'));
}

// --- the cache

TEST(rfm_SegmentBufferCache, TheBudgetIsOneMebibyte)
{
    EXPECT_EQ(rfm_SegmentBufferCache(65536).Capacity(), 16);
    EXPECT_EQ(rfm_SegmentBufferCache(65537).Capacity(), 15);
    EXPECT_EQ(rfm_SegmentBufferCache(0x100000).Capacity(), 1);
    EXPECT_EQ(rfm_SegmentBufferCache(0x100001).Capacity(), 0);
    EXPECT_EQ(rfm_SegmentBufferCache().Capacity(), 0);
    EXPECT_EQ(rfm_SegmentBufferCache().BufferSize(), 0);
}

TEST_F(rfm_SegmentBufferCacheTest, TheSeventeenthSegmentTakesTheBufferOfTheOldestReleasedOne)
{
    std::vector<const char*> memory;
    for (int index = 0; index < 16; ++index)
    {
        memory.push_back(m_Cache.Acquire(index)->Data());
        m_Cache.Release(index, &m_Holder);
    }
    EXPECT_THAT(m_Holder.taken, IsEmpty());
    EXPECT_EQ(m_Cache.Acquire(16)->Data(), memory[0]);
    EXPECT_THAT(m_Holder.taken, ElementsAre(0));
    EXPECT_EQ(m_Cache.Count(), 16);
    EXPECT_FALSE(m_Cache.HasBuffer(0));
}

TEST_F(rfm_SegmentBufferCacheTest, TheHolderSeesItsOwnBytes)
{
    for (int index = 0; index < 18; ++index) Use(index);
    EXPECT_EQ(m_Holder.contents, "AB");
}

TEST_F(rfm_SegmentBufferCacheTest, APinnedBufferAtTheHeadIsSkipped)
{
    m_Cache.Acquire(0);
    for (int index = 1; index < 18; ++index) Use(index);
    EXPECT_THAT(m_Holder.taken, ElementsAre(1, 2));
    EXPECT_TRUE(m_Cache.HasBuffer(0));
}

TEST_F(rfm_SegmentBufferCacheTest, AcquiringAgainKeepsTheBytesAndMakesTheSegmentTheNewest)
{
    for (int index = 0; index < 16; ++index) Use(index);
    EXPECT_EQ(m_Cache.Acquire(0)->Data()[65535], 'A');
    m_Cache.Release(0, &m_Holder);
    EXPECT_THAT(m_Holder.taken, IsEmpty());
    Use(16);
    EXPECT_THAT(m_Holder.taken, ElementsAre(1));
}

TEST_F(rfm_SegmentBufferCacheTest, TheOrderIsThatOfAcquiringNotOfReleasing)
{
    for (int index = 0; index < 16; ++index) m_Cache.Acquire(index);
    for (int index = 15; index >= 0; --index) m_Cache.Release(index, &m_Holder);
    Use(16);
    EXPECT_THAT(m_Holder.taken, ElementsAre(0));
}

TEST_F(rfm_SegmentBufferCacheTest, WhenAllArePinnedTheListGrowsUntilOneIsReleased)
{
    for (int index = 0; index < 20; ++index) m_Cache.Acquire(index);
    EXPECT_EQ(m_Cache.Count(), 20);
    m_Cache.Release(7, &m_Holder);
    m_Cache.Acquire(20);
    EXPECT_THAT(m_Holder.taken, ElementsAre(7));
    EXPECT_EQ(m_Cache.Count(), 20);
}

TEST_F(rfm_SegmentBufferCacheTest, WithoutABudgetABufferIsMadeOnlyWhenNoneIsReleased)
{
    rfm_SegmentBufferCache cache(0x100001);
    const char* first = cache.Acquire(0)->Data();
    const char* second = cache.Acquire(1)->Data();
    EXPECT_NE(first, second);
    cache.Release(1, &m_Holder);
    EXPECT_EQ(cache.Acquire(2)->Data(), second);
    EXPECT_THAT(m_Holder.taken, ElementsAre(1));
    EXPECT_EQ(cache.Count(), 2);
}

TEST_F(rfm_SegmentBufferCacheTest, ARefusalToGiveABufferLeavesEverythingAsItWas)
{
    for (int index = 0; index < 16; ++index) Use(index);
    m_Holder.refuses = true;
    EXPECT_EQ(Thrown<nex_TextException>([&] { m_Cache.Acquire(16); }), "the disk is full");
    EXPECT_FALSE(m_Cache.HasBuffer(16));
    EXPECT_EQ(m_Cache.Count(), 16);
    EXPECT_EQ(m_Cache.Acquire(0)->Data()[0], 'A') << "a hit needs nobody's buffer";
    m_Cache.Release(0, &m_Holder);
    m_Holder.refuses = false;
    m_Cache.Acquire(16);
    EXPECT_THAT(m_Holder.taken, ElementsAre(1));
}

TEST_F(rfm_SegmentBufferCacheTest, AForgottenSegmentIsNeverAsked)
{
    for (int index = 0; index < 16; ++index) Use(index);
    m_Cache.Forget(0);
    m_Cache.Forget(99);
    EXPECT_EQ(m_Cache.Count(), 15);
    Use(16);
    EXPECT_THAT(m_Holder.taken, IsEmpty());
    Use(17);
    EXPECT_THAT(m_Holder.taken, ElementsAre(1));
}

TEST_F(rfm_SegmentBufferCacheTest, FaultsOfTheCallerHaveTheirTexts)
{
    EXPECT_EQ(Thrown<nex_AssertException>([&] { m_Cache.Release(3, &m_Holder); }),
              "index < m_Entries.Size()");
    m_Cache.Acquire(3);
    EXPECT_EQ(Thrown<nex_AssertException>([&] { m_Cache.Release(3, nullptr); }), "holder");
    rfm_SegmentBuffer stolen;
    m_Cache.Acquire(3)->Swap(stolen);
    EXPECT_EQ(Thrown<nex_AssertException>([&] { m_Cache.Release(3, &m_Holder); }),
              "entry.m_StreamBuffer.Size() > 0");
}

TEST_F(rfm_SegmentBufferCacheTest, ManyTinyBuffersTakeNoLongWalks)
{
    rfm_SegmentBufferCache cache(16);
    ASSERT_EQ(cache.Capacity(), 0x10000);
    cache.Acquire(0); // pinned, at the head
    for (int index = 1; index < 0x10000 + 1000; ++index)
    {
        cache.Acquire(index);
        cache.Release(index, &m_Holder);
    }
    EXPECT_EQ(cache.Count(), 0x10000);
    EXPECT_EQ(m_Holder.taken.size(), 1000U);
}

TEST(rfm_SegmentBufferCache, BuffersOfNoSizeAreAFaultOfTheCaller)
{
    for (const int size : {0, -1, -0x100000})
        EXPECT_EQ(Thrown<nex_AssertException>([&] { rfm_SegmentBufferCache cache(size); }), "bufferSize > 0");
}
