// `rfm head`, `tail`, `rows --where`, `value`, `stats`, `schema`, and that all of them see the same in each kind of
// file.
#include "NewFiles.h"
#include "SampleDatabase.h"
#include "ToolRunner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{
using testing::HasSubstr;
using testing::StartsWith;

class RfmRows : public testing::Test
{
protected:
    RfmRows() { MakeSample(m_File); }

    std::string Out(Tool::Words words, int code = 0) const
    {
        words.insert(words.begin() + 1, m_File);
        const ToolResult result = Tool::Run(words);
        EXPECT_EQ(result.code, code) << result.err;
        return result.out;
    }
    // The line behind "rfm: FILE: ".
    std::string Refusal(Tool::Words words, int code) const
    {
        words.insert(words.begin() + 1, m_File);
        const ToolResult result = Tool::Run(words);
        EXPECT_EQ(result.code, code);
        EXPECT_EQ(result.out, "");
        return result.err;
    }

    TestFolder m_Folder;
    std::string m_File = m_Folder / "s.rdx";
};

TEST_F(RfmRows, WhereKeepsTheRowsForWhichItHoldsUnderTheirNumbers)
{
    EXPECT_EQ(Out({"rows", "4", "--where", "x > 1 and not present(link)", "--fields", "id"}),
              "row\tid\n1\t20\n2\t30\n");
    EXPECT_EQ(Out({"rows", "4.id", "--where", "present(name)", "-n", "1"}), "row\tid\n0\t10\n");
    EXPECT_EQ(Out({"rows", "4.id", "--where", "row >= 1", "--from", "2"}), "row\tid\n2\t30\n");
    EXPECT_EQ(Out({"rows", "4.id", "--where", "weight == 0.1 and id < 15"}), "row\tid\n0\t10\n");
    EXPECT_EQ(Out({"rows", "6", "--where", "[0] + [1] > 5"}), "row\t0\t1\n1\t3\t4\n2\t5.5\t-0\n");
    EXPECT_EQ(Out({"rows", "7", "--where", "value ~ 'two*'"}), "row\t0\n1\ttwo, \"three\"\n");
    EXPECT_EQ(Out({"rows", "8", "--where", "type == 'double' or value == 'text'"}),
              "row\ttype\tid\tvalue\n2\tdouble\t3\t0.3333333333333333\n4\tstring\t5\ttext\n");
}

TEST_F(RfmRows, FieldsAreShownInTheOrderAskedFor)
{
    EXPECT_EQ(Out({"rows", "4", "--fields", "x,id", "-n", "1"}), "row\tx\tid\n0\t0.1\t10\n");
    EXPECT_EQ(Out({"rows", "6", "--fields", "1", "-n", "1"}), "row\t1\n0\t2\n");
    EXPECT_EQ(Refusal({"rows", "4", "--fields", "x,ib"}, 3),
              "rfm: " + m_File + ": table NODES has no field ib; did you mean id?\n");
    EXPECT_EQ(Refusal({"rows", "4.x", "--fields", "id"}, 2),
              "rfm: 4.x: names fields, and --fields too; give one of them\n");
    EXPECT_EQ(Refusal({"rows", "4", "--where", "ib > 3"}, 3),
              "rfm: --where 'ib > 3': at 1: there is no field ib; did you mean id?\n");
    EXPECT_EQ(Refusal({"rows", "4", "--where", "id >"}, 2),
              "rfm: --where 'id >': at its end: expected a field, a number or a text; docs/cli.md tells what "
              "can be "
              "asked\n");
}

TEST_F(RfmRows, HeadAndTailShowTheFirstAndLastRowsThatAreWanted)
{
    EXPECT_EQ(Out({"head", "4.id", "-n", "2"}), "row\tid\n0\t10\n1\t20\n");
    EXPECT_EQ(Out({"tail", "4.id", "-n", "2"}), "row\tid\n1\t20\n2\t30\n");
    EXPECT_EQ(Out({"tail", "4.id"}), Out({"head", "4.id"}));
    EXPECT_EQ(Out({"tail", "4.id", "-n", "1", "--where", "id < 30"}), "row\tid\n1\t20\n");
    EXPECT_EQ(Out({"tail", "8", "-n", "2"}), "row\ttype\tid\tvalue\n3\thandle\t4\t4\n4\tstring\t5\ttext\n");
    EXPECT_EQ(Out({"tail", "4.id", "-n", "0"}), "row\tid\n");
    EXPECT_EQ(Out({"tail", "9", "-n", "1"}), "offset\tbytes\ttext\n16\t74 73 20 6f 77 6e\tts own\n");
}

