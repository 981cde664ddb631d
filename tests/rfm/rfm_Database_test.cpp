#include "FileKind.h"
#include "rfm.h"
#include "rfm_TestFile.h"
#include "utl_FileException.h"
#include "utl_System.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace
{
using testing::HasSubstr;

constexpr long long kTime = 0x65432100;

class rfm_DatabaseTest : public testing::Test
{
protected:
    rfm_Database Create() const
    {
        return rfm_Database::Create(NewFileOfKind(m_File.Name()), "TEST", "demo", kTime);
    }
    rfm_Database Open(utl_FileAccess access = utl_FileAccessRead) const
    {
        return rfm_Database::Open(OpenFileOfKind(m_File.Name(), access), "TEST");
    }
    static rfm_TableMetadata Nodes()
    {
        rfm_TableMetadata layout("NODES", 1);
        layout.DefineIntField("id");
        layout.DefineStringField("name");
        return layout;
    }
    static std::vector<std::string> Lines(const cow_1DArrayList<cow_String>& list)
    {
        std::vector<std::string> lines;
        for (const cow_String& line : list) lines.emplace_back(line.CString());
        return lines;
    }

    rfm_TestFile m_File;
};

// Every write that the system is asked for fails, as on a full disk.
class FullDisk
{
public:
    FullDisk() : m_Saved(utl_System())
    {
        utl_System().write = [](int, const char*, size_t, off_t) -> ssize_t
        {
            errno = ENOSPC;
            return -1;
        };
    }
    ~FullDisk() { utl_System() = m_Saved; }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

private:
    utl_SystemCalls m_Saved;
};
} // namespace

// ---- All objects together ----

TEST_F(rfm_DatabaseTest, AllKindsOfObjectsReadBackFromAClosedFile)
{
    constexpr int kRows = 1000;
    std::vector<double> values(30000);
    for (std::size_t i = 0; i < values.size(); ++i) values[i] = static_cast<double>(i) / 3;
    rfm_Handle array;
    rfm_Handle stream;
    {
        rfm_Database database = Create();
        rfm_Table table = database.Table(database.Bind(Nodes()), 1024, 32);
        for (int i = 0; i < kRows; ++i)
        {
            rfm_Row row = table.NewRow();
            row.WriteFieldInt("id", i);
            row.WriteFieldString("name", cow_String(i % 7));
        }
        auto doubles = database.ArrayDouble(3, 4096, 0);
        doubles.Write(values.data(), 10000);
        array = doubles.Handle();
        rfm_TaggedStream items = database.TaggedStream(0);
        items.WriteString(1, "hello");
        items.WriteInt(2, 42);
        stream = items.Handle();
    }
    rfm_Database database = Open();
    database.Bind();
    rfm_Table table = database.Table(database.RootTableHandle(), -1, -1);
    ASSERT_EQ(table.Length(), kRows);
    for (int i = 0; i < kRows; ++i)
    {
        rfm_Row row = table.ReadRow(i);
        ASSERT_EQ(row.ReadFieldInt("id"), i);
        ASSERT_EQ(row.ReadFieldString("name"), cow_String(i % 7));
    }
    auto doubles = database.ArrayDouble(array, -1, 0);
    ASSERT_EQ(doubles.Length(), 10000);
    std::vector<double> read(values.size());
    ASSERT_EQ(doubles.Read(read.data(), 10000), 30000);
    EXPECT_EQ(read, values);
    rfm_TaggedStream items = database.TaggedStream(stream, 0);
    ASSERT_TRUE(items.Next());
    EXPECT_EQ(items.GetString(), cow_String("hello"));
    ASSERT_TRUE(items.Next());
    EXPECT_EQ(items.GetInt(), 42);
    EXPECT_FALSE(items.Next());
}

// ---- Identity and life ----

