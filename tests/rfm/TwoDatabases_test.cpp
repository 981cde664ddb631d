// What two databases share within a process must stand two threads; each database belongs to one of them.

#include "TestFolder.h"
#include "rfm.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>

namespace
{
constexpr int kRows = 2000;

std::string NameOf(int thread, int row)
{
    return std::to_string(thread) + " of " + std::to_string(row % 300);
}

void Write(const rfm_File& file, int thread)
{
    rfm_Database database = rfm_Database::Create(file, "TEST", "", 0);
    rfm_TableMetadata layout("rows", 1);
    layout.DefineStringField("name");
    layout.DefineDoubleField("value");
    rfm_Table table = database.Table(database.Bind(layout), -1, -1);
    for (int i = 0; i < kRows; ++i)
    {
        rfm_Row row = table.NewRow();
        row.WriteFieldString("name", cow_String(std::string_view(NameOf(thread, i))));
        row.WriteFieldDouble("value", thread + i * 0.5);
        if (i % 100 == 0) table.Flush(), database.Flush();
    }
}

int RightRows(const cow_String& path, int thread)
{
    rfm_Database database = rfm_Database::Open(rfm_File::Open(path, utl_FileAccessRead), "TEST");
    database.Bind();
    rfm_Table table = database.Table(database.RootTableHandle(), -1, -1);
    int right = 0;
    for (int i = 0; i < table.Length(); ++i)
    {
        const rfm_Row row = table.ReadRow(i);
        if (row.ReadFieldString("name").View() == NameOf(thread, i) &&
            row.ReadFieldDouble("value") == thread + i * 0.5)
            ++right;
    }
    return right;
}

/// Each thread writes and reads databases of its own; answers how many rows were right, of all.
int RightRowsOfTwoThreads(rfm_File (*make)(const cow_String& path))
{
    const TestFolder folder;
    std::atomic<int> right = 0;
    std::atomic<int> ready = 0;
    const auto live = [&](int thread)
    {
        const cow_String path = folder.Path(thread == 0 ? "0.rdx" : "1.rdx");
        for (++ready; ready < 2;) std::this_thread::yield(); // both work at the same time
        Write(make(path), thread);
        right += RightRows(path, thread);
    };
    std::thread other(live, 1);
    live(0);
    other.join();
    return right;
}

TEST(TwoDatabases, MayBeUsedByTwoThreads)
{
    EXPECT_EQ(RightRowsOfTwoThreads([](const cow_String& path)
                                    { return rfm_File::Open(path, utl_FileAccessCreate); }),
              2 * kRows);
}

TEST(TwoDatabases, MayBeUsedByTwoThreadsWhenTheyAreCompressed)
{
    EXPECT_EQ(RightRowsOfTwoThreads([](const cow_String& path) { return rfm_File::CreateCompressed(path); }),
              2 * kRows);
}
} // namespace
