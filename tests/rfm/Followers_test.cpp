#include "rfm.h"

#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

// One writer and several readers, each a process of its own. Whatever a reader takes for settled (no writer holds the
// file, and the count did not move while it read) must be exactly what the writer had at that flush.

namespace
{
constexpr int kFlushes = 5000;
constexpr int kReaders = 3;
constexpr int kMeetEvery = 50; // flushes after which the writer waits until every reader has seen its state

const rfm_Handle kTable{4};
const rfm_Handle kArray{5};

int RowsAt(int flush) { return flush * 2 + flush / 3; }
int ArrayRowsAt(int flush) { return flush * 3; }

rfm_TableMetadata Layout()
{
    rfm_TableMetadata layout("STEPS", 1);
    layout.DefineIntField("flush"); // of row 0: the number of the flush
    layout.DefineDoubleField("value");
    layout.DefineStringField("name");
    return layout;
}

cow_String NameOf(int row) { return cow_String("row ") + cow_String(row % 257); }

struct Pipe
{
    Pipe()
    {
        if (::pipe(ends) != 0) std::abort();
    }
    bool Put() const { return ::write(ends[1], "+", 1) == 1; }
    bool Take() const
    {
        char byte;
        return ::read(ends[0], &byte, 1) == 1;
    }
    int ends[2];
};

void WriteOneFlush(rfm_Database& database, rfm_Table& table, rfm_Array<double, rfm_TypeDouble>& array,
                   int flush)
{
    const rfm_ReaderSemaphoreProxy holdReadersOff(database);
    table.UpdateRow(0).WriteFieldInt(0, flush);
    while (table.Length() < 1 + RowsAt(flush))
    {
        rfm_Row row = table.NewRow();
        row.WriteFieldDouble(1, row.Location() * 0.5);
        row.WriteFieldString(2, NameOf(row.Location()));
    }
    const double values[3] = {flush + 0.25, flush + 0.5, flush + 0.75};
    array.Write(values, 3);
    table.Flush();
    array.Flush();
    database.Flush();
}

void RunWriter(const std::string& path, const Pipe& ready, const std::vector<Pipe>& met)
{
    rfm_Database database =
        rfm_Database::Create(rfm_File::Open(path.c_str(), utl_FileAccessCreate), "TEST", "followed", 5);
    rfm_Table table = database.Table(database.Bind(Layout()), 256, 16);
    auto array = database.ArrayDouble(1, 512, 256);
    table.UpdateRow(0).WriteFieldInt(0, 0);
    table.Flush();
    array.Flush();
    database.Flush();
    for (int i = 0; i < kReaders; ++i) ready.Put();
    for (int flush = 1; flush <= kFlushes; ++flush)
    {
        WriteOneFlush(database, table, array, flush);
        if (flush % kMeetEvery != 0) continue;
        for (const Pipe& reader : met)
            if (!reader.Take()) ::_exit(4); // the reader has died: it found a difference
    }
}

class Reader
{
public:
    explicit Reader(const std::string& path)
        : m_Database(rfm_Database::Open(rfm_File::Open(path.c_str(), utl_FileAccessRead), "TEST"))
    {
        const rfm_TableMetadata& layout = m_Database.Bind(Layout());
        static_cast<void>(layout);
        m_Table = m_Database.Table(kTable, -1, 16);
        m_Array = m_Database.ArrayDouble(kArray, -1, 256);
    }

    void Refresh()
    {
        if (m_Database.Snap() == 0) return;
        m_Table.Snap();
        m_Array.Snap();
    }
    bool IsSettled() { return m_Database.FileStatus() == rfm_FileStatus::RfmFileUnchanged; }

