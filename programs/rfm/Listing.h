#pragma once

#include "Output.h"

#include <cstdint>
#include <string>
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

/// One value, ready for every style.
struct Cell
{
    std::string text; // as OneLine gives it, or the number
    std::string csv;
    std::string json;

    static Cell Absent() { return {"", "", "null"}; }
    static Cell OfInt(std::int64_t value);
    static Cell OfFloat(float value);
    static Cell OfDouble(double value);
    static Cell OfText(std::string_view value);
    static Cell Of(int value) { return OfInt(value); }
    static Cell Of(float value) { return OfFloat(value); }
    static Cell Of(double value) { return OfDouble(value); }
};

struct Column
{
    std::string name;
    std::string type;     // a word for JSON: int, float, double, handle, string
    bool isRight = false; // numbers line up at their ends
};

/// Writes rows under columns as they come. Only the aligned style keeps rows back, at most kMeasuredRows of them, to find
/// how wide its columns are; wider values that come later push their line out.
///
/// JSON:  {"rfm":1,"command":COMMAND, HEAD "columns":[{"name":..,"type":..},..],"rows":[[..],..] TAIL}
class Listing
{
public:
    static constexpr std::size_t kMeasuredRows = 1000;

    /// `jsonHead`: members that stand in front of the columns, each followed by a comma.
    Listing(Output& output, Style style, std::vector<Column> columns, const std::string& jsonHead);

    void Row(std::vector<Cell> cells);
    /// Ends the listing; `jsonTail` are members behind the rows, each led by a comma.
    void Finish(const std::string& jsonTail = "");
    /// The aligned style cut at the width of the screen.
    bool WasCut() const noexcept { return m_WasCut; }

private:
    void Head(const std::string& jsonHead);
    void WriteMeasured();
    void WriteAligned(const std::vector<Cell>& cells);
    void WriteLine(const std::vector<Cell>& cells);

    Output& m_Output;
    Style m_Style;
    std::vector<Column> m_Columns;
    std::vector<std::size_t> m_Widths;
    std::vector<std::vector<Cell>> m_Kept;
    bool m_IsMeasured = false;
    bool m_WasCut = false;
    std::int64_t m_Count = 0;
};
} // namespace rfm_tool
