// `rfm recover` as a person runs it; what it finds in which damage is in rfm_recovery_test.cpp.
#include "NewFiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

namespace
{
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class RfmRecover : public testing::Test
{
protected:
    RfmRecover() { MakeSample(m_In); }

    ToolResult Recover(const Tool::Words& more = {})
    {
        Tool::Words words{"recover", m_In, m_Out};
        words.insert(words.end(), more.begin(), more.end());
        return Tool::Run(words);
    }
    std::string Hash(const std::string& path) const
    {
        std::string line = Tool::Run({"hash", path}).out;
        if (!line.empty()) line.pop_back();
        return line;
    }
    std::vector<std::string> Names() const { return NamesIn(m_Folder / ""); }
    // The same database in a file of another kind.
    std::string As(const std::string& kind) const
    {
        const std::string path = m_Folder / kind;
        EXPECT_EQ(Tool::Run({"convert", m_In, path, "--to", kind}).code, 0);
        return path;
    }
    // An array 4 of numbers, over many chunks and segments.
    void MakeLong(std::size_t count = 100000) const
    {
        rfm_Database database = CreateDatabase(m_In);
        {
            auto array = database.ArrayDouble(1, -1, 0);
            std::vector<double> values(count);
            for (std::size_t i = 0; i < values.size(); ++i) values[i] = static_cast<double>(i) * 1.25;
            array.Write(values.data(), static_cast<int>(values.size()));
            array.Flush();
        }
        database.Close();
    }
    void ExpectRefused(const std::string& path, const std::string& why) const
    {
        const std::vector<std::string> before = Names();
        const ToolResult result = Tool::Run({"recover", path, m_Out});
        EXPECT_EQ(result.code, 4) << result.out;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        EXPECT_THAT(result.err, StartsWith("rfm: " + path + ": " + why));
        EXPECT_THAT(result.err, EndsWith("; restore it from a copy\n"));
        EXPECT_EQ(Names(), before);
    }

    TestFolder m_Folder;
    std::string m_In = m_Folder / "in.rdx";
    std::string m_Out = m_Folder / "out.rdx";
};

TEST_F(RfmRecover, OfASoundDatabaseNothingIsLost)
{
    const ToolResult result = Recover();
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, m_Out + ": plain, 6 objects; 0 lost, 0 mended; " + Hash(m_In) + "\n");
    EXPECT_EQ(Hash(m_Out), Hash(m_In));
    EXPECT_EQ(Tool::Run({"check", m_Out}).code, 0);
}

TEST_F(RfmRecover, EachKindIsReadAndWritten)
{
    for (const std::string& first : kKinds)
        for (const std::string& second : kKinds)
        {
            const std::string from = m_Folder / "from";
            ASSERT_EQ(Tool::Run({"convert", m_In, from, "--to", first, "-f"}).code, 0);
            EXPECT_EQ(Tool::Run({"recover", from, m_Out, "--to", second, "-f"}).code, 0) << first << second;
            EXPECT_THAT(Tool::Run({"info", m_Out}).out, HasSubstr("\nkind\t" + second + " database"));
            EXPECT_EQ(Hash(m_Out), Hash(m_In)) << first << second;
        }
}

// A wrong stamp, an old version, a wrong mark: the library refuses each of them, and nothing is lost by it.
TEST_F(RfmRecover, WhatTheLibraryRefusesIsRecoveredFromItsBytes)
{
    const std::string sound = Hash(m_In);
    Overwrite<double>(m_In, 504, 4711);
    Overwrite<int>(m_In, 8, 3);
    ASSERT_EQ(Tool::Run({"ls", m_In}).code, 4);
    EXPECT_EQ(Recover().out, "mended: file, offset 8: version: found 3\n"
                             "mended: file, offset 500: size stamp: it is not the size of the file\n" +
                                 m_Out + ": plain, 6 objects; 0 lost, 2 mended; " + sound + "\n");
    Overwrite<char>(m_In, 0, 'X');
    const ToolResult result = Recover({"-f"});
    EXPECT_EQ(result.code, 0);
    EXPECT_THAT(result.out, StartsWith("mended: file, offset 0: mark of a database: found \"XVNR\"\n"));
    EXPECT_EQ(Hash(m_Out), sound);
}