TEST_F(rfm_DatabaseTest, ItTellsWhatItIs)
{
    {
        rfm_Database database = Create();
        EXPECT_EQ(database.FileName(), cow_String(m_File.Name()));
        EXPECT_EQ(database.Description(), cow_String("demo"));
        EXPECT_FALSE(database.ReadOnly());
        EXPECT_EQ(database.GetFlushCount(), 0);
        EXPECT_EQ(database.CheckNRDXCache(), atr_String());
        EXPECT_EQ(database.FileStatus(), rfm_FileStatus::RfmFileUnchanged);
        EXPECT_EQ(database.Snap(), 0) << "a writer never snaps";
        database.Flush();
        EXPECT_EQ(database.GetFlushCount(), 1);
        database.SetCreationTime(77);
    }
    EXPECT_EQ(rfm_Database::GetCreationTime(OpenFileOfKind(m_File.Name(), utl_FileAccessRead)), 77);
    EXPECT_TRUE(Open().ReadOnly());
    EXPECT_FALSE(Open(utl_FileAccessUpdate).ReadOnly());
}

TEST_F(rfm_DatabaseTest, TheRootHandlesAre4And5InAnyDatabase)
{
    rfm_Database database = Create();
    EXPECT_EQ(database.RootTableHandle(), rfm_Handle(4));
    EXPECT_EQ(database.RootTableHandle2(), rfm_Handle(5));
}

TEST_F(rfm_DatabaseTest, TheFirstTwoTablesAreTheRootTables)
{
    rfm_Database database = Create();
    const rfm_TableMetadata& nodes = database.Bind(Nodes());
    rfm_Table first = database.Table(nodes, -1, -1);
    rfm_Table second = database.Table(nodes, -1, -1);
    EXPECT_EQ(first.Handle(), database.RootTableHandle());
    EXPECT_EQ(second.Handle(), database.RootTableHandle2());
}

TEST_F(rfm_DatabaseTest, AFlushWithNewStringsBeforeTheRootTablesTakesTheirHandle)
{
    rfm_Database database = Create();
    const rfm_TableMetadata& nodes = database.Bind(Nodes());
    database.Flush(); // the layout's names make the string pool grow by an extent
    EXPECT_NE(database.Table(nodes, -1, -1).Handle(), database.RootTableHandle());
}

TEST_F(rfm_DatabaseTest, CopiesShareTheDatabaseAndTheLastOneClosesIt)
{
    std::optional<rfm_Database> first = Create();
    std::optional<rfm_Database> second = *first;
    first.reset();
    EXPECT_EQ(m_File.Size(), 1048576U);
    second->Flush();
    EXPECT_EQ(second->GetFlushCount(), 1);
    second.reset();
    EXPECT_EQ(m_File.Size(), 15368U);
}

TEST_F(rfm_DatabaseTest, AFailedOpenGivesNoDatabase)
{
    EXPECT_THROW(OpenFileOfKind(m_File.Name(), utl_FileAccessRead), rfm_FileNoSuchFile);
    m_File.Write("nothing of ours");
    EXPECT_THROW(Open(), nex_TextException);
}

TEST_F(rfm_DatabaseTest, CreateNeedsAFileThatCanBeWritten)
{
    Create().Close();
    const std::string before = m_File.Bytes();
    const rfm_File file = OpenFileOfKind(m_File.Name(), utl_FileAccessRead);
    EXPECT_THROW(rfm_Database::Create(file, "TEST", "demo", kTime), rfm_FileReadOnlyExc);
    EXPECT_EQ(m_File.Bytes(), before);
}

TEST_F(rfm_DatabaseTest, IsMagicAndTheCreationTimeNeedNoOpenDatabase)
{
    Create().Close();
    const rfm_File file = OpenFileOfKind(m_File.Name(), utl_FileAccessRead);
    EXPECT_TRUE(rfm_Database::IsMagic(file, "TEST"));
    EXPECT_TRUE(rfm_Database::IsMagic(file, ""));
    EXPECT_FALSE(rfm_Database::IsMagic(file, "REST"));
    EXPECT_EQ(rfm_Database::GetCreationTime(file), kTime);
}

