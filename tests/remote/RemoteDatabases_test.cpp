// Databases of another host, read and followed by their URLs.

#include "RemoteDatabaseScene.h"
#include "ScriptedRun.h"

using ::testing::ElementsAre;

namespace
{
using Status = rfm_FileStatus;

/// The bytes of a page request, with so many pages dropped.
std::string PageRequest(int dropped = 0) { return "> " + std::to_string(15 + 8 * dropped); }

/// A process that writes one increment each time it is told to.
class WriterProcess
{
public:
    explicit WriterProcess(const std::string& path)
    {
        m_Process = ::fork();
        if (m_Process == 0) Run(path);
        m_Orders.read.Close();
        m_Answers.write.Close();
    }
    WriterProcess(const WriterProcess&) = delete;
    WriterProcess& operator=(const WriterProcess&) = delete;
    ~WriterProcess()
    {
        m_Orders.write.Close();
        ::waitpid(m_Process, nullptr, 0);
    }

    /// Returns when it is flushed.
    void WriteNext()
    {
        char byte = 'x';
        ASSERT_EQ(::write(m_Orders.write.Get(), &byte, 1), 1);
        ASSERT_EQ(::read(m_Answers.read.Get(), &byte, 1), 1) << "the writer has failed";
    }
    /// Closes the file, and returns when it has.
    void Finish()
    {
        m_Orders.write.Close();
        char byte = 'x';
        ASSERT_EQ(::read(m_Answers.read.Get(), &byte, 1), 0);
    }

private:
    [[noreturn]] void Run(const std::string& path)
    {
        int code = 0;
        try
        {
            m_Orders.write.Close();
            ScriptedRun::Writer writer(path);
            writer.SetUp();
            char byte = 'x';
            for (int n = 1; ::read(m_Orders.read.Get(), &byte, 1) == 1; ++n)
            {
                writer.WriteIncrement(n);
                writer.Flush();
                if (::write(m_Answers.write.Get(), &byte, 1) != 1) break;
            }
            writer.Close();
        }
        catch (const std::exception& failure)
        {
            std::fprintf(stderr, "the writer: %s\n", failure.what());
            code = 1;
        }
        ::_exit(code);
    }

    farend::Pipe m_Orders;
    farend::Pipe m_Answers;
    pid_t m_Process = -1;
};

/// A program that shows a job's results while they come: it opens the objects once, and moves with the file.
class Viewer
{
public:
    explicit Viewer(const cow_String& url)
        : m_Database(rfm_Database::Open(rfm_File::Open(url, utl_FileAccessRead), "TEST"))
    {
        m_Database.Bind();
        m_Table = m_Database.Table(ScriptedRun::kTable, -1, 16);
        m_Common = m_Database.ArrayDouble(ScriptedRun::kCommon, -1, 0);
    }
    Status::RfmFileStatus Poll() { return m_Database.FileStatus(); }
    void Snap()
    {
        EXPECT_GT(m_Database.Snap(), 0);
        m_Table.Snap();
        m_Common.Snap();
    }
    /// What it holds open shows exactly the first `n` increments, and so does what it opens now.
    void Expect(int n)
    {
        ASSERT_EQ(m_Table.Length(), ScriptedRun::RowsAt(n));
        for (int i = 0; i < m_Table.Length(); ++i)
        {
            const rfm_Row row = m_Table.ReadRow(i);
            ASSERT_EQ(row.ReadFieldInt("row"), i);
            ASSERT_EQ(row.ReadFieldDouble("value"), ScriptedRun::ValueOf(i));
            ASSERT_EQ(row.ReadFieldString("name"), ScriptedRun::NameOf(i));
        }
        ASSERT_EQ(m_Common.Length(), n);
        std::vector<double> values(static_cast<std::size_t>(n) * 2);
        m_Common.Seek(0);
        ASSERT_EQ(m_Common.Read(values.data(), n), n * 2);
        for (int i = 1; i <= n; ++i) ASSERT_EQ(values[static_cast<std::size_t>(i * 2 - 2)], i * 1.5);
        ScriptedRun::ExpectAtLeast(m_Database, n);
    }

private:
    rfm_Database m_Database;
    rfm_Table m_Table;
    rfm_Array<double, rfm_TypeDouble> m_Common;
};

/// What somebody sees who reads everything.
std::string AllObjects(const cow_String& name)
{
    rfm_Database database = rfm_Database::Open(rfm_File::Open(name, utl_FileAccessRead), "TEST");
    std::string all = database.Description().CString();
    for (int handle = 1; handle <= 40; ++handle)
    {
        rfm_Space space = database.Space(rfm_Handle(handle), -1);
        std::string bytes(static_cast<std::size_t>(space.Length().Value()), '\0');
        if (!bytes.empty()) space.Read(bytes.data(), static_cast<int>(bytes.size()));
        all += "|" + bytes;
    }
    return all;
}
} // namespace

