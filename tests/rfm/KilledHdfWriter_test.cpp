// A writer of an HDF5 file is killed at each call by which HDF5 changes the file. Between two flushes the file opens with
// all of the last one. Within a flush, HDF5 writes its own structures one by one: then the file reads as the last
// flush or is refused with an exception.
#include "KilledRun.h"
#include "ScriptedRun.h"
#include "TestFolder.h"
#include "nex_Exception.h"

#include <dlfcn.h>
#include <filesystem>

namespace
{
using PWrite = ssize_t (*)(int, const void*, size_t, off_t);
using FTruncate = int (*)(int, off_t);

template <class Call> Call Next(const char* name) { return reinterpret_cast<Call>(::dlsym(RTLD_NEXT, name)); }
} // namespace

// HDF5 finds these in front of the system's.
extern "C" __attribute__((visibility("default"))) ssize_t pwrite(int descriptor, const void* buffer,
                                                                 size_t bytes, off_t offset)
{
    static const auto s_Next = Next<PWrite>("pwrite");
    if (KilledRun::s_Kill.IsDue())
    {
        if (KilledRun::s_Kill.within)
            s_Next(descriptor, buffer, KilledRun::BytesBeforeTear(bytes, offset), offset);
        ::raise(SIGKILL);
    }
    return s_Next(descriptor, buffer, bytes, offset);
}

extern "C" __attribute__((visibility("default"))) int ftruncate(int descriptor, off_t size) noexcept
{
    static const auto s_Next = Next<FTruncate>("ftruncate");
    if (KilledRun::s_Kill.IsDue()) ::raise(SIGKILL);
    return s_Next(descriptor, size);
}

namespace
{
constexpr int kIncrements = 6;

void Write(const cow_String& name, const KilledRun::Teller& teller)
{
    ScriptedRun::Writer writer(NewFileOfKind(name, "hdf5"));
    writer.SetUp();
    for (int n = 1; n <= kIncrements; ++n)
    {
        writer.WriteIncrement(n);
        teller.FlushBegins(n);
        writer.Flush();
        teller.FlushEnded(n);
    }
    teller.FlushBegins(kIncrements);
    writer.Close();
}

// Whether it opens and has all that was flushed with increment n; false for a clear exception.
bool Reads(const cow_String& name, int n)
{
    try
    {
        rfm_Database database = rfm_Database::Open(rfm_File::Open(name, utl_FileAccessRead), "TEST");
        ScriptedRun::ExpectAtLeast(database, n);
        return true;
    }
    catch (const nex_Exception&)
    {
        return false;
    }
}

void KillAtEveryCall(bool within)
{
    const TestFolder folder;
    const cow_String name = folder.Path("killed.rdx");
    int reads = 0;
    int failed = 0;
    int betweenFlushes = 0;
    int atCall = 1;
    for (bool killed = true; killed && !::testing::Test::HasFailure(); ++atCall)
    {
        SCOPED_TRACE("killed at call " + std::to_string(atCall));
        std::filesystem::remove(name.CString());
        const KilledRun::Outcome outcome =
            KilledRun::RunAndKill(atCall, within, [&](const auto& teller) { Write(name, teller); });
        killed = outcome.killed;
        if (outcome.flushed == 0) continue;
        const bool isWhole = Reads(name, outcome.flushed);
        ++(isWhole ? reads : failed);
        if (!outcome.withinFlush || !killed)
        {
            EXPECT_TRUE(isWhole) << "flush " << outcome.flushed;
            ++betweenFlushes;
        }
    }
    std::printf(
        "of %d killed runs %d were before the end of the first flush, %d between two; %d read as their last "
        "flush, %d within a flush failed clearly\n",
        atCall - 1, atCall - 1 - reads - failed, betweenFlushes, reads, failed);
    EXPECT_GT(betweenFlushes, kIncrements / 2);
    EXPECT_GT(atCall, 4 * kIncrements);
}
} // namespace

TEST(KilledHdfWriter, BeforeAnyCallItLeavesTheLastFlushOrAFileThatIsRefused) { KillAtEveryCall(false); }
TEST(KilledHdfWriter, WithinAnyWriteItLeavesTheLastFlushOrAFileThatIsRefused) { KillAtEveryCall(true); }
