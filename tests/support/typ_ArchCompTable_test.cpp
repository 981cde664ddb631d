#include "typ_ArchCompTable.h"

#include "nex_Exception.h"

#include <gtest/gtest.h>
#include <iterator>

namespace
{
constexpr int kLibrary = 901;
constexpr int kBase = typ_TypeId(kLibrary, 1);
constexpr int kDerived = typ_TypeId(kLibrary, 2);
constexpr int kOther = typ_TypeId(kLibrary, 3);
constexpr int kCircle = typ_TypeId(kLibrary, 4);

class ATable : public ::testing::Test
{
protected:
    void SetUp() override
    {
        const typ_Entry rows[] = {
            {typ_KindNone, typ_NoBase, nullptr}, {typ_KindClass, typ_NoBase, "Base"},
            {typ_KindClass, kBase, "Derived"},   {typ_KindClass, typ_NoBase, "Other"},
            {typ_KindClass, kCircle, "Circle"},
        };
        typ_ArchCompTable::InsertEntry(kLibrary, typ_ArchCompEntry(rows, std::size(rows)));
    }
};
} // namespace

TEST_F(ATable, ATypeIdIsALibraryAndARow)
{
    EXPECT_EQ(typ_TypeId(845, 1), 55377921);
    const typ_Entry* row = typ_ArchCompTable::FindRow(kDerived);
    ASSERT_NE(row, nullptr);
    EXPECT_STREQ(row->name, "Derived");
    EXPECT_EQ(row->kind, 7);
    EXPECT_EQ(row->base, kBase);
    EXPECT_EQ(typ_ArchCompTable::FindRow(typ_TypeId(kLibrary, 5)), nullptr);
    EXPECT_EQ(typ_ArchCompTable::FindRow(typ_TypeId(kLibrary + 1, 1)), nullptr);
    EXPECT_EQ(typ_ArchCompTable::FindRow(-1), nullptr);
}

TEST_F(ATable, ATypeIsItselfAndAllItsBases)
{
    EXPECT_TRUE(typ_ArchCompTable::IsA(kDerived, kDerived));
    EXPECT_TRUE(typ_ArchCompTable::IsA(kDerived, kBase));
    EXPECT_FALSE(typ_ArchCompTable::IsA(kBase, kDerived));
    EXPECT_FALSE(typ_ArchCompTable::IsA(kOther, kBase));
    EXPECT_FALSE(typ_ArchCompTable::IsA(kCircle, kBase)) << "a table that leads in a circle ends";
    EXPECT_TRUE(typ_ArchCompTable::IsA(12345, 12345)) << "known to no table";
}

TEST_F(ATable, ATableThatComesAgainReplacesTheFormer)
{
    const typ_Entry rows[] = {{typ_KindNone, typ_NoBase, nullptr}};
    typ_ArchCompTable::InsertEntry(kLibrary, typ_ArchCompEntry(rows, std::size(rows)));
    EXPECT_EQ(typ_ArchCompTable::FindRow(kBase), nullptr);
}

TEST_F(ATable, ACastThatCannotBeIsAnAssertionOfItsCaller)
{
    nex_canDynamicCastRef(kBase, kDerived, "here", 1);
    nex_canDynamicCastRef(kBase, kBase, "here", 1);
    try
    {
        nex_canDynamicCastRef(kDerived, kBase, "rds_Some", 17);
        FAIL() << "nothing was thrown";
    }
    catch (const nex_AssertException& failure)
    {
        EXPECT_STREQ(failure.what(), "nex_canDynamicCastRef(wantedType, actualType)");
        EXPECT_EQ(failure.SourceName().View(), "rds_Some");
        EXPECT_EQ(failure.Line(), 17);
    }
}
