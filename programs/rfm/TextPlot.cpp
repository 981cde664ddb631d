#include "TextPlot.h"

#include "Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>

namespace rfm_tool
{
namespace
{
constexpr std::string_view kMarks = "*+ox#@%&=$~^";
constexpr std::array kColours{34, 31, 32, 35, 33, 36, 94, 91, 92, 95, 93, 96};
constexpr int kLinesAround = 5; // title, axis, numbers, names, and the next prompt
constexpr int kFewestLines = 3;
constexpr int kFewestColumns = 10;
constexpr int kLinesPerTick = 4;
constexpr int kColumnsPerTick = 14;

// One character of the drawing: eight dots of it, or a mark.
struct DrawnCell
{
    unsigned dots = 0;
    std::size_t series = 0; // that drew here last
};

// A grid of dots: two by four in a character with braille, one otherwise.
class Canvas
{
public:
    Canvas(int columns, int lines, bool isBraille)
        : m_Columns(columns),
          m_Wide(isBraille ? 2 : 1),
          m_High(isBraille ? 4 : 1),
          m_Cells(static_cast<std::size_t>(columns) * static_cast<std::size_t>(lines))
    {
    }
    int Width() const noexcept { return m_Columns * m_Wide; }
    int Height() const noexcept { return static_cast<int>(m_Cells.size()) / m_Columns * m_High; }
    const DrawnCell& At(int column, int line) const { return m_Cells[Index(column, line)]; }

    void Dot(int x, int y, std::size_t series)
    {
        // Bits of a braille character by column and line.
        static constexpr unsigned kBits[2][4] = {{0x01, 0x02, 0x04, 0x40}, {0x08, 0x10, 0x20, 0x80}};
        DrawnCell& cell = m_Cells[Index(x / m_Wide, y / m_High)];
        cell.dots |= kBits[x % m_Wide][y % m_High];
        cell.series = series;
    }
    // All dots between two, by the larger of the distances.
    void Line(int x0, int y0, int x1, int y1, std::size_t series)
    {
        const int steps = std::max({std::abs(x1 - x0), std::abs(y1 - y0), 1});
        for (int i = 0; i <= steps; ++i)
            Dot(x0 + RoundedPart(x1 - x0, i, steps), y0 + RoundedPart(y1 - y0, i, steps), series);
    }

private:
    std::size_t Index(int column, int line) const
    {
        return static_cast<std::size_t>(line) * static_cast<std::size_t>(m_Columns) +
               static_cast<std::size_t>(column);
    }
    static int RoundedPart(int distance, int step, int steps)
    {
        return static_cast<int>(std::lround(static_cast<double>(distance) * step / steps));
    }

    int m_Columns;
    int m_Wide;
    int m_High;
    std::vector<DrawnCell> m_Cells;
};

void AppendBraille(std::string& target, unsigned dots)
{
    // U+2800 and the dots, in UTF-8.
    target += '\xE2';
    target += static_cast<char>(0xA0U | (dots >> 6U));
    target += static_cast<char>(0x80U | (dots & 0x3FU));
}

class TextPicture
{
public:
    TextPicture(const PlotData& plot, const TextScreen& screen, bool asDots);
    std::string Draw();

private:
    bool IsBraille() const { return m_Screen.hasUtf8 && (m_Plot.series.size() == 1 || m_Screen.hasColour); }
    const char* Glyph(const char* utf8, const char* ascii) const { return m_Screen.hasUtf8 ? utf8 : ascii; }
    void DrawLines();
    void AppendRow(std::string& target, int line) const;
    void AppendCell(std::string& target, const DrawnCell& cell) const;
    void AppendXAxis(std::string& target) const;
    std::string Names() const;
    std::string Coloured(std::string_view text, std::size_t series) const;
    int LineOf(const Tick& tick) const;

