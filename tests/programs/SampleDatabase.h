#pragma once

// A small database with one object of each kind, and files to damage.

#include "TestFolder.h"
#include "rfm.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>

inline rfm_Database CreateDatabase(const std::string& path, int creationTime = 1700000000)
{
    return rfm_Database::Create(rfm_File::Open(path.c_str(), utl_FileAccessCreate), "TEST", "sample",
                                creationTime);
}

/// Handles: 4 table NODES of 3 rows, 5 its twin without rows, 6 array of 2 doubles in a row, 7 array of strings, 8 stream
/// of one item of each type, 9 a plain space. Entries 10 on go on with the pools.
inline void MakeSample(const std::string& path)
{
    rfm_Database database = CreateDatabase(path);
    rfm_TableMetadata layout("NODES", 1);
    const int id = layout.DefineIntField("id");
    const int name = layout.DefineStringField("name");
    const int weight = layout.DefineFloatField("weight");
    const int x = layout.DefineDoubleField("x");
    const int link = layout.DefineHandleField("link");
    const rfm_TableMetadata& bound = database.Bind(layout);
    {
        rfm_Table nodes = database.Table(bound, -1, -1);
        const rfm_Table twin = database.Table(bound, -1, -1);
        for (int i = 0; i < 3; ++i)
        {
            rfm_Row row = nodes.NewRow();
            row.WriteFieldInt(id, 10 * (i + 1));
            if (i != 1) row.WriteFieldString(name, i == 0 ? "a\tb" : "");
            row.WriteFieldFloat(weight, 0.1F);
            row.WriteFieldDouble(x, i == 0 ? 0.1 : 1e300);
            if (i == 0) row.WriteFieldHandle(link, rfm_Handle(6));
        }
        nodes.Flush();

        auto pairs = database.ArrayDouble(2, -1, 0);
        const double values[] = {1, 2, 3, 4, 5.5, -0.0};
        pairs.Write(values, 3);
        pairs.Flush();

        auto words = database.ArrayString(1, -1, 0);
        const cow_String texts[] = {"one", "two, \"three\""};
        words.Write(texts, 2);
        words.Flush();

        rfm_TaggedStream items = database.TaggedStream(0);
        items.WriteInt(1, -7);
        items.WriteFloat(2, 2.5F);
        items.WriteDouble(3, 1.0 / 3.0);
        items.WriteHandle(4, rfm_Handle(4));
        items.WriteString(5, "text");
        items.Flush();

        rfm_Space space = database.Space(-1);
        space.Write("plain bytes of its own", 22);
    }
    database.Close();
}

inline std::string ReadFile(const std::string& path)
{
    // In blocks, and to the end: files of /proc have no size.
    const std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

inline void WriteFile(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

/// Puts a number over the bytes at `offset`.
template <class T> void Overwrite(const std::string& path, std::int64_t offset, T value)
{
    std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(offset);
    file.write(reinterpret_cast<const char*>(&value), sizeof value);
}

template <class T> T NumberAt(const std::string& path, std::int64_t offset)
{
    std::ifstream file(path, std::ios::binary);
    file.seekg(offset);
    T value{};
    file.read(reinterpret_cast<char*>(&value), sizeof value);
    return value;
}

/// Where the parts of a linkage entry of the first block lie.
inline std::int64_t EntryPlace(int handle) { return 1024 + 28 * handle; }
inline std::int64_t ExtentOfEntry(const std::string& path, int handle)
{
    return static_cast<std::int64_t>(NumberAt<double>(path, EntryPlace(handle) + 16));
}