TEST_F(rfm_DatabaseTest, OfFilesThatAreShortIsMagicIsFalseAndTheCreationTimeZero)
{
    for (const std::string_view bytes : {"", "TVNR", "TVNRTES"})
    {
        m_File.Write(bytes);
        const rfm_File file = OpenFileOfKind(m_File.Name(), utl_FileAccessRead);
        EXPECT_FALSE(rfm_Database::IsMagic(file, "")) << bytes;
        EXPECT_EQ(rfm_Database::GetCreationTime(file), 0) << bytes;
    }
}

TEST_F(rfm_DatabaseTest, AFileOfVersion11HasCreationTimeZeroAndOpens)
{
    Create().Close();
    m_File.Patch(8, rfm_IntBytes(11));
    EXPECT_EQ(rfm_Database::GetCreationTime(OpenFileOfKind(m_File.Name(), utl_FileAccessRead)), 0);
    EXPECT_EQ(Open().Description(), cow_String("demo"));
}

// ---- Following ----

TEST_F(rfm_DatabaseTest, ASnapIsOneAtMostOncePerFlush)
{
    rfm_Database writer = Create();
    writer.Flush();
    rfm_Database reader = Open();
    EXPECT_EQ(reader.Snap(), 0);
    for (int i = 0; i < 3; ++i)
    {
        writer.Flush();
        EXPECT_EQ(reader.Snap(), 1);
        EXPECT_EQ(reader.Snap(), 0);
    }
    writer.Flush();
    writer.Flush();
    EXPECT_EQ(reader.Snap(), 1);
    EXPECT_EQ(reader.Snap(), 0);
    EXPECT_EQ(reader.GetFlushCount(), 6);
}

TEST_F(rfm_DatabaseTest, TheStatusIsUpdatedOncePerChangeAndGoneWithTheFile)
{
    rfm_Database writer = Create();
    writer.Flush();
    rfm_Database reader = Open();
    EXPECT_EQ(reader.FileStatus(), rfm_FileStatus::RfmFileUnchanged);
    writer.Flush();
    EXPECT_EQ(reader.FileStatus(), rfm_FileStatus::RfmFileUpdated);
    EXPECT_EQ(reader.FileStatus(), rfm_FileStatus::RfmFileUnchanged);
    std::filesystem::remove(m_File.Name());
    EXPECT_EQ(reader.FileStatus(), rfm_FileStatus::RfmFileGone);
}

TEST_F(rfm_DatabaseTest, TheGuardHoldsReadersOffForItsLifetime)
{
    rfm_Database writer = Create();
    writer.Flush();
    rfm_Database reader = Open();
    const std::string semaphore = std::filesystem::path(m_File.Name()).replace_extension(".lsm").string();
    {
        const rfm_ReaderSemaphoreProxy guard(writer);
        EXPECT_TRUE(std::filesystem::is_directory(semaphore));
        writer.Flush();
        EXPECT_EQ(reader.FileStatus(), rfm_FileStatus::RfmFileInTransaction);
        EXPECT_EQ(reader.Snap(), 0);
    }
    EXPECT_FALSE(std::filesystem::exists(semaphore));
    EXPECT_EQ(reader.Snap(), 1);
}

TEST_F(rfm_DatabaseTest, AGuardThatCannotCleanUpSaysSoOnStandardError)
{
    rfm_Database writer = Create();
    writer.Flush();
    rfm_Space space = writer.Space(-1);
    testing::internal::CaptureStderr();
    {
        const rfm_ReaderSemaphoreProxy guard(writer);
        space.Write("data", 4);
        const FullDisk full;
        static_cast<void>(full);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "with room again there is nothing to say";
    testing::internal::CaptureStderr();
    {
        std::optional<rfm_ReaderSemaphoreProxy> guard(writer);
        space.Write("more", 4);
        const FullDisk full;
        guard.reset();
    }
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(m_File.Name()));
    writer.ReaderSemaphoreClear();
}

