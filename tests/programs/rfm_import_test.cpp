// `rfm import csv`: the corners of the format, types, and what is left when there can be no table. `rfm import syrthes`
// has its tests with the demo; here is what it refuses, and how it ends before the run does.
#include "NewFiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

namespace
{
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

// A run of the solver that has not begun: its case and its mesh of one element.
const std::string kCase = "TITRE ETUDE= wedge\n"
                          "MAILLAGE CONDUCTION= mesh.syr\n"
                          "PREFIXE DES FICHIERS RESULTATS= resu1\n"
                          "NOMBRE DE PAS DE TEMPS SOLIDES= 20\n"
                          "PAS DE TEMPS SOLIDE= 5\n"
                          "PAS DES SORTIES CHRONO SOLIDE ITERATIONS= 10\n";
const std::string kMesh = "C  DIMENSION = 3\n"
                          "C  NOMBRE DE NOEUDS = 4\n"
                          "C  NOMBRE D'ELEMENTS = 1\n"
                          "C  NOMBRE D'ELEMENTS DE BORD = 1\n"
                          "C  NOMBRE DE NOEUDS PAR ELEMENT = 4\n"
                          "C$ RUBRIQUE = NOEUDS\n"
                          "1 0 0.0 0.0 0.0\n2 0 1.0 0.0 0.0\n3 0 0.0 1.0 0.0\n4 3 0.0 0.0 1.0\n"
                          "C$ RUBRIQUE = ELEMENTS\n"
                          "1 8 1 2 3 4\n"
                          "C$ RUBRIQUE = ELEMENTS DE BORD\n"
                          "1 5 1 2 3\n";

class RfmImport : public testing::Test
{
protected:
    void WriteMesh() const
    {
        WriteFile(m_Folder / "mesh.syr", kMesh);
        WriteFile(m_Folder / "mesh.syr_desc", "group_of_volumes 8 wedge\n");
    }
    // Returns once a signal has a handler in the tool.
    static void WaitUntilCaught(const Tool& tool, int signal)
    {
        const std::string path = "/proc/" + std::to_string(tool.Process()) + "/status";
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (std::chrono::steady_clock::now() < deadline)
        {
            const std::string status = ReadFile(path);
            const std::size_t mask = status.find("SigCgt:\t");
            if (mask != std::string::npos &&
                (std::stoull(status.substr(mask + 8), nullptr, 16) >> (signal - 1) & 1) != 0)
                return;
            ::poll(nullptr, 0, 1);
        }
        FAIL() << "the signal is never caught";
    }
    ToolResult Import(const std::string& csv, Tool::Words more = {}) const
    {
        WriteFile(m_Csv, csv);
        more.insert(more.begin(), {"import", "csv", m_Csv, m_Out});
        return Tool::Run(std::move(more));
    }
    // The rows that come of a CSV file, with tabs between cells; the failure where there are none.
    std::string Rows(const std::string& csv, const Tool::Words& more = {}) const
    {
        std::filesystem::remove(m_Out);
        const ToolResult result = Import(csv, more);
        return result.code == 0 ? Tool::Run({"rows", m_Out, "4"}).out : result.err;
    }
    void ExpectRefusal(const std::string& csv, const Tool::Words& more, int code,
                       const std::string& line) const
    {
        const ToolResult result = Import(csv, more);
        EXPECT_EQ(result.code, code);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "rfm: " + line + "\n");
        EXPECT_THAT(NamesIn(m_Folder / ""), ElementsAre("nodes.csv"));
    }
    void ExpectRefusedCell(const std::string& csv, const std::string& place, const std::string& why,
                           const Tool::Words& more = {}) const
    {
        ExpectRefusal(csv, more, 4, m_Csv + ", " + place + ": " + why);
    }

    TestFolder m_Folder;
    std::string m_Csv = m_Folder / "nodes.csv";
    std::string m_Out = m_Folder / "out.rdx";
};

