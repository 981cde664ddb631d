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
    Tool tool({"follow", m_File, "--until-flush", "4"});
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
    EXPECT_THAT(tool.Line(),
                MatchesRegex(std::string("flush\t2\t") + kLag +
                             "new table STEPS \\(4\\) \\+1 row, new int array \\(5\\) \\+2 rows"));

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
                "\"object\":\"stream\",\"new\":true,\"bytes\":20\\}\\]\\}"));
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
    const ToolResult result = Tool::Run({"follow", m_File, "--timeout", "0.05", "--until-flush", "2"});
    EXPECT_EQ(result.code, 5);
    EXPECT_EQ(result.out, "open\tflush 1, 0 objects\n");
    EXPECT_EQ(result.err, "rfm: " + m_File +
                              ": the time is up; a larger --timeout waits longer; `rfm info` tells whether a "
                              "semaphore holds readers up\n");
}

TEST_F(RfmFollow, AFlushCountThatIsReachedAlreadyEndsAtOnce)
{
    CreateDatabase(m_File).Close();
    const ToolResult result = Tool::Run({"follow", m_File, "--until-flush", "1"});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.out, "open\tflush 1, 0 objects\n");
}
} // namespace
