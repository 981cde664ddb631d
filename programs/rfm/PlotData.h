#pragma once

#include "AxisTicks.h"
#include "RowQuery.h"

#include <cstdint>
#include <string>
#include <vector>

namespace rfm_tool
{
/// What a plot shows, as it is drawn on so many columns of pixels.
struct PlotPoint
{
    double x;
    double y;
};
/// Points that are joined by lines; between two lines there is a gap.
using PlotLine = std::vector<PlotPoint>;

struct PlotSeries
{
    std::string name;
    std::vector<PlotLine> lines;
};

struct PlotData
{
    std::string title;
    std::string xName;
    Range x; // both drawable
    Range y;
    std::vector<PlotSeries> series;
};

/// Keeps of consecutive points in one column of pixels the first, the least, the greatest and the last: what is
/// drawn is the same, and there are at most four for each column while x goes on in one direction.
class Thinner
{
public:
    Thinner(const Range& x, int columns, std::vector<PlotLine>& lines)
        : m_Range(x),
          m_Columns(columns),
          m_Lines(lines)
    {
    }

    /// A point that isn't finite ends the line.
    void Add(double x, double y);
    /// Behind the last point.
    void EndLine();

private:
    void FlushColumn();
    void Put(std::int64_t number, const PlotPoint& point);

    const Range& m_Range;
    int m_Columns;
    std::vector<PlotLine>& m_Lines;
    bool m_IsInLine = false;
    int m_Column = -1; // of the points below; below 0 there are none
    std::int64_t m_Count = 0;
    std::int64_t m_Put = -1; // number of the last point that was put into the line
    struct Numbered
    {
        std::int64_t number;
        PlotPoint point;
    };
    Numbered m_First{};
    Numbered m_Least{};
    Numbered m_Greatest{};
    Numbered m_Last{};
};

/// Reads an object's rows, for the ranges first and then for the points. `x` is a field, or empty for the row's
/// number.
/// Throws: Failure, without anything to draw too.
PlotData ReadPlot(DatabaseFile& file, const RowQuery& query, const std::string& x, int columns);
} // namespace rfm_tool
