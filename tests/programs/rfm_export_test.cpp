// `rfm export`: literal files of each form, and what is left when there can be none.
#include "NewFiles.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

std::string Hex(std::string_view bytes)
{
    std::string text;
    for (const char byte : bytes) text += fmt::format("{:02x}", static_cast<unsigned char>(byte));
    return text;
}

// The bytes of hexadecimal digits; blanks between them say nothing.
std::string Bytes(std::string_view hex)
{
    std::string bytes;
    std::string digits;
    for (const char digit : hex)
        if (digit != ' ') digits += digit;
    for (std::size_t i = 0; i < digits.size(); i += 2)
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    return bytes;
}

class RfmExport : public testing::Test
{
protected:
    RfmExport() { MakeSample(m_File); }

    ToolResult Export(Tool::Words words) const
    {
        words.insert(words.begin(), {"export", m_File});
        return Tool::Run(std::move(words));
    }
    void ExpectRefusal(const Tool::Words& words, int code, const std::string& line) const
    {
        const ToolResult result = Export(words);
        EXPECT_EQ(result.code, code);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "rfm: " + line + "\n");
    }

    TestFolder m_Folder;
    std::string m_File = m_Folder / "s.rdx";
    std::string m_Out = m_Folder / "out";
};

const std::string kCsv = "id,link,name,weight,x\n"
                         "10,6,a\tb,0.1,0.1\n"
                         "20,,,0.1,1e+300\n"
                         "30,,\"\",0.1,1e+300\n";

constexpr const char* kStreamLines = "{\"type\":\"int\",\"id\":1,\"value\":-7}\n"
                                     "{\"type\":\"float\",\"id\":2,\"value\":2.5}\n"
                                     "{\"type\":\"double\",\"id\":3,\"value\":0.3333333333333333}\n"
                                     "{\"type\":\"handle\",\"id\":4,\"value\":4}\n"
                                     "{\"type\":\"string\",\"id\":5,\"value\":\"text\"}\n";

TEST_F(RfmExport, CsvHasAnAbsentValueAsNothingAndAnEmptyTextAsQuotes)
{
    const ToolResult result = Export({"4", "--to", "csv"});
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_EQ(result.out, kCsv);
    EXPECT_EQ(Export({"5", "--to", "csv"}).out, "id,link,name,weight,x\n") << "no rows";
}

TEST_F(RfmExport, CsvQuotesWhatHoldsASeparatorAQuoteOrALineEnd)
{
    EXPECT_EQ(Export({"7", "--to", "csv"}).out, "0\none\n\"two, \"\"three\"\"\"\n");
    rfm_Database database = CreateDatabase(m_File);
    rfm_TableMetadata layout("NOTES, \"old\"", 1);
    const int text = layout.DefineStringField("a,b");
    {
        rfm_Table table = database.Table(database.Bind(layout), -1, -1);
        for (const char* each : {"line\nend", "return\r", "=1+2", "\xc3\xa4 \xff"})
            table.NewRow().WriteFieldString(text, each);
        table.Flush();
    }
    database.Close();
    EXPECT_EQ(Export({"4", "--to", "csv"}).out,
              "\"a,b\"\n\"line\nend\"\n\"return\r\"\n=1+2\n\xc3\xa4 \xff\n");
}

TEST_F(RfmExport, JsonLinesAreAnObjectForEachRow)
{
    EXPECT_EQ(Export({"4", "--to", "jsonl"}).out,
              "{\"id\":10,\"link\":6,\"name\":\"a\\tb\",\"weight\":0.1,\"x\":0.1}\n"
              "{\"id\":20,\"link\":null,\"name\":null,\"weight\":0.1,\"x\":1e+300}\n"
              "{\"id\":30,\"link\":null,\"name\":\"\",\"weight\":0.1,\"x\":1e+300}\n");
    EXPECT_EQ(Export({"8", "--to", "jsonl"}).out, kStreamLines);
}

TEST_F(RfmExport, RowsAndFieldsAreChosenAsInRows)
{
    EXPECT_EQ(Export({"4", "--to", "csv", "--where", "not present(link)", "--fields", "x,id"}).out,
              "x,id\n1e+300,20\n1e+300,30\n");
    EXPECT_EQ(Export({"4.name", "--to", "csv"}).out, "name\na\tb\n\n\"\"\n");
    EXPECT_EQ(Export({"6.1", "--to", "csv"}).out, "1\n2\n4\n-0\n");
}

