// What every command does with objects that there aren't, with outputs that take nothing, and with Ctrl-C: the line on
// standard error, the exit code, and nothing else. Of bad files rfm_bad_files_test.cpp tells.
#include "CommandLines.h"
#include "EnvironmentVariable.h"
#include "NewFiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

namespace
{
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class EveryCommand : public testing::TestWithParam<CommandLine>
{
protected:
    EveryCommand() { MakeSample(m_File); }

    TestFolder m_Folder;
    std::string m_File = m_Folder / "s.rdx";
    std::string m_Out = m_Folder / "out.rdx";
};

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
        EXPECT_FALSE(std::filesystem::exists(m_Out));
    }
}

INSTANTIATE_TEST_SUITE_P(, EveryCommand, testing::ValuesIn(kCommandLines),
                         [](const auto& each) { return std::string(each.param.name); });

// --- values that can't be meant ---

TEST(RfmWords, AnOptionWithoutAValueIsNotTakenForOneThatWasNotGiven)
{
    const TestFolder folder;
    const std::string file = folder / "s.rdx";
    MakeSample(file);
    for (const Tool::Words& words : {Tool::Words{"rows", file, "4", "--where", ""},
                                     {"head", file, "4", "--fields", ""},
                                     {"follow", file, "4", "--until", "", "--timeout", "0"},
                                     {"export", file, "4", "--to", "csv", "--out", ""},
                                     {"diff", file, file, "--key", ""}})
    {
        const ToolResult result = Tool::Run(words);
        const std::string option =
            *std::find_if(words.begin(), words.end(),
                          [](const std::string& word) { return word.starts_with("--") && word != "--to"; });
        EXPECT_EQ(result.code, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "rfm: " + words.front() + ": " + option + ": its value is empty; `rfm " +
                                  words.front() + " --help` shows how\n");
    }
}

TEST(RfmWords, ANewFileIsNeverStandardOutput)
{
    const TestFolder folder;
    const std::string file = folder / "s.rdx";
    MakeSample(file);
    for (const Tool::Words& words : {Tool::Words{"convert", file, "-", "--to", "hdf5"},
                                     {"compact", file, "-"},
                                     {"copy", file, "-", "4"},
                                     {"recover", file, "-"},
                                     {"export", file, "4", "--to", "csv", "-o", "-"},
                                     {"plot", file, "4.id", "-o", "-"},
                                     {"import", "csv", file, "-"},
                                     {"import", "syrthes", file, "-"},
                                     {"get", file, "-"}})
    {
        const ToolResult result = Tool::Run(words);
        EXPECT_EQ(result.code, 2) << words.front();
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, HasSubstr(": it can't be standard output; give the name of a file; "))
            << words.front();
        EXPECT_FALSE(std::filesystem::exists("-"));
    }
}

// --- outputs that take nothing ---

// Each command as it prints something; the two that ask another host are tried where there is one.
const std::vector<CommandLine> kPrinting = []
{
    std::vector<CommandLine> all{std::begin(kCommandLines), std::end(kCommandLines)};
    all.insert(all.end(), {{"import", {"csv", "CSV", "OUT"}},
                           {"connect", {"list"}},
                           {"unlock", {"--yes", "FILE"}},
                           {"completion", {"bash"}},
                           {"help", {"formats"}},
                           {"doctor", {}}});
    return all;
}();

class EveryCommandThatPrints : public EveryCommand
{
protected:
    EveryCommandThatPrints()
    {
        WriteFile(m_Folder / "nodes.csv", "a,b\n1,2\n");
        if (std::string(GetParam().name) == "unlock") std::filesystem::create_directory(m_Folder / "s.lsm");
    }
    Tool::Words Words() const
    {
        Tool::Words words = WordsOf(GetParam(), m_File, m_Out);
        std::replace(words.begin(), words.end(), std::string("CSV"), m_Folder / "nodes.csv");
        return words;
    }

    const EnvironmentVariable m_Settings{"XDG_CONFIG_HOME", m_Folder.Path().c_str()};
};

TEST_P(EveryCommandThatPrints, SaysThatStandardOutputIsFull)
{
    const ToolResult result = Tool::Run(Words(), "", "/dev/full");
    EXPECT_EQ(result.code, 7);
    EXPECT_THAT(result.err,
                EndsWith("rfm: standard output: No space left on device; make room or write elsewhere, "
                         "what came out is cut off\n"));
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    EXPECT_EQ(Tool::Run({GetParam().name, "--help"}, "", "/dev/full").code, 7);
}

