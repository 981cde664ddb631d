// What every command says of a file that it can't work with, word for word. tests/data/bad_files.txt holds the exit code
// and all that is said, once for the commands that answer alike; the commands are those that the tool itself names.
#include "CommandLines.h"
#include "EnvironmentVariable.h"
#include "NewFiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <filesystem>
#include <numeric>
#include <regex>
#include <set>
#include <sstream>

#include <zlib.h>

namespace
{
using testing::IsSubsetOf;

constexpr int kSector = 4096;

std::string Golden(const std::string& name) { return ReadFile(RFM_TEST_DATA "/" + name); }

// A copy of a golden file, and what is damaged in it.
class GoldenCopy
{
public:
    GoldenCopy(std::string path, const std::string& name) : m_Path(std::move(path))
    {
        WriteFile(m_Path, Golden(name));
    }
    template <class T> void Put(std::int64_t offset, T value) const { Overwrite<T>(m_Path, offset, value); }
    void CutTo(std::uintmax_t size) const { std::filesystem::resize_file(m_Path, size); }

    // A linkage entry: room, length, place, next.
    void PutLength(int entry, double value) const { Put<double>(EntryPlace(entry) + 8, value); }
    void PutPlace(int entry, double value) const { Put<double>(EntryPlace(entry) + 16, value); }
    void PutNext(int entry, std::int32_t value) const { Put<std::int32_t>(EntryPlace(entry) + 24, value); }

private:
    std::string m_Path;
};

struct BadFile
{
    const char* name;
    void (*make)(const std::string& path);
    bool isForOthers = false; // the commands that read no database are asked, too
};
void PrintTo(const BadFile& file, std::ostream* stream) { *stream << file.name; }

const BadFile kBadFiles[] = {
    {"Missing", [](const std::string&) {}, true},
    {"Directory", [](const std::string& path) { std::filesystem::create_directory(path); }, true},
    {"Device", [](const std::string& path) { std::filesystem::create_symlink("/dev/zero", path); }},
    {"Empty", [](const std::string& path) { WriteFile(path, ""); }, true},
    {"OldFormat", [](const std::string& path) { WriteFile(path, "TVNDFM" + std::string(2000, '\0')); }},
    {"Text", [](const std::string& path) { WriteFile(path, "just a t\xc3\xa4xt\n"); }},
    {"Picture", [](const std::string& path) { WriteFile(path, "\x89PNG\r\n\x1a\n"); }, true},
    {"NeverFlushed",
     [](const std::string& path)
     {
         rfm_Database database = CreateDatabase(path);
         const std::string bytes = ReadFile(path);
         database.Close();
         WriteFile(path, bytes);
     }},

    // --- a plain one ---
    {"Cut", [](const std::string& path) { GoldenCopy(path, "table.rdx").CutTo(15400); }, true},
    {"LinkageBlockThatLeadsToItself",
     [](const std::string& path) { GoldenCopy(path, "table.rdx").PutPlace(0, 1024); }},
    {"LinkageBlockOutsideTheFile",
     [](const std::string& path) { GoldenCopy(path, "stream.rdx").PutPlace(0, 1e9); }},
    {"LinkageChainInALoop", [](const std::string& path) { GoldenCopy(path, "table.rdx").PutNext(6, 4); }},
    {"LinkageChainOutOfItsTable",
     [](const std::string& path) { GoldenCopy(path, "space.rdx").PutNext(4, 600); }},
    {"ExtentsOverEachOther",
     [](const std::string& path) { GoldenCopy(path, "table.rdx").PutPlace(6, 15368); }},
    {"LengthThatIsNoNumber",
     [](const std::string& path) { GoldenCopy(path, "strings.rdx").PutLength(4, std::nan("")); }},
    {"LayoutShorterThanItsHead",
     [](const std::string& path) { GoldenCopy(path, "layouts.rdx").Put<std::int32_t>(15684, 8); }},
    {"TextPastItsPool",
     [](const std::string& path) { GoldenCopy(path, "table.rdx").Put<std::int32_t>(15656, 100000); }},
    {"ReferenceThatLeadsToNoText",
     [](const std::string& path) { GoldenCopy(path, "table.rdx").Put<std::int64_t>(15392, 6); }},

    // --- a compressed one ---
    {"CompressedCut", [](const std::string& path) { GoldenCopy(path, "compressed.rdx").CutTo(5 * kSector); }},
    {"CompressedSegmentSizeOfNothing",
     [](const std::string& path) { GoldenCopy(path, "compressed.rdx").Put<std::int32_t>(28, 0); }},
    {"CompressedCountThatOverflows",
     [](const std::string& path)
     {
         const GoldenCopy copy(path, "compressed.rdx");
         copy.Put<std::int32_t>(28, 1 << 30);
         copy.Put<std::int32_t>(32, INT32_MAX);
     }},
    {"CompressedCellOutsideTheFile",
     [](const std::string& path) { GoldenCopy(path, "compressed.rdx").Put<std::int32_t>(48, 99); }},
    {"CompressedChainInALoop", [](const std::string& path)
     { GoldenCopy(path, "compressed.rdx").Put<std::int32_t>(2 * kSector - 4, 1); }},
    {"CompressedStreamBeyondItsChain",
     [](const std::string& path) { GoldenCopy(path, "compressed.rdx").Put<std::int32_t>(kSector, 9000); }},
    {"CompressedStreamOfMoreThanASegment",
     [](const std::string& path)
     {
         const GoldenCopy copy(path, "compressed.rdx");
         const std::string zeros(8192, '\0');
         std::array<Bytef, 1024> stream{};
         uLongf size = stream.size();
         ::compress(stream.data(), &size, reinterpret_cast<const Bytef*>(zeros.data()), zeros.size());
         copy.Put(kSector, static_cast<std::uint32_t>(size + 4));
         copy.Put(kSector + 4, stream);
     }},

    // --- one in an HDF5 file ---
    {"Hdf5Cut", [](const std::string& path) { GoldenCopy(path, "hdf5.rdx").CutTo(9000); }},
    {"Hdf5WithADamagedHead",
     [](const std::string& path) { GoldenCopy(path, "hdf5.rdx").Put<std::uint32_t>(9, 0xFFFFFFFF); }},
};

std::set<std::string> NamesOf(const std::vector<CommandLine>& commands)
{
    std::set<std::string> names;
    for (const CommandLine& command : commands) names.insert(command.name);
    return names;
}

std::vector<CommandLine> DatabaseCommands() { return {std::begin(kCommandLines), std::end(kCommandLines)}; }

std::vector<CommandLine> AllCommands()
{
    std::vector<CommandLine> all = DatabaseCommands();
    all.insert(all.end(), std::begin(kOtherCommandLines), std::end(kOtherCommandLines));
    return all;
}

std::string Replaced(std::string text, const std::string& from, const std::string& to)
{
    for (std::size_t place = text.find(from); place != std::string::npos;
         place = text.find(from, place + to.size()))
        text.replace(place, from.size(), to);
    return text;
}

// "import csv" where a command has several forms, else its name.
std::string Title(const CommandLine& command)
{
    return std::string(command.name) == "import" ? "import " + command.words.front() : command.name;
}

// A section of bad_files.txt: "=== NAME" and all up to the next.
std::string Section(const std::string& name)
{
    const std::string all = "\n" + Golden("bad_files.txt") + "=== ";
    const std::string head = "\n=== " + name + "\n";
    const std::size_t start = all.find(head);
    if (start == std::string::npos) return "";
    return all.substr(start + head.size(), all.find("\n=== ", start + 1) + 1 - start - head.size());
}

class EveryBadFile : public testing::TestWithParam<BadFile>
{
protected:
    EveryBadFile() { GetParam().make(m_File); }

