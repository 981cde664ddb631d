// `rfm compact`: the same content, and nothing to spare.
#include "NewFiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

class RfmCompact : public testing::Test
{
protected:
    // Two arrays that grow in turns, so that each lies in many pieces and takes a handle for each; a table whose texts
    // change; a stream behind them; a closed file.
    void MakeScattered()
    {
        rfm_Database database = CreateDatabase(m_In);
        rfm_TableMetadata layout("NOTES", 1);
        const int text = layout.DefineStringField("text");
        const int number = layout.DefineIntField("number");
        const rfm_TableMetadata& bound = database.Bind(layout);
        {
            auto first = database.ArrayInt(1, -1, 4);
            auto second = database.ArrayInt(1, -1, 4);
            rfm_Table notes = database.Table(bound, 64, -1);
            for (int i = 0; i < 600; ++i)
            {
                first.Write(&i, 1);
                first.Flush();
                second.Write(&i, 1);
                second.Flush();
                rfm_Row row = notes.UpdateRow(i % 7);
                row.WriteFieldString(text, cow_String("note ") + cow_String(i));
                if (i % 2 == 0) row.WriteFieldInt(number, i);
                notes.Flush();
            }
            rfm_TaggedStream stream = database.TaggedStream(0);
            stream.WriteHandle(1, notes.Handle());
            stream.WriteString(2, "note 3");
            stream.Flush();
            m_LastHandle = stream.Handle().Value();
            const rfm_Space empty = database.Space(-1);
            m_LastHandle = empty.Handle().Value();
        }
        database.Close();
    }
    static ToolResult Compact(const std::string& in, const std::string& out, const Tool::Words& more = {})
    {
        Tool::Words words{"compact", in, out};
        words.insert(words.end(), more.begin(), more.end());
        return Tool::Run(words);
    }
    std::vector<std::string> Names() const { return NamesIn(m_Folder / ""); }
    static std::string Hash(const std::string& path) { return Tool::Run({"hash", path}).out; }

    TestFolder m_Folder;
    std::string m_In = m_Folder / "in.rdx";
    std::string m_Out = m_Folder / "out.rdx";
    std::uint32_t m_LastHandle = 0;
};

TEST_F(RfmCompact, EveryObjectLiesInOnePieceUnderItsHandle)
{
    MakeScattered();
    EXPECT_THAT(Tool::Run({"ls", m_In}).out, HasSubstr("\n4\tint array\t600\t1\t\t2416\t2416\t601\n"));
    EXPECT_GT(m_LastHandle, 1024U); // in the third block of the linkage table
    ASSERT_EQ(Compact(m_In, m_Out).code, 0);
    const std::string last = std::to_string(m_LastHandle);
    const std::string stream = std::to_string(m_LastHandle - 1);
    EXPECT_EQ(Tool::Run({"ls", m_Out}).out, "handle\ttype\trows\tcolumns\tlayout\tbytes\treserved\textents\n"
                                            "4\tint array\t600\t1\t\t2416\t2416\t1\n"
                                            "5\tint array\t600\t1\t\t2416\t2416\t1\n"
                                            "6\ttable\t7\t2\tNOTES\t124\t124\t1\n" +
                                                stream + "\tstream\t\t\t\t40\t40\t1\n" + last +
                                                "\tspace\t\t\t\t0\t0\t0\n");
    EXPECT_EQ(Hash(m_Out), Hash(m_In));
    EXPECT_EQ(Tool::Run({"check", m_Out}).code, 0);
}

TEST_F(RfmCompact, TextsThatNothingRefersToAreGone)
{
    MakeScattered();
    EXPECT_THAT(Tool::Run({"check", m_In}).out, HasSubstr(", 603 texts\n"));
    ASSERT_EQ(Compact(m_In, m_Out).code, 0);
    // NOTES, number, text, seven notes, and the one of the stream.
    EXPECT_THAT(Tool::Run({"check", m_Out}).out, HasSubstr(", 11 texts\n"));
}

