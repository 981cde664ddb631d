#include "Listing.h"

#include "Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace rfm_tool
{
namespace
{
// The forms of a value, each at the end of a text.
void AppendText(std::string& target, const Value& value)
{
    switch (value.GetKind())
    {
    case Value::Kind::Absent: return;
    case Value::Kind::Int: return AppendNumber(target, value.Int());
    case Value::Kind::Float: return AppendNumber(target, static_cast<float>(value.Number()));
    case Value::Kind::Double: return AppendNumber(target, value.Number());
    case Value::Kind::Text: return AppendOneLine(target, value.Text());
    }
}

void AppendCsv(std::string& target, const Value& value)
{
    if (value.IsText())
        target += CsvCell(value.Text());
    else
        AppendText(target, value);
}

void AppendJson(std::string& target, const Value& value)
{
    if (value.IsAbsent())
        target += "null";
    else if (value.IsText())
        target += TextJson(value.Text());
    else if (!std::isfinite(value.Number()))
        target += NumberJson(value.Number());
    else
        AppendText(target, value);
}

template <class Append>
void AppendJoined(std::string& target, std::span<const Value> values, char between, const Append& append)
{
    for (std::size_t i = 0; i < values.size(); ++i)
    {
        if (i > 0) target += between;
        append(target, values[i]);
    }
}
} // namespace

std::string TextOf(const Value& value)
{
    std::string text;
    AppendText(text, value);
    return text;
}

std::string JsonOf(const Value& value)
{
    std::string text;
    AppendJson(text, value);
    return text;
}

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
    std::vector<Value> names;
    for (const Column& column : m_Columns) names.push_back(Value::OfText(column.name));
    if (m_Style == Style::Json)
    {
        m_Output.Write("{\"rfm\":1," + jsonHead + "\"columns\":[");
        for (std::size_t i = 0; i < m_Columns.size(); ++i)
            m_Output.Write(fmt::format("{}{{\"name\":{},\"type\":\"{}\"}}", i == 0 ? "" : ",",
                                       TextJson(m_Columns[i].name), m_Columns[i].type));
        m_Output.Write("],\"rows\":[");
    }
    else if (m_Style == Style::Aligned)
        Keep(names);
    else
        WriteLine(names);
}

void Listing::Keep(std::span<const Value> values)
{
    std::vector<std::string>& texts = m_Kept.emplace_back(values.size());
    for (std::size_t i = 0; i < values.size(); ++i) AppendText(texts[i], values[i]);
}

void Listing::Row(const std::vector<Cell>& cells)
{
    std::vector<Value> values;
    values.reserve(cells.size());
    for (const Cell& cell : cells) values.push_back(cell.View());
    Row(values);
}

void Listing::Row(std::span<const Value> values)
{
    if (m_Style != Style::Aligned)
        WriteLine(values);
    else
    {
        Keep(values);
        if (m_IsMeasured || m_Kept.size() > kMeasuredRows) WriteKept();
    }
    ++m_Count;
}

void Listing::Finish(const std::string& jsonTail)
{
    if (m_Style == Style::Json)
        m_Output.Line((m_Count == 0 ? "]" : "\n]") + jsonTail + "}");
    else if (m_Style == Style::Aligned)
        WriteKept();
}

void Listing::WriteKept()
{
    if (!m_IsMeasured)
        for (const std::vector<std::string>& texts : m_Kept)
            for (std::size_t i = 0; i < texts.size(); ++i)
                m_Widths[i] = std::max(m_Widths[i], DisplayWidth(texts[i]));
    for (std::size_t i = 0; i < m_Kept.size(); ++i) WriteAligned(m_Kept[i], !m_IsMeasured && i == 0);
    m_Kept.clear();
    m_IsMeasured = true;
}

void Listing::WriteAligned(const std::vector<std::string>& texts, bool isHead)
{
    std::string line;
    for (std::size_t i = 0; i < texts.size(); ++i)
    {
        const std::string& text = texts[i];
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
    m_Output.Line(isHead ? m_Output.Strong(line) : line);
}

// Behind every row of a large array stands nothing but this: numbers go straight into the output's own block.
void Listing::WriteLine(std::span<const Value> values)
{
    std::string& target = m_Output.Pending();
    switch (m_Style)
    {
    case Style::Json:
        target += m_Count == 0 ? "\n[" : ",\n[";
        AppendJoined(target, values, ',', AppendJson);
        target += ']';
        break;
    case Style::Csv:
        AppendJoined(target, values, ',', AppendCsv);
        target += '\n';
        break;
    case Style::Tabs:
    case Style::Aligned:
        AppendJoined(target, values, '\t', AppendText);
        target += '\n';
        break;
    }
    m_Output.FlushWhenFull();
}
} // namespace rfm_tool