    const PlotData& m_Plot;
    const TextScreen& m_Screen;
    bool m_AsDots;
    int m_Lines;
    std::vector<Tick> m_YTicks;
    int m_LabelWidth = 0;
    int m_Columns = 0;
    Canvas m_Canvas;
};

int LabelWidth(const std::vector<Tick>& ticks)
{
    std::size_t width = 0;
    for (const Tick& tick : ticks) width = std::max(width, tick.label.size());
    return static_cast<int>(width);
}

TextPicture::TextPicture(const PlotData& plot, const TextScreen& screen, bool asDots)
    : m_Plot(plot),
      m_Screen(screen),
      m_AsDots(asDots),
      m_Lines(std::max(screen.lines - kLinesAround, kFewestLines)),
      m_YTicks(TicksIn(plot.y, std::max(m_Lines / kLinesPerTick, 2))),
      m_LabelWidth(LabelWidth(m_YTicks)),
      m_Columns(std::max(screen.columns - m_LabelWidth - 2, kFewestColumns)),
      m_Canvas(m_Columns, m_Lines, IsBraille())
{
}

int TextPicture::LineOf(const Tick& tick) const
{
    return static_cast<int>(std::lround((1 - m_Plot.y.PartOf(tick.place)) * (m_Lines - 1)));
}

void TextPicture::DrawLines()
{
    const auto x = [&](const PlotPoint& point)
    { return static_cast<int>(std::lround(m_Plot.x.PartOf(point.x) * (m_Canvas.Width() - 1))); };
    const auto y = [&](const PlotPoint& point)
    { return static_cast<int>(std::lround((1 - m_Plot.y.PartOf(point.y)) * (m_Canvas.Height() - 1))); };
    for (std::size_t series = 0; series < m_Plot.series.size(); ++series)
        for (const PlotLine& line : m_Plot.series[series].lines)
            for (std::size_t i = 0; i < line.size(); ++i)
            {
                const PlotPoint& from = line[i == 0 || m_AsDots ? i : i - 1];
                m_Canvas.Line(x(from), y(from), x(line[i]), y(line[i]), series);
            }
}

std::string TextPicture::Coloured(std::string_view text, std::size_t series) const
{
    return m_Screen.hasColour ? fmt::format("\x1b[{}m{}\x1b[0m", kColours[series], text) : std::string(text);
}

void TextPicture::AppendCell(std::string& target, const DrawnCell& cell) const
{
    if (cell.dots == 0)
    {
        target += ' ';
        return;
    }
    std::string drawn;
    if (IsBraille())
        AppendBraille(drawn, cell.dots);
    else
        drawn = kMarks[cell.series];
    target += Coloured(drawn, cell.series);
}

void TextPicture::AppendRow(std::string& target, int line) const
{
    const auto tick = std::find_if(m_YTicks.begin(), m_YTicks.end(),
                                   [&](const Tick& each) { return LineOf(each) == line; });
    const bool hasTick = tick != m_YTicks.end();
    target += fmt::format("{:>{}} {}", hasTick ? tick->label : "", m_LabelWidth,
                          hasTick ? Glyph("┤", "+") : Glyph("│", "|"));
    int last = m_Columns - 1;
    while (last >= 0 && m_Canvas.At(last, line).dots == 0) --last; // blanks at the end of a line are none
    for (int column = 0; column <= last; ++column) AppendCell(target, m_Canvas.At(column, line));
    target += '\n';
}

// The numbers stand under their ticks, those left out that would touch the one before.
void TextPicture::AppendXAxis(std::string& target) const
{
    std::vector<const char*> axis(static_cast<std::size_t>(m_Columns), Glyph("─", "-"));
    std::string numbers;
    for (const Tick& tick : TicksIn(m_Plot.x, std::max(m_Columns / kColumnsPerTick, 2)))
    {
        const int column = static_cast<int>(std::lround(m_Plot.x.PartOf(tick.place) * (m_Columns - 1)));
        axis[static_cast<std::size_t>(column)] = Glyph("┬", "+");
        const int size = static_cast<int>(tick.label.size());
        const int begin = std::clamp(column - size / 2, 0, std::max(m_Columns - size, 0));
        const bool touches = !numbers.empty() && static_cast<int>(numbers.size()) + 1 > begin;
        if (touches) continue;
        numbers.resize(static_cast<std::size_t>(begin), ' ');
        numbers += tick.label;
    }
    target += fmt::format("{:{}} {}", "", m_LabelWidth, Glyph("└", "+"));
    for (const char* glyph : axis) target += glyph;
    target += fmt::format("\n{:{}}{}\n", "", m_LabelWidth + 2, numbers);
}

// "x: row   y: force", or the marks of several series.
std::string TextPicture::Names() const
{
    std::string names = fmt::format("x: {}  ", OneLine(m_Plot.xName));
    if (m_Plot.series.size() == 1) return names + " y: " + OneLine(m_Plot.series.front().name);
    for (std::size_t i = 0; i < m_Plot.series.size(); ++i)
    {
        const std::string mark = IsBraille() ? "━" : std::string(1, kMarks[i]);
        names += " " + Coloured(mark + " " + OneLine(m_Plot.series[i].name), i);
    }
    return names;
}

std::string TextPicture::Draw()
{
    DrawLines();
    std::string text(CutToWidth(OneLine(m_Plot.title), static_cast<std::size_t>(m_Screen.columns)));
    text += '\n';
    for (int line = 0; line < m_Lines; ++line) AppendRow(text, line);
    AppendXAxis(text);
    return text + Names() + '\n';
}
} // namespace

int DotColumns(const TextScreen& screen) { return std::max(screen.columns, kFewestColumns) * 2; }

std::string TextOf(const PlotData& plot, const TextScreen& screen, bool asDots)
{
    return TextPicture(plot, screen, asDots).Draw();
}
} // namespace rfm_tool
