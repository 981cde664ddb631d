// `rfm convert`: the copy, and what is left when there can be none.
#include "NewFiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{
using testing::ElementsAre;
using testing::StartsWith;

class RfmConvert : public testing::Test
{
protected:
    RfmConvert() { MakeSample(m_In); }

    static ToolResult Convert(const std::string& in, const std::string& out,
                              const std::string& kind = "plain", const Tool::Words& more = {})
    {
        Tool::Words words{"convert", in, out, "--to", kind};
        words.insert(words.end(), more.begin(), more.end());
        return Tool::Run(words);
    }
    static void ExpectRefusal(const ToolResult& result, int code, const std::string& line)
    {
        EXPECT_EQ(result.code, code);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "rfm: " + line + "\n");
    }
    std::vector<std::string> Names() const { return NamesIn(m_Folder / ""); }

    TestFolder m_Folder;
    std::string m_In = m_Folder / "in.rdx";
    std::string m_Out = m_Folder / "out.rdx";
};

TEST_F(RfmConvert, FromEachKindToEachKindAndBackToPlainIsTheSameFile)
{
    for (const std::string& first : kKinds)
        for (const std::string& second : kKinds)
        {
            const std::string a = m_Folder / "a";
            const std::string b = m_Folder / "b";
            EXPECT_EQ(Convert(m_In, a, first, {"-f"}).code, 0) << first;
            EXPECT_EQ(Convert(a, b, second, {"-f"}).code, 0) << first << " " << second;
            EXPECT_EQ(Tool::Run({"hash", b}).out, Tool::Run({"hash", m_In}).out);
            EXPECT_EQ(Convert(b, m_Out, "plain", {"-f"}).code, 0) << second;
            EXPECT_EQ(ReadFile(m_Out), ReadFile(m_In)) << first << " " << second;
        }
}

TEST_F(RfmConvert, ItSaysWhatItMade)
{
    const ToolResult result = Convert(m_In, m_Out);
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out,
              m_Out + ": plain, 15872 bytes; was plain, 15872 bytes; read back and found equal\n");
    EXPECT_EQ(Convert(m_In, m_Out, "plain", {"--force", "--json"}).out,
              "{\"rfm\":1,\"command\":\"convert\",\"file\":\"" + m_In + "\",\"out\":\"" + m_Out +
                  "\",\"from\":\"plain\",\"to\":\"plain\",\"bytes\":15872,\"bytesBefore\":15872,"
                  "\"bytesAfter\":15872}\n");
    EXPECT_THAT(Names(), ElementsAre("in.rdx", "out.rdx"));
}

