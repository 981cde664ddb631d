#pragma once

#include "Output.h"
#include "Value.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace rfm_tool
{
/// How a listing looks.
enum class Style
{
    Aligned, // for a person at a terminal
    Tabs,    // for a pipe: cells on one line, a tab between them
    Csv,
    Json,
};

/// A value that owns its text.
class Cell
{
public:
    static Cell Absent() { return {}; }
    static Cell OfInt(std::int64_t value) { return Cell(Value::OfInt(value)); }
    static Cell OfFloat(float value) { return Cell(Value::OfFloat(value)); }
    static Cell OfDouble(double value) { return Cell(Value::OfDouble(value)); }
    static Cell OfText(std::string_view value)
    {
        Cell cell(Value::OfText({}));
        cell.m_Text = value;
        return cell;
    }
    static Cell Of(const Value& value) { return value.IsText() ? OfText(value.Text()) : Cell(value); }

    /// Lives as long as the cell.
    Value View() const noexcept { return m_Value.IsText() ? Value::OfText(m_Text) : m_Value; }

private:
    Cell() = default;
    explicit Cell(const Value& value) : m_Value(value) {}

    Value m_Value;
    std::string m_Text;
};

/// A value as a cell of a line of text has it, and as JSON has it.
std::string TextOf(const Value& value);
std::string JsonOf(const Value& value);

struct Column
{
    std::string name;
    std::string type;     // a word for JSON: int, float, double, handle, string
    bool isRight = false; // numbers line up at their ends
};

/// Writes rows under columns as they come. Only the aligned style keeps rows back, at most kMeasuredRows of them, to
/// find how wide its columns are; wider values that come later push their line out.
///
/// JSON:  {"rfm":1,"command":COMMAND, HEAD "columns":[{"name":..,"type":..},..],"rows":[[..],..] TAIL}
class Listing
{
public:
    static constexpr std::size_t kMeasuredRows = 1000;

    /// `jsonHead`: members that stand in front of the columns, each followed by a comma.
    Listing(Output& output, Style style, std::vector<Column> columns, const std::string& jsonHead);

    /// One value for each column.
    void Row(std::span<const Value> values);
    void Row(const std::vector<Cell>& cells);
    /// Writes rows that were kept back: for whoever has to break off.
    void WriteKept();
    /// Ends the listing; `jsonTail` are members behind the rows, each led by a comma.
    void Finish(const std::string& jsonTail = "");
    /// The aligned style cut at the width of the screen.
    bool WasCut() const noexcept { return m_WasCut; }

private:
    void Head(const std::string& jsonHead);
    void Keep(std::span<const Value> values);
    void WriteAligned(const std::vector<std::string>& texts, bool isHead);
    void WriteLine(std::span<const Value> values);

    Output& m_Output;
    Style m_Style;
    std::vector<Column> m_Columns;
    std::vector<std::size_t> m_Widths;
    std::vector<std::vector<std::string>> m_Kept; // texts of lines; the names of the columns first
    bool m_IsMeasured = false;
    bool m_WasCut = false;
    std::int64_t m_Count = 0;
};
} // namespace rfm_tool