TEST_F(RfmRows, HeadAndTailAreTenRowsLong)
{
    {
        rfm_Database database = CreateDatabase(m_File);
        auto numbers = database.ArrayInt(1, -1, 0);
        std::vector<int> values(25);
        for (std::size_t i = 0; i < values.size(); ++i) values[i] = static_cast<int>(100 + i);
        numbers.Write(values.data(), 25);
        numbers.Flush();
    }
    EXPECT_THAT(Out({"head", "4"}), testing::EndsWith("\n9\t109\n"));
    EXPECT_THAT(Out({"tail", "4"}), testing::StartsWith("row\t0\n15\t115\n"));
}

TEST_F(RfmRows, ValueIsOneBareValue)
{
    EXPECT_EQ(Out({"value", "4.id"}), "10\n");
    EXPECT_EQ(Out({"value", "4.id", "--row", "-1"}), "30\n");
    EXPECT_EQ(Out({"value", "4.weight", "--row", "1"}), "0.1\n");
    EXPECT_EQ(Out({"value", "4.name"}), "a\tb\n"); // byte by byte
    EXPECT_EQ(Out({"value", "4.x", "--where", "id == 20"}), "1e+300\n");
    EXPECT_EQ(Out({"value", "7", "--row", "1"}), "two, \"three\"\n");
    EXPECT_EQ(Out({"value", "8", "--fields", "value", "--row", "-1"}), "text\n");
    EXPECT_EQ(Out({"value", "4.id", "--json"}), "{\"rfm\":1,\"command\":\"value\",\"file\":\"" + m_File +
                                                    "\",\"handle\":4,\"row\":0,\"value\":10}\n");
}

TEST_F(RfmRows, OfADamagedArrayAllRowsInFrontOfTheDamageAreShown)
{
    const int damaged = MakeDamagedNumbers(m_File);
    ASSERT_GT(damaged, 1000);
    const std::string why = "rfm: " + m_File + ": handle 4, row " + std::to_string(damaged) +
                            ": VDX database is corrupt; `rfm check` tells what is damaged\n";
    const ToolResult rows = Tool::Run({"rows", m_File, "4"});
    EXPECT_EQ(rows.code, 4);
    EXPECT_EQ(rows.err, why);
    EXPECT_EQ(std::count(rows.out.begin(), rows.out.end(), '\n'), 1 + damaged);

    const std::string from = std::to_string(damaged - 2);
    const ToolResult last = Tool::Run({"rows", m_File, "4", "--from", from});
    EXPECT_EQ(last.err, why);
    EXPECT_THAT(last.out, StartsWith("row\t0\n" + from + "\t"));
    EXPECT_EQ(std::count(last.out.begin(), last.out.end(), '\n'), 3);
    const std::string screen = Tool::RunOnTerminal({"rows", m_File, "4", "--from", from}, 24, 200).out;
    EXPECT_EQ(std::count(screen.begin(), screen.end(), '\n'), 4) << screen;
    EXPECT_THAT(screen, HasSubstr(why.substr(0, why.size() - 1)));

    EXPECT_EQ("row\t0\n" + from + "\t" + Out({"value", "4", "--row", from}),
              last.out.substr(0, last.out.find('\n', 6) + 1));
    EXPECT_EQ(Refusal({"value", "4", "--row", std::to_string(damaged)}, 4), why);
}

TEST_F(RfmRows, AValueThatIsNotThereIsExitOne)
{
    EXPECT_EQ(Refusal({"value", "4.link", "--row", "1"}, 1),
              "rfm: " + m_File +
                  ": 4.link: row 1 has no data there; `present(FIELD)` in --where finds rows that have\n");
    for (const Tool::Words& words :
         {Tool::Words{"value", "4.id", "--row", "3"}, {"value", "4.id", "--row", "-4"}})
        EXPECT_EQ(Refusal(words, 1),
                  "rfm: " + m_File + ": 4.id: there is no such row; `rfm ls` tells how many there are\n");
    EXPECT_EQ(Refusal({"value", "4.id", "--where", "id > 100"}, 1),
              "rfm: " + m_File + ": 4.id: no row fits; `rfm stats` tells which values there are\n");
    EXPECT_EQ(Refusal({"value", "4"}, 2),
              "rfm: 4: has 5 fields, and a value is of one; give one, as in TABLE.FIELD; "
              "`rfm schema` lists them\n");
}