    // What these tell on standard output is what they have found; of others it is data.
    static bool IsAReport(const CommandLine& command)
    {
        return std::string_view(command.name) == "check" || std::string_view(command.name) == "recover";
    }
    // What one command says: the code, whether OUT is there, and what it has to say.
    std::string Answer(const CommandLine& command) const
    {
        const ToolResult result = Tool::Run(WordsOf(command, m_File, m_Out));
        std::string answer = "exit " + std::to_string(result.code);
        if (std::filesystem::remove(m_Out)) answer += ", makes OUT";
        EXPECT_THAT(NamesIn(m_Folder / ""), IsSubsetOf({"file.rdx"})) << Title(command);
        answer += "\n" + Marked("err", result.err);
        return IsAReport(command) ? answer + Marked("out", result.out) : answer;
    }
    std::string Marked(const std::string& mark, const std::string& text) const
    {
        std::string marked;
        std::istringstream lines(Replaced(Replaced(text, m_File, "FILE"), m_Out, "OUT"));
        for (std::string line; std::getline(lines, line);) marked += mark + "  " + line + "\n";
        // What HDF5 itself says is another version's own.
        return Replaced(
            std::regex_replace(marked, std::regex("reason: H5[^\n]*; restore"), "reason: ...; restore"),
            m_Folder / "", "");
    }
    // One paragraph for the commands that answer alike.
    std::string Answers(const std::vector<CommandLine>& commands) const
    {
        std::vector<std::pair<std::string, std::string>> groups;
        for (const CommandLine& command : commands)
        {
            const std::string answer = Answer(command);
            const auto known = std::find_if(groups.begin(), groups.end(),
                                            [&](const auto& group) { return group.second == answer; });
            if (known == groups.end())
                groups.emplace_back(Title(command), answer);
            else
                known->first += ", " + Title(command);
        }
        std::string text;
        for (const auto& [names, answer] : groups) text += "--- " + names + "\n" + answer;
        return text;
    }

