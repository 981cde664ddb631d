// `rfm rows`, by its other name `dump`, and `rfm ls`: literal output of each kind of object in each style.
#include "SampleDatabase.h"
#include "ToolRunner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <vector>

namespace
{
using testing::HasSubstr;
using testing::StartsWith;

class RfmDump : public testing::Test
{
protected:
    RfmDump() { MakeSample(m_File); }

    std::string Dump(Tool::Words words)
    {
        words.insert(words.begin(), {"dump", m_File});
        const ToolResult result = Tool::Run(words);
        EXPECT_EQ(result.code, 0) << result.err;
        return result.out;
    }
    std::string JsonName() const { return '"' + m_File + '"'; }

    TestFolder m_Folder;
    std::string m_File = m_Folder / "s.rdx";
};

TEST_F(RfmDump, ATableOnAPipeHasTabsBetweenItsCellsAndEscapesInThem)
{
    EXPECT_EQ(Dump({"4"}), "row\tid\tlink\tname\tweight\tx\n"
                           "0\t10\t6\ta\\tb\t0.1\t0.1\n"
                           "1\t20\t\t\t0.1\t1e+300\n"
                           "2\t30\t\t\t0.1\t1e+300\n");
}

TEST_F(RfmDump, CsvTellsAnEmptyTextFromOneThatIsAbsent)
{
    EXPECT_EQ(Dump({"4", "--csv"}), "row,id,link,name,weight,x\n"
                                    "0,10,6,a\tb,0.1,0.1\n"
                                    "1,20,,,0.1,1e+300\n"
                                    "2,30,,\"\",0.1,1e+300\n");
}

TEST_F(RfmDump, JsonHasAVersionColumnsAndRows)
{
    EXPECT_EQ(
        Dump({"4", "--json"}),
        "{\"rfm\":1,\"command\":\"rows\",\"file\":" + JsonName() +
            ",\"handle\":4,\"type\":\"table\",\"layout\":\"NODES\",\"columns\":["
            "{\"name\":\"row\",\"type\":\"int\"},{\"name\":\"id\",\"type\":\"int\"},"
            "{\"name\":\"link\",\"type\":\"handle\"},{\"name\":\"name\",\"type\":\"string\"},"
            "{\"name\":\"weight\",\"type\":\"float\"},{\"name\":\"x\",\"type\":\"double\"}],\"rows\":[\n"
            "[0,10,6,\"a\\tb\",0.1,0.1],\n"
            "[1,20,null,null,0.1,1e+300],\n"
            "[2,30,null,\"\",0.1,1e+300]\n"
            "]}\n");
    EXPECT_THAT(Dump({"5", "--json"}), HasSubstr("\"rows\":[]}\n"));
}

TEST_F(RfmDump, AnArrayIsSlicedByFromAndN)
{
    EXPECT_EQ(Dump({"6"}), "row\t0\t1\n0\t1\t2\n1\t3\t4\n2\t5.5\t-0\n");
    EXPECT_EQ(Dump({"6", "--from", "1", "-n", "1"}), "row\t0\t1\n1\t3\t4\n");
    EXPECT_EQ(Dump({"6", "--from", "3"}), "row\t0\t1\n");
    EXPECT_EQ(Dump({"6", "-n", "0"}), "row\t0\t1\n");
    EXPECT_EQ(Dump({"6", "--from", "9223372036854775807", "-n", "9223372036854775807"}), "row\t0\t1\n");
}

TEST_F(RfmDump, AnArrayOfStringsQuotesWhatCsvNeedsQuoted)
{
    EXPECT_EQ(Dump({"7", "--csv"}), "row,0\n0,one\n1,\"two, \"\"three\"\"\"\n");
}

TEST_F(RfmDump, AStreamShowsTypeIdentifierAndValue)
{
    EXPECT_EQ(Dump({"8"}), "row\ttype\tid\tvalue\n"
                           "0\tint\t1\t-7\n"
                           "1\tfloat\t2\t2.5\n"
                           "2\tdouble\t3\t0.3333333333333333\n"
                           "3\thandle\t4\t4\n"
                           "4\tstring\t5\ttext\n");
    EXPECT_EQ(Dump({"8", "--from", "2", "-n", "1"}),
              "row\ttype\tid\tvalue\n2\tdouble\t3\t0.3333333333333333\n");
}

TEST_F(RfmDump, ASpaceOfTheApplicationIsShownAsBytes)
{
    EXPECT_EQ(Dump({"9"}), "offset\tbytes\ttext\n"
                           "0\t70 6c 61 69 6e 20 62 79 74 65 73 20 6f 66 20 69\tplain bytes of i\n"
                           "16\t74 73 20 6f 77 6e\tts own\n");
    EXPECT_EQ(Dump({"2"}), "offset\tbytes\ttext\n");
}

TEST_F(RfmDump, ThePoolsShowTextsAndLayouts)
{
    EXPECT_EQ(Dump({"1", "-n", "2"}), "offset\ttext\n4\tNODES\n16\tid\n");
    EXPECT_EQ(Dump({"3", "--from", "3"}),
              "row\tlayout\tfield\ttype\n3\tNODES\tweight\tfloat\n4\tNODES\tx\tdouble\n");
}

TEST_F(RfmDump, AnObjectIsNamedByItsHandleInBothNotationsOrByItsLayout)
{
    EXPECT_EQ(Dump({"0x6"}), Dump({"6"}));
    const ToolResult byLayout = Tool::Run({"dump", m_File, "NODES"});
    EXPECT_EQ(byLayout.code, 2);
    EXPECT_EQ(byLayout.out, "");
    EXPECT_EQ(byLayout.err,
              "rfm: " + m_File + ": 2 objects are meant by NODES; did you mean one of the handles 4, 5?\n");
}

TEST_F(RfmDump, AnObjectThatIsNotThereIsExitThreeWithAGuess)
{
    const ToolResult handle = Tool::Run({"dump", m_File, "99"});
    EXPECT_EQ(handle.code, 3);
    EXPECT_EQ(handle.err, "rfm: " + m_File + ": no object has the handle 99; `rfm ls` lists the handles\n");
    const ToolResult layout = Tool::Run({"dump", m_File, "NODE"});
    EXPECT_EQ(layout.code, 3);
    EXPECT_EQ(layout.err, "rfm: " + m_File + ": no table has the name NODE; did you mean NODES?\n");
    EXPECT_EQ(Tool::Run({"dump", m_File, "elements"}).err,
              "rfm: " + m_File + ": no table has the name elements; `rfm ls` lists the tables\n");
}

TEST_F(RfmDump, ATerminalGetsOneScreenOfAlignedRowsAndANote)
{
    const ToolResult screen = Tool::RunOnTerminal({"dump", m_File, "4"}, 5, 80);
    EXPECT_EQ(screen.code, 0);
    EXPECT_EQ(screen.out, "row  id  link  name  weight       x\r\n"
                          "  0  10     6  a\\tb     0.1     0.1\r\n"
                          "  1  20                 0.1  1e+300\r\n"
                          "rfm: there is more: 3 rows in all; --all shows it, --from 2 goes on\r\n");
    EXPECT_EQ(Tool::RunOnTerminal({"dump", m_File, "4", "--all"}, 5, 80).out,
              "row  id  link  name  weight       x\r\n"
              "  0  10     6  a\\tb     0.1     0.1\r\n"
              "  1  20                 0.1  1e+300\r\n"
              "  2  30                 0.1  1e+300\r\n");
}

TEST_F(RfmDump, ANarrowTerminalCutsLinesAndSaysSo)
{
    EXPECT_EQ(
        Tool::RunOnTerminal({"dump", m_File, "4", "-n", "1"}, 24, 20).out,
        "row  id  link  name>\r\n"
        "  0  10     6  a\\tb>\r\n"
        "rfm: lines that end with > are cut at the width of the screen; --fields chooses some of them, --all "
        "shows them in a pager\r\n");
}

TEST_F(RfmDump, BytesThatAreNoTextAreEscapedAndGivenAsHexInJson)
{
    {
        rfm_Database database = CreateDatabase(m_File);
        auto words = database.ArrayString(1, -1, 0);
        const cow_String texts[] = {"\xff\x1b[31m", "gr\xc3\xbc\xc3\x9f\\", "\xc2\x9b"};
        words.Write(texts, 3);
        words.Flush();
    }
    EXPECT_EQ(Dump({"4"}), "row\t0\n0\t\\xff\\x1b[31m\n1\tgr\xc3\xbc\xc3\x9f\\\\\n2\t\\xc2\\x9b\n");
    EXPECT_THAT(Dump({"4", "--json"}),
                HasSubstr("[0,{\"hex\":\"ff1b5b33316d\"}],\n[1,\"gr\xc3\xbc\xc3\x9f\\\\\"],"));
}

TEST_F(RfmDump, NumbersThatJsonHasNoWordForAreStrings)
{
    {
        rfm_Database database = CreateDatabase(m_File);
        auto numbers = database.ArrayFloat(3, -1, 0);
        const float values[] = {std::numeric_limits<float>::quiet_NaN(),
                                std::numeric_limits<float>::infinity(),
                                -std::numeric_limits<float>::infinity()};
        numbers.Write(values, 1);
        numbers.Flush();
    }
    EXPECT_THAT(Dump({"4", "--json"}), HasSubstr("[0,\"NaN\",\"Infinity\",\"-Infinity\"]"));
    EXPECT_EQ(Dump({"4"}), "row\t0\t1\t2\n0\tnan\tinf\t-inf\n");
}

TEST_F(RfmDump, ADamagedRowEndsTheDumpBehindTheRowsBeforeIt)
{
    Overwrite<double>(m_File, ExtentOfEntry(m_File, 4) + 12 + 16, 6.0); // the reference of row 0, field name
    const ToolResult result = Tool::Run({"dump", m_File, "4", "--from", "0"});
    EXPECT_EQ(result.code, 4);
    EXPECT_EQ(result.out, "row\tid\tlink\tname\tweight\tx\n");
    EXPECT_EQ(result.err, "rfm: " + m_File +
                              ": handle 4, row 0: rfm_StringManagerFile::String - String is not available; "
                              "`rfm check` tells what is damaged\n");
    EXPECT_EQ(Tool::Run({"dump", m_File, "4", "--from", "1", "-n", "1"}).code, 0);
}

TEST_F(RfmDump, AnArrayWithAnImpossibleHeaderIsRefused)
{
    Overwrite<int>(m_File, ExtentOfEntry(m_File, 6) + 8, 17);
    const ToolResult result = Tool::Run({"dump", m_File, "6"});
    EXPECT_EQ(result.code, 4);
    EXPECT_EQ(result.err,
              "rfm: " + m_File +
                  ": handle 6: the header of the array is damaged; `rfm check` tells what is damaged\n");
}

TEST_F(RfmDump, AHeldSemaphoreIsToldOfAndReadPast)
{
    std::filesystem::create_directory(m_Folder / "s.lsm");
    const ToolResult result = Tool::Run({"dump", m_File, "6", "-n", "1"});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.out, "row\t0\t1\n0\t1\t2\n");
    EXPECT_EQ(result.err,
              "rfm: " + m_File + ": a writer asks readers to wait; a change may be shown half done\n");
}