TEST_F(RfmImport, TypesAreGuessedFromAllCells)
{
    const ToolResult result = Import("id,x,name,later,none\n1,0.5,a,1,\n2,-3,b,1e3,\n+3,nan,7,x,\n");
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out,
              m_Out + ": table nodes, 3 rows: id int, x double, name string, later string, none string\n");
    EXPECT_EQ(Tool::Run({"rows", m_Out, "nodes"}).out, "row\tid\tlater\tname\tnone\tx\n"
                                                       "0\t1\t1\ta\t\t0.5\n"
                                                       "1\t2\t1e3\tb\t\t-3\n"
                                                       "2\t3\tx\t7\t\tnan\n");
}

TEST_F(RfmImport, NumbersThatATypeWouldChangeAreGuessedTexts)
{
    const std::string csv = "big,exact,post,real,minus,mixed,zero\n"
                            "9007199254740993,9007199254740992,00501,007.5,-01,1,0\n"
                            "1,-9007199254740992,10115,2,5,9007199254740993,0.5\n";
    EXPECT_EQ(Import(csv).out,
              m_Out + ": table nodes, 2 rows: big string, exact double, post string, real string, "
                      "minus string, mixed string, zero double\n");
    EXPECT_EQ(
        Tool::Run({"rows", m_Out, "4", "-n", "1", "--fields", "big,exact,post,real,minus,mixed,zero"}).out,
        "row\tbig\texact\tpost\treal\tminus\tmixed\tzero\n"
        "0\t9007199254740993\t9007199254740992\t00501\t007.5\t-01\t1\t0\n");
    EXPECT_THAT(Import("post\n00501\n", {"--types", "post=int", "-f"}).out, HasSubstr("post int"));
}

TEST_F(RfmImport, AnEmptyCellIsAbsentAndEmptyQuotesAreAnEmptyText)
{
    EXPECT_EQ(Import("a,b\n,\"\"\n1,x\n").code, 0);
    EXPECT_EQ(Tool::Run({"export", m_Out, "4", "--to", "jsonl"}).out,
              "{\"a\":null,\"b\":\"\"}\n{\"a\":1,\"b\":\"x\"}\n");
}

TEST_F(RfmImport, EachLineEndEndsALineAndTheLastLineNeedsNone)
{
    const std::string rows = "row\ta\tb\n0\t1\tx\n1\t2\ty\n";
    EXPECT_EQ(Rows("a,b\n1,x\n2,y\n"), rows);
    EXPECT_EQ(Rows("a,b\r\n1,x\r\n2,y\r\n"), rows);
    EXPECT_EQ(Rows("a,b\r1,x\r2,y\r"), rows);
    EXPECT_EQ(Rows("a,b\n1,x\n2,y"), rows);
    EXPECT_EQ(Rows("\xEF\xBB\xBF"
                   "a,b\n\n1,x\n\n2,y\n\n"),
              rows)
        << "a mark of UTF-8, and lines without anything";
}

TEST_F(RfmImport, OfOneColumnALineWithoutAnythingIsARow)
{
    EXPECT_EQ(Rows("a\n1\n\n2\n"), "row\ta\n0\t1\n1\t\n2\t2\n");
}

TEST_F(RfmImport, QuotesHoldSeparatorsQuotesAndLineEnds)
{
    EXPECT_EQ(Rows("\"a\",\"b \"\"c\"\"\"\n\"1\",\"x,y\nz\"\n\"2\",\" \"\"\"\n"),
              "row\ta\tb \"c\"\n0\t1\tx,y\\nz\n1\t2\t \"\n");
}

TEST_F(RfmImport, APieceOfTheFileMayEndAnywhere)
{
    // Cells around the border of the pieces in which the file is read.
    std::string csv = "a,b\n";
    while (csv.size() < (1U << 18) - 6) csv += "1,x\n";
    csv += "2,\"\"\"\r\n\"\r\n3,y";
    const std::string rows = Rows(csv);
    EXPECT_THAT(rows, testing::EndsWith("\t1\tx\n65534\t2\t\"\\r\\n\n65535\t3\ty\n"));
}

