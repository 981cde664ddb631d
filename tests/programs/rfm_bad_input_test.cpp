// What every command answers to what it can't work with: the line on standard error, the exit code, and nothing else.
#include "CommandLines.h"
#include "NewFiles.h"
#include "SampleDatabase.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

namespace
{
using testing::HasSubstr;
using testing::StartsWith;

class EveryCommand : public testing::TestWithParam<CommandLine>
{
protected:
    EveryCommand() { MakeSample(m_File); }

    ToolResult Run(const std::string& file) const { return Tool::Run(WordsOf(GetParam(), file, m_Out)); }
    void ExpectFailure(const std::string& file, int code, const std::string& why) const
    {
        const ToolResult result = Run(file);
        EXPECT_EQ(result.code, code) << file;
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "rfm: " + file + ": " + why + "\n");
        EXPECT_FALSE(std::filesystem::exists(m_Out));
    }
    std::string Written(const std::string& name, const std::string& bytes) const
    {
        WriteFile(m_Folder / name, bytes);
        return m_Folder / name;
    }
    // One line, and no half-made file.
    void ExpectOneLineOfDamage(const std::string& file) const
    {
        const ToolResult result = Run(file);
        EXPECT_EQ(result.code, GetParam().codeWhenDamaged) << result.err;
        EXPECT_FALSE(std::filesystem::exists(m_Out));
        if (result.code != 4) return;
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, StartsWith("rfm: " + file + ": "));
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    }

    TestFolder m_Folder;
    std::string m_File = m_Folder / "s.rdx";
    std::string m_Out = m_Folder / "out.rdx";
};

TEST_P(EveryCommand, SaysThatAFileIsMissing)
{
    const std::string why = "no such file; give the path of a database, such as job.rdx";
    ExpectFailure(m_Folder / "missing.rdx", 3, why);
    std::filesystem::create_symlink(m_Folder / "gone.rdx", m_Folder / "link.rdx");
    ExpectFailure(m_Folder / "link.rdx", 3, why);
    ExpectFailure(m_File + "/below.rdx", 3, why);
}

TEST_P(EveryCommand, SaysWhatAFileIsThatIsNoDatabase)
{
    const std::string remedy = "; look at it with the program that made it";
    std::filesystem::create_directory(m_Folder / "folder");
    ExpectFailure(m_Folder / "folder", 4, "is a directory; give the path of a database in it");
    ExpectFailure("/dev/zero", 4, "is no regular file; copy its bytes into a file first");
    ExpectFailure(Written("empty", ""), 4, "the file is empty; its writer has not begun, or was stopped");
    ExpectFailure(
        Written("old", "TVNDFM" + std::string(2000, '\0')), 4,
        "a database of the old format, which is not read; run its analysis again with a newer version");
    ExpectFailure(Written("text", "just a t\xc3\xa4xt\n"), 4,
                  "not a database: it looks like a text" + remedy);
    ExpectFailure(Written("picture", "\x89PNG\r\n\x1a\n"), 4,
                  "not a database: it looks like a PNG picture" + remedy);
    ExpectFailure(Written("bytes", std::string(100, '\x01')), 4,
                  "not a database: it looks like binary data" + remedy);
}

TEST_P(EveryCommand, RefusesACutFileOfEachKind)
{
    std::filesystem::resize_file(m_File, 15800);
    ExpectOneLineOfDamage(m_File);
    for (const std::string name : {"table.rdx", "compressed.rdx", "hdf5.rdx"})
    {
        const std::string bytes = ReadFile(RFM_TEST_DATA "/" + name);
        ExpectOneLineOfDamage(Written(name, bytes.substr(0, bytes.size() / 2)));
    }
}

TEST_P(EveryCommand, RefusesEachGoldenFileWithADamagedHeader)
{
    for (const std::string name : {"table.rdx", "arrays.rdx", "strings.rdx", "stream.rdx", "layouts.rdx"})
    {
        const std::string damaged = Written(name, ReadFile(RFM_TEST_DATA "/" + name));
        Overwrite<double>(damaged, EntryPlace(1) + 16, 1e300); // where the texts lie
        ExpectOneLineOfDamage(damaged);
    }
}