TEST_F(RfmExport, ItIsTheSameOfEachKindOfFile)
{
    const std::string plain = m_File;
    EXPECT_EQ(Export({"6", "--to", "npy", "-o", m_Out}).code, 0);
    const std::string npy = ReadFile(m_Out);
    for (const std::string& kind : kKinds)
    {
        m_File = m_Folder / kind;
        ASSERT_EQ(Tool::Run({"convert", plain, m_File, "--to", kind}).code, 0);
        EXPECT_EQ(Export({"4", "--to", "csv"}).out, kCsv) << kind;
        EXPECT_EQ(Export({"8", "--to", "jsonl"}).out, kStreamLines) << kind;
        EXPECT_EQ(Export({"6", "--to", "npy", "-f", "-o", m_Out}).code, 0);
        EXPECT_EQ(ReadFile(m_Out), npy) << kind;
    }
}

TEST_F(RfmExport, AnArrayInNpyHasTheBytesOfItsPicture)
{
    const ToolResult result = Export({"6", "--to", "npy", "-o", m_Out});
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_EQ(result.out, m_Out + ": 3 rows\n");
    const std::string dictionary = "{'descr': '<f8', 'fortran_order': False, 'shape': (3, 2), }";
    EXPECT_EQ(Hex(ReadFile(m_Out)), "934e554d5059"
                                    "0100"
                                    "7600" +
                                        Hex(dictionary + std::string(117 - dictionary.size(), ' ') + "\n") +
                                        "000000000000f03f"
                                        "0000000000000040" // 1 2
                                        "0000000000000840"
                                        "0000000000001040" // 3 4
                                        "0000000000001640"
                                        "0000000000000080"); // 5.5 -0
}

TEST_F(RfmExport, NpyOfIntsAndFloatsHasFourBytesForEach)
{
    rfm_Database database = CreateDatabase(m_File);
    {
        auto ints = database.ArrayInt(1, -1, 0);
        const int whole[] = {-2, 258};
        ints.Write(whole, 2);
        ints.Flush();
        auto floats = database.ArrayFloat(3, -1, 0);
        const float parts[] = {0.5F, -1, 2};
        floats.Write(parts, 1);
        floats.Flush();
    }
    database.Close();
    EXPECT_EQ(Export({"--to", "npy", "-o", m_Out}).code, 0) << "all arrays";
    EXPECT_THAT(NamesIn(m_Out), ElementsAre("4.npy", "5.npy"));
    const std::string ints = ReadFile(m_Out + "/4.npy");
    EXPECT_THAT(ints.substr(10), StartsWith("{'descr': '<i4', 'fortran_order': False, 'shape': (2, 1), }"));
    EXPECT_EQ(Hex(ints.substr(128)), "feffffff"
                                     "02010000");
    const std::string floats = ReadFile(m_Out + "/5.npy");
    EXPECT_THAT(floats.substr(10), StartsWith("{'descr': '<f4', 'fortran_order': False, 'shape': (1, 3), }"));
    EXPECT_EQ(Hex(floats.substr(128)), "0000003f"
                                       "000080bf"
                                       "00000040");
}

TEST_F(RfmExport, NpyOfSomeRowsTellsHowManyThereAre)
{
    EXPECT_EQ(Export({"6", "--to", "npy", "-o", m_Out, "--where", "[0] > 2"}).out, m_Out + ": 2 rows\n");
    const std::string bytes = ReadFile(m_Out);
    EXPECT_THAT(bytes.substr(10), StartsWith("{'descr': '<f8', 'fortran_order': False, 'shape': (2, 2), }"));
    EXPECT_EQ(bytes.size(), 128U + 4 * 8);
}

TEST_F(RfmExport, NpyRefusesWhatIsNoArrayOfNumbers)
{
    const std::string remedy = "; --to csv or --to jsonl takes it";
    ExpectRefusal({"7", "--to", "npy", "-o", m_Out}, 2,
                  m_File + ": handle 7: is an array of texts, for which npy has no place" + remedy);
    ExpectRefusal({"4", "--to", "npy", "-o", m_Out}, 2, m_File + ": handle 4: is no array" + remedy);
    ExpectRefusal({"6", "--to", "npy"}, 2,
                  "--to npy: its bytes are not for standard output; give a file with -o");
    EXPECT_FALSE(std::filesystem::exists(m_Out));
}