TEST_F(RfmRows, StatsHasALineForEachFieldAndEachArray)
{
    EXPECT_EQ(Out({"stats", "4", "6", "7"}),
              "handle\tobject\tfield\ttype\trows\tpresent\tminimum\tmaximum\tmean\n"
              "4\tNODES\tid\tint\t3\t3\t10\t30\t20\n"
              "4\tNODES\tlink\thandle\t3\t1\t6\t6\t6\n"
              "4\tNODES\tname\tstring\t3\t2\t\t\t\n"
              "4\tNODES\tweight\tfloat\t3\t3\t0.1\t0.1\t0.10000000149011612\n"
              "4\tNODES\tx\tdouble\t3\t3\t0.1\t1e+300\t6.666666666666667e+299\n"
              "6\tdouble array\t\tdouble\t3\t6\t-0\t5.5\t2.5833333333333335\n"
              "7\tstring array\t\tstring\t2\t2\t\t\t\n");
    EXPECT_EQ(Out({"stats", "6.1"}), "handle\tobject\tfield\ttype\trows\tpresent\tminimum\tmaximum\tmean\n"
                                     "6\tdouble array\t1\tdouble\t3\t3\t-0\t4\t2\n");
    EXPECT_THAT(Out({"stats"}), HasSubstr("\n8\tstream\tid\tint\t5\t5\t1\t5\t3\n"));
    EXPECT_THAT(Out({"stats", "5", "--json"}),
                HasSubstr("[5,\"NODES\",\"id\",\"int\",0,0,null,null,null],\n"));
}

TEST_F(RfmRows, StatsLeavesOutWhatIsNoNumberAndLosesNothingInLongSums)
{
    {
        rfm_Database database = CreateDatabase(m_File);
        auto numbers = database.ArrayDouble(1, 1 << 16, 0);
        std::vector<double> values(100000, 0.1);
        values.push_back(std::numeric_limits<double>::quiet_NaN());
        numbers.Write(values.data(), static_cast<int>(values.size()));
        numbers.Flush();
    }
    EXPECT_THAT(Out({"stats", "4"}), HasSubstr("double\t100001\t100001\t0.1\t0.1\t0.1\n"));
}

TEST_F(RfmRows, StatsGoesOnPastADamagedObjectAndAnswersOne)
{
    Overwrite<int>(m_File, ExtentOfEntry(m_File, 5) + 8, 400); // the twin's layout
    const ToolResult result = Tool::Run({"stats", m_File});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.out, HasSubstr("\n6\tdouble array\t"));
    EXPECT_EQ(result.err,
              "rfm: " + m_File +
                  ": handle 5, row 0: Can't find metadata with handle; `rfm check` tells what is damaged\n");
}

TEST_F(RfmRows, SchemaShowsTheLayouts)
{
    EXPECT_EQ(Out({"schema"}),
              "layout\tfield\ttype\nNODES\tid\tint\nNODES\tlink\thandle\nNODES\tname\tstring\n"
              "NODES\tweight\tfloat\nNODES\tx\tdouble\n");
    EXPECT_EQ(Out({"schema", "N*", "--json"}),
              "{\"rfm\":1,\"command\":\"schema\",\"file\":\"" + m_File +
                  "\",\"columns\":[{\"name\":\"layout\",\"type\":\"string\"},{\"name\":\"field\",\"type\":"
                  "\"string\"},"
                  "{\"name\":\"type\",\"type\":\"string\"}],\"rows\":[\n[\"NODES\",\"id\",\"int\"],\n"
                  "[\"NODES\",\"link\",\"handle\"],\n[\"NODES\",\"name\",\"string\"],\n[\"NODES\",\"weight\","
                  "\"float\"],\n"
                  "[\"NODES\",\"x\",\"double\"]\n]}\n");
    EXPECT_EQ(Refusal({"schema", "NODE"}, 3),
              "rfm: " + m_File + ": there is no layout NODE; did you mean NODES?\n");
}

