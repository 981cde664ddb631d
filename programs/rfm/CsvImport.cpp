#include "CsvImport.h"

#include "CsvReader.h"
#include "Failure.h"
#include "FileMark.h"
#include "Progress.h"
#include "Text.h"
#include "rfm.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <ctime>
#include <filesystem>
#include <iterator>
#include <limits>
#include <optional>
#include <set>

namespace rfm_tool
{
namespace
{
constexpr const char* kMark = "CSV";
// Room in the file is taken in such steps; in smaller ones for a small file, or OUT would be mostly reserve.
constexpr std::int64_t kLargestQuantum = 1 << 20;
constexpr std::int64_t kLeastQuantum = 4096;
constexpr int kReadAhead = 256;
constexpr std::int64_t kRowsBetweenLooks = 1024; // at the clock

// The words that --types takes, and what is said of a cell that does not fit.
struct TypeWordOf
{
    const char* word;
    rfm_Type type;
    const char* wanted;
};
constexpr TypeWordOf kTypes[] = {
    {"int", rfm_TypeInt, "no whole number from -2147483648 to 2147483647"},
    {"float", rfm_TypeFloat, "no number that fits into a float"},
    {"double", rfm_TypeDouble, "no number that fits into a double"},
    {"handle", rfm_TypeHandle, "no handle, a whole number from 0 to 4294967295"},
    {"string", rfm_TypeString, ""},
};

const TypeWordOf& EntryOf(rfm_Type type)
{
    return *std::find_if(std::begin(kTypes), std::end(kTypes),
                         [&](const TypeWordOf& each) { return each.type == type; });
}

// Blanks around a number and a plus in front of it are no part of it.
std::string_view Bare(std::string_view text)
{
    const auto isBlank = [](char byte) { return byte == ' ' || byte == '\t'; };
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    const bool hasPlus = text.size() > 1 && text[0] == '+' && text[1] != '-' && text[1] != '+';
    return hasPlus ? text.substr(1) : text;
}

template <class T> std::optional<T> NumberIn(std::string_view text)
{
    const std::string_view bare = Bare(text);
    T value{};
    const std::from_chars_result end = std::from_chars(bare.data(), bare.data() + bare.size(), value);
    if (end.ec != std::errc() || end.ptr != bare.data() + bare.size()) return {};
    return value;
}

bool IsDigit(char byte) { return byte >= '0' && byte <= '9'; }

// A guess must not change what a cell says. A number that begins with a needless zero is a code, and a double doesn't
// hold every whole number.
bool IsKeptByADouble(std::string_view text)
{
    const std::optional<double> value = NumberIn<double>(text);
    if (!value) return false;
    const std::string_view bare = Bare(text);
    const std::string_view digits = bare.substr(bare.starts_with('-') ? 1 : 0);
    if (digits.size() > 1 && digits[0] == '0' && IsDigit(digits[1])) return false;
    const bool isWhole = std::all_of(digits.begin(), digits.end(), IsDigit);
    return !isWhole || fmt::format("{:.0f}", *value) == bare;
}

struct CsvColumn
{
    std::string name;
    std::optional<rfm_Type> given;
    bool hasCells = false;
    bool isInt = true; // as far as was seen
    bool isDouble = true;

    void Look(const CsvCellView& cell)
    {
        if (cell.text.empty() && !cell.isQuoted) return;
        hasCells = true;
        isInt = isInt && NumberIn<int>(cell.text).has_value();
        isDouble = isDouble && IsKeptByADouble(cell.text);
    }
    rfm_Type Type() const
    {
        if (given) return *given;
        if (!hasCells) return rfm_TypeString;
        if (!isDouble) return rfm_TypeString;
        return isInt ? rfm_TypeInt : rfm_TypeDouble;
    }
};

// Reads the file, twice where types are guessed, and writes the table.
class CsvTable
{
public:
    explicit CsvTable(const CsvSource& source) : m_Source(source), m_File(source.path, "a CSV file") {}

    /// Knows all columns then.
    void Prepare();
    ImportedTable Write(FileKind kind, const NewFile& out);

private:
    void RequireText();
    void ReadHeader();
    void TakeTypes();
    CsvColumn& ColumnNamed(const std::string& name);
    // Goes to the next line with cells, of which there are as many as columns.
    bool NextRow(CsvReader& reader) const;
    void Guess();
    std::int64_t WriteRows(rfm_Table& table);
    void WriteRow(rfm_Row& row, const CsvReader& reader) const;
    void WriteField(rfm_Row& row, std::size_t index, const CsvCellView& cell, const CsvReader& reader) const;
    [[noreturn]] void Refuse(std::int64_t line, std::size_t index, const std::string& why,
                             const std::string& remedy) const;

