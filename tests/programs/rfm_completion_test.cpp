// Completion: what the tool offers for a word, and that the shells' scripts pass it on.
#include "SampleDatabase.h"
#include "ToolRunner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>

namespace
{
using testing::HasSubstr;
using testing::Not;

class RfmCompletion : public testing::Test
{
protected:
    RfmCompletion() { MakeSample(m_File); }

    static std::string Offered(Tool::Words words)
    {
        words.insert(words.begin(), "__complete");
        return Tool::Run(std::move(words)).out;
    }
    // What a program prints, without its complaints.
    static std::string OutputOf(const std::string& program, const std::string& script)
    {
        const std::string command = program + " -c '" + script + "' 2>/dev/null";
        std::string out;
        FILE* pipe = ::popen(command.c_str(), "r");
        for (int byte = std::fgetc(pipe); byte != EOF; byte = std::fgetc(pipe))
            out += static_cast<char>(byte);
        ::pclose(pipe);
        return out;
    }

    TestFolder m_Folder;
    std::string m_File = m_Folder / "s.rdx";
};

TEST_F(RfmCompletion, TheFirstWordIsACommand)
{
    EXPECT_EQ(Offered({"co"}), "convert\ncompact\ncopy\nconnect\ncompletion\n");
    EXPECT_EQ(Offered({"quux"}), "");
    EXPECT_THAT(Offered({""}), HasSubstr("info\nls\n"));
    EXPECT_EQ(Offered({}), Offered({""}));
    EXPECT_THAT(Offered({""}), Not(HasSubstr("__complete")));
}

TEST_F(RfmCompletion, ADashBeginsAnOptionOfTheCommand)
{
    EXPECT_EQ(Offered({"hash", "--"}), "--help\n--json\n");
    EXPECT_EQ(Offered({"convert", m_File, "out.rdx", "--t"}), "--to\n");
}

TEST_F(RfmCompletion, AnOptionWithChoicesOffersThem)
{
    EXPECT_EQ(Offered({"convert", "--to", ""}), "plain\ncompressed\nhdf5\n");
    EXPECT_EQ(Offered({"convert", m_File, "out.rdx", "--to", "co"}), "compressed\n");
    EXPECT_EQ(Offered({"completion", ""}), "bash\nzsh\nfish\n");
    EXPECT_EQ(Offered({"help", "f"}), "formats\n");
}

TEST_F(RfmCompletion, WhereAFileStandsNothingIsOfferedSoThatTheShellLooks)
{
    EXPECT_EQ(Offered({"ls", ""}), "");
    EXPECT_EQ(Offered({"convert", m_File, ""}), "");
    EXPECT_EQ(Offered({"ls", m_File, ""}), "") << "ls takes no more";
}

// Two tables have the layout NODES: the name means the first.
TEST_F(RfmCompletion, ObjectsComeOutOfTheFileByLayoutOrHandle)
{
    EXPECT_EQ(Offered({"dump", m_File, ""}), "NODES\n5\n6\n7\n8\n9\n");
    EXPECT_EQ(Offered({"dump", m_File, "N"}), "NODES\n");
    EXPECT_EQ(Offered({"dump", "-n", "3", m_File, "N"}), "NODES\n") << "the 3 is no argument";
}

TEST_F(RfmCompletion, BehindAPointComeTheFieldsOfTheTable)
{
    EXPECT_EQ(Offered({"dump", m_File, "NODES."}),
              "NODES.id\nNODES.link\nNODES.name\nNODES.weight\nNODES.x\n");
    EXPECT_EQ(Offered({"dump", m_File, "5.w"}), "5.weight\n");
}

TEST_F(RfmCompletion, AFileThatIsNoneOffersNothing)
{
    WriteFile(m_File, "no database");
    EXPECT_EQ(Offered({"dump", m_File, ""}), "");
    EXPECT_EQ(Offered({"dump", m_Folder / "none", ""}), "");
}

TEST_F(RfmCompletion, AnUnknownShellIsRefused)
{
    const ToolResult result = Tool::Run({"completion", "tcsh"});
    EXPECT_EQ(result.code, 2);
    EXPECT_EQ(result.err, "rfm: completion: SHELL: tcsh is not bash, zsh or fish; `rfm completion --help` "
                          "shows how\n");
}

TEST_F(RfmCompletion, TheScriptForBashFillsInAnObject)
{
    const std::string script = "source <(" RFM_TOOL " completion bash)\n"
                               "compopt() { :; }\n"
                               "COMP_WORDS=(rfm dump \"" +
                               m_File +
                               "\" N)\nCOMP_CWORD=3\n_rfm " RFM_TOOL "\nprintf \"<%s>\" \"${COMPREPLY[@]}\"";
    EXPECT_EQ(OutputOf("bash", script), "<NODES>");
    EXPECT_EQ(OutputOf("bash", "source <(" RFM_TOOL " completion bash); complete -p rfm"),
              "complete -o default -F _rfm rfm\n");
}

#ifdef RFM_FISH
TEST_F(RfmCompletion, TheScriptForFishFillsInAnObjectOrAFile)
{
    const std::string begin = "set -x HOME " + (m_Folder / "") +
                              "; set -x PATH " RFM_TOOL_FOLDER
                              " $PATH; rfm completion fish | source; complete -C ";
    EXPECT_EQ(OutputOf(RFM_FISH, begin + "\"rfm dump " + m_File + " N\""), "NODES\n");
    EXPECT_EQ(OutputOf(RFM_FISH, begin + "\"rfm ls " + (m_Folder / "s.") + "\""), m_File + "\n");
}
#endif

#ifdef RFM_ZSH
TEST_F(RfmCompletion, TheScriptForZshHandsOnWhatTheToolOffers)
{
    const std::string script = "compdef() { :; }\n"
                               "compadd() { shift; print -r -- \"${(P)1[@]}\"; }\n"
                               "_files() { print files; }\n"
                               "source <(" RFM_TOOL " completion zsh)\n"
                               "words=(" RFM_TOOL " dump " +
                               m_File +
                               " N) CURRENT=4; _rfm\n"
                               "words=(" RFM_TOOL " ls x) CURRENT=3; _rfm\n";
    EXPECT_EQ(OutputOf(RFM_ZSH " -f", script), "NODES\nfiles\n\n");
}
#endif
} // namespace
