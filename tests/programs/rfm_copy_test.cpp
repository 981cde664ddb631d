// `rfm copy`: selected objects in a new file.
#include "NewFiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class RfmCopy : public testing::Test
{
protected:
    RfmCopy() { MakeSample(m_In); }

    ToolResult Copy(const Tool::Words& more)
    {
        Tool::Words words{"copy", m_In, m_Out};
        words.insert(words.end(), more.begin(), more.end());
        return Tool::Run(words);
    }
    std::vector<std::string> Names() const { return NamesIn(m_Folder / ""); }

    TestFolder m_Folder;
    std::string m_In = m_Folder / "in.rdx";
    std::string m_Out = m_Folder / "out.rdx";
};

TEST_F(RfmCopy, OnlyWhatWasChosenIsThereUnderItsHandle)
{
    const ToolResult result = Copy({"7", "NODES", "0x9"});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(result.out, StartsWith(m_Out + ": plain, 4 objects, "));
    EXPECT_EQ(Tool::Run({"ls", m_Out}).out, "handle\ttype\trows\tcolumns\tlayout\tbytes\treserved\textents\n"
                                            "4\ttable\t3\t5\tNODES\t120\t120\t1\n"
                                            "5\ttable\t0\t5\tNODES\t12\t12\t1\n"
                                            "7\tstring array\t2\t1\t\t32\t32\t1\n"
                                            "9\tspace\t\t\t\t22\t24\t1\n");
    for (const char* handle : {"4", "5", "7", "9"})
        EXPECT_EQ(Tool::Run({"dump", m_Out, handle}).out, Tool::Run({"dump", m_In, handle}).out) << handle;
    EXPECT_EQ(Tool::Run({"check", m_Out}).code, 0);
}

TEST_F(RfmCopy, LayoutsAndTextsComeAsFarAsTheyAreNeeded)
{
    ASSERT_EQ(Copy({"6"}).code, 0);
    EXPECT_THAT(Tool::Run({"check", m_Out}).out, HasSubstr(", 1 object, 0 layouts, 0 texts\n"));
    ASSERT_EQ(Copy({"4", "-f"}).code, 0);
    EXPECT_THAT(Tool::Run({"check", m_Out}).out, HasSubstr(", 1 object, 1 layout, 8 texts\n"));
}

// The second layout has another place in a pool where the first one is missing.
TEST_F(RfmCopy, ATableFindsItsLayoutWhereItLiesNow)
{
    {
        rfm_Database database = CreateDatabase(m_In);
        rfm_TableMetadata first("FIRST", 1);
        first.DefineIntField("a");
        rfm_TableMetadata second("SECOND", 1);
        const int b = second.DefineDoubleField("b");
        const rfm_TableMetadata& boundFirst = database.Bind(first);
        const rfm_TableMetadata& boundSecond = database.Bind(second);
        {
            rfm_Table one = database.Table(boundFirst, -1, -1);
            one.NewRow();
            one.Flush();
            rfm_Table two = database.Table(boundSecond, -1, -1);
            two.NewRow().WriteFieldDouble(b, 2.5);
            two.Flush();
        }
        database.Close();
    }
    ASSERT_EQ(Copy({"SECOND"}).code, 0);
    EXPECT_EQ(Tool::Run({"dump", m_Out, "SECOND"}).out, "row\tb\n0\t2.5\n");
    EXPECT_EQ(Tool::Run({"dump", m_Out, "FIRST"}).code, 3);
    EXPECT_EQ(Tool::Run({"check", m_Out}).code, 0);
}

TEST_F(RfmCopy, FromEachKindToEachKind)
{
    for (const std::string& first : kKinds)
        for (const std::string& second : kKinds)
        {
            const std::string from = m_Folder / "from";
            ASSERT_EQ(Tool::Run({"convert", m_In, from, "--to", first, "-f"}).code, 0);
            EXPECT_EQ(Tool::Run({"copy", from, m_Out, "?", "--to", second, "-f"}).code, 0) << first << second;
            EXPECT_THAT(Tool::Run({"info", m_Out}).out, HasSubstr("\nkind\t" + second + " database"));
            EXPECT_EQ(Tool::Run({"hash", m_Out}).out, Tool::Run({"hash", m_In}).out) << first << second;
        }
}

