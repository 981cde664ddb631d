#include "rfm_Library.h"

#include "atr_Library.h"
#include "cow_Library.h"
#include "hdf_Library.h"
#include "mdl_Library.h"
#include "mem_Library.h"
#include "nex_Library.h"
#include "omni_Library.h"
#include "omu_Library.h"
#include "rds_Library.h"
#include "thr_Library.h"
#include "typ_Library.h"
#include "uti_Library.h"
#include "utl_Library.h"
#include "zlib_Library.h"

#include <gtest/gtest.h>

namespace
{
struct Sibling
{
    const char* name;
    void (*initialize)(int& count);
    void (*finalize)(int& count);

    // A library that is up takes a nested call without raising the caller's count.
    bool IsUp() const
    {
        int count = 0;
        initialize(count);
        const bool up = count == 0;
        finalize(count);
        return up;
    }
};

const Sibling kSiblings[] = {
    {"mem", mem_initialize, mem_finalize},    {"zlib", zlib_initialize, zlib_finalize},
    {"typ", typ_initialize, typ_finalize},    {"thr", thr_initialize, thr_finalize},
    {"omni", omni_initialize, omni_finalize}, {"atr", atr_initialize, atr_finalize},
    {"cow", cow_initialize, cow_finalize},    {"nex", nex_initialize, nex_finalize},
    {"hdf", hdf_initialize, hdf_finalize},    {"utl", utl_initialize, utl_finalize},
    {"uti", uti_initialize, uti_finalize},    {"omu", omu_initialize, omu_finalize},
    {"mdl", mdl_initialize, mdl_finalize},    {"rds", rds_initialize, rds_finalize},
};
constexpr int kLibraries = 1 + static_cast<int>(std::size(kSiblings));

void ExpectSiblingsUp(bool up)
{
    for (const Sibling& sibling : kSiblings) EXPECT_EQ(sibling.IsUp(), up) << sibling.name;
}
} // namespace

TEST(rfm_Library, TheFirstCallRaisesTheCountOnceForEachLibraryAndTheLastLowersItAsMuch)
{
    int count = 100;
    ExpectSiblingsUp(false);
    rfm_initialize(count);
    EXPECT_EQ(count, 100 + kLibraries);
    ExpectSiblingsUp(true);
    rfm_finalize(count);
    EXPECT_EQ(count, 100);
    ExpectSiblingsUp(false);
}

TEST(rfm_Library, OneFinalizeAfterTwoInitializesLeavesEverythingUp)
{
    int count = 0;
    rfm_initialize(count);
    const int once = count;
    rfm_initialize(count);
    EXPECT_EQ(count, once) << "a nested call counts for nobody";
    rfm_finalize(count);
    EXPECT_EQ(count, once);
    ExpectSiblingsUp(true);
    rfm_finalize(count);
    EXPECT_EQ(count, 0);
    ExpectSiblingsUp(false);
}

TEST(rfm_Library, TheNestedCallsCountIsNotTouched)
{
    int first = 0;
    int second = 0;
    rfm_initialize(first);
    rfm_initialize(second);
    EXPECT_EQ(second, 0);
    rfm_finalize(second);
    EXPECT_EQ(second, 0);
    rfm_finalize(first);
    EXPECT_EQ(first, 0);
}

TEST(rfm_Library, ItCanBeBroughtUpAgainAfterItWentDown)
{
    int count = 0;
    for (int round = 0; round < 3; ++round)
    {
        rfm_initialize(count);
        EXPECT_EQ(count, kLibraries);
        ExpectSiblingsUp(true);
        rfm_finalize(count);
        EXPECT_EQ(count, 0);
        ExpectSiblingsUp(false);
    }
}
