// `rfm diff`: what differs between two databases, and what does not count.
#include "NewFiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <limits>

namespace
{
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr float kFloatNan = std::numeric_limits<float>::quiet_NaN();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

/// A table STEPS (4), an array of 2 doubles in a row (5), an array of strings (6), a stream (7), a space (8).
struct Content
{
    std::vector<int> ids{1, 2, 3};
    std::vector<double> x{0.5, 1.5, kNan};
    std::vector<bool> hasName{true, false, true};
    std::string name = "bolt";
    std::vector<double> pairs{1, 2, 3, 4};
    std::vector<std::string> words{"one", "two"};
    std::vector<int> items{7, 8};
    std::string bytes = "plain bytes";
    std::uint32_t link = 5;
    int fillers = 0; // spaces in front of the array, so that handles shift
    bool hasExtraField = false;
};

void Write(const std::string& path, const Content& content)
{
    rfm_Database database = CreateDatabase(path);
    rfm_TableMetadata layout("STEPS", 1);
    const int id = layout.DefineIntField("id");
    const int x = layout.DefineDoubleField("x");
    const int name = layout.DefineStringField("name");
    const int link = layout.DefineHandleField("link");
    const int weight = layout.DefineFloatField("weight");
    if (content.hasExtraField) layout.DefineIntField("extra");
    const rfm_TableMetadata& bound = database.Bind(layout);
    {
        rfm_Table table = database.Table(bound, -1, -1);
        for (std::size_t i = 0; i < content.ids.size(); ++i)
        {
            rfm_Row row = table.NewRow();
            row.WriteFieldInt(id, content.ids[i]);
            row.WriteFieldDouble(x, content.x[i]);
            if (content.hasName[i]) row.WriteFieldString(name, cow_String(content.name));
            row.WriteFieldHandle(link, rfm_Handle(content.link));
            row.WriteFieldFloat(weight, kFloatNan);
        }
        table.Flush();
        for (int i = 0; i < content.fillers; ++i) database.Space(-1);
        auto pairs = database.ArrayDouble(2, -1, 0);
        if (!content.pairs.empty())
            pairs.Write(content.pairs.data(), static_cast<int>(content.pairs.size() / 2));
        pairs.Flush();
        auto words = database.ArrayString(1, -1, 0);
        for (const std::string& word : content.words)
        {
            const cow_String text(word);
            words.Write(&text, 1);
        }
        words.Flush();
        rfm_TaggedStream stream = database.TaggedStream(0);
        for (const int item : content.items) stream.WriteInt(1, item);
        stream.Flush();
        rfm_Space space = database.Space(-1);
        space.Write(content.bytes.data(), static_cast<int>(content.bytes.size()));
    }
    database.Close();
}

class RfmDiff : public testing::Test
{
protected:
    // The answer to a change of the one content.
    ToolResult Diff(const std::function<void(Content&)>& change, const Tool::Words& more = {})
    {
        Content content;
        Write(m_A, content);
        change(content);
        Write(m_B, content);
        return Again(more);
    }
    ToolResult Again(const Tool::Words& more = {})
    {
        Tool::Words words{"diff", m_A, m_B};
        words.insert(words.end(), more.begin(), more.end());
        ToolResult result = Tool::Run(words);
        EXPECT_EQ(result.err, "");
        return result;
    }

    TestFolder m_Folder;
    std::string m_A = m_Folder / "a.rdx";
    std::string m_B = m_Folder / "b.rdx";
};

constexpr const char* kAllEqual = "object\t4\ttable STEPS\tequal\n"
                                  "object\t5\tdouble array of 2\tequal\n"
                                  "object\t6\tstring array\tequal\n"
                                  "object\t7\tstream\tequal\n"
                                  "object\t8\tspace\tequal\n";

TEST_F(RfmDiff, TheSameContentIsExitZeroAlsoWithNanInIt)
{
    const ToolResult result = Diff([](Content&) {});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.out, std::string(kAllEqual) + "same: 5 objects\n");
}