TEST_F(RfmRows, EachKindOfFileShowsTheSame)
{
    for (const std::string& kind : kKinds)
    {
        const std::string other = m_Folder / (kind + ".rdx");
        ASSERT_EQ(Tool::Run({"convert", m_File, other, "--to", kind}).code, 0);
        for (const Tool::Words& words : {Tool::Words{"rows", "4"},
                                         {"head", "6"},
                                         {"tail", "8"},
                                         {"value", "4.name"},
                                         {"stats"},
                                         {"schema"},
                                         {"ls"},
                                         {"rows", "9"}})
        {
            Tool::Words there = words;
            there.insert(there.begin() + 1, other);
            EXPECT_EQ(Tool::Run(there).out, Out(words)) << kind << ' ' << words.front();
        }
        EXPECT_THAT(Tool::Run({"info", other}).out, HasSubstr("kind\t" + kind + " database, version 12\n"));
    }
}

TEST_F(RfmRows, ATerminalGetsAStrongFirstLineUnlessColoursAreUnwanted)
{
    const auto onTerminal = [&](const char* name, const char* value)
    {
        return Tool::RunOnTerminal({"head", m_File, "4.id", "-n", "1"}, 24, 80,
                                   {{"TERM", "xterm"}, {"NO_COLOR", ""}, {"PAGER", "cat"}, {name, value}})
            .out;
    };
    EXPECT_EQ(onTerminal("PAGER", "cat"), "\x1b[1mrow  id\x1b[0m\r\n  0  10\r\n");
    EXPECT_EQ(onTerminal("NO_COLOR", "1"), "row  id\r\n  0  10\r\n");
    EXPECT_EQ(onTerminal("TERM", "dumb"), "row  id\r\n  0  10\r\n");
}

TEST_F(RfmRows, MoreThanAScreenThatWasAskedForGoesThroughThePagerWithWholeLines)
{
    const std::vector<std::pair<const char*, const char*>> environment{{"NO_COLOR", "1"},
                                                                       {"PAGER", "sed s/^/p:/"}};
    EXPECT_EQ(Tool::RunOnTerminal({"rows", m_File, "4", "--all"}, 5, 20, environment).out,
              "p:row  id  link  name  weight       x\r\n"
              "p:  0  10     6  a\\tb     0.1     0.1\r\n"
              "p:  1  20                 0.1  1e+300\r\n"
              "p:  2  30                 0.1  1e+300\r\n");
    EXPECT_THAT(Tool::RunOnTerminal({"rows", m_File, "4.id", "-n", "3"}, 5, 80, environment).out,
                HasSubstr("p:  2  30\r\n"));
    EXPECT_EQ(Tool::RunOnTerminal({"rows", m_File, "4.id", "-n", "2"}, 5, 80, environment).out,
              "row  id\r\n  0  10\r\n  1  20\r\n");
    EXPECT_THAT(Tool::RunOnTerminal({"ls", m_File, "--all"}, 5, 80, environment).out,
                HasSubstr("p:     9  space"));
}

TEST_F(RfmRows, AListOfObjectsStaysOnOneScreen)
{
    const std::string out = Tool::RunOnTerminal({"ls", m_File}, 5, 80).out;
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 4) << out;
    EXPECT_THAT(out, testing::EndsWith("rfm: there is more: 6 lines in all; --all shows it\r\n"));
    const std::string stats = Tool::RunOnTerminal({"stats", m_File}, 5, 200).out;
    EXPECT_EQ(std::count(stats.begin(), stats.end(), '\n'), 4) << stats;
    EXPECT_THAT(stats, testing::EndsWith("rfm: there is more: 15 lines in all; --all shows it\r\n"));
    const std::string all = Tool::RunOnTerminal({"stats", m_File, "--all"}, 5, 200).out;
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 16) << all;
    EXPECT_THAT(Tool::RunOnTerminal({"schema", m_File}, 5, 80).out,
                testing::EndsWith("rfm: there is more: 5 lines in all; --all shows it\r\n"));
}
} // namespace
