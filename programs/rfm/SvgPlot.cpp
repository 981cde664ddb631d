#include "SvgPlot.h"

#include "Text.h"

#include <fmt/format.h>

#include <array>
#include <cmath>

namespace rfm_tool
{
namespace
{
// In pixels, from the upper left corner.
constexpr int kLeft = 90;
constexpr int kTop = 40;
constexpr int kPlotHeight = 400;
constexpr int kBottom = kTop + kPlotHeight;
constexpr int kRight = kLeft + kSvgPlotWidth;
constexpr int kMargin = 20;
constexpr int kLegendWidth = 150;
constexpr int kLegendLine = 20;
constexpr int kHeight = kBottom + 60;
constexpr int kMostTicks = 8;

constexpr std::array kColours{"#1f5fa8", "#c8452b", "#2c8a4b", "#8a4fa3", "#b8860b", "#15808c",
                              "#d0578f", "#5c6b1f", "#6b4a3a", "#4b57d0", "#d97a1c", "#555555"};

// A tenth of a pixel is finer than any eye, and half the file.
void AppendPlace(std::string& target, double place)
{
    const auto tenths = static_cast<std::int64_t>(std::lround(place * 10));
    AppendNumber(target, tenths / 10);
    if (tenths % 10 == 0) return;
    target += '.';
    AppendNumber(target, tenths % 10);
}

std::string PlaceText(double place)
{
    std::string text;
    AppendPlace(text, place);
    return text;
}

class SvgPicture
{
public:
    SvgPicture(const PlotData& plot, bool asDots) : m_Plot(plot), m_AsDots(asDots) {}
    std::string Draw();

private:
    double X(double value) const { return kLeft + m_Plot.x.PartOf(value) * kSvgPlotWidth; }
    double Y(double value) const { return kBottom - m_Plot.y.PartOf(value) * kPlotHeight; }
    bool HasLegend() const { return m_Plot.series.size() > 1; }
    void Begin();
    void DrawAxes();
    void DrawSeries(const PlotSeries& series, const char* colour);
    void AppendLine(const PlotLine& line);
    void DrawLegend();
    void DrawNames();

    const PlotData& m_Plot;
    bool m_AsDots;
    std::string m_Text;
};

void SvgPicture::Begin()
{
    const int width = kRight + kMargin + (HasLegend() ? kLegendWidth : 0);
    m_Text = fmt::format(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0}\" height=\"{1}\" viewBox=\"0 0 {0} {1}\" "
        "font-family=\"sans-serif\" font-size=\"13\">\n"
        "<title>{2}</title>\n"
        "<rect width=\"{0}\" height=\"{1}\" fill=\"white\"/>\n",
        width, kHeight, XmlText(m_Plot.title));
}

void SvgPicture::DrawAxes()
{
    m_Text += "<g stroke=\"#dddddd\">\n";
    const std::vector<Tick> xTicks = TicksIn(m_Plot.x, kMostTicks);
    const std::vector<Tick> yTicks = TicksIn(m_Plot.y, kMostTicks);
    for (const Tick& tick : xTicks)
        m_Text += fmt::format("<path d=\"M{0} {1}V{2}\"/>\n", PlaceText(X(tick.place)), kTop, kBottom);
    for (const Tick& tick : yTicks)
        m_Text += fmt::format("<path d=\"M{0} {1}H{2}\"/>\n", kLeft, PlaceText(Y(tick.place)), kRight);
    m_Text += fmt::format("</g>\n<path d=\"M{} {}V{}H{}\" fill=\"none\" stroke=\"black\"/>\n", kLeft, kTop,
                          kBottom, kRight);
    m_Text += "<g text-anchor=\"middle\">\n";
    for (const Tick& tick : xTicks)
        m_Text += fmt::format("<text x=\"{}\" y=\"{}\">{}</text>\n", PlaceText(X(tick.place)), kBottom + 18,
                              tick.label);
    m_Text += "</g>\n<g text-anchor=\"end\">\n";
    for (const Tick& tick : yTicks)
        m_Text += fmt::format("<text x=\"{}\" y=\"{}\">{}</text>\n", kLeft - 6, PlaceText(Y(tick.place) + 4),
                              tick.label);
    m_Text += "</g>\n";
}

// A point alone is a line without length: its round ends show it.
void SvgPicture::AppendLine(const PlotLine& line)
{
    bool isFirst = true;
    for (const PlotPoint& point : line)
    {
        m_Text += isFirst || m_AsDots ? 'M' : 'L';
        AppendPlace(m_Text, X(point.x));
        m_Text += ' ';
        AppendPlace(m_Text, Y(point.y));
        if (m_AsDots || line.size() == 1) m_Text += "h0";
        isFirst = false;
    }
}

void SvgPicture::DrawSeries(const PlotSeries& series, const char* colour)
{
    m_Text += fmt::format("<path fill=\"none\" stroke=\"{}\" stroke-width=\"{}\" stroke-linecap=\"round\" "
                          "stroke-linejoin=\"round\" d=\"",
                          colour, m_AsDots ? "4" : "1.5");
    for (const PlotLine& line : series.lines) AppendLine(line);
    m_Text += "\"/>\n";
}

void SvgPicture::DrawLegend()
{
    for (std::size_t i = 0; i < m_Plot.series.size(); ++i)
    {
        const int y = kTop + 10 + static_cast<int>(i) * kLegendLine;
        m_Text += fmt::format("<path d=\"M{} {}h20\" stroke=\"{}\" stroke-width=\"3\"/>\n", kRight + 15, y,
                              kColours[i]);
        m_Text += fmt::format("<text x=\"{}\" y=\"{}\">{}</text>\n", kRight + 42, y + 4,
                              XmlText(m_Plot.series[i].name));
    }
}

void SvgPicture::DrawNames()
{
    constexpr int kMiddle = kLeft + kSvgPlotWidth / 2;
    m_Text += fmt::format("<g text-anchor=\"middle\">\n<text x=\"{}\" y=\"25\" font-size=\"16\">{}</text>\n",
                          kMiddle, XmlText(m_Plot.title));
    m_Text +=
        fmt::format("<text x=\"{}\" y=\"{}\">{}</text>\n", kMiddle, kBottom + 42, XmlText(m_Plot.xName));
    if (!HasLegend())
        m_Text += fmt::format("<text transform=\"translate(20 {}) rotate(-90)\">{}</text>\n",
                              kTop + kPlotHeight / 2, XmlText(m_Plot.series.front().name));
    m_Text += "</g>\n";
}

std::string SvgPicture::Draw()
{
    Begin();
    DrawAxes();
    for (std::size_t i = 0; i < m_Plot.series.size(); ++i) DrawSeries(m_Plot.series[i], kColours[i]);
    if (HasLegend()) DrawLegend();
    DrawNames();
    return std::move(m_Text) + "</svg>\n";
}
} // namespace

std::string SvgOf(const PlotData& plot, bool asDots) { return SvgPicture(plot, asDots).Draw(); }
} // namespace rfm_tool