    const CsvSource& m_Source;
    TextFile m_File;
    std::vector<CsvColumn> m_Columns;
};

void CsvTable::Refuse(std::int64_t line, std::size_t index, const std::string& why,
                      const std::string& remedy) const
{
    const std::string name = index < m_Columns.size() ? " (" + OneLine(m_Columns[index].name) + ")" : "";
    throw Failure(ExitUnreadable,
                  fmt::format("{}, line {}, column {}{}", OneLine(m_Source.path), line, index + 1, name), why,
                  remedy);
}

// Bytes of anything could be read as lines of cells. What can't be one is told by its mark.
void CsvTable::RequireText()
{
    char bytes[kMarkBytes];
    const std::string kind = BinaryKind({bytes, m_File.Read(bytes, sizeof bytes)});
    m_File.Rewind();
    if (!kind.empty())
        throw Failure(ExitUnreadable, OneLine(m_Source.path), "not a CSV file: it looks like " + kind,
                      "give the path of a CSV file");
}

void CsvTable::ReadHeader()
{
    CsvReader reader(m_File, m_Source.separator);
    if (!reader.Next())
        throw Failure(ExitUnreadable, OneLine(m_Source.path), "the file is empty",
                      "its first line names the columns");
    std::set<std::string, std::less<>> names;
    for (const CsvCellView& cell : reader.Cells())
    {
        const std::size_t index = m_Columns.size();
        if (cell.text.empty())
            Refuse(reader.Line(), index, "the column has no name", "the first line names the columns");
        if (cell.text.find('\0') != std::string_view::npos)
            Refuse(reader.Line(), index, "there is a zero byte in the column's name",
                   "give a CSV file with names in its first line");
        if (!names.emplace(cell.text).second)
            Refuse(reader.Line(), index, OneLine(cell.text) + " is the name of an earlier column, too",
                   "give it another name");
        CsvColumn column;
        column.name = cell.text;
        m_Columns.push_back(std::move(column));
    }
}

CsvColumn& CsvTable::ColumnNamed(const std::string& name)
{
    std::vector<std::string_view> names;
    for (CsvColumn& column : m_Columns)
    {
        if (column.name == name) return column;
        names.push_back(column.name);
    }
    const std::string_view near = NearestName(name, names);
    throw Failure(ExitMissing, OneLine(m_Source.path), "no column has the name " + OneLine(name),
                  near.empty() ? "its first line names the columns"
                               : fmt::format("did you mean {}?", OneLine(near)));
}

void CsvTable::TakeTypes()
{
    if (m_Source.types.empty()) return;
    for (const std::string& word : Split(m_Source.types, ','))
    {
        const std::size_t equals = word.rfind('=');
        const std::string type = equals == std::string::npos ? "" : word.substr(equals + 1);
        const auto* found = std::find_if(std::begin(kTypes), std::end(kTypes),
                                         [&](const TypeWordOf& each) { return each.word == type; });
        if (found == std::end(kTypes))
            throw Failure(ExitUsage, "--types", OneLine(word) + " is no COLUMN=TYPE",
                          "types are int, float, double, handle and string");
        ColumnNamed(word.substr(0, equals)).given = found->type;
    }
}

// A line without anything is a row only where that is how a row without data looks.
bool CsvTable::NextRow(CsvReader& reader) const
{
    while (reader.Next())
    {
        const std::vector<CsvCellView>& cells = reader.Cells();
        const bool isBlank = cells.size() == 1 && cells[0].text.empty() && !cells[0].isQuoted;
        if (isBlank && m_Columns.size() > 1) continue;
        if (cells.size() != m_Columns.size())
            Refuse(reader.Line(), std::min(cells.size(), m_Columns.size()),
                   fmt::format("the line has {}, the first one {}",
                               Counted(static_cast<std::int64_t>(cells.size()), "cell", "cells"),
                               m_Columns.size()),
                   "an absent value is an empty cell");
        return true;
    }
    return false;
}

void CsvTable::Guess()
{
    m_File.Rewind();
    CsvReader reader(m_File, m_Source.separator);
    for (reader.Next(); NextRow(reader);)
        for (std::size_t i = 0; i < m_Columns.size(); ++i) m_Columns[i].Look(reader.Cells()[i]);
}

void CsvTable::Prepare()
{
    RequireText();
    ReadHeader();
    TakeTypes();
    const bool isGiven = std::all_of(m_Columns.begin(), m_Columns.end(),
                                     [](const CsvColumn& column) { return column.given.has_value(); });
    if (!isGiven) Guess();
}

void CsvTable::WriteField(rfm_Row& row, std::size_t index, const CsvCellView& cell,
                          const CsvReader& reader) const
{
    const int field = static_cast<int>(index);
    const rfm_Type type = m_Columns[index].Type();
    const auto number = [&]<class T>(T) -> T
    {
        if (const std::optional<T> value = NumberIn<T>(cell.text)) return *value;
        constexpr std::size_t kShown = 40;
        const std::string text =
            OneLine(cell.text.substr(0, kShown)) + (cell.text.size() > kShown ? "..." : "");
        Refuse(reader.Line(), index, fmt::format("\"{}\" is {}", text, EntryOf(type).wanted),
               fmt::format("correct it, or say --types {}=string", OneLine(m_Columns[index].name)));
    };
    switch (type)
    {
    case rfm_TypeInt: return row.WriteFieldInt(field, number(int()));
    case rfm_TypeFloat: return row.WriteFieldFloat(field, number(float()));
    case rfm_TypeDouble: return row.WriteFieldDouble(field, number(double()));
    case rfm_TypeHandle: return row.WriteFieldHandle(field, rfm_Handle(number(std::uint32_t())));
    default: return row.WriteFieldString(field, cow_String(cell.text));
    }
}

void CsvTable::WriteRow(rfm_Row& row, const CsvReader& reader) const
{
    for (std::size_t i = 0; i < m_Columns.size(); ++i)
    {
        const CsvCellView& cell = reader.Cells()[i];
        const bool isAbsent = cell.text.empty() && !cell.isQuoted;
        if (!isAbsent) WriteField(row, i, cell, reader);
    }
}

int DefineField(rfm_TableMetadata& layout, const CsvColumn& column)
{
    switch (column.Type())
    {
    case rfm_TypeInt: return layout.DefineIntField(cow_String(column.name));
    case rfm_TypeFloat: return layout.DefineFloatField(cow_String(column.name));
    case rfm_TypeDouble: return layout.DefineDoubleField(cow_String(column.name));
    case rfm_TypeHandle: return layout.DefineHandleField(cow_String(column.name));
    default: return layout.DefineStringField(cow_String(column.name));
    }
}

// Answers how many rows there are.
std::int64_t CsvTable::WriteRows(rfm_Table& table)
{
    Progress progress(m_File.Size());
    progress.Begin("importing");
    m_File.Rewind();
    CsvReader reader(m_File, m_Source.separator);
    std::int64_t count = 0;
    std::int64_t told = 0;
    for (reader.Next(); NextRow(reader);)
    {
        rfm_Row row = table.NewRow();
        WriteRow(row, reader);
        if (++count % kRowsBetweenLooks != 0) continue;
        progress.Advance(reader.Taken() - told);
        told = reader.Taken();
    }
    return count;
}

ImportedTable CsvTable::Write(FileKind kind, const NewFile& out)
{
    ImportedTable result;
    result.name =
        m_Source.table.empty() ? std::filesystem::path(m_Source.path).stem().string() : m_Source.table;
    rfm_TableMetadata layout(cow_String(result.name), 1);
    for (const CsvColumn& column : m_Columns)
    {
        DefineField(layout, column);
        result.fields += fmt::format("{}{} {}", result.fields.empty() ? "" : ", ", column.name,
                                     EntryOf(column.Type()).word);
    }
    rfm_Database database;
    rfm_Table table;
    try
    {
        database = rfm_Database::Create(CreateFileOfKind(kind, out.WorkPath()), kMark, "Rows of a CSV file",
                                        static_cast<int>(std::time(nullptr)));
        const std::int64_t quantum = std::clamp(m_File.Size(), kLeastQuantum, kLargestQuantum);
        table = database.Table(database.Bind(layout), static_cast<int>(quantum), kReadAhead);
        result.rows = WriteRows(table);
        table.Flush();
        table = rfm_Table();
        database.Close();
        return result;
    }
    catch (...)
    {
        const QuietStandardError quiet;
        table = rfm_Table();
        database = rfm_Database();
        throw;
    }
}
} // namespace

ImportedTable ImportCsv(const CsvSource& source, FileKind kind, const NewFile& out)
{
    CsvTable table(source);
    table.Prepare();
    return table.Write(kind, out);
}
} // namespace rfm_tool
