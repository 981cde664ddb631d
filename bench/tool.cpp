#include "tool.h"

#include "PipedChild.h"
#include "contenders.h"
#include "peers.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <fstream>
#include <iterator>
#include <optional>
#include <rfm.h>
#include <stdexcept>
#include <thread>

namespace bench
{

namespace
{

constexpr const char* kMagic = "BNCH";
constexpr int kQuantum = 1 << 20;

// ---- Files ----

rfm_Database NewDatabase(const std::string& file)
{
    StartRfm();
    return rfm_Database::Create(rfm_File::Open(file.c_str(), utl_FileAccessCreate), kMagic, "bench", 1);
}

void WriteArray(rfm_Database& database, const std::vector<double>& values)
{
    auto array = database.ArrayDouble(1, kQuantum, kQuantum);
    array.Write(values.data(), static_cast<int>(values.size()));
    array.Flush();
}

std::vector<double> ArrayValues(int count)
{
    std::vector<double> values(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) values[static_cast<std::size_t>(i)] = ToolArrayValue(i);
    return values;
}

void WriteObjects(const std::string& file, const Sizes& sizes)
{
    const std::vector<double> values = ArrayValues(sizes.toolObjectDoubles);
    rfm_Database database = NewDatabase(file);
    for (int i = 0; i < sizes.toolObjectCount; ++i) WriteArray(database, values);
    database.Close();
}

void WriteOneArray(const std::string& file, const Sizes& sizes)
{
    rfm_Database database = NewDatabase(file);
    WriteArray(database, ArrayValues(sizes.toolArrayDoubles));
    database.Close();
}

/// Two whole numbers, two others and a text, which the layout has in the order of their names.
void WriteTable(const std::string& file, const Sizes& sizes)
{
    rfm_Database database = NewDatabase(file);
    {
        rfm_TableMetadata layout("nodes", 1);
        for (const char* name : {"number", "part"}) layout.DefineIntField(name);
        for (const char* name : {"x", "y"}) layout.DefineDoubleField(name);
        layout.DefineStringField("zone");
        rfm_Table table = database.Table(database.Bind(layout), kQuantum, 1);
        for (int i = 0; i < sizes.toolRowCount; ++i)
        {
            const ToolRow row = ToolRowAt(i);
            rfm_Row stored = table.NewRow();
            stored.WriteFieldInt(0, row.number);
            stored.WriteFieldInt(1, row.part);
            stored.WriteFieldDouble(2, row.x);
            stored.WriteFieldDouble(3, row.y);
            stored.WriteFieldString(4, row.zone.c_str());
        }
        table.Flush();
    }
    database.Close();
}

// ---- What a program printed ----

/// The sum of the numbers in the lines that begin with one, each four times and one more for each piece of text between
/// separators: the numbers are quarters.
std::uint64_t SumOfText(const std::string& file, int headLines)
{
    std::ifstream stream(file);
    std::uint64_t sum = 0;
    std::string line;
    for (int number = 0; std::getline(stream, line); ++number)
    {
        constexpr const char* kSeparators = " ,\t\r";
        std::size_t at = line.find_first_not_of(kSeparators);
        if (number < headLines || at == std::string::npos || line[at] < '0' || line[at] > '9') continue;
        while (at != std::string::npos)
        {
            const std::size_t end = std::min(line.find_first_of(kSeparators, at), line.size());
            double value = 0;
            std::from_chars(line.data() + at, line.data() + end, value);
            sum += static_cast<std::uint64_t>(value * 4) + 1;
            at = line.find_first_not_of(kSeparators, end);
        }
    }
    return sum;
}

/// How many words begin so.
std::uint64_t CountWords(const std::string& file, std::string_view beginning)
{
    std::ifstream stream(file);
    return static_cast<std::uint64_t>(
        std::count_if(std::istream_iterator<std::string>(stream), std::istream_iterator<std::string>(),
                      [&](const std::string& word) { return word.starts_with(beginning); }));
}

/// The whole number before a word.
std::uint64_t NumberBefore(const std::string& file, std::string_view word)
{
    std::ifstream stream(file);
    std::string before;
    for (std::string next; stream >> next; before = next)
        if (next == word) return std::stoull(before);
    return 0;
}

// ---- Programs ----

/// A program that runs to its end, and what must be there before it starts.
struct Program
{
    std::string input;
    void (*write)(const std::string& input, const Sizes& sizes);
    std::vector<std::string> words;
    int starts = 1;
    std::uint64_t (*sum)(const std::string& output, const Sizes& sizes);
};

class ProgramContender : public Contender
{
public:
    ProgramContender(const Setting& setting, Program program)
        : m_Sizes(setting.sizes),
          m_Program(std::move(program)),
          m_Output(m_Program.input + ".out")
    {
    }
    void Build() override
    {
        if (m_Program.write != nullptr) m_Program.write(m_Program.input, m_Sizes);
    }
    void Prepare(int /*round*/) override { RunToEnd(m_Program.words, m_Output); }
    double Run() override
    {
        const double seconds = SecondsOf(
            [&]
            {
                for (int i = 0; i < m_Program.starts; ++i) RunToEnd(m_Program.words, m_Output);
            });
        return seconds / m_Program.starts;
    }
    std::uint64_t Verify() override { return m_Program.sum(m_Output, m_Sizes); }

private:
    const Sizes m_Sizes;
    const Program m_Program;
    const std::string m_Output;
};

/// Rows that `follow` told of.
std::uint64_t RowsTold(const std::string& file)
{
    std::ifstream stream(file);
    std::uint64_t rows = 0;
    for (std::string word; stream >> word;)
        if (word.starts_with("+")) rows += std::stoull(word.substr(1));
    return rows;
}

std::uint64_t NothingToSum(const std::string& /*output*/, const Sizes& /*sizes*/) { return 0; }
/// Of a program that lists none, beside others that do.
std::uint64_t AsManyObjects(const std::string& /*output*/, const Sizes& sizes)
{
    return static_cast<std::uint64_t>(sizes.toolObjectCount);
}
std::uint64_t ListedObjects(const std::string& output, const Sizes& /*sizes*/)
{
    return CountWords(output, "array");
}
std::uint64_t ToldObjects(const std::string& output, const Sizes& /*sizes*/)
{
    return NumberBefore(output, "arrays");
}
std::uint64_t TextBelowAHead(const std::string& output, const Sizes& /*sizes*/)
{
    return SumOfText(output, 1);
}
std::uint64_t Text(const std::string& output, const Sizes& /*sizes*/) { return SumOfText(output, 0); }

// ---- Following ----

/// From the start of a flush to the line that the tool prints, the worst of them: waiting for a poll is part of it, and
/// the flushes come at any moment between two polls.
class FollowedLines : public FileContender
{
public:
    explicit FollowedLines(const Setting& setting) : FileContender(setting, "lines.rdx") {}
    void Prepare(int /*round*/) override { RemoveFile(m_File); }
    double Run() override
    {
        const LivePeer peer = RfmLive(m_File);
        const auto writer = peer.makeWriter();
        writer->Publish();
        const PipedChild tool({RFM_BENCH_TOOL, "follow", m_File, "--until",
                               "flush >= " + std::to_string(m_Sizes.toolFlushCount + 1)});
        tool.ReadLine(); // it has opened the file
        double worst = 0;
        m_Sum = 0;
        for (int flush = 0; flush < m_Sizes.toolFlushCount; ++flush)
        {
            const auto pause = Mix(static_cast<std::uint64_t>(flush)) % kLongestPause;
            std::this_thread::sleep_for(std::chrono::microseconds(pause));
            writer->Append(RowAt(flush));
            worst = std::max(worst, SecondsOf(
                                        [&]
                                        {
                                            writer->Publish();
                                            if (tool.ReadLine().starts_with("flush")) ++m_Sum;
                                        }));
        }
        return worst;
    }

private:
    static constexpr std::uint64_t kLongestPause = 40'000;
};

/// The rate of a writer, with the tool beside it or without.
class WriterBesideTool : public FileContender
{
public:
    WriterBesideTool(const Setting& setting, bool isFollowed)
        : FileContender(setting, isFollowed ? "told.rdx" : "untold.rdx"),
          m_IsFollowed(isFollowed),
          m_Lines(m_File + ".out")
    {
    }
    void Prepare(int /*round*/) override
    {
        RemoveFile(m_File);
        RemoveFile(m_Lines);
    }
    double Run() override
    {
        const auto writer = RfmLive(m_File).makeWriter();
        writer->Publish();
        std::optional<PipedChild> tool;
        if (m_IsFollowed) StartTool(tool);
        return SecondsOf([&] { WriteAll(*writer); }); // the tool ends with the last flush, and is waited for
    }
    std::uint64_t Verify() override
    {
        const int visible = RfmLive(m_File).makeReader()->Look(0, m_Sizes.rowCount).visible;
        return m_IsFollowed ? RowsTold(m_Lines) : static_cast<std::uint64_t>(visible);
    }

private:
    void StartTool(std::optional<PipedChild>& tool) const
    {
        // The first flush is that of the empty table.
        const int lastFlush = 1 + m_Sizes.rowCount / m_Sizes.followedRowsPerFlush;
        const std::string command = std::string("exec '") + RFM_BENCH_TOOL + "' follow '" + m_File +
                                    "' --until 'flush >= " + std::to_string(lastFlush) + "' >'" + m_Lines +
                                    "'";
        tool.emplace(std::vector<std::string>{"/bin/sh", "-c", command});
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (CountWords(m_Lines, "open") == 0)
        {
            if (std::chrono::steady_clock::now() > limit)
                throw std::runtime_error("the tool does not follow");
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    void WriteAll(LiveWriter& writer) const
    {
        for (int i = 0; i < m_Sizes.rowCount; ++i)
        {
            writer.Append(RowAt(i));
            if ((i + 1) % m_Sizes.followedRowsPerFlush == 0) writer.Publish();
        }
    }

    const bool m_IsFollowed;
    const std::string m_Lines;
};

// ---- The programs of the workloads ----

std::unique_ptr<Contender> MakeProgram(const Setting& setting, Program program)
{
    return std::make_unique<ProgramContender>(setting, std::move(program));
}

#if defined(RFM_BENCH_H5DUMP) && defined(RFM_BENCH_HDF5)
void WriteHdf5Array(const std::string& file, const Sizes& sizes)
{
    WriteHdf5Doubles(file, ArrayValues(sizes.toolArrayDoubles));
}
#endif

#ifdef RFM_BENCH_SQLITE_TOOL
/// Gives statements to sqlite3, for a new file.
void RunStatements(const std::string& file, const std::string& statements)
{
    RemoveFile(file);
    RunToEnd({RFM_BENCH_SQLITE_TOOL, file, "PRAGMA journal_mode = OFF; BEGIN;" + statements + "COMMIT;"},
             file + ".out");
}

void WriteSqliteObjects(const std::string& file, const Sizes& sizes)
{
    std::string statements;
    for (int i = 0; i < sizes.toolObjectCount; ++i)
    {
        const std::string name = "array" + std::to_string(i);
        statements += "CREATE TABLE ";
        statements += name;
        statements += "(bytes); INSERT INTO ";
        statements += name;
        statements += " VALUES (randomblob(";
        statements += std::to_string(sizes.toolObjectDoubles * 8);
        statements += "));";
    }
    RunStatements(file, statements);
}

void WriteSqliteTable(const std::string& file, const Sizes& sizes)
{
    RunStatements(file,
                  "CREATE TABLE nodes(number INTEGER, part INTEGER, x REAL, y REAL, zone TEXT);"
                  "INSERT INTO nodes WITH RECURSIVE rows(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM rows "
                  "WHERE i + 1 < " +
                      std::to_string(sizes.toolRowCount) +
                      ") SELECT i, i % 7, i * 0.5, i * 0.25, printf('zone_%03d', i % 1000) FROM rows;");
}
#endif

} // namespace

std::unique_ptr<Contender> MakeTool(Kind kind, const Setting& setting)
{
    const int starts = setting.sizes.toolStarts;
    const std::string tool = RFM_BENCH_TOOL;
    const std::string objects = setting.File("objects.rdx");
    const std::string table = setting.File("nodes.rdx");
    const std::string array = setting.File("array.rdx");
    switch (kind)
    {
    case Kind::ToolStart:
        return MakeProgram(setting, {objects, nullptr, {tool, "--help"}, starts, NothingToSum});
    case Kind::ToolInfo:
        return MakeProgram(setting, {objects, WriteObjects, {tool, "info", objects}, starts, ToldObjects});
    case Kind::ToolList:
        return MakeProgram(setting, {objects, WriteObjects, {tool, "ls", objects}, starts, ListedObjects});
    case Kind::ToolTable:
        return MakeProgram(
            setting, {table, WriteTable, {tool, "export", table, "nodes", "--to", "csv"}, 1, TextBelowAHead});
    case Kind::ToolArray:
        return MakeProgram(
            setting, {array, WriteOneArray, {tool, "export", array, "4", "--to", "csv"}, 1, TextBelowAHead});
    case Kind::ToolFollow: return std::make_unique<FollowedLines>(setting);
    case Kind::ToolFollowed: return std::make_unique<WriterBesideTool>(setting, true);
    default: return nullptr;
    }
}

std::unique_ptr<Contender> MakeToolBare(Kind kind, const Setting& setting)
{
    switch (kind)
    {
    case Kind::ToolStart:
        return MakeProgram(
            setting, {setting.File("true"), nullptr, {"/bin/true"}, setting.sizes.toolStarts, NothingToSum});
    case Kind::ToolInfo:
    case Kind::ToolList:
        return MakeProgram(
            setting, {setting.File("true"), nullptr, {"/bin/true"}, setting.sizes.toolStarts, AsManyObjects});
    case Kind::ToolFollowed: return std::make_unique<WriterBesideTool>(setting, false);
    default: return nullptr;
    }
}

std::unique_ptr<Contender> MakeSqliteTool([[maybe_unused]] Kind kind, [[maybe_unused]] const Setting& setting)
{
#ifdef RFM_BENCH_SQLITE_TOOL
    const std::string tool = RFM_BENCH_SQLITE_TOOL;
    const std::string objects = setting.File("objects.sqlite");
    const std::string table = setting.File("nodes.sqlite");
    switch (kind)
    {
    case Kind::ToolInfo:
    case Kind::ToolList:
        return MakeProgram(setting, {objects,
                                     WriteSqliteObjects,
                                     {tool, objects, ".tables"},
                                     setting.sizes.toolStarts,
                                     ListedObjects});
    case Kind::ToolTable:
        return MakeProgram(setting, {table,
                                     WriteSqliteTable,
                                     {tool, "-csv", "-header", table, "SELECT * FROM nodes"},
                                     1,
                                     TextBelowAHead});
    default: break;
    }
#endif
    return nullptr;
}

std::unique_ptr<Contender> MakeHdf5Tool([[maybe_unused]] Kind kind, [[maybe_unused]] const Setting& setting)
{
#if defined(RFM_BENCH_H5DUMP) && defined(RFM_BENCH_HDF5)
    const std::string array = setting.File("array.h5");
    // Nine digits are all that the values have; without places of elements, as ours has none.
    if (kind == Kind::ToolArray)
        return MakeProgram(
            setting,
            {array, WriteHdf5Array, {RFM_BENCH_H5DUMP, "-y", "-m", "%.9g", "-d", "array", array}, 1, Text});
#endif
    return nullptr;
}

} // namespace bench
