// The tool as a whole: words, exit codes, bad files, bad outputs, and the commands info and unlock.
#include "SampleDatabase.h"
#include "ToolRunner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace
{
using testing::HasSubstr;
using testing::StartsWith;

class RfmTool : public testing::Test
{
protected:
    RfmTool() { MakeSample(m_File); }

    void ExpectFailure(const Tool::Words& words, int code, const std::string& line)
    {
        const ToolResult result = Tool::Run(words);
        EXPECT_EQ(result.code, code);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "rfm: " + line + "\n");
    }

    TestFolder m_Folder;
    std::string m_File = m_Folder / "s.rdx";
};

TEST_F(RfmTool, HelpFitsOnAScreenAndBeginsWithWhatItDoes)
{
    const ToolResult help = Tool::Run({"--help"});
    EXPECT_EQ(help.code, 0);
    EXPECT_THAT(help.out, StartsWith("rfm looks into databases"));
    EXPECT_LE(std::count(help.out.begin(), help.out.end(), '\n'), 40);
    EXPECT_LT(help.out.find("examples:"), help.out.find("commands:"));
    EXPECT_EQ(Tool::Run({"help"}).out, help.out);
}

TEST_F(RfmTool, WrongUsageIsExitTwoAndOneLine)
{
    ExpectFailure(
        {}, 2,
        "nothing to do: no command and no file was given; `rfm --help` lists the commands, `rfm FILE` "
        "looks at a file");
    ExpectFailure({"chek", m_File}, 2, "chek: no such command or file; did you mean `rfm check`?");
    ExpectFailure({"quux"}, 2, "quux: no such command or file; `rfm --help` lists the commands");
    ExpectFailure({"dump", m_File}, 2, "rows: OBJECT is required; `rfm rows --help` shows how");
    ExpectFailure({"ls"}, 2, "ls: FILE is required; `rfm ls --help` shows how");
    ExpectFailure({"ls", m_File, "--bogus"}, 2,
                  "ls: --bogus: there is no such option; `rfm ls --help` shows how");
    ExpectFailure({"ls", m_File, "--jason"}, 2, "ls: --jason: there is no such option; did you mean --json?");
    ExpectFailure({"rows", m_File, "4", "--form=3"}, 2,
                  "rows: --form=3: there is no such option; did you mean --from?");
    ExpectFailure({"ls", m_File, "4"}, 2, "ls: 4 is one word too many; `rfm ls --help` shows how");
    EXPECT_EQ(Tool::Run({"dump", m_File, "4", "--csv", "--json"}).code, 2);
    ExpectFailure({"dump", m_File, "4", "-n", "-1"}, 2,
                  "rows: -n: -1 is not a whole number from 0 up; `rfm rows --help` shows how");
    ExpectFailure({"dump", m_File, "4", "--from", "1e3"}, 2,
                  "rows: --from: 1e3 is not a whole number from 0 up; `rfm rows --help` shows how");
    ExpectFailure({"follow", m_File, "--timeout", "soon"}, 2,
                  "follow: --timeout: soon is not a number of seconds; `rfm follow --help` shows how");
}

TEST_F(RfmTool, ADamagedDatabaseIsExitFourForReadersAndSendsThemToCheck)
{
    std::filesystem::resize_file(m_File, 15800);
    const ToolResult result = Tool::Run({"ls", m_File});
    EXPECT_EQ(result.code, 4);
    EXPECT_THAT(result.err,
                StartsWith("rfm: " + m_File + ": The MARLEK database file is corrupt. If this file"));
    EXPECT_THAT(result.err, HasSubstr("; `rfm check` tells what is damaged\n"));
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1);
}

TEST_F(RfmTool, ACompressedFileThatWasNeverFlushedIsRefused)
{
    const std::string compressed = m_Folder / "c.rdx";
    WriteFile(compressed, "MRKTSA00" + std::string(8192, '\0'));
    const ToolResult result = Tool::Run({"ls", compressed});
    EXPECT_EQ(result.code, 4);
    EXPECT_THAT(result.err, StartsWith("rfm: " + compressed + ": "));
    EXPECT_EQ(Tool::Run({"check", compressed}).code, 1);
}

