#include "mem_Library.h"

#include "atr_Library.h"
#include "cls_Library.h"
#include "cow_Library.h"
#include "mdl_Library.h"
#include "mem_Alloc.h"
#include "nex_Library.h"
#include "omni_Library.h"
#include "omu_Library.h"
#include "thr_Library.h"
#include "typ_Library.h"
#include "uti_Library.h"
#include "utl_Library.h"

#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <ostream>
#include <string_view>

TEST(mem_LibraryCalls, OnlyTheOutermostPairCounts)
{
    mem_LibraryCalls calls;
    int count = 5;
    EXPECT_TRUE(calls.Enter(count));
    EXPECT_EQ(count, 6);
    EXPECT_FALSE(calls.Enter(count));
    EXPECT_EQ(count, 6);
    EXPECT_FALSE(calls.Leave(count));
    EXPECT_EQ(count, 6);
    EXPECT_TRUE(calls.Leave(count));
    EXPECT_EQ(count, 5);
}

TEST(mem_LibraryCalls, ALibraryCanBeStartedAgainAfterItsEnd)
{
    mem_LibraryCalls calls;
    int count = 0;
    for (int round = 0; round < 3; ++round)
    {
        EXPECT_TRUE(calls.Enter(count));
        EXPECT_TRUE(calls.Leave(count));
    }
    EXPECT_EQ(count, 0);
}

TEST(mem_LibraryCalls, AnEndWithoutAStartChangesNothing)
{
    mem_LibraryCalls calls;
    int count = 5;
    EXPECT_FALSE(calls.Leave(count));
    EXPECT_EQ(count, 5);
    EXPECT_TRUE(calls.Enter(count));
    EXPECT_EQ(count, 6);
    EXPECT_TRUE(calls.Leave(count));
    EXPECT_EQ(count, 5);
}

namespace
{
struct LibraryPair
{
    const char* name;
    void (*initialize)(int&);
    void (*finalize)(int&);
};

void PrintTo(const LibraryPair& pair, std::ostream* out) { *out << pair.name; }

class EverySupportLibrary : public ::testing::TestWithParam<LibraryPair>
{
};
} // namespace

TEST_P(EverySupportLibrary, RaisesTheCallersCountOnceAndLowersItOnce)
{
    int count = 0;
    GetParam().initialize(count);
    GetParam().initialize(count);
    EXPECT_EQ(count, 1);
    GetParam().finalize(count);
    EXPECT_EQ(count, 1);
    GetParam().finalize(count);
    EXPECT_EQ(count, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Support, EverySupportLibrary,
    ::testing::Values(
        LibraryPair{"mem", mem_initialize, mem_finalize}, LibraryPair{"typ", typ_initialize, typ_finalize},
        LibraryPair{"cls", cls_initialize, cls_finalize}, LibraryPair{"omu", omu_initialize, omu_finalize},
        LibraryPair{"mdl", mdl_initialize, mdl_finalize}, LibraryPair{"thr", thr_initialize, thr_finalize},
        LibraryPair{"omni", omni_initialize, omni_finalize}, LibraryPair{"atr", atr_initialize, atr_finalize},
        LibraryPair{"cow", cow_initialize, cow_finalize}, LibraryPair{"nex", nex_initialize, nex_finalize},
        LibraryPair{"utl", utl_initialize, utl_finalize}, LibraryPair{"uti", uti_initialize, uti_finalize}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST(mem_Alloc, ABlockOfNoBytesIsStillABlock)
{
    void* block = mem_Malloc(0);
    EXPECT_NE(block, nullptr);
    block = mem_Realloc(block, 0);
    EXPECT_NE(block, nullptr);
    mem_Free(block);
    mem_Free(nullptr);
}

TEST(mem_Alloc, AGrownBlockKeepsItsBytes)
{
    char* block = static_cast<char*>(mem_Malloc(4));
    EXPECT_EQ(std::string_view("kept").copy(block, 4), 4U);
    block = static_cast<char*>(mem_Realloc(block, 100000));
    EXPECT_EQ(std::memcmp(block, "kept", 4), 0);
    mem_Free(block);
}