TEST_F(RfmRecover, ABrokenEntryCostsItsObjectAndCheckNamesTheWay)
{
    Overwrite<double>(m_In, EntryPlace(6) + 8, -1);
    ASSERT_EQ(Tool::Run({"ls", m_In}).code, 4);
    EXPECT_THAT(Tool::Run({"check", m_In}).out,
                EndsWith("11 texts; `rfm recover " + m_In + " OUT` saves what can still be read\n"));
    const ToolResult result = Recover();
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(
        result.out,
        StartsWith("lost: handle 6, offset 1192: what was at an entry of the linkage table: the numbers "
                   "of its place are none\n"
                   "lost: handle 6, offset 1192: the object: none of its bytes can be found\n" +
                   m_Out + ": plain, 5 objects; 2 lost, 0 mended; rfm-hash-1:"));
    EXPECT_EQ(Tool::Run({"diff", m_Out, m_In}).code, 4) << "IN does not open";
    EXPECT_EQ(Tool::Run({"dump", m_Out, "8"}).out,
              "row\ttype\tid\tvalue\n0\tint\t1\t-7\n1\tfloat\t2\t2.5\n2\tdouble\t3\t0.3333333333333333\n"
              "3\thandle\t4\t4\n4\tstring\t5\ttext\n");
}

TEST_F(RfmRecover, AFileThatWasCutOffKeepsTheRowsBeforeTheCut)
{
    const std::int64_t cut = ExtentOfEntry(m_In, 6) + 16 + 24; // one and a half rows of the array
    std::filesystem::resize_file(m_In, static_cast<std::uintmax_t>(cut));
    const ToolResult result = Recover();
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.out, HasSubstr("lost: handle 6, offset " + std::to_string(cut) +
                                      ": elements from 3 on: the bytes can't be found\n"));
    EXPECT_EQ(Tool::Run({"dump", m_Out, "6"}).out, "row\t0\t1\n0\t1\t2\n1\t3\tnan\n");
}

TEST_F(RfmRecover, JsonHasEachLossAsAnObject)
{
    Overwrite<double>(m_In, ExtentOfEntry(m_In, 7) + 16, 6);
    const std::int64_t place = ExtentOfEntry(m_In, 7) + 16;
    const ToolResult result = Recover({"--json"});
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.out,
              "{\"rfm\":1,\"command\":\"recover\",\"file\":\"" + m_In + "\",\"out\":\"" + m_Out +
                  "\",\"to\":\"plain\",\"objects\":6,\"lost\":1,\"mended\":0,\"hash\":\"" + Hash(m_Out) +
                  "\",\"losses\":[\n{\"lost\":true,\"handle\":7,\"offset\":" + std::to_string(place) +
                  ",\"what\":\"row 0, element 0\",\"why\":\"a reference to 6, where no text can be "
                  "read\"}]}\n");
    EXPECT_EQ(Tool::Run({"dump", m_Out, "7"}).out, "row\t0\n0\t\n1\ttwo, \"three\"\n");
}

// The rows of a segment that can't be inflated are without data; those before and behind it are as they were.
TEST_F(RfmRecover, OfACompressedFileOnlyTheHurtSegmentIsLost)
{
    MakeLong(30000);
    const std::string compressed = m_Folder / "c.sdx";
    ASSERT_EQ(Tool::Run({"convert", m_In, compressed, "--to", "compressed"}).code, 0);
    // Cell 1 is the first sector of segment 1, whose stream begins behind its length.
    const std::int64_t stream = 4096 * std::int64_t{NumberAt<std::uint32_t>(compressed, 40 + 4)};
    Overwrite<std::uint32_t>(compressed, stream + 100, ~NumberAt<std::uint32_t>(compressed, stream + 100));
    const ToolResult result = Tool::Run({"recover", compressed, m_Out, "--to", "plain"});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(
        result.out,
        StartsWith("lost: file, offset 65536: bytes up to 131072: segment 1 of the compressed file can't "
                   "be read\n"
                   "lost: handle 4, offset 65536: elements "));
    const ToolResult diff = Tool::Run({"diff", m_In, m_Out});
    EXPECT_THAT(diff.out, HasSubstr("object\t4\tdouble array\t8192 differences, worst inf at row "));
}