TEST_F(RfmDump, LsShowsEachObjectWithItsSizes)
{
    EXPECT_EQ(Tool::Run({"ls", m_File}).out, "handle\ttype\trows\tcolumns\tlayout\tbytes\treserved\textents\n"
                                             "4\ttable\t3\t5\tNODES\t120\t120\t1\n"
                                             "5\ttable\t0\t5\tNODES\t12\t12\t1\n"
                                             "6\tdouble array\t3\t2\t\t64\t64\t1\n"
                                             "7\tstring array\t2\t1\t\t32\t32\t1\n"
                                             "8\tstream\t\t\t\t80\t80\t1\n"
                                             "9\tspace\t\t\t\t22\t24\t1\n");
    EXPECT_THAT(Tool::Run({"ls", "-a", m_File, "--csv"}).out,
                StartsWith("handle,type,rows,columns,layout,bytes,reserved,extents\n"
                           "1,strings,,,,104,104,2\n2,unused,,,,0,0,0\n3,layouts,,,,76,76,2\n"
                           "4,table,3,5,NODES,120,120,1\n"));
    EXPECT_THAT(Tool::Run({"ls", m_File, "--json"}).out,
                HasSubstr("\"rows\":[\n[4,\"table\",3,5,\"NODES\",120,120,1],\n"));
    EXPECT_EQ(Tool::RunOnTerminal({"ls", m_File}, 24, 80).out,
              "handle  type          rows  columns  layout  bytes  reserved  extents\r\n"
              "     4  table            3        5  NODES     120       120        1\r\n"
              "     5  table            0        5  NODES      12        12        1\r\n"
              "     6  double array     3        2             64        64        1\r\n"
              "     7  string array     2        1             32        32        1\r\n"
              "     8  stream                                  80        80        1\r\n"
              "     9  space                                   22        24        1\r\n");
}

TEST_F(RfmDump, LsListsADamagedObjectAndAnswersOne)
{
    Overwrite<int>(m_File, ExtentOfEntry(m_File, 5) + 8, 400); // the twin's layout
    const ToolResult result = Tool::Run({"ls", m_File});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.out, HasSubstr("\n5\ttable\t\t\t\t12\t12\t1\n6\t"));
    EXPECT_EQ(result.err,
              "rfm: " + m_File +
                  ": handle 5: Can't find metadata with handle; `rfm check` tells what is damaged\n");
}
TEST_F(RfmDump, TheHandlesOfADatabaseAreThoseOfObjectsNotOfTheExtentsBehindTheirFirst)
{
    const rfm_Database database = rfm_Database::Open(rfm_File::Open(m_File.c_str(), utl_FileAccessRead), "");
    std::vector<std::uint32_t> handles;
    for (const rfm_Handle& handle : database.Handles()) handles.push_back(handle.Value());
    EXPECT_EQ(handles, (std::vector<std::uint32_t>{1, 2, 3, 4, 5, 6, 7, 8, 9}));
    EXPECT_NE(NumberAt<double>(m_File, EntryPlace(10) + 16), 0) << "entry 10 goes on with a pool";
}
} // namespace