TEST_F(RfmCompact, TheNewFileIsAsLargeAsWhatItHolds)
{
    MakeScattered();
    ASSERT_EQ(Compact(m_In, m_Out).code, 0);
    const std::int64_t blocks = m_LastHandle / 512 + 1;
    const std::int64_t objects = 2416 + 2416 + 124 + 40;
    const std::int64_t layouts = 4 + 12 + 2 * 12;
    // Each text with its length, up to a multiple of 4. The notes in the rows are 593 and more, that of the stream "note 3".
    const std::int64_t texts = 4 + (4 + 8) + (4 + 8) + (4 + 4) + 7 * (4 + 8) + (4 + 8);
    EXPECT_EQ(static_cast<std::int64_t>(std::filesystem::file_size(m_Out)),
              1024 + blocks * 14336 + objects + layouts + texts);
}

TEST_F(RfmCompact, TheCopyCanBeWrittenOn)
{
    MakeScattered();
    ASSERT_EQ(Compact(m_In, m_Out).code, 0);
    {
        rfm_Database database =
            rfm_Database::Open(rfm_File::Open(m_Out.c_str(), utl_FileAccessUpdate), "TEST");
        database.Bind();
        {
            rfm_Table notes = database.Table(rfm_Handle(6), -1, -1);
            notes.NewRow().WriteFieldString("text", "one more");
            notes.Flush();
            // Behind the last object come the second pieces of the texts and, now, of the table.
            EXPECT_EQ(database.Space(-1).Handle().Value(), m_LastHandle + 3);
        }
        database.Close();
    }
    EXPECT_EQ(Tool::Run({"check", m_Out}).code, 0);
    EXPECT_THAT(Tool::Run({"dump", m_Out, "NOTES"}).out, HasSubstr("\n7\t\tone more\n"));
}

TEST_F(RfmCompact, WhatAReaderSeesBesidesTheObjectsStaysToo)
{
    MakeSample(m_In);
    ASSERT_EQ(Compact(m_In, m_Out).code, 0);
    const rfm_File file = rfm_File::Open(m_Out.c_str(), utl_FileAccessRead);
    EXPECT_EQ(rfm_Database::GetCreationTime(file), 1700000000);
    EXPECT_EQ(rfm_Database::Open(file, "TEST").Description(), "sample");
    for (int handle = 3; handle <= 9; ++handle)
        EXPECT_EQ(Tool::Run({"dump", m_Out, std::to_string(handle)}).out,
                  Tool::Run({"dump", m_In, std::to_string(handle)}).out)
            << handle;
}

TEST_F(RfmCompact, FieldsWithoutDataHoldZerosAfterwards)
{
    MakeSample(m_In);
    constexpr std::int64_t kName = 12 + 36 + 16; // of row 1, where it is absent
    Overwrite<double>(m_In, ExtentOfEntry(m_In, 4) + kName, 1e17);
    ASSERT_EQ(Tool::Run({"check", m_In}).code, 0);
    ASSERT_EQ(Compact(m_In, m_Out).code, 0);
    EXPECT_EQ(NumberAt<double>(m_Out, ExtentOfEntry(m_Out, 4) + kName), 0);
    EXPECT_EQ(Hash(m_Out), Hash(m_In));
}

TEST_F(RfmCompact, TwiceIsTheSameFile)
{
    MakeScattered();
    ASSERT_EQ(Compact(m_In, m_Out).code, 0);
    ASSERT_EQ(Compact(m_Out, m_Folder / "again").code, 0);
    EXPECT_EQ(ReadFile(m_Folder / "again"), ReadFile(m_Out));
}

TEST_F(RfmCompact, FromEachKindToEachKindTheContentStays)
{
    MakeScattered();
    for (const std::string& first : kKinds)
        for (const std::string& second : kKinds)
        {
            const std::string a = m_Folder / "a";
            ASSERT_EQ(Tool::Run({"convert", m_In, a, "--to", first, "-f"}).code, 0);
            EXPECT_EQ(Compact(a, m_Out, {"-f", "--to", second}).code, 0) << first << " " << second;
            EXPECT_EQ(Hash(m_Out), Hash(m_In)) << first << " " << second;
            EXPECT_EQ(Tool::Run({"check", m_Out}).code, 0) << first << " " << second;
            EXPECT_EQ(Compact(a, m_Out, {"-f"}).code, 0) << first;
            EXPECT_THAT(Tool::Run({"info", m_Out}).out, HasSubstr("\nkind\t" + first + " database"));
        }
}

