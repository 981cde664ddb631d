#include "rfm.h"

#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>

namespace
{
std::string Bytes(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream all;
    all << file.rdbuf();
    return all.str();
}
} // namespace

TEST(rfm_Database, SmokeOfAllObjects)
{
    const std::string path = ::testing::TempDir() + "smoke.rdx";
    {
        rfm_Database db = rfm_Database::Create(rfm_File::Open(path.c_str(), utl_FileAccessCreate), "TEST",
                                               "demo", 0x65432100);
        db.Close();
        EXPECT_EQ(Bytes(path).size(), 15368U);
    }
    rfm_Handle array, stream;
    {
        rfm_Database db = rfm_Database::Create(rfm_File::Open(path.c_str(), utl_FileAccessCreate), "TEST",
                                               "demo", 0x65432100);
        rfm_TableMetadata layout("NODES", 1);
        const int id = layout.DefineIntField("id");
        const int x = layout.DefineDoubleField("x");
        const int name = layout.DefineStringField("name");
        rfm_Table table = db.Table(db.Bind(layout), 1024, 32);
        EXPECT_EQ(table.Handle().Value(), 4U);
        for (int i = 0; i < 1000; ++i)
        {
            rfm_Row row = table.NewRow();
            row.WriteFieldInt(id, i);
            row.WriteFieldDouble(x, i * 0.5);
            row.WriteFieldString(name, cow_String(i % 7));
        }
        auto doubles = db.ArrayDouble(3, 4096, 0);
        std::vector<double> values(300000);
        for (size_t i = 0; i < values.size(); ++i) values[i] = double(i);
        doubles.Write(values.data(), 100000);
        array = doubles.Handle();
        auto items = db.TaggedStream(0);
        items.WriteString(1, "hello");
        items.WriteInt(2, 42);
        stream = items.Handle();
        table.Flush();
        doubles.Flush();
        items.Flush();
        db.Flush();
    }
    rfm_Database db = rfm_Database::Open(rfm_File::Open(path.c_str(), utl_FileAccessRead), "TEST");
    db.Bind();
    rfm_Table table = db.Table(db.RootTableHandle(), -1, -1);
    ASSERT_EQ(table.Length(), 1000);
    for (int i = 0; i < 1000; ++i)
    {
        rfm_Row row = table.ReadRow(i);
        ASSERT_EQ(row.ReadFieldInt("id"), i);
        ASSERT_EQ(row.ReadFieldDouble("x"), i * 0.5);
        ASSERT_EQ(row.ReadFieldString("name"), cow_String(i % 7));
    }
    auto doubles = db.ArrayDouble(array, -1, 0);
    ASSERT_EQ(doubles.Length(), 100000);
    std::vector<double> values(300000);
    ASSERT_EQ(doubles.Read(values.data(), 100000), 300000);
    for (size_t i = 0; i < values.size(); ++i) ASSERT_EQ(values[i], double(i));
    auto items = db.TaggedStream(stream, 0);
    ASSERT_TRUE(items.Next());
    EXPECT_EQ(items.GetString(), cow_String("hello"));
    ASSERT_TRUE(items.Next());
    EXPECT_EQ(items.GetInt(), 42);
    ASSERT_FALSE(items.Next());
}