// ---- Reading ----

using RemoteDatabases = RemoteDatabaseScene;

TEST_F(RemoteDatabases, EveryKindOfFileReadsThereAsItDoesHere)
{
    constexpr int kIncrements = 60;
    for (const char* kind : {"plain", "compressed", "hdf5"})
    {
        ScriptedRun::Writer writer(NewFileOfKind(cow_String(Path(kind)), kind));
        writer.SetUp();
        for (int n = 1; n <= kIncrements; ++n) writer.WriteIncrement(n);
        writer.Flush();
        writer.Close();
    }
    StartServer();
    for (const char* kind : {"plain", "compressed", "hdf5"})
    {
        SCOPED_TRACE(kind);
        EXPECT_TRUE(AllObjects(Url(kind)) == AllObjects(cow_String(Path(kind))));
        rfm_Database database = rfm_Database::Open(rfm_File::Open(Url(kind), utl_FileAccessRead), "TEST");
        ScriptedRun::ExpectAtLeast(database, kIncrements);
        EXPECT_EQ(database.CheckNRDXCache(), atr_String());
        EXPECT_EQ(database.FileStatus(), Status::RfmFileUnchanged);
    }
    EXPECT_TRUE(ReaderIsGone());
    KillServer();
}

TEST_F(RemoteDatabases, TheBytesOfAFileOfAnySizeAreThoseOfTheFile)
{
    StartServer();
    for (const std::size_t bytes : {0, 1, 65535, 65536, 65537, 5000000})
    {
        const std::string content = Put("some", Content(bytes));
        rfm_FileReprRemote file(Url("some"));
        EXPECT_TRUE(ReadAll(file) == content) << bytes;
    }
    KillServer();
}

// ---- Round trips ----

TEST_F(RemoteDatabases, TheFirstReadOfAPageIsOneRoundTripAndTheNextNone)
{
    PageSize(1024);
    Put("some", Content(3 << 20));
    StartServer();
    rfm_FileReprRemote file(Url("some"));
    EXPECT_THAT(Wire(),
                ElementsAre("> 65", "< 2", "> 7")); // key; version, page size and the question for the size
    char bytes[100];
    file.Seek((1 << 20) + 5);
    EXPECT_EQ(file.Read(bytes, 100), 100);
    EXPECT_THAT(Wire(), ElementsAre("< 10", PageRequest()));
    file.Seek((2 << 20) - 100);
    EXPECT_EQ(file.Read(bytes, 100), 100);
    EXPECT_THAT(Wire(), ElementsAre());
    file.Seek(0);
    EXPECT_EQ(file.Read(bytes, 1), 1);
    EXPECT_THAT(Wire(), ElementsAre("< 1048582", PageRequest()));
}

// ---- Following ----