TEST_F(RfmRecover, OfACompressedFileHeaderAndDirectoryAreNotNeeded)
{
    const std::string compressed = As("compressed");
    for (int place = 0; place < 4096; place += 4) Overwrite<int>(compressed, place, 0);
    ASSERT_EQ(Tool::Run({"ls", compressed}).code, 4);
    const ToolResult result = Tool::Run({"recover", compressed, m_Out});
    EXPECT_EQ(result.code, 0) << result.err;
    const std::string zeros = "\\x00\\x00\\x00\\x00\\x00\\x00\\x00\\x00";
    EXPECT_EQ(
        result.out,
        "mended: file, offset 0: magic of the compressed file: found \"" + zeros +
            "\"\n"
            "mended: file, offset 8: version of the compressed file: found 0, where 1 stands\n"
            "mended: file, offset 12: length of the user header of the compressed file: found 0, where 20 "
            "stands\n"
            "mended: file, offset 20: magic of the segments of the compressed file: found 0, where "
            "1631699365 "
            "stands\n"
            "mended: file, offset 24: version of the segments of the compressed file: found 0, where 1 "
            "stands\n"
            "mended: file, offset 4092: directory of the compressed file: it would go on in sector 0; what "
            "streams lack a cell is searched for\n"
            "mended: file, offset 28: size, number and last length of the segments of the compressed file: "
            "found 0, 0 and 0; segments of 65536 bytes are taken\n"
            "mended: file, offset 40: directory of the compressed file: the stream of segment 0 lacked; "
            "found "
            "by what begins in it\n" +
            m_Out + ": compressed, 6 objects; 0 lost, 8 mended; " + Hash(m_In) + "\n");
}

// ---- HDF5 files: what HDF5 reads of them, and what it refuses ----

TEST_F(RfmRecover, DamageInTheDatabaseOfAnHdf5FileIsThatOfAPlainOne)
{
    const std::string hdf5 = As("hdf5");
    const auto start = static_cast<std::int64_t>(ReadFile(hdf5).find("TVNR"));
    Overwrite<double>(hdf5, start + EntryPlace(6) + 8, -1); // in the first chunk
    const ToolResult result = Tool::Run({"recover", hdf5, m_Out});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(
        result.out,
        StartsWith("lost: handle 6, offset 1192: what was at an entry of the linkage table: the numbers "
                   "of its place are none\n"
                   "lost: handle 6, offset 1192: the object: none of its bytes can be found\n" +
                   m_Out + ": hdf5, 5 objects; 2 lost, 0 mended; rfm-hash-1:"));
}

TEST_F(RfmRecover, OfADatasetThatIsTooShortTheRestIsLost)
{
    const std::string hdf5 = As("hdf5");
    const std::int64_t size = static_cast<std::int64_t>(std::filesystem::file_size(m_In));
    const std::string number(reinterpret_cast<const char*>(&size), sizeof size);
    const std::int64_t cut = ExtentOfEntry(m_In, 6) + 16 + 24;
    Overwrite<std::int64_t>(hdf5, static_cast<std::int64_t>(ReadFile(hdf5).find(number)), cut);
    const ToolResult result = Tool::Run({"recover", hdf5, m_Out});
    EXPECT_EQ(result.code, 1) << result.err;
    EXPECT_THAT(result.out, HasSubstr("lost: handle 6, offset " + std::to_string(cut) +
                                      ": elements from 3 on: the bytes can't be found\n"));
    EXPECT_EQ(Tool::Run({"dump", m_Out, "6"}).out, "row\t0\t1\n0\t1\t2\n1\t3\tnan\n");
}

// Places of the nodes of a level of the index of chunks, by the first byte of the dataset for which they stand. A node
// begins with a word, a type of 1, its level and 18 bytes more; then stand the size of a chunk, 4 bytes, and its place.
std::map<std::int64_t, std::int64_t> NodesOfChunks(const std::string& path, char level)
{
    std::map<std::int64_t, std::int64_t> nodes;
    const std::string bytes = ReadFile(path);
    const std::string start = std::string("TREE\1") + level;
    for (std::size_t place = bytes.find(start); place != std::string::npos;
         place = bytes.find(start, place + 1))
        nodes[NumberAt<std::int64_t>(path, static_cast<std::int64_t>(place) + 32)] =
            static_cast<std::int64_t>(place);
    return nodes;
}