TEST_F(RfmCopy, JsonNamesTheHandles)
{
    std::string hash = Tool::Run({"hash", m_In}).out;
    hash.pop_back();
    EXPECT_EQ(Copy({"*", "--json"}).out,
              "{\"rfm\":1,\"command\":\"copy\",\"file\":\"" + m_In + "\",\"out\":\"" + m_Out +
                  "\",\"to\":\"plain\",\"objects\":[4,5,6,7,8,9],\"bytesAfter\":15872,\"hash\":\"" + hash +
                  "\"}\n");
}

TEST_F(RfmCopy, WhatCantBeCopiedIsRefusedAndNothingIsLeft)
{
    EXPECT_EQ(Copy({"MODES"}).err, "rfm: " + m_In + ": no table has the name MODES; did you mean NODES?\n");
    EXPECT_EQ(Copy({"700"}).code, 3);
    EXPECT_EQ(Copy({}).code, 2);
    const ToolResult field = Copy({"NODES.x"});
    EXPECT_EQ(field.code, 2);
    EXPECT_THAT(field.err,
                HasSubstr("handle 4: single fields can't be copied; give the table or array alone\n"));
    EXPECT_THAT(Copy({"1"}).err,
                HasSubstr("handle 1: is the library's own; texts and layouts come with what needs them\n"));
    EXPECT_EQ(Copy({"4", "--to", "zip"}).code, 2);
    EXPECT_EQ(Tool::Run({"copy", m_In, m_In, "4", "-f"}).code, 2);
    EXPECT_THAT(Names(), ElementsAre("in.rdx"));
}

TEST_F(RfmCopy, ADamagedObjectIsRefusedAndTheOthersCanStillBeCopied)
{
    Overwrite<int>(m_In, ExtentOfEntry(m_In, 6) + 8, 17);
    const ToolResult refused = Copy({"6"});
    EXPECT_EQ(refused.code, 4);
    EXPECT_THAT(refused.err, HasSubstr("handle 6: the header of the array is damaged; "));
    EXPECT_EQ(Copy({"NODES", "8"}).code, 0);
}

TEST_F(RfmCopy, BytesOfInThatCanNotBeReadAreDamageOfIn)
{
    std::filesystem::remove(m_In);
    MakeDamagedNumbers(m_In);
    const ToolResult result = Copy({"4"});
    EXPECT_EQ(result.code, 4);
    EXPECT_EQ(result.err, "rfm: " + m_In + ": VDX database is corrupt; `rfm check` tells what is damaged\n");
    EXPECT_EQ(result.err, Tool::Run({"convert", m_In, m_Out, "--to", "plain"}).err);
    EXPECT_THAT(Names(), ElementsAre("in.rdx"));
}

TEST_F(RfmCopy, AFullDiskIsExitSevenAndLeavesNothing)
{
    for (const std::string& kind : kKinds)
    {
        const FileSizeLimit limit(4096);
        const ToolResult result = Copy({"4", "--to", kind});
        EXPECT_EQ(result.code, 7) << kind;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        EXPECT_THAT(Names(), ElementsAre("in.rdx")) << kind;
    }
    EXPECT_EQ(Tool::Run({"copy", m_In, m_Out, "4"}, "", "/dev/full").code, 7);
}

TEST_F(RfmCopy, AnInterruptedRunLeavesNothing)
{
    MakeEndless(m_In);
    for (const std::string& kind : kKinds)
    {
        const FolderWatch watch(m_Folder / "");
        Tool tool({"copy", m_In, m_Out, "9", "--to", kind});
        watch.WaitForAWrite();
        tool.Signal(SIGINT);
        EXPECT_EQ(tool.Finish().code, 130) << kind;
        EXPECT_THAT(Names(), ElementsAre("in.rdx")) << kind;
    }
}
} // namespace