TEST_F(RfmDiff, EachKindOfFileIsTheSameAsEachOther)
{
    Diff([](Content&) {});
    for (const std::string& first : kKinds)
        for (const std::string& second : kKinds)
        {
            ASSERT_EQ(Tool::Run({"convert", m_B, m_Folder / "x", "--to", first, "-f"}).code, 0);
            ASSERT_EQ(Tool::Run({"convert", m_A, m_Folder / "y", "--to", second, "-f"}).code, 0);
            const ToolResult result = Tool::Run({"diff", m_Folder / "x", m_Folder / "y"});
            EXPECT_EQ(result.code, 0) << first << " " << second;
            EXPECT_THAT(result.out, EndsWith("same: 5 objects\n"));
        }
}

TEST_F(RfmDiff, ValuesAreToldWithTheirPlaceAndTheWorstOfAll)
{
    const ToolResult result = Diff(
        [](Content& content)
        {
            content.x = {0.5, 2, 7};
            content.pairs[3] = 4.25;
            content.words[1] = "zwei";
            content.items[0] = 9;
        });
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.out, "value\t4\trow 1, x\t1.5\t2\n"
                          "value\t4\trow 2, x\tnan\t7\n"
                          "object\t4\ttable STEPS\t2 differences, worst inf at row 2, x\n"
                          "value\t5\trow 1, 1\t4\t4.25\n"
                          "object\t5\tdouble array of 2\t1 difference, worst 0.25 at row 1, 1\n"
                          "value\t6\trow 1\t\"two\"\t\"zwei\"\n"
                          "object\t6\tstring array\t1 difference\n"
                          "value\t7\titem 0\t7\t9\n"
                          "object\t7\tstream\t1 difference, worst 2 at item 0\n"
                          "object\t8\tspace\tequal\n"
                          "different: 4 of 5 pairs with 5 differences, worst inf at row 2, x of handle 4\n");
}

TEST_F(RfmDiff, AFieldWithDataDiffersFromOneWithoutAndFromAnEmptyText)
{
    EXPECT_THAT(
        Diff(
            [](Content& content) {
                content.hasName = {true, true, false};
            })
            .out,
        StartsWith("value\t4\trow 1, name\tno data\t\"bolt\"\nvalue\t4\trow 2, name\t\"bolt\"\tno data\n"));
    EXPECT_THAT(Diff([](Content& content) { content.name = ""; }).out,
                StartsWith("value\t4\trow 0, name\t\"bolt\"\t\"\"\n"));
}

TEST_F(RfmDiff, NumbersWithinATolerancePassAndThoseBehindItDont)
{
    const auto change = [](Content& content) { content.pairs = {1, 2, 3, 4.004}; };
    EXPECT_EQ(Diff(change).code, 1);
    EXPECT_EQ(Again({"--rtol", "1e-3"}).code, 0);
    EXPECT_EQ(Again({"--rtol", "0.0009"}).code, 1);
    EXPECT_EQ(Again({"--atol", "0.0041"}).code, 0);
    EXPECT_EQ(Again({"--atol", "0.0039"}).code, 1);
    EXPECT_EQ(Again({"--atol", "0.002", "--rtol", "0.0006"}).code, 0);
    const double infinite = std::numeric_limits<double>::infinity();
    EXPECT_EQ(Diff([&](Content& content) { content.pairs[0] = infinite; }, {"--rtol", "1e300"}).code, 1);
    EXPECT_EQ(Diff([](Content& content) { content.ids[0] = 2; }, {"--atol", "5"}).code, 1) << "of an int";
}

TEST_F(RfmDiff, NegativeZeroIsZero)
{
    Content content;
    content.pairs[0] = 0.0;
    Write(m_A, content);
    content.pairs[0] = -0.0;
    Write(m_B, content);
    EXPECT_EQ(Again().code, 0);
}

TEST_F(RfmDiff, IgnoredFieldsDontCountAndAnUnknownOneIsRefused)
{
    const auto change = [](Content& content)
    {
        content.x[0] = 9;
        content.name = "nut";
        content.hasExtraField = true;
    };
    EXPECT_EQ(Diff(change, {"--ignore", "x,na*,extra"}).code, 0);
    EXPECT_THAT(Again({"--ignore", "x"}).out, Not(HasSubstr(", x")));
    const ToolResult refused = Tool::Run({"diff", m_A, m_B, "--ignore", "nmae"});
    EXPECT_EQ(refused.code, 3);
    EXPECT_EQ(refused.err, "rfm: --ignore nmae: no layout has such a field; did you mean name?\n");
}

