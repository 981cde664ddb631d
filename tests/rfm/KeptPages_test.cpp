#include "KilledRun.h"
#include "rfm.h"
#include "rfm_HeaderFormat.h"
#include "utl_FaultPlan.h"

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

// Rows read and updated here and there, whose pages a plain file keeps: what reaches the file when, and what a reader
// in another place sees of it.

namespace
{
constexpr int kRows = 6000; // 24 pages
constexpr int kFirstObject = 15368;
const rfm_Handle kTable{4};

std::string PathOf(const char* name) { return ::testing::TempDir() + name; }

rfm_TableMetadata Layout()
{
    rfm_TableMetadata layout("ROWS", 1);
    layout.DefineIntField("increment"); // in which the row was updated last
    layout.DefineDoubleField("value");
    return layout;
}

rfm_Database Open(const std::string& path, utl_FileAccess access)
{
    rfm_Database database = rfm_Database::Open(rfm_File::Open(path.c_str(), access), "TEST");
    database.Bind(Layout());
    return database;
}

/// A table with all rows of increment 0.
void Prepare(const std::string& path)
{
    rfm_Database database =
        rfm_Database::Create(rfm_File::Open(path.c_str(), utl_FileAccessCreate), "TEST", "kept", 5);
    {
        rfm_Table table = database.Table(database.Bind(Layout()), -1, 64);
        for (int i = 0; i < kRows; ++i)
        {
            rfm_Row row = table.NewRow();
            row.WriteFieldInt(0, 0);
            row.WriteFieldDouble(1, i * 0.5);
        }
        table.Flush();
    }
    database.Flush();
    database.Close();
}

/// The row that step `step` of an increment updates: all over the table, and some of them again and again.
int RowAt(int increment, int step) { return (step * 2741 + increment * 7 * (step % 3)) % kRows; }
constexpr int kSteps = 80;
constexpr int kIncrements = 4;

void UpdateRow(rfm_Table& table, int row, int increment) { table.UpdateRow(row).WriteFieldInt(0, increment); }

void Update(rfm_Table& table, int increment)
{
    for (int step = 0; step < kSteps; ++step) UpdateRow(table, RowAt(increment, step), increment);
}

/// Reads rows all over the table, so that pages are thought of, and row `kept` until its page is kept.
void JumpAbout(rfm_Table& table, int kept)
{
    for (int i = 0; i < 40; ++i) static_cast<void>(table.ReadRow(i * 1009 % kRows));
    for (int i = 0; i < 3; ++i)
    {
        static_cast<void>(table.ReadRow(kept));
        static_cast<void>(table.ReadRow((kept + kRows / 2) % kRows));
    }
}

int IncrementOf(rfm_Table& table, int row) { return table.ReadRow(row).ReadFieldInt(0); }

// The child's whole life.
void Write(const std::string& path, const KilledRun::Teller& teller)
{
    KilledRun::WatchFiles();
    rfm_Database database = Open(path, utl_FileAccessUpdate);
    {
        rfm_Table table = database.Table(kTable, -1, 1);
        for (int n = 1; n <= kIncrements; ++n)
        {
            Update(table, n);
            table.Flush();
            database.Flush();
            teller.FlushEnded(n);
        }
    }
    database.Close();
}

void ExpectNothingLost(const std::string& path, int flushed)
{
    rfm_Database database = Open(path, utl_FileAccessRead);
    rfm_Table table = database.Table(kTable, -1, 32);
    ASSERT_EQ(table.Length(), kRows);
    std::vector<int> least(kRows);
    for (int n = 1; n <= flushed; ++n)
        for (int step = 0; step < kSteps; ++step) least[static_cast<std::size_t>(RowAt(n, step))] = n;
    for (int i = 0; i < kRows; ++i)
    {
        const rfm_Row row = table.ReadRow(i);
        ASSERT_GE(row.ReadFieldInt(0), least[static_cast<std::size_t>(i)]) << "row " << i;
        ASSERT_EQ(row.ReadFieldDouble(1), i * 0.5) << "row " << i;
    }
}

void KillAtEveryCall(bool within)
{
    const std::string prepared = PathOf("kept.rdx");
    const std::string path = PathOf("kept_killed.rdx");
    Prepare(prepared);
    int atCall = 1;
    for (bool killed = true; killed; ++atCall)
    {
        SCOPED_TRACE("killed at call " + std::to_string(atCall));
        std::filesystem::copy_file(prepared, path, std::filesystem::copy_options::overwrite_existing);
        const KilledRun::Outcome outcome =
            KilledRun::RunAndKill(atCall, within, [&](const auto& teller) { Write(path, teller); });
        killed = outcome.killed;
        ExpectNothingLost(path, outcome.flushed);
        if (!killed)
        {
            EXPECT_EQ(outcome.flushed, kIncrements);
        }
        if (::testing::Test::HasFatalFailure()) return;
    }
    EXPECT_GT(atCall, 4 * kIncrements);
    // A call for each row would be that many; all but the first touches of a page were gathered.
    EXPECT_LT(atCall, kIncrements * kSteps / 2);
    ::unlink(prepared.c_str());
    ::unlink(path.c_str());
}

/// A writer and a reader of one prepared file.
class KeptPages : public ::testing::Test
{
protected:
    KeptPages() { Prepare(m_Path); }
    ~KeptPages() override { ::unlink(m_Path.c_str()); }

    const std::string m_Path = PathOf("kept_shared.rdx");
};
} // namespace

TEST(KilledUpdater, BeforeAnyCallItLeavesWhatWasFlushed) { KillAtEveryCall(false); }
TEST(KilledUpdater, WithinAnyWriteItLeavesWhatWasFlushed) { KillAtEveryCall(true); }

