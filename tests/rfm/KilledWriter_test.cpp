#include "ScriptedRun.h"
#include "utl_System.h"

#include <csignal>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

// A writer is killed, by the signal that nobody can catch, at each of its calls that change the file in turn: before
// the call, and within it. A system that ends a process within a write has moved whole pages of the file, so that is
// where the write is torn; one that lies within a page is done. Whatever was flushed is there.

namespace
{
struct Kill
{
    int atCall = 0; // counted from 1
    bool within = false;
    int calls = 0;

    bool IsDue() { return ++calls == atCall; }
};

Kill s_Kill;
utl_SystemCalls s_Real;
constexpr size_t kPage = 4096;

// Up to the page boundary that is nearest below the middle, or the first one, or all.
size_t BytesBeforeTear(size_t bytes, off_t offset)
{
    const size_t firstBoundary = kPage - static_cast<size_t>(offset) % kPage;
    if (firstBoundary >= bytes) return bytes;
    return firstBoundary + (bytes / 2 > firstBoundary ? (bytes / 2 - firstBoundary) / kPage * kPage : 0);
}

ssize_t WriteUntilKilled(int descriptor, const char* buffer, size_t bytes, off_t offset)
{
    if (s_Kill.IsDue())
    {
        if (s_Kill.within) s_Real.write(descriptor, buffer, BytesBeforeTear(bytes, offset), offset);
        ::raise(SIGKILL);
    }
    return s_Real.write(descriptor, buffer, bytes, offset);
}

int AllocateUntilKilled(int descriptor, off_t offset, off_t bytes)
{
    if (s_Kill.IsDue()) ::raise(SIGKILL);
    return s_Real.allocate(descriptor, offset, bytes);
}

int TruncateUntilKilled(int descriptor, off_t size)
{
    if (s_Kill.IsDue()) ::raise(SIGKILL);
    return s_Real.truncate(descriptor, size);
}

void InstallKill(int atCall, bool within)
{
    s_Real = utl_System();
    s_Kill = {atCall, within, 0};
    utl_System().write = WriteUntilKilled;
    utl_System().allocate = AllocateUntilKilled;
    utl_System().truncate = TruncateUntilKilled;
}

constexpr int kIncrements = 9;

// The child's whole life. Each completed flush is told through the pipe, and its end.
void Write(const std::string& path, int flushesPipe)
{
    ScriptedRun::Writer writer(path);
    writer.SetUp();
    for (int n = 1; n <= kIncrements; ++n)
    {
        writer.WriteIncrement(n);
        writer.Flush();
        const char told = static_cast<char>(n);
        if (::write(flushesPipe, &told, 1) != 1) ::_exit(3);
    }
    writer.Close();
}

struct Outcome
{
    int flushed = 0; // increments whose flush returned
    bool killed = false;
};

Outcome RunAndKill(const std::string& path, int atCall, bool within)
{
    ::unlink(path.c_str());
    int flushes[2];
    if (::pipe(flushes) != 0) std::abort();
    const pid_t child = ::fork();
    if (child == 0)
    {
        ::close(flushes[0]);
        InstallKill(atCall, within);
        Write(path, flushes[1]);
        ::_exit(0);
    }
    ::close(flushes[1]);
    Outcome outcome;
    unsigned char told = 0;
    while (::read(flushes[0], &told, 1) == 1) outcome.flushed = told;
    ::close(flushes[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    outcome.killed = WIFSIGNALED(status);
    EXPECT_TRUE(outcome.killed || (WIFEXITED(status) && WEXITSTATUS(status) == 0));
    return outcome;
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
        const Outcome outcome = RunAndKill(path, atCall, within);
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