TEST_F(RfmConvert, AFileThatWasNotClosedIsCopiedWithItsReserve)
{
    const pid_t writer = ::fork();
    if (writer == 0)
    {
        rfm_Database database = CreateDatabase(m_In);
        auto numbers = database.ArrayInt(1, -1, 0);
        const int values[] = {1, 2, 3};
        numbers.Write(values, 3);
        numbers.Flush();
        database.Flush();
        ::kill(::getpid(), SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(writer, &status, 0), writer);
    EXPECT_EQ(Convert(m_In, m_Out).code, 0);
    EXPECT_EQ(ReadFile(m_Out), ReadFile(m_In));
    EXPECT_EQ(ReadFile(m_Out).size(), 1048576U);
}

TEST_F(RfmConvert, SizesAroundTheStepsOfACopyAreWhole)
{
    for (const std::uintmax_t size : {15872U, 16384U, 16383U, 16385U, 65536U, 131072U, 1048576U, 1048577U})
    {
        MakeSample(m_In);
        Overwrite<double>(m_In, 504, 0);
        std::filesystem::resize_file(m_In, size);
        for (const std::string& kind : kKinds)
        {
            EXPECT_EQ(Convert(m_In, m_Folder / "a", kind, {"-f"}).code, 0) << size << " " << kind;
            EXPECT_EQ(Convert(m_Folder / "a", m_Out, "plain", {"-f"}).code, 0) << size << " " << kind;
            EXPECT_EQ(ReadFile(m_Out), ReadFile(m_In)) << size << " " << kind;
        }
    }
}

TEST_F(RfmConvert, AnOutThatIsThereIsRefusedAndLeftAsItIs)
{
    WriteFile(m_Out, "precious");
    ExpectRefusal(Convert(m_In, m_Out), 2, m_Out + ": is there already; --force replaces it");
    EXPECT_EQ(ReadFile(m_Out), "precious");
    EXPECT_THAT(Names(), ElementsAre("in.rdx", "out.rdx"));
}

TEST_F(RfmConvert, ForceReplacesAndKeepsTheRightsAndTheLinks)
{
    namespace fs = std::filesystem;
    WriteFile(m_Folder / "behind", "old");
    fs::permissions(m_Folder / "behind", fs::perms::owner_read | fs::perms::owner_write);
    fs::create_symlink("behind", m_Out);
    EXPECT_EQ(Convert(m_In, m_Out, "plain", {"--force"}).code, 0);
    EXPECT_TRUE(fs::is_symlink(m_Out));
    EXPECT_EQ(ReadFile(m_Folder / "behind"), ReadFile(m_In));
    EXPECT_EQ(fs::status(m_Folder / "behind").permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(RfmConvert, InAndOutMustBeTwoFilesWhateverTheirNames)
{
    const std::string refusal = ": is the file that is read; give another name for the copy";
    ExpectRefusal(Convert(m_In, m_In, "plain", {"--force"}), 2, m_In + refusal);
    std::filesystem::create_symlink("in.rdx", m_Out);
    ExpectRefusal(Convert(m_In, m_Out, "plain", {"--force"}), 2, m_Out + refusal);
    std::filesystem::create_hard_link(m_In, m_Folder / "twin");
    ExpectRefusal(Convert(m_In, m_Folder / "twin", "plain", {"--force"}), 2, (m_Folder / "twin") + refusal);
    EXPECT_EQ(Tool::Run({"check", m_In}).code, 0);
}

TEST_F(RfmConvert, WrongWordsAndPlacesAreToldApart)
{
    ExpectRefusal(Convert(m_In, m_Out, "zip"), 2,
                  "convert: --to: zip is not plain, compressed or hdf5; `rfm convert --help` shows how");
    ExpectRefusal(Tool::Run({"convert", m_In, m_Out}), 2,
                  "convert: --to is required; `rfm convert --help` shows how");
    ExpectRefusal(Convert(m_In, m_Folder / ""), 2,
                  (m_Folder / "") + ": is a directory; give the name of a file in it");
    ExpectRefusal(Convert(m_In, "/dev/full", "plain", {"-f"}), 2,
                  "/dev/full: is no regular file; give the name of a new file");
    ExpectRefusal(Convert(m_In, m_Folder / "missing/out"), 7,
                  (m_Folder / "missing/out") + ": the folder " + (m_Folder / "missing") +
                      " is not there; make it or write elsewhere");
    for (const std::string there : {"mrkrdb://localhost//tmp/out.rdx", "Network connectors/box1/out.rdx"})
        ExpectRefusal(Convert(m_In, there), 2,
                      there + ": other hosts are read only; give the name of a file on this host");
}

TEST_F(RfmConvert, ADamagedInIsRefusedAndNoOutIsMade)
{
    std::filesystem::resize_file(m_In, 15800);
    const ToolResult result = Convert(m_In, m_Out);
    EXPECT_EQ(result.code, 4);
    EXPECT_THAT(result.err, StartsWith("rfm: " + m_In + ": The MARLEK database file is corrupt."));
    EXPECT_THAT(Names(), ElementsAre("in.rdx"));
}

TEST_F(RfmConvert, AFullDiskIsExitSevenInOneLineAndLeavesNothing)
{
    for (const std::string& kind : kKinds)
    {
        const FileSizeLimit limit(4096);
        const ToolResult result = Convert(m_In, m_Out, kind);
        EXPECT_EQ(result.code, 7) << kind;
        EXPECT_THAT(result.err, StartsWith("rfm: " + m_Out + ": ")) << kind;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        EXPECT_THAT(Names(), ElementsAre("in.rdx")) << kind;
    }
    const FileSizeLimit limit(4096);
    ExpectRefusal(Convert(m_In, m_Out), 7,
                  m_Out + ": Can't write file: " + m_Out +
                      ", reason: File too large; make room or write elsewhere; nothing was left there");
}

TEST_F(RfmConvert, AnInterruptedRunLeavesNothing)
{
    MakeEndless(m_In);
    for (const std::string& kind : kKinds)
    {
        const FolderWatch watch(m_Folder / "");
        Tool tool({"convert", m_In, m_Out, "--to", kind});
        watch.WaitForAWrite();
        tool.Signal(SIGINT);
        EXPECT_EQ(tool.Finish().code, 130) << kind;
        EXPECT_THAT(Names(), ElementsAre("in.rdx")) << kind;
    }
}

TEST_F(RfmConvert, ATerminatedRunLeavesNothingAndDiesOfItsSignal)
{
    MakeEndless(m_In);
    for (const int signal : {SIGTERM, SIGHUP})
    {
        const FolderWatch watch(m_Folder / "");
        Tool tool({"convert", m_In, m_Out, "--to", "plain"});
        watch.WaitForAWrite();
        tool.Signal(signal);
        EXPECT_EQ(tool.Finish().code, 128 + signal);
        EXPECT_THAT(Names(), ElementsAre("in.rdx"));
    }
}

TEST_F(RfmConvert, AnInterruptLeavesTheOldOutInPlace)
{
    MakeEndless(m_In);
    MakeSample(m_Out);
    const FolderWatch watch(m_Folder / "");
    Tool tool({"convert", m_In, m_Out, "--to", "plain", "--force"});
    watch.WaitForAWrite();
    tool.Signal(SIGINT);
    EXPECT_EQ(tool.Finish().code, 130);
    EXPECT_EQ(Tool::Run({"check", m_Out}).code, 0);
    EXPECT_THAT(Names(), ElementsAre("in.rdx", "out.rdx"));
}

TEST_F(RfmConvert, AFileThatIsCutOffMeanwhileIsNoCopy)
{
    MakeEndless(m_In);
    const FolderWatch watch(m_Folder / "");
    Tool tool({"convert", m_In, m_Out, "--to", "plain"});
    watch.WaitForAWrite();
    std::filesystem::resize_file(m_In, 20000);
    ExpectRefusal(tool.Finish(), 4, m_In + ": the file was cut off while it was read; try again");
    EXPECT_THAT(Names(), ElementsAre("in.rdx"));
}

TEST_F(RfmConvert, AWriterThatFlushesAndClosesMeanwhileMakesItBusy)
{
    MakeEndless(m_In);
    const FolderWatch watch(m_Folder / "");
    Tool tool({"convert", m_In, m_Out, "--to", "plain"});
    watch.WaitForAWrite();
    Overwrite<int>(m_In, 512, 99);
    std::filesystem::resize_file(m_In, 20000);
    ExpectRefusal(tool.Finish(), 5,
                  m_In + ": its writer flushed while it was read; try again when the writer rests");
    EXPECT_THAT(Names(), ElementsAre("in.rdx"));
}

TEST_F(RfmConvert, ASemaphoreIsToldOf)
{
    std::filesystem::create_directory(m_Folder / "in.lsm");
    const ToolResult result = Convert(m_In, m_Out);
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.err,
              "rfm: " + m_In + ": a writer asks readers to wait; a change may be copied half done\n");
}
} // namespace
