#include "KilledRun.h"
#include "ScriptedRun.h"

// A writer of a plain file is killed at each of its calls that change the file in turn. Whatever was flushed is there.

namespace
{
constexpr int kIncrements = 9;

// The child's whole life.
void Write(const std::string& path, const KilledRun::Teller& teller)
{
    KilledRun::WatchFiles();
    ScriptedRun::Writer writer(path);
    writer.SetUp();
    for (int n = 1; n <= kIncrements; ++n)
    {
        writer.WriteIncrement(n);
        writer.Flush();
        teller.FlushEnded(n);
    }
    writer.Close();
}

void ExpectNothingLost(const std::string& path, int flushed)
{
    rfm_Database database = rfm_Database::Open(rfm_File::Open(path.c_str(), utl_FileAccessRead), "TEST");
    // The count may have reached the file of a flush that did not return any more, and the close makes one flush more.
    EXPECT_GE(database.GetFlushCount(), flushed);
    EXPECT_LE(database.GetFlushCount(), flushed + 1);
    ScriptedRun::ExpectAtLeast(database, flushed);
}

void KillAtEveryCall(bool within)
{
    const std::string path = ::testing::TempDir() + "killed.rdx";
    int atCall = 1;
    for (bool killed = true; killed; ++atCall)
    {
        SCOPED_TRACE("killed at call " + std::to_string(atCall));
        ::unlink(path.c_str());
        const KilledRun::Outcome outcome =
            KilledRun::RunAndKill(atCall, within, [&](const auto& teller) { Write(path, teller); });
        killed = outcome.killed;
        if (outcome.flushed > 0) ExpectNothingLost(path, outcome.flushed);
        if (::testing::Test::HasFatalFailure()) return;
    }
    EXPECT_GT(atCall, 4 * kIncrements); // each flush made several calls, and each had its turn
    ::unlink(path.c_str());
}
} // namespace

TEST(KilledWriter, BeforeAnyCallItLeavesTheLastFlush) { KillAtEveryCall(false); }
TEST(KilledWriter, WithinAnyWriteItLeavesTheLastFlush) { KillAtEveryCall(true); }
