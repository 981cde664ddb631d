#include "rds.h"

#include <gtest/gtest.h>
#include <string>

namespace
{
// Name, texts, then the numbers in their order.
std::string Shown(const rds_DirectoryEntity& entity)
{
    std::string shown;
    for (const cow_String& text : {entity.m_Name, entity.m_Text1, entity.m_Text2})
        shown += "[" + std::string(text.View()) + "]";
    for (const std::uint64_t number :
         {static_cast<std::uint64_t>(entity.m_Kind), static_cast<std::uint64_t>(entity.m_Short1),
          static_cast<std::uint64_t>(entity.m_Short2), std::uint64_t{entity.m_Word1},
          std::uint64_t{entity.m_Word2}, std::uint64_t{entity.m_Word3}, entity.m_Large})
        shown += " " + std::to_string(number);
    return shown;
}

rds_DirectoryEntity Full() { return {"name", "one", "two", 1, 2, 3, 4, 5, 7}; }
} // namespace

TEST(rds_DirectoryEntity, WhatAConstructorIsNotGivenIsEmptyOrZero)
{
    EXPECT_EQ(Shown(rds_DirectoryEntity()), "[][][] 0 0 0 0 0 0 0");
    EXPECT_EQ(Shown(rds_DirectoryEntity("name")), "[name][][] 0 0 0 0 0 0 0");
    EXPECT_EQ(Shown(rds_DirectoryEntity("name", 9)), "[name][][] 9 0 0 0 0 0 0");
}

TEST(rds_DirectoryEntity, NineArgumentsFillAllButTheThirdWord)
{
    EXPECT_EQ(Shown(Full()), "[name][one][two] 1 2 3 4 5 0 7");
}

TEST(rds_DirectoryEntity, ACopyHasTheThirdWordToo)
{
    rds_DirectoryEntity source = Full();
    source.m_Word3 = 6;
    const rds_DirectoryEntity copy(source);
    source.m_Word3 = 0;
    EXPECT_EQ(Shown(copy), "[name][one][two] 1 2 3 4 5 6 7");
}

TEST(rds_DirectoryEntity, ItsListHasTheOperationsOfLists)
{
    cow_List<rds_DirectoryEntity> list;
    for (const char* name : {"b", "c"}) list.Append(rds_DirectoryEntity(name));
    list.Prepend(rds_DirectoryEntity("a"));
    list.InsertAfter(1, rds_DirectoryEntity("x"));
    const cow_List<rds_DirectoryEntity> shared(list);
    list.Get(0).m_Kind = 5;
    EXPECT_EQ(shared.ConstGet(0).m_Kind, 0);
    EXPECT_EQ(list.ConstGet(0).m_Kind, 5);
    list.RemoveIndex(1); // the x
    EXPECT_EQ(list.ConstGet(1).m_Name, "b");
    list.RemoveFirst();
    list.RemoveLast();
    ASSERT_EQ(list.Count(), 1);
    EXPECT_EQ(list.ConstGet(0).m_Name, "b");
    list.Clear();
    EXPECT_TRUE(list.IsEmpty());
    EXPECT_EQ(shared.Count(), 4);
}