    /// The flush whose state this is; -1 when it is no state of any flush.
    int VerifiedFlush()
    {
        const int flush = m_Table.ReadRow(0).ReadFieldInt(0);
        if (m_Table.Length() != 1 + RowsAt(flush) || m_Array.Length() != ArrayRowsAt(flush)) return -1;
        // All of the newest rows, and a sample of the old ones.
        for (int row = 1; row < m_Table.Length(); row += row < m_Table.Length() - 40 ? 97 : 1)
        {
            const rfm_Row image = m_Table.ReadRow(row);
            if (image.ReadFieldDouble(1) != row * 0.5 || !(image.ReadFieldString(2) == NameOf(row)))
                return -1;
        }
        std::vector<double> values(static_cast<std::size_t>(m_Array.Length()) + 1);
        m_Array.Seek(0);
        if (m_Array.Read(values.data(), m_Array.Length() + 1) != m_Array.Length()) return -1;
        for (int i = 0; i < m_Array.Length(); ++i)
        {
            const int wholes = i / 3 + 1;
            if (values[static_cast<std::size_t>(i)] != wholes + 0.25 * (i % 3 + 1)) return -1;
        }
        return flush;
    }

private:
    rfm_Database m_Database;
    rfm_Table m_Table;
    rfm_Array<double, rfm_TypeDouble> m_Array;
};

// Answers the exit code: 0 when every settled state was one of the writer's.
int RunReader(const std::string& path, const Pipe& ready, const std::vector<Pipe>& all, const Pipe& met)
{
    // The writer must notice when this reader dies, and when another one does.
    for (const Pipe& pipe : all)
        if (&pipe != &met) ::close(pipe.ends[1]);
    if (!ready.Take()) return 5;
    Reader reader(path);
    int lastMet = 0;
    for (int flush = 0; flush < kFlushes;)
    {
        reader.Refresh();
        if (!reader.IsSettled()) continue;
        int seen = -2;
        try
        {
            seen = reader.VerifiedFlush();
        }
        catch (const nex_Exception&)
        {
            // Half done, as the second look will tell.
        }
        if (!reader.IsSettled()) continue;
        if (seen < flush) return 6;
        flush = seen;
        for (; lastMet + kMeetEvery <= flush; lastMet += kMeetEvery) met.Put();
    }
    return 0;
}

template <class Run> pid_t Fork(Run run)
{
    const pid_t child = ::fork();
    if (child != 0) return child;
    int code = 7;
    try
    {
        code = run();
    }
    catch (const std::exception& failure)
    {
        std::fprintf(stderr, "%s\n", failure.what());
    }
    std::fflush(stderr);
    ::_exit(code);
}

int ExitCodeOf(pid_t child)
{
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
} // namespace

TEST(Followers, EverySettledStateIsExactlyOneOfTheWriters)
{
    const std::string path = ::testing::TempDir() + "followed.rdx";
    ::unlink(path.c_str());
    ::rmdir((::testing::TempDir() + "followed.lsm").c_str());
    const Pipe ready;
    const std::vector<Pipe> met(kReaders);
    const pid_t writer = Fork(
        [&]
        {
            for (const Pipe& pipe : met) ::close(pipe.ends[1]); // or it would not notice a reader that dies
            RunWriter(path, ready, met);
            return 0;
        });
    std::vector<pid_t> readers;
    for (const Pipe& pipe : met) readers.push_back(Fork([&] { return RunReader(path, ready, met, pipe); }));
    // Only the children hold the writing ends now, so that the writer notices a reader that dies.
    ::close(ready.ends[1]);
    for (const Pipe& pipe : met) ::close(pipe.ends[1]);
    EXPECT_EQ(ExitCodeOf(writer), 0);
    for (const pid_t reader : readers) EXPECT_EQ(ExitCodeOf(reader), 0);

    rfm_Database database = rfm_Database::Open(rfm_File::Open(path.c_str(), utl_FileAccessRead), "TEST");
    EXPECT_EQ(database.GetFlushCount(), kFlushes + 2); // the first, and the one of the close
    database = {};
    ::unlink(path.c_str());
}