TEST_F(RfmExport, SeveralObjectsAreAFileEachInAFolder)
{
    const ToolResult result = Export({"--to", "csv", "-o", m_Out});
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_EQ(result.out, m_Out + "/NODES-4.csv: 3 rows\n" + m_Out + "/NODES-5.csv: 0 rows\n" + m_Out +
                              "/6.csv: 3 rows\n" + m_Out + "/7.csv: 2 rows\n" + m_Out + "/8.csv: 5 rows\n");
    EXPECT_THAT(NamesIn(m_Out), ElementsAre("6.csv", "7.csv", "8.csv", "NODES-4.csv", "NODES-5.csv"));
    EXPECT_EQ(ReadFile(m_Out + "/NODES-4.csv"), kCsv);
    EXPECT_EQ(Export({"6", "--to", "csv", "-o", m_Out}).code, 2) << "is there already";
    EXPECT_EQ(Export({"6", "--to", "csv", "-o", m_Out, "-f"}).code, 0);
    ExpectRefusal(
        {"--to", "csv"}, 2,
        m_File + ": 5 objects are meant, and standard output has room for one; name one, or give a folder "
                 "with -o");
}

TEST_F(RfmExport, ALayoutThatIsNoNameOfAFileLeadsOutOfNoFolder)
{
    rfm_Database database = CreateDatabase(m_File);
    for (const char* name : {"../up", ".hidden", "fine name"})
    {
        rfm_TableMetadata layout(name, 1);
        layout.DefineIntField("id");
        rfm_Table table = database.Table(database.Bind(layout), -1, -1);
        table.NewRow();
        table.Flush();
    }
    database.Close();
    EXPECT_EQ(Export({"--to", "csv", "-o", m_Out}).code, 0);
    EXPECT_THAT(NamesIn(m_Out), ElementsAre("fine name.csv", "table-4.csv", "table-5.csv"));
    EXPECT_THAT(NamesIn(m_Folder / ""), ElementsAre("out", "s.rdx"));
}

TEST_F(RfmExport, AFileThatIsThereIsReplacedOnlyByForce)
{
    WriteFile(m_Out, "precious");
    ExpectRefusal({"4", "--to", "csv", "-o", m_Out}, 2, m_Out + ": is there already; --force replaces it");
    EXPECT_EQ(ReadFile(m_Out), "precious");
    EXPECT_EQ(Export({"4", "--to", "csv", "-o", m_Out, "--force"}).out, m_Out + ": 3 rows\n");
    EXPECT_EQ(ReadFile(m_Out), kCsv);
    ExpectRefusal({"4", "--to", "csv", "-o", m_File, "-f"}, 2,
                  m_File + ": is the file that is read; give another name for the copy");
}

TEST_F(RfmExport, OptionsThatDoNotFitTheFormAreRefused)
{
    ExpectRefusal({"4", "--to", "xml"}, 2,
                  "export: --to: xml is not csv, jsonl, npy or vtu; `rfm export --help` shows how");
    ExpectRefusal({"4", "--to", "csv", "--mesh", "nodes=NODES"}, 2,
                  "--to csv: --mesh and --map are for vtu; leave them away, or say --to vtu");
    ExpectRefusal({"4", "--to", "vtu", "-o", m_Out, "--where", "row < 1"}, 2,
                  "--to vtu: a mesh is exported whole; leave --where and --fields away");
    ExpectRefusal({"4", "--to", "csv", "--where", "idd > 1"}, 3,
                  Tool::Run({"rows", m_File, "4", "--where", "idd > 1"})
                      .err.substr(5, std::string::npos)
                      .substr(0, Tool::Run({"rows", m_File, "4", "--where", "idd > 1"}).err.size() - 6));
}

TEST_F(RfmExport, AFullDiskOrAForbiddenFolderLeavesNoFile)
{
    {
        const FileSizeLimit limit(60);
        ExpectRefusal({"6", "--to", "npy", "-o", m_Out}, 7,
                      m_Out + ": File too large; make room or write elsewhere; nothing was left there");
        ExpectRefusal({"4", "6", "--to", "csv", "-o", m_Out}, 7,
                      m_Out +
                          "/NODES.csv: File too large; make room or write elsewhere; nothing was left there");
    }
    EXPECT_THAT(NamesIn(m_Folder / ""), ElementsAre("s.rdx"));
    ExpectRefusal({"4", "--to", "csv", "-o", "/proc/none/out"}, 7,
                  "/proc/none/out: the folder /proc/none is not there; make it or write elsewhere");
    ExpectRefusal({"4", "6", "--to", "csv", "-o", m_File}, 7,
                  m_File + ": Not a directory; 2 objects need a folder");
}