TEST_F(RfmImport, GivenTypesAreTaken)
{
    EXPECT_EQ(Import("a,b,c,d\n1,2,3,4\n", {"--types", "a=double,b=string,c=handle", "--table", "T"}).out,
              m_Out + ": table T, 1 row: a double, b string, c handle, d int\n");
    EXPECT_EQ(Rows("a\n0.1\n", {"--types", "a=float"}), "row\ta\n0\t0.1\n");
    EXPECT_EQ(Rows("a;b\n1,5;2\n", {"--separator", ";"}), "row\ta\tb\n0\t1,5\t2\n");
    EXPECT_EQ(Rows("a\tb\n1\t2\n", {"--separator", "tab"}), "row\ta\tb\n0\t1\t2\n");
}

TEST_F(RfmImport, ACellThatDoesNotFitIsToldWithItsPlace)
{
    const Tool::Words types{"--types", "a=int,b=float,c=handle"};
    const std::string remedy = "; correct it, or say --types ";
    ExpectRefusedCell(
        "a,b,c\n1,1,1\n2147483648,1,1\n", "line 3, column 1 (a)",
        "\"2147483648\" is no whole number from -2147483648 to 2147483647" + remedy + "a=string", types);
    ExpectRefusedCell("a,b,c\n1,\"1\n\",1\n", "line 2, column 2 (b)",
                      "\"1\\n\" is no number that fits into a float" + remedy + "b=string", types);
    ExpectRefusedCell("a,b,c\n1,1,-1\n", "line 2, column 3 (c)",
                      "\"-1\" is no handle, a whole number from 0 to 4294967295" + remedy + "c=string",
                      types);
    ExpectRefusedCell("a,b,c\n1,1e39,1\n", "line 2, column 2 (b)",
                      "\"1e39\" is no number that fits into a float" + remedy + "b=string", types);
    ExpectRefusedCell("a,b,c\n\"\",1,1\n", "line 2, column 1 (a)",
                      "\"\" is no whole number from -2147483648 to 2147483647" + remedy + "a=string", types);
}

TEST_F(RfmImport, LinesThatAreNoCsvAreToldWithTheirPlace)
{
    const std::string absent = "; an absent value is an empty cell";
    ExpectRefusedCell("a,b\n1\n", "line 2, column 2 (b)", "the line has 1 cell, the first one 2" + absent);
    ExpectRefusedCell("a,b\n\"1\n\",2\n1,2,3\n", "line 4, column 3",
                      "the line has 3 cells, the first one 2" + absent);
    ExpectRefusedCell("a,b\n1,\"x\n2,y\n", "line 2, column 2",
                      "the quote that begins here is never closed; close it, or double it inside");
    ExpectRefusedCell("a,b\n1,\"x\"y\n", "line 2, column 2",
                      "there is more behind the closing quote; double a quote inside a cell");
    ExpectRefusedCell("a,b\n1,x\"y\n", "line 2, column 2",
                      "a quote in a cell without quotes; put the cell in quotes and double this one");
    ExpectRefusedCell("a,\n1,2\n", "line 1, column 2",
                      "the column has no name; the first line names the columns");
    ExpectRefusedCell("a,b,a\n", "line 1, column 3",
                      "a is the name of an earlier column, too; give it another name");
    ExpectRefusal("", {}, 4, m_Csv + ": the file is empty; its first line names the columns");
}

TEST_F(RfmImport, AnUnknownColumnTypeOrOptionIsRefused)
{
    ExpectRefusal("id,x\n", {"--types", "ids=int"}, 3,
                  m_Csv + ": no column has the name ids; did you mean id?");
    ExpectRefusal("id,x\n", {"--types", "id=integer"}, 2,
                  "--types: id=integer is no COLUMN=TYPE; types are int, float, double, handle and string");
    ExpectRefusal("id,x\n", {"--separator", "::"}, 2,
                  "--separator: :: is not one character; say , or ; or tab");
    ExpectRefusal(
        "id,x\n", {"--status", "s"}, 2,
        "import csv: an option for syrthes was given; `rfm import --help` tells which options there are");
    EXPECT_EQ(Tool::Run({"import", "xml", m_Csv, m_Out}).err,
              "rfm: import: FORM: xml is not csv or syrthes; `rfm import --help` shows how\n");
}