// ---- Layouts and statistics ----

TEST_F(rfm_DatabaseTest, LayoutsAreBoundOnceAndFoundByNameAndPlace)
{
    {
        rfm_Database database = Create();
        EXPECT_FALSE(database.HasTable("NODES"));
        const rfm_TableMetadata& bound = database.Bind(Nodes());
        EXPECT_EQ(&database.Bind(Nodes()), &bound);
        EXPECT_TRUE(database.HasTable("NODES"));
        EXPECT_EQ(&database.GetTableMetadata("NODES"), &bound);
        EXPECT_EQ(database.GetTableMetadataHandle("NODES"), utl_FileOffset(4));
        EXPECT_EQ(&database.GetTableMetadata(utl_FileOffset(4)), &bound);
    }
    rfm_Database database = Open();
    EXPECT_EQ(Lines(database.GetTableMetadataNames()), std::vector<std::string>{"NODES"});
    EXPECT_THROW(database.GetTableMetadata("NODES"), nex_TextException) << "known but not bound";
    database.Bind();
    EXPECT_EQ(database.GetTableMetadata("NODES").Name(), cow_String("NODES"));
}

TEST_F(rfm_DatabaseTest, VersionsOfClassesAreKeptByName)
{
    rfm_Database database = Create();
    database.InsertInMapClassName2ClassVersion("NODES", 5);
    EXPECT_EQ(database.GetMapClassName2ClassVersion().ConstGet("NODES"), 5);
    EXPECT_EQ(database.Bind(Nodes()).Version(), 5);
}

TEST_F(rfm_DatabaseTest, StatisticsComeThrough)
{
    rfm_Database database = Create();
    EXPECT_EQ(Lines(database.GetObjStatistics(rfm_Handle(1))), std::vector<std::string>{"Linkage_Count=1"});
    EXPECT_TRUE(database.GetObjStatistics(rfm_Handle(0)).IsEmpty());
    EXPECT_EQ(database.GetDBStatistics().Count(), 6);
    EXPECT_EQ(database.GetObjectLocationReport(15360),
              cow_String("Object: 00000001 - Offset:                    0"));
}

// ---- Factories ----

TEST_F(rfm_DatabaseTest, SpacesAreMadeAndOpenedByHandle)
{
    rfm_Database database = Create();
    rfm_Space made = database.Space(64);
    EXPECT_EQ(made.Write("hello", 5), 5);
    made.WriteInt(7);
    EXPECT_EQ(made.Allocation(), 64);
    rfm_Space opened = database.Space(made.Handle(), -1);
    EXPECT_EQ(opened.Length(), 9);
    opened.Seek(5);
    EXPECT_EQ(opened.ReadInt(), 7);
    EXPECT_EQ(opened.Location(), 9);
    EXPECT_FALSE(opened.ReadOnly());
    opened.Truncate(2);
    opened.Extend(100);
    opened.Flush();
    char bytes[8] = {};
    EXPECT_EQ(opened.Read(bytes, 8), 2);
    EXPECT_STREQ(bytes, "he");
    rfm_Space copy = opened;
    copy.Seek(1);
    EXPECT_EQ(opened.Location(), 1) << "copies share one position";
    EXPECT_THROW(database.Space(rfm_Handle(0), -1), nex_TextException);
}

TEST_F(rfm_DatabaseTest, TablesAreMadeByNameOrLayoutAndOpenedByHandle)
{
    rfm_Database database = Create();
    const rfm_TableMetadata& nodes = database.Bind(Nodes());
    rfm_Table byLayout = database.Table(nodes, -1, -1);
    rfm_Table byName = database.Table("NODES", -1, -1);
    EXPECT_NE(byLayout.Handle(), byName.Handle());
    byName.NewRow().WriteFieldInt("id", 9);
    byName.Flush();
    EXPECT_EQ(database.Table(byName.Handle(), -1, -1).ReadRow(0).ReadFieldInt("id"), 9);
    EXPECT_EQ(rfm_TextOfFailure([&] { database.Table("NONE", -1, -1); }),
              "***ERROR: Can't find table metadata, \"NONE\" in MARLEK database file.");
}