TEST_F(RfmExport, ALastRowOfWhichAPartIsThereIsNoRowOfNpy)
{
    Overwrite<double>(m_File, EntryPlace(6) + 8, NumberAt<double>(m_File, EntryPlace(6) + 8) - 8);
    ExpectRefusal({"6", "--to", "npy", "-o", m_Out}, 4,
                  m_File +
                      ": handle 6, row 2: only a part of the row is there; --where 'row < 2' leaves it out");
    EXPECT_FALSE(std::filesystem::exists(m_Out));
    EXPECT_EQ(Export({"6", "--to", "npy", "-o", m_Out, "--where", "row < 2"}).code, 0);
    EXPECT_EQ(Export({"6", "--to", "csv"}).out, "0,1\n1,2\n3,4\n5.5,\n");
}

TEST_F(RfmExport, AnInterruptLeavesNoFile)
{
    rfm_Database database = CreateDatabase(m_File);
    {
        auto numbers = database.ArrayInt(1, 1 << 20, 0);
        const std::vector<int> ones(1 << 20, 1);
        for (int i = 0; i < 16; ++i) numbers.Write(ones.data(), 1 << 20);
        numbers.Flush();
    }
    database.Close();
    std::filesystem::create_directory(m_Out);
    const FolderWatch watch(m_Out);
    Tool tool({"export", m_File, "4", "--to", "csv", "-o", m_Out + "/a.csv", "--where", "[0] / 3 > 0.1"});
    watch.WaitForAWrite();
    tool.Signal(SIGINT);
    const ToolResult result = tool.Finish();
    EXPECT_EQ(result.code, 130);
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(NamesIn(m_Out), ElementsAre());
}

// Four nodes, a tetrahedron and a triangle, a number for each node and three for each element.
class RfmExportMesh : public RfmExport
{
protected:
    RfmExportMesh()
    {
        rfm_Database database = CreateDatabase(m_File);
        WriteTables(database);
        {
            auto perNode = database.ArrayDouble(1, -1, 0);
            const double t[] = {1, 2, 3, 4};
            perNode.Write(t, 4);
            perNode.Flush();
            auto perElement = database.ArrayInt(3, -1, 0);
            const int v[] = {1, 2, 3, 4, 5, 6};
            perElement.Write(v, 2);
            perElement.Flush();
        }
        database.Close();
    }

    static void WriteTables(rfm_Database& database)
    {
        rfm_TableMetadata nodes("NODES", 1);
        for (const char* name : {"x", "y", "z"}) nodes.DefineDoubleField(name);
        const int id = nodes.DefineIntField("id");
        rfm_TableMetadata elements("ELEMENTS", 1);
        for (const char* name : {"node1", "node2", "node3", "node4", "reference"})
            elements.DefineIntField(name);
        rfm_Table points = database.Table(database.Bind(nodes), -1, -1);
        for (int i = 0; i < 4; ++i)
        {
            rfm_Row row = points.NewRow();
            for (int axis = 0; axis < 3; ++axis) row.WriteFieldDouble(axis, i == axis + 1 ? 1 : 0);
            row.WriteFieldInt(id, 100 + i);
        }
        points.Flush();
        rfm_Table cells = database.Table(database.Bind(elements), -1, -1);
        for (int i = 0; i < 2; ++i)
        {
            rfm_Row row = cells.NewRow();
            for (int corner = 0; corner < 4 - i; ++corner) row.WriteFieldInt(corner, corner + 1);
            if (i == 0) row.WriteFieldInt(4, 7);
        }
        cells.Flush();
    }
    static Tool::Words Mesh(Tool::Words more)
    {
        Tool::Words words{"--to", "vtu", "--mesh", "nodes=NODES", "--mesh", "elements=ELEMENTS"};
        words.insert(words.begin(), more.begin(), more.end());
        return words;
    }
};