TEST_F(RfmImport, AFileThatCanNotBeReadIsRefused)
{
    const auto failure = [&](const std::string& path) { return Tool::Run({"import", "csv", path, m_Out}); };
    EXPECT_EQ(failure(m_Folder / "none").err,
              "rfm: " + m_Folder / "none" + ": no such file; give the path of a CSV file\n");
    EXPECT_EQ(failure(m_Folder / "none").code, 3);
    EXPECT_EQ(failure("/tmp").err, "rfm: /tmp: is a directory; give the path of a CSV file\n");
    EXPECT_EQ(failure("/dev/zero").err, "rfm: /dev/zero: is no regular file; give the path of a CSV file\n");
    EXPECT_EQ(failure("/dev/zero").code, 4);
}

TEST_F(RfmImport, OutIsReplacedOnlyByForceAndAFullDiskLeavesNothing)
{
    WriteFile(m_Out, "precious");
    EXPECT_EQ(Import("a\n1\n").err, "rfm: " + m_Out + ": is there already; --force replaces it\n");
    EXPECT_EQ(ReadFile(m_Out), "precious");
    EXPECT_EQ(Import("a\n1\n", {"-f"}).code, 0);
    EXPECT_EQ(Tool::Run({"check", m_Out}).code, 0);
    std::filesystem::remove(m_Out);
    const FileSizeLimit limit(4096);
    const ToolResult full = Import("a\n1\n");
    EXPECT_EQ(full.code, 7);
    EXPECT_THAT(full.err, StartsWith("rfm: " + m_Out + ": "));
    EXPECT_THAT(full.err,
                HasSubstr("File too large; make room or write elsewhere; nothing was left there\n"));
    EXPECT_EQ(std::count(full.err.begin(), full.err.end(), '\n'), 1) << full.err;
    EXPECT_THAT(NamesIn(m_Folder / ""), ElementsAre("nodes.csv"));
}

TEST_F(RfmImport, AnInterruptLeavesNoFile)
{
    const std::string folder = m_Folder / "made";
    std::filesystem::create_directory(folder);
    std::string csv = "a,b\n";
    for (int i = 0; i < 2000000; ++i) csv += "1,x\n";
    WriteFile(m_Csv, csv);
    const FolderWatch watch(folder);
    Tool tool({"import", "csv", m_Csv, folder + "/a.rdx", "--types", "a=int,b=string"});
    watch.WaitForAWrite();
    tool.Signal(SIGINT);
    EXPECT_EQ(tool.Finish().code, 130);
    EXPECT_THAT(NamesIn(folder), ElementsAre());
}

TEST_F(RfmImport, OutMayLieInAnyKindOfFile)
{
    for (const std::string& kind : kKinds)
    {
        EXPECT_EQ(Rows("a,b\n1,x\n", {"--to", kind}), "row\ta\tb\n0\t1\tx\n");
        EXPECT_THAT(Tool::Run({"info", m_Out, "--json"}).out, HasSubstr("\"kind\": \"" + kind + "\""));
    }
}

TEST_F(RfmImport, ATableThatWasExportedComesBackEqual)
{
    const std::string sample = m_Folder / "s.rdx";
    const std::string back = m_Folder / "back.csv";
    MakeSample(sample);
    ASSERT_EQ(Tool::Run({"export", sample, "4", "--to", "csv", "-o", m_Csv}).code, 0);
    ASSERT_EQ(Tool::Run({"import", "csv", m_Csv, m_Out, "--table", "NODES", "--types",
                         "id=int,link=handle,name=string,weight=float,x=double"})
                  .code,
              0);
    ASSERT_EQ(Tool::Run({"copy", sample, m_Folder / "one.rdx", "4"}).code, 0);
    const ToolResult diff = Tool::Run({"diff", m_Folder / "one.rdx", m_Out});
    EXPECT_EQ(diff.code, 0) << diff.out << diff.err;
    ASSERT_EQ(Tool::Run({"export", m_Out, "4", "--to", "csv", "-o", back}).code, 0);
    EXPECT_EQ(ReadFile(back), ReadFile(m_Csv));
}