TEST_F(rfm_DatabaseTest, EachArrayOpensAsItsOwnTypeOnly)
{
    rfm_Database database = Create();
    const rfm_Handle ints = database.ArrayInt(1, -1, 0).Handle();
    const rfm_Handle floats = database.ArrayFloat(2, -1, 0).Handle();
    const rfm_Handle doubles = database.ArrayDouble(3, -1, 0).Handle();
    const rfm_Handle strings = database.ArrayString(4, -1, 0).Handle();
    EXPECT_EQ(database.ArrayInt(ints, -1, 0).FieldCount(), 1);
    EXPECT_EQ(database.ArrayFloat(floats, -1, 0).FieldCount(), 2);
    EXPECT_EQ(database.ArrayDouble(doubles, -1, 0).FieldCount(), 3);
    EXPECT_EQ(database.ArrayString(strings, -1, 0).FieldCount(), 4);
    const auto refused = [](auto open)
    { EXPECT_EQ(rfm_TextOfFailure<nex_AssertException>(open), "repr->Type() == type"); };
    for (const rfm_Handle handle : {ints, floats, doubles, strings})
    {
        if (handle != ints) refused([&] { database.ArrayInt(handle, -1, 0); });
        if (handle != floats) refused([&] { database.ArrayFloat(handle, -1, 0); });
        if (handle != doubles) refused([&] { database.ArrayDouble(handle, -1, 0); });
        if (handle != strings) refused([&] { database.ArrayString(handle, -1, 0); });
    }
    EXPECT_EQ(database.HandleType(ints), rfm_TypeInt);
    EXPECT_EQ(database.HandleType(floats), rfm_TypeFloat);
    EXPECT_EQ(database.HandleType(doubles), rfm_TypeDouble);
    EXPECT_EQ(database.HandleType(strings), rfm_TypeString);
}

TEST_F(rfm_DatabaseTest, AnObjectOfAnotherKindIsRefused)
{
    rfm_Database database = Create();
    const rfm_Handle table = database.Table(database.Bind(Nodes()), -1, -1).Handle();
    const rfm_Handle array = database.ArrayInt(1, -1, 0).Handle();
    const rfm_Handle stream = database.TaggedStream(0).Handle();
    EXPECT_EQ(database.HandleType(table), rfm_TypeTable);
    EXPECT_EQ(database.HandleType(stream), rfm_TypeTaggedStream);
    for (const rfm_Handle handle : {array, stream, rfm_Handle(1), rfm_Handle(2)})
        EXPECT_THROW(database.Table(handle, -1, -1), nex_TextException);
    for (const rfm_Handle handle : {table, array, rfm_Handle(1), rfm_Handle(2)})
        EXPECT_THROW(database.TaggedStream(handle, 0), nex_TextException);
    for (const rfm_Handle handle : {table, stream, rfm_Handle(1), rfm_Handle(2)})
        EXPECT_THROW(database.ArrayInt(handle, -1, 0), nex_TextException);
}

TEST_F(rfm_DatabaseTest, OnAReadOnlyDatabaseTheFactoriesOpenWhatIsThere)
{
    rfm_Handle array;
    {
        rfm_Database database = Create();
        auto ints = database.ArrayInt(1, -1, 0);
        const int value = 5;
        ints.Write(&value, 1);
        array = ints.Handle();
    }
    const std::string before = m_File.Bytes();
    {
        rfm_Database database = Open();
        int value = 0;
        EXPECT_EQ(database.ArrayInt(array, -1, 0).Read(&value, 1), 1);
        EXPECT_EQ(value, 5);
        rfm_Space space = database.Space(-1);
        EXPECT_EQ(rfm_TextOfFailure([&] { space.WriteInt(1); }),
                  "The output database was opened as read-only. Modification of data is not permitted.");
    }
    EXPECT_EQ(m_File.Bytes(), before);
}