const std::string kMeshHead =
    "<?xml version=\"1.0\"?>\n"
    "<VTKFile type=\"UnstructuredGrid\" version=\"1.0\" byte_order=\"LittleEndian\" "
    "header_type=\"UInt64\">\n"
    "<UnstructuredGrid>\n"
    "<Piece NumberOfPoints=\"4\" NumberOfCells=\"2\">\n";

TEST_F(RfmExportMesh, AMeshInVtuHasTheTextAndTheBytesOfItsPicture)
{
    const ToolResult result = Export(Mesh({"t<1>=6", "--mesh", "first=1", "-o", m_Out}));
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_EQ(result.out, m_Out + ": 4 nodes, 2 elements, data of 1 and 0\n");
    const std::string array =
        "<DataArray type=\"{}\" Name=\"{}\" NumberOfComponents=\"{}\" format=\"appended\" offset=\"{}\"/>\n";
    const std::string text =
        kMeshHead + "<PointData>\n" + fmt::format(fmt::runtime(array), "Float64", "t&lt;1&gt;", 1, 0) +
        "</PointData>\n<CellData>\n</CellData>\n<Points>\n" +
        fmt::format(fmt::runtime(array), "Float64", "Points", 3, 40) + "</Points>\n<Cells>\n" +
        fmt::format(fmt::runtime(array), "Int64", "connectivity", 1, 144) +
        fmt::format(fmt::runtime(array), "Int64", "offsets", 1, 208) +
        fmt::format(fmt::runtime(array), "UInt8", "types", 1, 232) +
        "</Cells>\n</Piece>\n</UnstructuredGrid>\n<AppendedData encoding=\"raw\">\n_";
    const std::string zero = "0000000000000000";
    const std::string one = "000000000000f03f";
    const std::string numbers = "2000000000000000" + one +
                                "0000000000000040 0000000000000840 0000000000001040" // t
                                "6000000000000000" +
                                zero + zero + zero + one + zero + zero + zero + one + zero + zero + zero +
                                one + "3800000000000000" + zero +
                                "0100000000000000 0200000000000000 0300000000000000" + zero +
                                "0100000000000000 0200000000000000" // tetra and triangle
                                "1000000000000000 0400000000000000 0700000000000000"
                                "0200000000000000 0a 05";
    EXPECT_EQ(Hex(ReadFile(m_Out)), Hex(text + Bytes(numbers) + "\n</AppendedData>\n</VTKFile>\n"));
}

TEST_F(RfmExportMesh, ItIsTheSameOfEachKindOfFile)
{
    ASSERT_EQ(Export(Mesh({"t=6", "--mesh", "first=1", "-o", m_Out})).code, 0);
    const std::string vtu = ReadFile(m_Out);
    const std::string plain = m_File;
    for (const std::string& kind : kKinds)
    {
        m_File = m_Folder / kind;
        ASSERT_EQ(Tool::Run({"convert", plain, m_File, "--to", kind}).code, 0);
        EXPECT_EQ(Export(Mesh({"t=6", "--mesh", "first=1", "-f", "-o", m_Out})).code, 0) << kind;
        EXPECT_TRUE(ReadFile(m_Out) == vtu) << kind;
    }
}

TEST_F(RfmExportMesh, DataGoesWhereItHasARowForEach)
{
    EXPECT_EQ(Export(Mesh({"6", "v=7", "ELEMENTS.reference", "--mesh", "first=1", "-o", m_Out})).out,
              m_Out + ": 4 nodes, 2 elements, data of 1 and 2\n");
    const std::string text = ReadFile(m_Out);
    EXPECT_THAT(text,
                HasSubstr("<PointData>\n<DataArray type=\"Float64\" Name=\"6\" NumberOfComponents=\"1\""));
    EXPECT_THAT(text, HasSubstr("<CellData>\n<DataArray type=\"Int32\" Name=\"v\" NumberOfComponents=\"3\""));
    EXPECT_THAT(text, HasSubstr("type=\"Float64\" Name=\"reference\"")) << "one row has no number there";
    EXPECT_THAT(Hex(text), HasSubstr(Hex(Bytes("1000000000000000 0000000000001c40 000000000000f87f"))));
}