TEST_F(RfmTool, AReaderThatLeavesIsNoFailure)
{
    {
        rfm_Database database = CreateDatabase(m_File);
        auto numbers = database.ArrayInt(1, 1 << 20, 0);
        const std::vector<int> values(200000, 1234567);
        numbers.Write(values.data(), 200000);
        numbers.Flush();
    }
    Tool tool({"dump", m_File, "4"});
    EXPECT_EQ(tool.Line(), "row\t0");
    tool.CloseOutput();
    const ToolResult result = tool.Finish();
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.err, "");
}

TEST_F(RfmTool, AFileAloneMeansInfo)
{
    EXPECT_EQ(Tool::Run({m_File}).out, Tool::Run({"info", m_File}).out);
    EXPECT_EQ(Tool::Run({m_File, "--json"}).out, Tool::Run({"info", m_File, "--json"}).out);
}

TEST_F(RfmTool, InfoTellsWhatTheFileIsAndHolds)
{
    EXPECT_EQ(Tool::Run({"info", m_File}).out,
              "file\t" + m_File +
                  "\n"
                  "kind\tplain database, version 12\n"
                  "application\tTEST\n"
                  "description\tsample\n"
                  "created\t2023-11-14 22:13:20 UTC (1700000000)\n"
                  "flushes\t1\n"
                  "size\t15872 bytes; objects use 510 of the 512 that they reserve\n"
                  "objects\t2 arrays, 1 space, 1 stream, 2 tables\n"
                  "layouts\t1\n"
                  "semaphore\tnone\n"
                  "statistics\tBlock 0 Size (bytes): 1024\n"
                  "statistics\tTotal Linkage Usage (bytes): 14336\n"
                  "statistics\tMetadata Pool Size (bytes): 76\n"
                  "statistics\tString Pool Size (bytes): 104\n"
                  "statistics\tString Pool Count (number of strings): 11\n"
                  "statistics\tString Pool Linkage_Count: 2\n");
    EXPECT_THAT(Tool::RunOnTerminal({m_File}, 24, 80).out,
                HasSubstr("kind         plain database, version 12\r\napplication  TEST\r\n"));
}

TEST_F(RfmTool, InfoAsJsonKeepsItsShape)
{
    EXPECT_EQ(Tool::Run({"info", m_File, "--json"}).out,
              "{\n"
              "  \"rfm\": 1,\n"
              "  \"command\": \"info\",\n"
              "  \"file\": \"" +
                  m_File +
                  "\",\n"
                  "  \"kind\": \"plain\",\n"
                  "  \"version\": 12,\n"
                  "  \"application\": \"TEST\",\n"
                  "  \"description\": \"sample\",\n"
                  "  \"created\": 1700000000,\n"
                  "  \"flushes\": 1,\n"
                  "  \"bytes\": 15872,\n"
                  "  \"bytesReserved\": 512,\n"
                  "  \"bytesInUse\": 510,\n"
                  "  \"objects\": {\n"
                  "    \"arrays\": 2,\n"
                  "    \"spaces\": 1,\n"
                  "    \"streams\": 1,\n"
                  "    \"tables\": 2\n"
                  "  },\n"
                  "  \"objectsDamaged\": 0,\n"
                  "  \"layouts\": 1,\n"
                  "  \"semaphore\": null,\n"
                  "  \"statistics\": {\n"
                  "    \"Block 0 Size (bytes)\": 1024,\n"
                  "    \"Total Linkage Usage (bytes)\": 14336,\n"
                  "    \"Metadata Pool Size (bytes)\": 76,\n"
                  "    \"String Pool Size (bytes)\": 104,\n"
                  "    \"String Pool Count (number of strings)\": 11,\n"
                  "    \"String Pool Linkage_Count\": 2\n"
                  "  }\n"
                  "}\n");
}