TEST_F(RemoteDatabases, EachIncrementOfARunningJobIsSeenWholeAndInOrder)
{
    StartServer();
    WriterProcess writer(Path("job.rdx"));
    writer.WriteNext();
    {
        Viewer viewer(Url("job.rdx"));
        viewer.Expect(1);
        for (int n = 2; n <= 25; ++n)
        {
            SCOPED_TRACE(n);
            EXPECT_EQ(viewer.Poll(), Status::RfmFileUnchanged);
            writer.WriteNext();
            ASSERT_EQ(viewer.Poll(), Status::RfmFileUpdated);
            viewer.Snap();
            ASSERT_NO_FATAL_FAILURE(viewer.Expect(n));
        }
        writer.Finish();
        ASSERT_EQ(viewer.Poll(), Status::RfmFileUpdated);
        viewer.Snap();
        viewer.Expect(25);
    }
    EXPECT_TRUE(ReaderIsGone());
    KillServer();
}

TEST_F(RemoteDatabases, AnIncrementIsVisibleAfterOnePollAndOneRoundTrip)
{
    constexpr int kIncrementsWithAllTexts = 40;
    PageSize(1024); // all that is written lies in one page
    StartServer();
    WriterProcess writer(Path("job.rdx"));
    for (int n = 1; n <= kIncrementsWithAllTexts; ++n) writer.WriteNext();
    {
        Viewer viewer(Url("job.rdx"));
        viewer.Expect(kIncrementsWithAllTexts);
        for (int n = kIncrementsWithAllTexts + 1; n <= kIncrementsWithAllTexts + 3; ++n)
        {
            writer.WriteNext();
            Wire();
            viewer.Snap(); // polls
            viewer.Expect(n);
            std::vector<std::string> wire = Wire();
            ASSERT_EQ(wire.size(), 4U) << testing::PrintToString(wire);
            EXPECT_EQ(wire[1], "> 1");         // the poll
            EXPECT_EQ(wire[2], "< 14");        // says that one page has changed,
            EXPECT_EQ(wire[3], PageRequest()); // which is fetched
        }
    }
    writer.Finish();
    EXPECT_TRUE(ReaderIsGone());
    KillServer();
}

TEST_F(RemoteDatabases, AChangeOfOneRowMovesThePagesThatChangedAndNothingElse)
{
    PageSize(1);
    const std::string path = Path("job.rdx");
    rfm_Database database =
        rfm_Database::Create(rfm_File::Open(cow_String(path), utl_FileAccessCreate), "TEST", "sample", 1);
    rfm_TableMetadata layout("STEPS", 1);
    const int time = layout.DefineDoubleField("time");
    rfm_Table table = database.Table(database.Bind(layout), -1, -1);
    for (int i = 0; i < 4000; ++i) table.NewRow().WriteFieldDouble(time, i);
    table.Flush();
    database.Flush();

    StartServer();
    rfm_FileReprRemote file(Url("job.rdx"));
    EXPECT_TRUE(ReadAll(file) == FileText(path));
    EXPECT_EQ(file.CheckStatus(), Status::RfmFileUnchanged);
    const std::string before = FileText(path);
    table.UpdateRow(2000).WriteFieldDouble(time, 0.5);
    table.Flush();
    database.Flush();
    const std::string after = FileText(path);
    ASSERT_EQ(after.size(), before.size());
    std::size_t changed = 0;
    for (std::size_t start = 0; start < after.size(); start += 1024)
        changed += before.compare(start, 1024, after, start, 1024) != 0 ? 1 : 0;
    ASSERT_GE(changed, 2U); // the header and the row
    ASSERT_LE(changed, 4U);

    Wire();
    EXPECT_EQ(file.CheckStatus(), Status::RfmFileUpdated);
    EXPECT_TRUE(ReadAll(file) == after);
    std::vector<std::string> expected = {"< 2", "> 1", "< " + std::to_string(6 + 8 * changed)};
    // The first one says that the others are no longer held.
    for (std::size_t i = 0; i < changed; ++i)
    {
        expected.push_back(PageRequest(i == 0 ? static_cast<int>(changed) - 1 : 0));
        expected.push_back("< 1030");
    }
    // The short page at the end is asked whether it has more.
    std::vector<std::string> wire = Wire();
    ASSERT_GE(wire.size(), expected.size());
    wire.resize(expected.size());
    EXPECT_EQ(wire, expected);
}
