#include "PlotData.h"

#include "Failure.h"
#include "Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>

namespace rfm_tool
{
namespace
{
constexpr std::size_t kMostSeries = 12; // colours that can be told apart
constexpr double kNoNumber = std::numeric_limits<double>::quiet_NaN();

double NumberOrNone(const Value& value) { return value.IsNumber() ? value.Number() : kNoNumber; }

bool IsDrawable(const Column& column) { return column.isRight || column.type == "any"; }

[[noreturn]] void Refuse(const DatabaseFile& file, const std::string& object, const std::string& why,
                         const std::string& remedy)
{
    throw Failure(ExitUsage, OneLine(file.Path()) + ": " + OneLine(object), why, remedy);
}

// The fields of a query that are drawn, and what they are drawn against.
class PlotFields
{
public:
    PlotFields(DatabaseFile& file, const RowQuery& query, const std::string& x, QueriedRows& rows)
        : m_Source(rows.Source())
    {
        if (!x.empty()) m_X = FieldForX(file, rows, x);
        const bool areNamed = !query.fields.empty() || rows.Fields().size() < m_Source.Columns().size();
        for (const int field : rows.Fields())
        {
            const Column& column = NameOf(field);
            if (areNamed && !IsDrawable(column))
                Refuse(file, query.object, OneLine(column.name) + " has texts", "name fields with numbers");
            if (IsDrawable(column) && (areNamed || field != m_X)) m_Fields.push_back(field);
        }
        if (m_Fields.empty())
            Refuse(file, query.object, "there are no numbers to draw", "`rfm ls` lists the objects");
        if (m_Fields.size() > kMostSeries)
            Refuse(file, query.object,
                   fmt::format("{} fields can't be told apart in one plot", m_Fields.size()),
                   fmt::format("name up to {} with --fields", kMostSeries));
    }

    const std::vector<int>& Fields() const noexcept { return m_Fields; }
    const Column& NameOf(int field) const { return m_Source.Columns()[static_cast<std::size_t>(field)]; }
    std::string XName() const { return m_X < 0 ? m_Source.NumberName() : NameOf(m_X).name; }
    double X() const
    {
        return m_X < 0 ? static_cast<double>(m_Source.Number()) : NumberOrNone(m_Source.ValueOf(m_X));
    }
    double Y(std::size_t series) const { return NumberOrNone(m_Source.ValueOf(m_Fields[series])); }

private:
    int FieldForX(DatabaseFile& file, QueriedRows& rows, const std::string& x) const
    {
        const std::vector<int> found = SelectFields(file, rows.Object(), x);
        if (found.size() != 1) Refuse(file, x, "is more than one field", "give one for --x");
        if (!IsDrawable(NameOf(found.front())))
            Refuse(file, x, "has texts", "give a field with numbers for --x");
        return found.front();
    }

    RowSource& m_Source;
    int m_X = -1; // the row's number
    std::vector<int> m_Fields;
};

std::string TitleOf(const DatabaseFile& file, const Object& object)
{
    const std::string name = object.kind == Kind::Table ? object.layout : object.TypeWord();
    return fmt::format("{} ({}) of {}", name, object.handle.Value(),
                       std::filesystem::path(file.Path()).filename().string());
}

// A point without a place in both directions is none.
void AddToRanges(const PlotFields& fields, PlotData& plot)
{
    const double x = fields.X();
    if (!std::isfinite(x)) return;
    for (std::size_t i = 0; i < fields.Fields().size(); ++i)
    {
        const double y = fields.Y(i);
        if (!std::isfinite(y)) continue;
        plot.x.Add(x);
        plot.y.Add(y);
    }
}

void ReadPoints(QueriedRows& rows, const PlotFields& fields, PlotData& plot, int columns)
{
    std::vector<Thinner> thinners;
    for (PlotSeries& series : plot.series) thinners.emplace_back(plot.x, columns, series.lines);
    while (rows.Next())
        for (std::size_t i = 0; i < thinners.size(); ++i) thinners[i].Add(fields.X(), fields.Y(i));
    for (Thinner& thinner : thinners) thinner.EndLine();
}
} // namespace

void Thinner::Add(double x, double y)
{
    if (!std::isfinite(x) || !std::isfinite(y)) return EndLine();
    const int column = std::min(static_cast<int>(m_Range.PartOf(x) * m_Columns), m_Columns - 1);
    const Numbered added{m_Count++, {x, y}};
    if (column != m_Column)
    {
        FlushColumn();
        m_Column = column;
        m_First = m_Least = m_Greatest = added;
    }
    if (y < m_Least.point.y) m_Least = added;
    if (y > m_Greatest.point.y) m_Greatest = added;
    m_Last = added;
}

void Thinner::FlushColumn()
{
    if (m_Column < 0) return;
    m_Column = -1;
    const auto [early, late] =
        std::minmax(m_Least, m_Greatest,
                    [](const Numbered& left, const Numbered& right) { return left.number < right.number; });
    for (const Numbered& each : {m_First, early, late, m_Last}) Put(each.number, each.point);
}

// Each point once, in the order in which they came.
void Thinner::Put(std::int64_t number, const PlotPoint& point)
{
    if (number <= m_Put) return;
    m_Put = number;
    if (!m_IsInLine) m_Lines.emplace_back();
    m_IsInLine = true;
    m_Lines.back().push_back(point);
}

void Thinner::EndLine()
{
    FlushColumn();
    m_IsInLine = false;
}

PlotData ReadPlot(DatabaseFile& file, const RowQuery& query, const std::string& x, int columns)
{
    QueriedRows rows(file, query);
    const PlotFields fields(file, query, x, rows);
    PlotData plot;
    plot.title = TitleOf(file, rows.Object());
    plot.xName = fields.XName();
    for (const int field : fields.Fields()) plot.series.push_back({fields.NameOf(field).name, {}});
    ReadRows(file, rows,
             [&]
             {
                 while (rows.Next()) AddToRanges(fields, plot);
             });
    if (plot.y.IsEmpty())
        throw Failure(ExitNo, OneLine(file.Path()) + ": " + OneLine(query.object),
                      "there are no numbers to draw", "`rfm stats` tells what is there");
    plot.x = plot.x.Drawable();
    plot.y = plot.y.Drawable();
    rows.Seek(0);
    ReadRows(file, rows, [&] { ReadPoints(rows, fields, plot, columns); });
    return plot;
}
} // namespace rfm_tool
