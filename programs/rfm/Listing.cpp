#include "Listing.h"

#include "Text.h"

#include <fmt/format.h>

#include <algorithm>

namespace rfm_tool
{
namespace
{
Cell Number(std::string text, std::string json)
{
    std::string csv = text;
    return {std::move(text), std::move(csv), std::move(json)};
}

std::string Joined(const std::vector<Cell>& cells, std::string Cell::*form, char between)
{
    std::string line;
    for (std::size_t i = 0; i < cells.size(); ++i)
    {
        if (i > 0) line += between;
        line += cells[i].*form;
    }
    return line;
}
} // namespace

Cell Cell::OfInt(std::int64_t value) { return Number(NumberText(value), NumberText(value)); }
Cell Cell::OfFloat(float value) { return Number(NumberText(value), NumberJson(value)); }
Cell Cell::OfDouble(double value) { return Number(NumberText(value), NumberJson(value)); }
Cell Cell::OfText(std::string_view value) { return {OneLine(value), CsvCell(value), TextJson(value)}; }

Listing::Listing(Output& output, Style style, std::vector<Column> columns, const std::string& jsonHead)
    : m_Output(output),
      m_Style(style),
      m_Columns(std::move(columns)),
      m_Widths(m_Columns.size())
{
    Head(jsonHead);
}

void Listing::Head(const std::string& jsonHead)
{
    std::vector<Cell> names;
    for (const Column& column : m_Columns) names.push_back(Cell::OfText(column.name));
    if (m_Style == Style::Json)
    {
        m_Output.Write("{\"rfm\":1," + jsonHead + "\"columns\":[");
        for (std::size_t i = 0; i < m_Columns.size(); ++i)
            m_Output.Write(fmt::format("{}{{\"name\":{},\"type\":\"{}\"}}", i == 0 ? "" : ",", names[i].json,
                                       m_Columns[i].type));
        m_Output.Write("],\"rows\":[");
    }
    else if (m_Style == Style::Aligned)
        m_Kept.push_back(std::move(names));
    else
        WriteLine(names);
}

void Listing::Row(std::vector<Cell> cells)
{
    if (m_Style != Style::Aligned)
        WriteLine(cells);
    else if (m_IsMeasured)
        WriteAligned(cells);
    else
    {
        m_Kept.push_back(std::move(cells));
        if (m_Kept.size() > kMeasuredRows) WriteMeasured();
    }
    ++m_Count;
}

void Listing::Finish(const std::string& jsonTail)
{
    if (m_Style == Style::Json)
        m_Output.Line((m_Count == 0 ? "]" : "\n]") + jsonTail + "}");
    else if (m_Style == Style::Aligned && !m_IsMeasured)
        WriteMeasured();
}

void Listing::WriteMeasured()
{
    m_IsMeasured = true;
    for (const std::vector<Cell>& cells : m_Kept)
        for (std::size_t i = 0; i < cells.size(); ++i)
            m_Widths[i] = std::max(m_Widths[i], DisplayWidth(cells[i].text));
    for (const std::vector<Cell>& cells : m_Kept) WriteAligned(cells);
    m_Kept.clear();
}

void Listing::WriteAligned(const std::vector<Cell>& cells)
{
    std::string line;
    for (std::size_t i = 0; i < cells.size(); ++i)
    {
        const std::string& text = cells[i].text;
        const std::string padding(m_Widths[i] - std::min(m_Widths[i], DisplayWidth(text)), ' ');
        if (i > 0) line += "  ";
        line += m_Columns[i].isRight ? padding + text : text + padding;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    const std::size_t width = static_cast<std::size_t>(m_Output.ScreenColumns());
    if (DisplayWidth(line) > width)
    {
        m_WasCut = true;
        line = std::string(CutToWidth(line, width - 1)) + ">";
    }
    m_Output.Line(line);
}

void Listing::WriteLine(const std::vector<Cell>& cells)
{
    switch (m_Style)
    {
    case Style::Json:
        m_Output.Write((m_Count == 0 ? "\n[" : ",\n[") + Joined(cells, &Cell::json, ',') + "]");
        return;
    case Style::Csv: m_Output.Line(Joined(cells, &Cell::csv, ',')); return;
    case Style::Tabs:
    case Style::Aligned: m_Output.Line(Joined(cells, &Cell::text, '\t'));
    }
}

} // namespace rfm_tool