    const TestFolder m_Folder;
    const TestFolder m_Elsewhere; // connections
    const EnvironmentVariable m_Settings{"XDG_CONFIG_HOME", m_Elsewhere.Path().c_str()};
    std::string m_File = m_Folder / "file.rdx";
    std::string m_Out = m_Folder / "out.rdx";
};

TEST_P(EveryBadFile, IsAnsweredByEveryCommandInItsOwnWords)
{
    const std::string answers = Answers(GetParam().isForOthers ? AllCommands() : DatabaseCommands());
    EXPECT_EQ(answers, Section(GetParam().name)) << "in full:\n=== " << GetParam().name << "\n" << answers;
}

INSTANTIATE_TEST_SUITE_P(, EveryBadFile, testing::ValuesIn(kBadFiles),
                         [](const auto& each) { return std::string(each.param.name); });

TEST(EveryCommandLine, IsOfACommandOfTheToolAndEachHasOne)
{
    std::istringstream words(Tool::Run({"__complete", ""}).out);
    const std::set<std::string> names{std::istream_iterator<std::string>(words), {}};
    EXPECT_EQ(NamesOf(AllCommands()), names);
}

TEST(BadFiles, AreThoseOfTheGoldenAnswers)
{
    std::vector<std::string> names;
    std::istringstream lines(Golden("bad_files.txt"));
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with("=== ")) names.push_back(line.substr(4));
    std::vector<std::string> made;
    for (const BadFile& file : kBadFiles) made.emplace_back(file.name);
    EXPECT_EQ(names, made);
}

// --- a file that its writer has in hand ---

class WriterAtWork : public testing::TestWithParam<CommandLine>
{
protected:
    ToolResult Run() const { return Tool::Run(WordsOf(GetParam(), m_File, m_Out)); }

    TestFolder m_Folder;
    std::string m_File = m_Folder / "w.rdx";
    std::string m_Out = m_Folder / "out.rdx";
};

TEST_P(WriterAtWork, WhatItHasFlushedIsRead)
{
    rfm_Database database = CreateDatabase(m_File);
    {
        rfm_TableMetadata layout("STEPS", 1);
        const int id = layout.DefineIntField("id");
        rfm_Table steps = database.Table(database.Bind(layout), -1, -1);
        steps.NewRow().WriteFieldInt(id, 1);
        steps.Flush();
        database.Flush();
        steps.NewRow().WriteFieldInt(id, 2);
        const ToolResult result = Run();
        EXPECT_EQ(result.code, GetParam().codeWhenSound) << result.err;
        steps.Flush();
    }
    database.Close();
}

INSTANTIATE_TEST_SUITE_P(, WriterAtWork, testing::ValuesIn(kCommandLines),
                         [](const auto& each) { return std::string(each.param.name); });

// --- a file that vanishes ---

// What the tool prints of it fits into no pipe: it waits in the midst of its work until the test reads on.
class VanishingFile : public testing::TestWithParam<std::string>
{
protected:
    VanishingFile()
    {
        MakeNumbers(m_Folder / "plain", 0);
        MakeNumbers(m_Folder / "other", 1);
        EXPECT_EQ(Tool::Run({"convert", m_Folder / "plain", m_File, "--to", GetParam()}).code, 0);
    }
    static void MakeNumbers(const std::string& path, int first)
    {
        rfm_Database database = CreateDatabase(path);
        {
            auto numbers = database.ArrayInt(1, -1, 0);
            std::vector<int> values(100000);
            std::iota(values.begin(), values.end(), first);
            numbers.Write(values.data(), static_cast<int>(values.size()));
            numbers.Flush();
        }
        database.Close();
    }
    // A run whose file is gone once its first line was read.
    ToolResult RunAndRemove(const Tool::Words& words) const
    {
        Tool tool(words);
        const std::string line = tool.Line() + "\n";
        std::filesystem::remove(m_File);
        ToolResult result = tool.Finish();
        result.out = line + result.out;
        return result;
    }

    TestFolder m_Folder;
    std::string m_File = m_Folder / "file";
};

TEST_P(VanishingFile, IsReadToItsEnd)
{
    for (const Tool::Words& words :
         {Tool::Words{"rows", m_File, "4"}, Tool::Words{"export", m_File, "4", "--to", "jsonl"}})
    {
        const std::string sound = Tool::Run(words).out;
        std::filesystem::copy_file(m_File, m_Folder / "kept");
        const ToolResult result = RunAndRemove(words);
        EXPECT_EQ(result.code, 0);
        EXPECT_EQ(result.err, "");
        EXPECT_TRUE(result.out == sound) << words.front();
        std::filesystem::rename(m_Folder / "kept", m_File);
    }
}

TEST_P(VanishingFile, IsToldByDiffWhichHasToKnowThatNobodyWroteIt)
{
    const ToolResult result = RunAndRemove({"diff", m_File, m_Folder / "other"});
    EXPECT_EQ(result.code, 3);
    EXPECT_EQ(result.err,
              "rfm: " + m_File + ": no such file; give the path of a database, such as job.rdx\n");
}

INSTANTIATE_TEST_SUITE_P(, VanishingFile, testing::ValuesIn(kKinds),
                         [](const auto& each) { return each.param; });
} // namespace