// ---- Close ----

TEST_F(rfm_DatabaseTest, CloseTrimsTheFileAndAllCopiesAreClosed)
{
    rfm_Database database = Create();
    rfm_Database copy = database;
    database.Close();
    EXPECT_EQ(m_File.Size(), 15368U);
    const std::string text = "***ERROR: The database is closed:\n  " + std::string(m_File.Name());
    EXPECT_EQ(rfm_TextOfFailure([&] { copy.Flush(); }), text);
    EXPECT_EQ(rfm_TextOfFailure([&] { copy.Bind(Nodes()); }), text);
    EXPECT_EQ(rfm_TextOfFailure([&] { copy.Bind(); }), text);
    EXPECT_EQ(rfm_TextOfFailure([&] { copy.HasTable("NODES"); }), text);
    EXPECT_EQ(rfm_TextOfFailure([&] { copy.GetTableMetadata("NODES"); }), text);
    EXPECT_EQ(rfm_TextOfFailure([&] { copy.GetTableMetadata(utl_FileOffset(4)); }), text);
    EXPECT_EQ(rfm_TextOfFailure([&] { copy.GetTableMetadataHandle("NODES"); }), text);
    EXPECT_EQ(rfm_TextOfFailure([&] { copy.GetTableMetadataNames(); }), text);
    EXPECT_EQ(rfm_TextOfFailure([&] { copy.InsertInMapClassName2ClassVersion("NODES", 1); }), text);
    EXPECT_EQ(rfm_TextOfFailure([&] { copy.GetMapClassName2ClassVersion(); }), text);
    EXPECT_EQ(rfm_TextOfFailure([&] { copy.GetDBStatistics(); }), text);
    EXPECT_EQ(rfm_TextOfFailure([&] { copy.Space(-1); }), text);
    EXPECT_EQ(rfm_TextOfFailure([&] { copy.ArrayInt(1, -1, 0); }), text);
    EXPECT_EQ(rfm_TextOfFailure([&] { copy.TaggedStream(0); }), text);
    EXPECT_EQ(rfm_TextOfFailure([&] { copy.Table("NODES", -1, -1); }), text);
    EXPECT_EQ(rfm_TextOfFailure([&] { copy.HandleType(rfm_Handle(1)); }), text);
    EXPECT_EQ(copy.FileName(), cow_String(m_File.Name()));
    EXPECT_NO_THROW(copy.Close());
}

TEST_F(rfm_DatabaseTest, AnObjectThatOutlivesTheCloseWithPendingDataSaysSo)
{
    rfm_Database database = Create();
    {
        rfm_Table table = database.Table(database.Bind(Nodes()), -1, -1);
        table.NewRow().WriteFieldInt("id", 1);
        database.Close();
        EXPECT_THROW(table.Flush(), nex_TextException);
        testing::internal::CaptureStderr();
    }
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("The database is closed"));
    EXPECT_NO_THROW(Open()) << "the file was closed soundly";
}

TEST_F(rfm_DatabaseTest, ACloseOnAFullDiskThrowsAndSucceedsOnceThereIsRoom)
{
    rfm_Database database = Create();
    {
        const FullDisk full;
        EXPECT_THROW(database.Close(), utl_FileException);
    }
    database.Close();
    EXPECT_EQ(m_File.Size(), 15368U);
    EXPECT_EQ(Open().GetFlushCount(), 1);
}

TEST_F(rfm_DatabaseTest, OpenAndCreateLeaveNoHandleOfTheFileBehindAfterClose)
{
    const rfm_File file = rfm_File::Open(m_File.Name(), utl_FileAccessCreate);
    rfm_Database database = rfm_Database::Create(file, "TEST", "demo", kTime);
    EXPECT_EQ(file.Count(), 2);
    database.Close();
    EXPECT_EQ(file.Count(), 1);
}