TEST_F(RfmRecover, OfAnHdf5FileOnlyWhatHdf5CantReadIsLost)
{
    MakeLong();
    const std::string hdf5 = As("hdf5");
    const std::map<std::int64_t, std::int64_t> leaves = NodesOfChunks(hdf5, '\0');
    ASSERT_GT(leaves.size(), 2U);
    const auto second = std::next(leaves.begin());
    Overwrite<int>(hdf5, second->second, 0);
    const ToolResult result = Tool::Run({"recover", hdf5, m_Out});
    EXPECT_EQ(result.code, 1) << result.err;
    const std::int64_t start = second->first;
    const std::int64_t end = std::next(second)->first;
    EXPECT_THAT(result.out,
                StartsWith("lost: file, offset " + std::to_string(start) + ": bytes up to " +
                           std::to_string(end) + ": HDF5 can't read them\nlost: handle 4, offset " +
                           std::to_string(start) + ": elements "));
    EXPECT_THAT(result.out, HasSubstr(": hdf5, 1 object; 2 lost, 0 mended; "));
    const std::string differences = std::to_string((end - start) / 8) + " differences, worst inf at row ";
    EXPECT_THAT(Tool::Run({"diff", m_In, m_Out}).out, HasSubstr("object\t4\tdouble array\t" + differences));
}

TEST_F(RfmRecover, AnHdf5FileWhoseOwnStructureIsBrokenIsRefusedInClearWords)
{
    MakeLong();
    const std::string hdf5 = As("hdf5");
    const std::string sound = ReadFile(hdf5);
    const std::string refusal =
        "only HDF5 can tell where in it the database lies, and refuses it: HDF5 can't open ";
    Overwrite<std::int64_t>(hdf5, 8, -1); // behind the mark of an HDF5 file
    ExpectRefused(hdf5, refusal);
    WriteFile(hdf5, sound.substr(0, sound.size() / 2));
    ExpectRefused(hdf5, refusal);
    WriteFile(hdf5, sound);
    const std::map<std::int64_t, std::int64_t> roots = NodesOfChunks(hdf5, '\1');
    ASSERT_EQ(roots.size(), 1U);
    Overwrite<int>(hdf5, roots.at(0), 0);
    ExpectRefused(hdf5, "HDF5 can't read the start of the database, which tells where all else in it lies");
    WriteFile(hdf5, sound);
    Overwrite<int>(hdf5, NodesOfChunks(hdf5, '\0').at(0), 0);
    ExpectRefused(hdf5, "HDF5 can't read the start of the database, which tells where all else in it lies");
}

TEST_F(RfmRecover, WhatIsNoDatabaseIsRefused)
{
    WriteFile(m_In, std::string(100000, 'x'));
    const ToolResult result = Recover();
    EXPECT_EQ(result.code, 4);
    EXPECT_EQ(result.err,
              "rfm: " + m_In +
                  ": not a database: nothing in it leads to texts or layouts; restore it from a copy\n");
    EXPECT_EQ(Tool::Run({"recover", m_Folder / "none", m_Out}).code, 3);
    EXPECT_EQ(Tool::Run({"recover", m_Folder / "", m_Out}).code, 4);
    EXPECT_EQ(Tool::Run({"recover", m_In}).code, 2);
    EXPECT_THAT(Names(), ElementsAre("in.rdx"));
}

TEST_F(RfmRecover, AFullDiskIsExitSevenAndLeavesNothing)
{
    for (const std::string& kind : kKinds)
    {
        const FileSizeLimit limit(4096);
        const ToolResult result = Recover({"--to", kind});
        EXPECT_EQ(result.code, 7) << kind;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        EXPECT_THAT(Names(), ElementsAre("in.rdx")) << kind;
    }
    EXPECT_EQ(Tool::Run({"recover", m_In, m_Out}, "", "/dev/full").code, 7);
}

TEST_F(RfmRecover, AnInterruptedRunLeavesNothing)
{
    MakeEndless(m_In);
    for (const std::string& kind : kKinds)
    {
        const FolderWatch watch(m_Folder / "");
        Tool tool({"recover", m_In, m_Out, "--to", kind});
        watch.WaitForAWrite();
        tool.Signal(SIGINT);
        EXPECT_EQ(tool.Finish().code, 130) << kind;
        EXPECT_THAT(Names(), ElementsAre("in.rdx")) << kind;
    }
}
} // namespace