TEST_F(RfmDiff, RowsAreFoundByKeyWhereverTheyStand)
{
    const auto change = [](Content& content)
    {
        content.ids = {3, 1, 4};
        content.x = {kNan, 0.75, 1};
        content.hasName = {true, true, true};
    };
    const ToolResult result = Diff(change, {"--key", "id"});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.out, StartsWith("value\t4\tkey 1, x\t0.5\t0.75\n"
                                       "value\t4\tkey 2\trow 1\tmissing\n"
                                       "value\t4\tkey 4\tmissing\trow 2\n"
                                       "object\t4\ttable STEPS\t3 differences, worst 0.25 at key 1, x\n"));
    EXPECT_EQ(Tool::Run({"diff", m_A, m_B, "--key", "nix"}).code, 3);
}

TEST_F(RfmDiff, RowsWithOneKeyGoTogetherInTheirOrder)
{
    Content content;
    content.ids = {1, 1, 2};
    content.x = {1, 2, 3};
    content.hasName = {true, true, true};
    Write(m_A, content);
    content.ids = {2, 1, 1};
    content.x = {3, 1, 5};
    Write(m_B, content);
    const ToolResult result = Again({"--key", "id,name"});
    EXPECT_THAT(result.out,
                StartsWith("value\t4\tkey 1,bolt, x\t2\t5\nobject\t4\ttable STEPS\t1 difference, "));
}

TEST_F(RfmDiff, WhatTheLongerOneHasBehindTheOtherIsOneDifference)
{
    const ToolResult result = Diff(
        [](Content& content)
        {
            content.ids.resize(1);
            content.pairs.insert(content.pairs.end(), {5, 6, 7, 8});
            content.items.push_back(9);
            content.bytes += "!";
        });
    EXPECT_THAT(result.out, HasSubstr("value\t4\trows 1 to 2\tthere\tmissing\n"));
    EXPECT_THAT(result.out, HasSubstr("value\t5\trows 2 to 3\tmissing\tthere\n"));
    EXPECT_THAT(result.out, HasSubstr("value\t7\titem 2\tmissing\tthere\n"));
    EXPECT_THAT(result.out, HasSubstr("value\t8\tbyte 11\tmissing\tthere\n"));
}

TEST_F(RfmDiff, BytesThatDifferAreToldInRuns)
{
    EXPECT_THAT(Diff([](Content& content) { content.bytes = "plain BYTEs"; }).out,
                HasSubstr("value\t8\tbytes 6 to 9\t62 79 74 65\t42 59 54 45\n"));
}

TEST_F(RfmDiff, LayoutsAreComparedByName)
{
    const ToolResult result = Diff([](Content& content) { content.hasExtraField = true; });
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.out, "layout\tSTEPS\tfield extra only in B\n" + std::string(kAllEqual) +
                              "different: 0 of 5 pairs with 0 differences, 1 difference of layouts\n");
    MakeSample(m_B);
    EXPECT_THAT(Again().out, HasSubstr("layout\tNODES\tonly in B\nlayout\tSTEPS\tonly in A\n"));
}

TEST_F(RfmDiff, ObjectsOfOneSideComeFirst)
{
    const ToolResult result = Diff([](Content& content) { content.fillers = 1; }, {"--pair", "handle"});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.out,
                StartsWith("only in A\t5\tdouble array of 2, 2 rows\nonly in A\t6\tstring array, 2 rows\n"
                           "only in A\t7\tstream, 32 bytes\n"
                           "only in A\t8\tspace, 11 bytes\nonly in B\t5\tspace, 0 bytes\n"));
}

// Handles that lead to a pair are the same wherever the pair lies.
TEST_F(RfmDiff, ObjectsWhoseHandlesHaveShiftedArePairedByOrder)
{
    const ToolResult result = Diff(
        [](Content& content)
        {
            content.fillers = 2;
            content.link = 7; // the array of pairs
            content.pairs[0] = 2;
        });
    EXPECT_THAT(result.out, HasSubstr("object\t4\ttable STEPS\tequal\n"));
    EXPECT_THAT(result.out, HasSubstr("value\t5|7\trow 0, 0\t1\t2\n"));
    EXPECT_THAT(result.out, HasSubstr("only in B"));
    EXPECT_THAT(Diff([](Content& content) { content.link = 6; }).out,
                StartsWith("value\t4\trow 0, link\t5\t6\n"));
}

