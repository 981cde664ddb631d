// `rfm follow` against a writer in this process: every step of the writer is answered before the next is made.
#include "SampleDatabase.h"
#include "ToolRunner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

namespace
{
using testing::MatchesRegex;
using testing::StartsWith;

const char* const kLag = "lag [0-9]+\\.[0-9][0-9][0-9] s\t";

class RfmFollow : public testing::Test
{
protected:
    TestFolder m_Folder;
    std::string m_File = m_Folder / "s.rdx";
};

TEST_F(RfmFollow, ALineForEachFlushTellsNewObjectsAndRows)
{
    rfm_Database database = CreateDatabase(m_File);
    rfm_TableMetadata layout("STEPS", 1);
    const int time = layout.DefineDoubleField("time");
    database.Flush();
    Tool tool({"follow", m_File, "--until", "flush >= 4"});
    EXPECT_EQ(tool.Line(), "open\tflush 1, 0 objects");

    // A layout that came after the open of the follower.
    rfm_Table steps = database.Table(database.Bind(layout), -1, -1);
    auto field = database.ArrayInt(2, -1, 0);
    steps.NewRow().WriteFieldDouble(time, 1);
    const int values[] = {1, 2, 3, 4};
    field.Write(values, 2);
    steps.Flush();
    field.Flush();
    database.Flush();
    EXPECT_THAT(
        tool.Line(),
        MatchesRegex(std::string("flush\t2\t") + kLag +
                     "new table STEPS \\(4\\) \\+1 row: time 1; new int array \\(5\\) \\+2 rows: 1 to 4"));

    field.Truncate(1);
    field.Flush();
    database.Flush();
    EXPECT_THAT(tool.Line(), MatchesRegex(std::string("flush\t3\t") + kLag + "int array \\(5\\) -1 row"));
    database.Flush();
    EXPECT_THAT(tool.Line(), MatchesRegex(std::string("flush\t4\t") + kLag + "nothing new"));
    const ToolResult result = tool.Finish();
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.err, "");
}

TEST_F(RfmFollow, ItLivesThroughATransactionAReplacementAndALoss)
{
    {
        rfm_Database database = CreateDatabase(m_File);
        database.Flush();
        Tool early({"follow", m_File, "--timeout", "0"});
        EXPECT_EQ(early.Finish().code, 5);
    }
    Tool tool({"follow", m_File, "--json"});
    EXPECT_EQ(tool.Line(), "{\"rfm\":1,\"event\":\"open\",\"flush\":2,\"objects\":0}");
    {
        rfm_Database database =
            rfm_Database::Open(rfm_File::Open(m_File.c_str(), utl_FileAccessUpdate), "TEST");
        database.ReaderSemaphoreSet();
        EXPECT_EQ(tool.Line(), "{\"rfm\":1,\"event\":\"waiting\"}");
        rfm_TaggedStream items = database.TaggedStream(0);
        items.WriteInt(1, 2);
        items.Flush();
        database.Flush();
        database.ReaderSemaphoreClear();
        EXPECT_THAT(
            tool.Line(),
            MatchesRegex(
                "\\{\"rfm\":1,\"event\":\"flush\",\"flush\":3,\"lag\":[0-9.]+,\"changes\":\\[\\{\"handle\":4,"
                "\"object\":\"stream\",\"new\":true,\"bytes\":20,\"extremes\":\\[\\]\\}\\]\\}"));
    }
    EXPECT_THAT(tool.Line(), StartsWith("{\"rfm\":1,\"event\":\"flush\",\"flush\":4,")); // the close
    std::filesystem::remove(m_File);
    EXPECT_EQ(tool.Line(), "{\"rfm\":1,\"event\":\"gone\"}");
    CreateDatabase(m_Folder / "other.rdx").Close();
    std::filesystem::rename(m_Folder / "other.rdx", m_File);
    EXPECT_EQ(tool.Line(), "{\"rfm\":1,\"event\":\"back\",\"flush\":1,\"objects\":0}");
    MakeSample(m_Folder / "other.rdx"); // of the same time of creation: only the file is another
    std::filesystem::rename(m_Folder / "other.rdx", m_File);
    EXPECT_EQ(tool.Line(), "{\"rfm\":1,\"event\":\"replaced\"}");
    EXPECT_EQ(tool.Line(), "{\"rfm\":1,\"event\":\"open\",\"flush\":1,\"objects\":6}");
    tool.Signal(SIGINT);
    EXPECT_EQ(tool.Finish().code, 130);
}