TEST_F(RfmExportMesh, AMappingFileSaysTheSameAndTheCommandLineOutdoesIt)
{
    WriteFile(m_Folder / "map", "# the solver's tables\n\n nodes = NODES\r\nelements=ELEMENTS\nfirst=5\n"
                                "xyz=x,y\ncorners=node1,node2,node3\ncells=quadratic-edge\npoint-data=t=6\n");
    const ToolResult result =
        Export({"--to", "vtu", "-o", m_Out, "--map", m_Folder / "map", "--mesh", "first=1"});
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_EQ(result.out, m_Out + ": 4 nodes, 2 elements, data of 1 and 0\n");
    EXPECT_THAT(Hex(ReadFile(m_Out)), HasSubstr(Hex(Bytes("0200000000000000 15 15")))) << "type 21, twice";
}

TEST_F(RfmExportMesh, NodesAreKnownByTheirNumbersWhereThereIsAField)
{
    EXPECT_EQ(Export(Mesh({"--mesh", "ids=id", "-o", m_Out})).err,
              "rfm: ELEMENTS: row 0 names node 1; no node has this number; name another field with ids=\n");
    EXPECT_EQ(Export(Mesh({"--mesh", "ids=id", "--mesh", "corners=reference", "-o", m_Out})).code, 2);
    EXPECT_EQ(Export(Mesh({"-o", m_Out})).err, "rfm: ELEMENTS: row 0 names node 4; there are 4 from 0 on; "
                                               "first=1 counts rows from 1, ids=FIELD looks "
                                               "numbers up\n");
    EXPECT_FALSE(std::filesystem::exists(m_Out));
}

TEST_F(RfmExportMesh, WhatDoesNotFitTogetherIsToldWithWhatWouldDo)
{
    const Tool::Words first{"--mesh", "first=1", "-o", m_Out};
    const auto with = [&](Tool::Words words)
    {
        words.insert(words.end(), first.begin(), first.end());
        return Mesh(words);
    };
    ExpectRefusal(with({"1"}), 2, "1: is no table and no array; data is fields of tables and arrays");
    ExpectRefusal(with({"a=NODES"}), 2, "a=NODES: one name for several fields; name one: a=TABLE.FIELD");
    ExpectRefusal(with({"--mesh", "cell-data=6"}), 2,
                  "6: 4 rows, but 4 nodes and 2 elements; data has a row for each node, or for each element");
    ExpectRefusal(
        with({"--mesh", "cells=cube"}), 2,
        "cells=cube: there is no such cell; there are vertex, line, triangle, tetra, quad, pyramid, wedge, "
        "hexahedron, quadratic-tetra, quadratic-edge, quadratic-triangle, quadratic-quad, quadratic-pyramid, "
        "quadratic-wedge, quadratic-hexahedron");
    ExpectRefusal(
        with({"--mesh", "corners=reference,node1,node2,node3,node4"}), 2,
        "ELEMENTS: row 0 names node 7; there are 4 from 1 on; first=1 counts rows from 1, ids=FIELD looks "
        "numbers up");
    ExpectRefusal(with({"--mesh", "node=NODES"}), 2,
                  "--mesh: node: a mesh has no such key; did you mean nodes=?");
    ExpectRefusal(with({"--mesh", "nodes"}), 2,
                  "--mesh: nodes is not KEY=VALUE; say for example nodes=NODES");
    ExpectRefusal(with({"--mesh", "xyz=x"}), 2,
                  "xyz=x: 1 field, and a place has two or three; say for example xyz=x,y,z");
    ExpectRefusal(with({"--map", m_Folder / "none"}), 3,
                  m_Folder / "none" + ": no such file; give the path of a mapping");
    WriteFile(m_Folder / "map", "nodes=NODES\nelements\n");
    ExpectRefusal(with({"--map", m_Folder / "map"}), 2,
                  m_Folder / "map" + ", line 2: elements is not KEY=VALUE; say for example nodes=NODES");
    ExpectRefusal({"--to", "vtu", "-o", m_Out, "--mesh", "nodes=NODES"}, 2,
                  "--to vtu: the tables of nodes and elements are not given; say --mesh nodes=TABLE --mesh "
                  "elements=TABLE, or give a file of such lines with --map");
    ExpectRefusal({"--to", "vtu", "-o", m_Out, "--mesh", "nodes=NODE", "--mesh", "elements=ELEMENTS"}, 3,
                  m_File + ": no table has the name NODE; did you mean NODES?");
}
} // namespace