TEST_P(EveryCommandThatPrints, EndsQuietlyWhenItsReaderHasLeft)
{
    // Whether anything is missing on this host is nothing that a reader changes.
    const int code = std::string(GetParam().name) == "doctor" ? Tool::Run(Words()).code : 0;
    const ToolResult result = Tool::RunUnread(Words());
    EXPECT_EQ(result.code, code);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(std::filesystem::exists(m_Out), GetParam().MakesFile());
}

TEST_P(EveryCommandThatPrints, HelpSaysWhatItDoesThenThreeExamplesOnOneScreen)
{
    const std::string command = GetParam().name;
    const ToolResult help = Tool::Run({command, "--help"});
    EXPECT_EQ(help.code, 0);
    EXPECT_THAT(Tool::Run({"--help"}).out, HasSubstr("\n  " + command + " "));
    EXPECT_THAT(help.out, StartsWith("rfm " + command + ": "));
    EXPECT_THAT(help.out, HasSubstr("usage: rfm " + command + " "));
    EXPECT_LE(std::count(help.out.begin(), help.out.end(), '\n'), 40);
    const std::string examples =
        help.out.substr(help.out.find("examples:"), help.out.find("usage:") - help.out.find("examples:"));
    EXPECT_EQ(std::count(examples.begin(), examples.end(), '\n'), 5) << examples;
}

INSTANTIATE_TEST_SUITE_P(, EveryCommandThatPrints, testing::ValuesIn(kPrinting),
                         [](const auto& each) { return std::string(each.param.name); });

// --- Ctrl-C ---

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

// What takes longer than any test waits, of a database whose array 6 has no end.
struct LongWork
{
    const char* name;
    Tool::Words words;
};
void PrintTo(const LongWork& work, std::ostream* stream) { *stream << work.name; }

const LongWork kLongWork[] = {
    {"Rows", {"rows", "FILE", "6", "--where", "row < 0"}},
    {"Tail", {"tail", "FILE", "6", "--where", "row < 0"}},
    {"Value", {"value", "FILE", "6.0", "--where", "row < 0"}},
    {"Stats", {"stats", "FILE", "6"}},
    {"Plot", {"plot", "FILE", "6"}},
    {"PlotIntoAFile", {"plot", "FILE", "6", "-o", "OUT"}},
    {"Follow", {"follow", "FILE"}},
    {"Export", {"export", "FILE", "6", "--to", "jsonl", "--where", "row < 0"}},
    {"ExportIntoAFile", {"export", "FILE", "6", "--to", "npy", "-o", "OUT"}},
    {"Diff", {"diff", "FILE", "FILE"}},
    {"Hash", {"hash", "FILE"}},
    {"Convert", {"convert", "FILE", "OUT", "--to", "compressed"}},
    {"Compact", {"compact", "FILE", "OUT"}},
    {"Copy", {"copy", "FILE", "OUT", "6"}},
    {"Recover", {"recover", "FILE", "OUT"}},
};

class EveryLongWork : public testing::TestWithParam<LongWork>
{
protected:
    EveryLongWork() { MakeEndlessArray(m_File); }

    Tool::Words Words() const
    {
        Tool::Words words = GetParam().words;
        std::replace(words.begin(), words.end(), std::string("FILE"), m_File);
        std::replace(words.begin(), words.end(), std::string("OUT"), m_Folder / "out");
        return words;
    }
    // Returns once the tool has opened the file.
    void WaitUntilItReads(const Tool& tool) const
    {
        const std::string descriptors = "/proc/" + std::to_string(tool.Process()) + "/fd";
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        std::error_code gone;
        while (std::chrono::steady_clock::now() < deadline)
        {
            for (const auto& each : std::filesystem::directory_iterator(descriptors, gone))
                if (std::filesystem::read_symlink(each.path(), gone) == m_File) return;
            ::poll(nullptr, 0, 1);
        }
        FAIL() << "the tool doesn't open its file";
    }

    TestFolder m_Folder;
    std::string m_File = std::filesystem::canonical(m_Folder.Path()).string() + "/endless.rdx";
};

TEST_P(EveryLongWork, LeavesNothingAtCtrlC)
{
    Tool tool(Words());
    WaitUntilItReads(tool);
    tool.Signal(SIGINT);
    const ToolResult result = tool.Finish();
    EXPECT_EQ(result.code, 130);
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(NamesIn(m_Folder / ""), ElementsAre("endless.rdx"));
}

INSTANTIATE_TEST_SUITE_P(, EveryLongWork, testing::ValuesIn(kLongWork),
                         [](const auto& each) { return std::string(each.param.name); });
} // namespace