TEST_F(RfmDiff, JsonHasItsVersionAndAllParts)
{
    const ToolResult result = Diff(
        [](Content& content)
        {
            content.x[1] = 2;
            content.hasExtraField = true;
        },
        {"--json"});
    const std::string worst = "{\"place\":\"row 1, x\",\"a\":1.5,\"b\":2,\"distance\":0.5}";
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(
        result.out,
        "{\"rfm\":1,\"command\":\"diff\",\"a\":\"" + m_A + "\",\"b\":\"" + m_B +
            "\",\n\"onlyInA\":[],\n\"onlyInB\":[],\n\"layouts\":[\n{\"layout\":\"STEPS\",\"what\":\"field "
            "extra only in "
            "B\"}],\n\"objects\":[\n"
            "{\"handleA\":4,\"handleB\":4,\"type\":\"table\",\"layout\":\"STEPS\",\"rows\":3,\"values\":[\n"
            "{\"place\":\"row 1, x\",\"a\":1.5,\"b\":2}],\"count\":1,\"worst\":" +
            worst +
            "},\n"
            "{\"handleA\":5,\"handleB\":5,\"type\":\"double "
            "array\",\"rows\":2,\"values\":[],\"count\":0,\"worst\":null},\n"
            "{\"handleA\":6,\"handleB\":6,\"type\":\"string "
            "array\",\"rows\":2,\"values\":[],\"count\":0,\"worst\":null},\n"
            "{\"handleA\":7,\"handleB\":7,\"type\":\"stream\",\"bytes\":32,\"values\":[],\"count\":0,"
            "\"worst\":null},\n"
            "{\"handleA\":8,\"handleB\":8,\"type\":\"space\",\"bytes\":11,\"values\":[],\"count\":0,"
            "\"worst\":null}],"
            "\"same\":false,\"count\":1,\"worst\":" +
            worst + "}\n");
}

TEST_F(RfmDiff, ATerminalGetsAScreenAndNTellsHowMany)
{
    Content content;
    content.pairs.assign(200, 0);
    Write(m_A, content);
    content.pairs.assign(200, 1);
    Write(m_B, content);
    const ToolResult screen = Tool::RunOnTerminal({"diff", m_A, m_B}, 24, 80);
    EXPECT_EQ(screen.code, 1);
    EXPECT_LE(std::count(screen.out.begin(), screen.out.end(), '\n'), 24);
    EXPECT_THAT(screen.out, HasSubstr("and 180 values more; --all tells them"));
    const std::string two = Again({"-n", "2"}).out;
    EXPECT_THAT(two, StartsWith("object\t4\ttable STEPS\tequal\nvalue\t5\trow 0, 0\t0\t1\nvalue\t5\trow 0, "
                                "1\t0\t1\nobject\t5\t"));
    EXPECT_THAT(two, HasSubstr("\nand 198 values more; --all tells them\n"));
}

TEST_F(RfmDiff, AFullDiskIsExitSevenAndAMissingOrDamagedFileIsTold)
{
    Diff([](Content& content) { content.x[0] = 1; });
    EXPECT_EQ(Tool::Run({"diff", m_A, m_B}, "", "/dev/full").code, 7);
    EXPECT_EQ(Tool::Run({"diff", m_A, m_Folder / "none"}).code, 3);
    EXPECT_EQ(Tool::Run({"diff", m_A}).code, 2);
    WriteFile(m_B, "something else");
    EXPECT_EQ(Tool::Run({"diff", m_A, m_B}).code, 4);
}

TEST_F(RfmDiff, CtrlCIsExit130)
{
    MakeEndless(m_A);
    MakeEndless(m_B);
    Tool tool({"diff", m_A, m_B});
    tool.Signal(SIGINT);
    EXPECT_EQ(tool.Finish().code, 130);
}
} // namespace