TEST_F(RfmImport, WhatIsNoCsvIsToldByWhatItLooksLike)
{
    const std::string remedy = "; give the path of a CSV file\n";
    EXPECT_EQ(Import("\x89PNG\r\n\x1a\n").err,
              "rfm: " + m_Csv + ": not a CSV file: it looks like a PNG picture" + remedy);
    EXPECT_EQ(Import(ReadFile(RFM_TEST_DATA "/table.rdx")).err,
              "rfm: " + m_Csv + ": not a CSV file: it looks like a database" + remedy);
    EXPECT_FALSE(std::filesystem::exists(m_Out));
    EXPECT_EQ(Rows("CDF,PK\n1,2\n"), "row\tCDF\tPK\n0\t1\t2\n"); // begins as a netCDF file does
}

TEST_F(RfmImport, ARunOfWhichNothingComesEndsAtItsTimeout)
{
    const std::string note = "rfm: " + m_Folder / "case.syd" +
                             ": nothing has come for 0.05 seconds; a longer --timeout waits longer\n";
    const auto record = [&]
    {
        return Tool::Run({"import", "syrthes", m_Folder / "case.syd", m_Out, "--status", m_Folder / "status",
                          "--timeout", "0.05"});
    };
    for (const bool hasCase : {false, true})
    {
        if (hasCase) WriteFile(m_Folder / "case.syd", kCase);
        const ToolResult early = record();
        EXPECT_EQ(early.code, 5);
        EXPECT_EQ(early.out, "");
        EXPECT_EQ(early.err, note);
        EXPECT_FALSE(std::filesystem::exists(m_Out));
    }
    WriteMesh();
    const ToolResult begun = record();
    EXPECT_EQ(begun.code, 5);
    EXPECT_EQ(begun.out, m_Out + ": 0 of 2 increments\n");
    EXPECT_EQ(begun.err, note);
    EXPECT_EQ(Tool::Run({"check", m_Out}).code, 0);
    EXPECT_EQ(Tool::Run({"value", m_Out, "RUN.state"}).out, "failed\n");
}

TEST_F(RfmImport, ARecorderThatWaitsEndsAtCtrlC)
{
    const Tool::Words words{"import", "syrthes",  m_Folder / "case.syd",
                            m_Out,    "--status", m_Folder / "status"};
    {
        Tool tool(words);
        WaitUntilCaught(tool, SIGTERM);
        tool.Signal(SIGINT);
        const ToolResult result = tool.Finish();
        EXPECT_EQ(result.code, 130);
        EXPECT_EQ(result.out + result.err, "");
        EXPECT_FALSE(std::filesystem::exists(m_Out));
    }
    WriteMesh();
    WriteFile(m_Folder / "case.syd", kCase);
    Tool tool(words);
    WaitUntilCaught(tool, SIGTERM);
    tool.Signal(SIGINT);
    const ToolResult result = tool.Finish();
    EXPECT_EQ(result.code, 130);
    EXPECT_EQ(result.out, m_Out + ": 0 of 2 increments\n");
    EXPECT_EQ(Tool::Run({"value", m_Out, "RUN.state"}).out, "failed\n");
}

TEST_F(RfmImport, ARunThatIsNotThereIsRefused)
{
    const auto failure = [&](const std::string& path) {
        return Tool::Run({"import", "syrthes", path, m_Out}).err;
    };
    EXPECT_EQ(failure(m_Folder / "case.syd"), "rfm: " + m_Folder / "case.syd" + ": there is no " +
                                                  m_Folder / "case.syd" +
                                                  "; give the path of the solver's data file\n");
    EXPECT_EQ(failure(m_Folder / ""),
              "rfm: " + m_Folder / "" + ": 0 data files (.syd) in the folder; give the path of one\n");
    EXPECT_FALSE(std::filesystem::exists(m_Out));
}
} // namespace