// The header, the linkage table and the first rows lie in pages that are kept, and all of them change.
TEST_F(KeptPages, AFlushBringsRowsThenTheTablesCountThenTheLinkageThenTheFlushCount)
{
    rfm_Database database = Open(m_Path, utl_FileAccessUpdate);
    rfm_Table table = database.Table(kTable, -1, 1);
    table.NewRow().WriteFieldInt(0, 1); // the file grows by its step here, and not in what is looked at
    table.Flush();
    database.Flush();
    JumpAbout(table, 1);
    for (int i = 0; i < 3; ++i)
    {
        EXPECT_EQ(database.Description(), "kept");
        JumpAbout(table, 2);
    }
    for (const int row : {3000, 2, 5000, 1}) UpdateRow(table, row, 1);
    table.NewRow().WriteFieldInt(0, 1);
    const utl_FaultPlan plan;
    table.Flush();
    database.Flush();

    const auto& log = plan.WriteLog();
    const auto count = std::find(log.begin(), log.end(), utl_FaultPlan::Transfer{kFirstObject + 4, 4});
    ASSERT_NE(count, log.end()) << "the table's count went out with other bytes";
    EXPECT_GE(count - log.begin(), 4) << "rows came before it";
    for (auto write = count + 1; write != log.end(); ++write) EXPECT_LT(write->offset, kFirstObject);
    EXPECT_EQ(log.back(), (utl_FaultPlan::Transfer{rfm_FlushCountOffset, 4}));
    ASSERT_GE(log.end() - count, 3) << "no linkage was written";
    for (auto write = count + 1; write != log.end() - 1; ++write) EXPECT_GE(write->offset, rfm_HeaderBytes);
}

TEST_F(KeptPages, UpdatesAreInTheFileWhenTheFlushAndTheSemaphoreReturn)
{
    rfm_Database database = Open(m_Path, utl_FileAccessUpdate);
    rfm_Table table = database.Table(kTable, -1, 1);
    const auto inTheFile = [&](int row)
    {
        rfm_Database other = Open(m_Path, utl_FileAccessRead);
        rfm_Table rows = other.Table(kTable, -1, 1);
        return IncrementOf(rows, row);
    };
    JumpAbout(table, 3000);
    UpdateRow(table, 3000, 1);
    table.Flush();
    database.Flush();
    EXPECT_EQ(inTheFile(3000), 1);
    UpdateRow(table, 3000, 2);
    static_cast<void>(table.UpdateRow(10)); // the cache has no room for the row any more: it goes to the file
    static_cast<void>(table.UpdateRow(5000));
    database.ReaderSemaphoreSet();
    EXPECT_EQ(inTheFile(3000), 2);
    UpdateRow(table, 3000, 3);
    static_cast<void>(table.UpdateRow(10));
    static_cast<void>(table.UpdateRow(5000));
    database.ReaderSemaphoreClear();
    EXPECT_EQ(inTheFile(3000), 3);
}

TEST_F(KeptPages, AFollowerSeesUpdatesOfRowsThatItHadKept)
{
    rfm_Database writer = Open(m_Path, utl_FileAccessUpdate);
    rfm_Table written = writer.Table(kTable, -1, 1);
    rfm_Database reader = Open(m_Path, utl_FileAccessRead);
    rfm_Table table = reader.Table(kTable, -1, 1);
    for (int n = 1; n <= 5; ++n)
    {
        JumpAbout(table, 3000);
        Update(written, n);
        UpdateRow(written, 3000, n);
        written.Flush();
        writer.Flush();
        ASSERT_EQ(reader.FileStatus(), rfm_FileStatus::RfmFileUpdated);
        ASSERT_EQ(reader.Snap(), 1);
        table.Snap();
        EXPECT_EQ(IncrementOf(table, 3000), n);
        for (int step = 0; step < kSteps; ++step)
            ASSERT_EQ(IncrementOf(table, RowAt(n, step)), IncrementOf(written, RowAt(n, step)));
    }
}

// A reader that has seen the table's count may not be shown rows from before it.
TEST_F(KeptPages, ATableThatIsOpenedAnewShowsNoRowsOlderThanItsCount)
{
    rfm_Database writer = Open(m_Path, utl_FileAccessUpdate);
    rfm_Table written = writer.Table(kTable, -1, 1);
    rfm_Database reader = Open(m_Path, utl_FileAccessRead);
    rfm_Table first = reader.Table(kTable, -1, 1);
    JumpAbout(first, 3000);
    UpdateRow(written, 3000, 1);
    const int count = written.Flush();
    static_cast<void>(first.ReadRow(10));
    EXPECT_EQ(IncrementOf(first, 3000), 0) << "its page was not kept";
    rfm_Table second = reader.Table(kTable, -1, 1);
    EXPECT_EQ(second.GetFlushCount(), count);
    EXPECT_EQ(IncrementOf(second, 3000), 1);
}

TEST_F(KeptPages, ALookAtTheStatusShowsAnewWhatWasKept)
{
    rfm_Database writer = Open(m_Path, utl_FileAccessUpdate);
    rfm_Table written = writer.Table(kTable, -1, 1);
    rfm_Database reader = Open(m_Path, utl_FileAccessRead);
    rfm_Table table = reader.Table(kTable, -1, 1);
    JumpAbout(table, 3000);
    UpdateRow(written, 3000, 1);
    written.Flush();
    static_cast<void>(table.ReadRow(10));
    EXPECT_EQ(IncrementOf(table, 3000), 0) << "its page was not kept";
    static_cast<void>(table.ReadRow(10));
    EXPECT_EQ(reader.FileStatus(), rfm_FileStatus::RfmFileUnchanged);
    EXPECT_EQ(IncrementOf(table, 3000), 1);
}