TEST_P(EveryCommand, ReadsAFileThatIsBeingWrittenUpToItsLastFlush)
{
    const std::string file = m_Folder / "w.rdx";
    rfm_Database database = CreateDatabase(file);
    ExpectOneLineOfDamage(file); // not flushed yet
    {
        rfm_TableMetadata layout("STEPS", 1);
        const int id = layout.DefineIntField("id");
        rfm_Table steps = database.Table(database.Bind(layout), -1, -1);
        steps.NewRow().WriteFieldInt(id, 1);
        steps.Flush();
        database.Flush();
        steps.NewRow().WriteFieldInt(id, 2);
        const ToolResult result = Run(file);
        EXPECT_EQ(result.code, GetParam().codeWhenSound) << result.err;
        steps.Flush();
    }
    database.Close();
}

TEST_P(EveryCommand, AnswersAnUnknownObjectOrFieldWithAGuess)
{
    if (GetParam().object[0] == '\0') return;
    const std::pair<const char*, const char*> kWords[] = {
        {"99", "no object has the handle 99; `rfm ls` lists the handles"},
        {"NODE", "no table has the name NODE; did you mean NODES?"},
        {"NODES.nam", "table NODES has no field nam; did you mean NODES.name?"},
        {"Q*", "no object fits Q*; `rfm ls` lists the objects"},
    };
    for (const auto& [object, why] : kWords)
    {
        const ToolResult result = Tool::Run(WordsOf(GetParam(), m_File, m_Out, object));
        EXPECT_EQ(result.code, 3) << object;
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "rfm: " + m_File + ": " + why + "\n");
    }
}

TEST_P(EveryCommand, SaysThatStandardOutputIsFull)
{
    if (!GetParam().writesData) return;
    const ToolResult result = Tool::Run(WordsOf(GetParam(), m_File, m_Out), "", "/dev/full");
    EXPECT_EQ(result.code, 7);
    EXPECT_THAT(result.err,
                HasSubstr("rfm: standard output: No space left on device; make room or write elsewhere, "
                          "what came out is cut off\n"));
    EXPECT_EQ(Tool::Run({GetParam().name, "--help"}, "", "/dev/full").code, 7);
}

TEST_P(EveryCommand, EndsQuietlyWhenItsReaderHasLeft)
{
    if (!GetParam().writesData || GetParam().codeWhenSound != 0) return;
    Tool tool(WordsOf(GetParam(), m_File, m_Out));
    tool.CloseOutput();
    const ToolResult result = tool.Finish();
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.err, "");
}

TEST_P(EveryCommand, HelpSaysWhatItDoesThenThreeExamplesOnOneScreen)
{
    const std::string command = GetParam().name;
    const ToolResult help = Tool::Run({command, "--help"});
    EXPECT_EQ(help.code, 0);
    EXPECT_THAT(Tool::Run({"--help"}).out, HasSubstr("\n  " + command + " "));
    EXPECT_THAT(help.out, StartsWith("rfm " + command + ": "));
    const bool hasTwoFiles = command == "convert" || command == "compact";
    EXPECT_THAT(help.out, HasSubstr("usage: rfm " + command + (hasTwoFiles ? " IN OUT" : " FILE")));
    EXPECT_LE(std::count(help.out.begin(), help.out.end(), '\n'), 40);
    const std::string examples =
        help.out.substr(help.out.find("examples:"), help.out.find("usage:") - help.out.find("examples:"));
    EXPECT_EQ(std::count(examples.begin(), examples.end(), '\n'), 5) << examples;
}

INSTANTIATE_TEST_SUITE_P(, EveryCommand, testing::ValuesIn(kCommandLines),
                         [](const auto& each) { return std::string(each.param.name); });

TEST(RfmInterrupt, AtAnyPointOfAListingIsExitOneHundredAndThirty)
{
    const TestFolder folder;
    const std::string file = folder / "endless.rdx";
    MakeEndless(file);
    Tool tool({"rows", file, "9"});
    EXPECT_EQ(tool.Line(), "offset\tbytes\ttext");
    tool.Signal(SIGINT);
    const ToolResult result = tool.Finish();
    EXPECT_EQ(result.code, 130);
    EXPECT_EQ(result.err, "");
}
} // namespace