TEST_F(RfmCompact, ItTellsBothSizesAndTheDigest)
{
    MakeSample(m_In);
    std::string hash = Hash(m_In);
    hash.pop_back();
    EXPECT_EQ(Compact(m_In, m_Out).out,
              m_Out + ": plain, 15872 bytes; was plain, 15872 bytes; " + hash + "\n");
    EXPECT_EQ(Compact(m_In, m_Out, {"-f", "--json"}).out,
              "{\"rfm\":1,\"command\":\"compact\",\"file\":\"" + m_In + "\",\"out\":\"" + m_Out +
                  "\",\"from\":\"plain\",\"to\":\"plain\",\"bytesBefore\":15872,\"bytesAfter\":15872,"
                  "\"hash\":\"" +
                  hash + "\"}\n");
}

TEST_F(RfmCompact, ADamagedInIsRefusedAlsoWhereItOpens)
{
    MakeSample(m_In);
    Overwrite<double>(m_In, ExtentOfEntry(m_In, 7) + 16, 6); // a reference into the middle of a text
    const ToolResult result = Compact(m_In, m_Out);
    EXPECT_EQ(result.code, 4);
    EXPECT_EQ(result.err, "rfm: " + m_In + ": 1 damage; `rfm check` tells what is damaged\n");
    EXPECT_THAT(Names(), ElementsAre("in.rdx"));
}

TEST_F(RfmCompact, BytesOfInThatCanNotBeReadAreDamageOfIn)
{
    MakeDamagedNumbers(m_In);
    const ToolResult result = Compact(m_In, m_Out);
    EXPECT_EQ(result.code, 4);
    EXPECT_EQ(result.err, "rfm: " + m_In + ": VDX database is corrupt; `rfm check` tells what is damaged\n");
    EXPECT_EQ(result.err, Tool::Run({"convert", m_In, m_Out, "--to", "plain"}).err);
    EXPECT_THAT(Names(), ElementsAre("in.rdx"));
}

TEST_F(RfmCompact, TheSameRefusalsAsOfConvert)
{
    MakeSample(m_In);
    EXPECT_EQ(Compact(m_In, m_In, {"-f"}).code, 2);
    WriteFile(m_Out, "precious");
    EXPECT_EQ(Compact(m_In, m_Out).code, 2);
    EXPECT_EQ(ReadFile(m_Out), "precious");
    EXPECT_EQ(Compact(m_In, m_Folder / "missing/out").code, 7);
    EXPECT_EQ(Compact(m_In, m_Folder / "x", {"--to", "zip"}).code, 2);
    EXPECT_THAT(Names(), ElementsAre("in.rdx", "out.rdx"));
}

TEST_F(RfmCompact, AFullDiskIsExitSevenInOneLineAndLeavesNothing)
{
    MakeScattered();
    for (const std::string& kind : kKinds)
        for (const rlim_t bytes : {rlim_t{0}, rlim_t{1} << 12, rlim_t{1} << 15})
        {
            const FileSizeLimit limit(bytes);
            const ToolResult result = Compact(m_In, m_Out, {"--to", kind});
            EXPECT_EQ(result.code, 7) << kind << " " << bytes;
            EXPECT_THAT(result.err, StartsWith("rfm: " + m_Out + ": ")) << kind << " " << bytes;
            EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
            EXPECT_THAT(Names(), ElementsAre("in.rdx")) << kind << " " << bytes;
        }
}

TEST_F(RfmCompact, AnInterruptedRunLeavesNothing)
{
    MakeEndless(m_In);
    for (const std::string& kind : kKinds)
    {
        const FolderWatch watch(m_Folder / "");
        Tool tool({"compact", m_In, m_Out, "--to", kind});
        watch.WaitForAWrite();
        tool.Signal(SIGINT);
        EXPECT_EQ(tool.Finish().code, 130) << kind;
        EXPECT_THAT(Names(), ElementsAre("in.rdx")) << kind;
    }
}
} // namespace