TEST_F(RfmTool, InfoTellsOfDamagedObjectsAndOfASemaphore)
{
    Overwrite<int>(m_File, ExtentOfEntry(m_File, 5) + 8, 400); // a table's layout
    std::filesystem::create_directory(m_Folder / "s.lsm");
    const ToolResult result = Tool::Run({"info", m_File});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.out, HasSubstr("objects\t2 arrays, 1 space, 1 stream, 2 tables, 1 damaged\n"));
    EXPECT_THAT(result.out, HasSubstr("semaphore\t" + (m_Folder / "s.lsm") + " since 20"));
    EXPECT_EQ(result.err,
              "rfm: " + m_File + ": 1 object can't be described; `rfm check` tells what is damaged\n");
}

TEST_F(RfmTool, AnUnknownApplicationAndAKilledWriterAreReadUpToTheLastFlush)
{
    const pid_t writer = ::fork();
    if (writer == 0)
    {
        rfm_Database database =
            rfm_Database::Create(rfm_File::Open(m_File.c_str(), utl_FileAccessCreate), "ZQX", "", 0);
        auto numbers = database.ArrayInt(1, -1, 0);
        const int values[] = {1, 2, 3};
        numbers.Write(values, 2);
        numbers.Flush();
        database.Flush();
        numbers.Write(values, 3);
        ::kill(::getpid(), SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(writer, &status, 0), writer);
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(Tool::Run({"dump", m_File, "4"}).out, "row\t0\n0\t1\n1\t2\n");
    EXPECT_THAT(Tool::Run({"info", m_File}).out,
                HasSubstr("application\tZQX\ndescription\t\ncreated\tunknown\n"));
    EXPECT_EQ(Tool::Run({"check", m_File}).out, "sound: 1048576 bytes, 1 object, 0 layouts, 0 texts\n");
}

TEST_F(RfmTool, UnlockAsksAndRemovesAtAYesOnly)
{
    const std::string semaphore = m_Folder / "s.lsm";
    std::filesystem::create_directory(semaphore);
    for (const std::string answer : {"", "n\n", "\n", "yesterday\n"})
    {
        const ToolResult refused = Tool::Run({"unlock", m_File}, answer);
        EXPECT_EQ(refused.code, 1);
        EXPECT_EQ(refused.out, "");
        EXPECT_THAT(refused.err, HasSubstr("Remove it? A writer that lives needs it. [y/N] "));
        EXPECT_THAT(refused.err, HasSubstr("rfm: " + semaphore + ": not removed; answer y, or give --yes"));
        EXPECT_TRUE(std::filesystem::exists(semaphore));
    }
    const ToolResult agreed = Tool::Run({"unlock", m_File}, "y\n");
    EXPECT_EQ(agreed.code, 0);
    EXPECT_EQ(agreed.out, "removed " + semaphore + "\n");
    EXPECT_FALSE(std::filesystem::exists(semaphore));
}

TEST_F(RfmTool, UnlockForScriptsDoesNotAsk)
{
    std::filesystem::create_directory(m_Folder / "s.lsm");
    const ToolResult result = Tool::Run({"unlock", "--yes", m_File});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.err, "");
    ExpectFailure({"unlock", "--yes", m_File}, 1,
                  m_File + ": there is no " + (m_Folder / "s.lsm") +
                      "; nothing holds readers up, nothing was removed");
}

TEST_F(RfmTool, UnlockLeavesWhatIsNoSemaphore)
{
    std::filesystem::create_directories(m_Folder / "s.lsm/somebody's");
    const ToolResult result = Tool::Run({"unlock", "--yes", m_File});
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.err,
              "rfm: " + (m_Folder / "s.lsm") +
                  ": not removed: Directory not empty; a semaphore is an empty directory; look at what "
                  "this is, and whose\n");
}
} // namespace