TEST_F(RfmFollow, ATimeThatIsUpIsExitFive)
{
    CreateDatabase(m_File).Close();
    const ToolResult result = Tool::Run({"follow", m_File, "--timeout", "0.05", "--until", "flush >= 2"});
    EXPECT_EQ(result.code, 5);
    EXPECT_EQ(result.out, "open\tflush 1, 0 objects\n");
    EXPECT_EQ(result.err, "rfm: " + m_File +
                              ": the time is up; a larger --timeout waits longer; `rfm info` tells whether a "
                              "semaphore holds readers up\n");
}

TEST_F(RfmFollow, AFileThatNeverTellsOfFlushesIsToldOfAtTheOpen)
{
    CreateDatabase(m_File).Close();
    for (const std::string kind : {"compressed", "hdf5"})
    {
        const std::string file = m_Folder / kind;
        ASSERT_EQ(Tool::Run({"convert", m_File, file, "--to", kind}).code, 0);
        const ToolResult result = Tool::Run({"follow", file, "--timeout", "0.05"});
        EXPECT_EQ(result.code, 5);
        EXPECT_EQ(result.out, "open\tflush 1, 0 objects\n");
        EXPECT_EQ(result.err, "rfm: " + file + ": " + kind +
                                  ": it never tells that it changed; open it anew to see what came\nrfm: " +
                                  file + ": the time is up; only a plain file tells of its flushes\n");
    }
}

TEST_F(RfmFollow, AFlushCountThatIsReachedAlreadyEndsAtOnce)
{
    CreateDatabase(m_File).Close();
    const ToolResult result = Tool::Run({"follow", m_File, "--until", "flush >= 1"});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.out, "open\tflush 1, 0 objects\n");
}

TEST_F(RfmFollow, UntilAsksTheRowsOfTheObjectOldAndNew)
{
    rfm_Database database = CreateDatabase(m_File);
    rfm_TableMetadata layout("STEPS", 1);
    const int time = layout.DefineDoubleField("time");
    const int load = layout.DefineFloatField("load");
    rfm_Table steps = database.Table(database.Bind(layout), -1, -1);
    auto field = database.ArrayInt(1, -1, 0);
    const auto step = [&](double at)
    {
        rfm_Row row = steps.NewRow();
        row.WriteFieldDouble(time, at);
        row.WriteFieldFloat(load, 0.5F);
        const int value = 7;
        field.Write(&value, 1);
        steps.Flush();
        field.Flush();
        database.Flush();
    };
    step(1);
    Tool tool({"follow", m_File, "STEPS", "--until", "time >= 3"});
    EXPECT_EQ(tool.Line(), "open\tflush 1, 2 objects");
    step(2);
    EXPECT_THAT(tool.Line(), MatchesRegex(std::string("flush\t2\t") + kLag +
                                          "table STEPS \\(4\\) \\+1 row: load 0.5, time 2"));
    step(3);
    EXPECT_THAT(tool.Line(), StartsWith("flush\t3\t"));
    EXPECT_EQ(tool.Finish().code, 0);
    EXPECT_EQ(Tool::Run({"follow", m_File, "STEPS", "--until", "time == 2"}).code, 0); // it's there already

    Tool narrow({"follow", m_File, "STEPS.time", "--until", "flush >= 4", "--json"});
    EXPECT_THAT(narrow.Line(), StartsWith("{\"rfm\":1,\"event\":\"open\""));
    step(4);
    EXPECT_THAT(
        narrow.Line(),
        testing::EndsWith("\"changes\":[{\"handle\":4,\"object\":\"table STEPS\",\"new\":false,\"rows\":1,"
                          "\"extremes\":[{\"field\":\"time\",\"minimum\":4,\"maximum\":4}]}]}"));
    EXPECT_EQ(narrow.Finish().code, 0);
}

TEST_F(RfmFollow, AnUntilThatCantBeUnderstoodIsRefusedAtOnce)
{
    CreateDatabase(m_File).Close();
    const ToolResult unknown = Tool::Run({"follow", m_File, "--until", "flash > 3"});
    EXPECT_EQ(unknown.code, 3);
    EXPECT_EQ(unknown.out, "");
    EXPECT_EQ(unknown.err, "rfm: --until 'flash > 3': at 1: there is no field flash; did you mean flush?\n");
    EXPECT_EQ(Tool::Run({"follow", m_File, "--until", "flush >"}).code, 2);
}
} // namespace
