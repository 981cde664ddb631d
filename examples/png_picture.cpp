#include "png_picture.h"

#include <png.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iomanip>
#include <limits>
#include <sstream>
#include <stdexcept>

namespace picture
{

namespace
{

constexpr Colour kWhite{255, 255, 255};
constexpr Colour kInk{40, 44, 52};

// Everything is drawn at twice the size and halved at the end.
constexpr int kOversampling = 2;

constexpr int kGlyphWidth = 5;
constexpr int kGlyphHeight = 7;

// One letter: seven rows of five dots, the leftmost dot the highest of the five bits.
struct Glyph
{
    char letter;
    std::array<std::uint8_t, kGlyphHeight> rows;
};

constexpr std::array kFont{
    Glyph{'0', {0b01110, 0b10001, 0b10011, 0b10101, 0b11001, 0b10001, 0b01110}},
    Glyph{'1', {0b00100, 0b01100, 0b00100, 0b00100, 0b00100, 0b00100, 0b01110}},
    Glyph{'2', {0b01110, 0b10001, 0b00001, 0b00110, 0b01000, 0b10000, 0b11111}},
    Glyph{'3', {0b11110, 0b00001, 0b00001, 0b01110, 0b00001, 0b00001, 0b11110}},
    Glyph{'4', {0b00010, 0b00110, 0b01010, 0b10010, 0b11111, 0b00010, 0b00010}},
    Glyph{'5', {0b11111, 0b10000, 0b11110, 0b00001, 0b00001, 0b10001, 0b01110}},
    Glyph{'6', {0b00110, 0b01000, 0b10000, 0b11110, 0b10001, 0b10001, 0b01110}},
    Glyph{'7', {0b11111, 0b00001, 0b00010, 0b00100, 0b01000, 0b01000, 0b01000}},
    Glyph{'8', {0b01110, 0b10001, 0b10001, 0b01110, 0b10001, 0b10001, 0b01110}},
    Glyph{'9', {0b01110, 0b10001, 0b10001, 0b01111, 0b00001, 0b00010, 0b01100}},
    Glyph{'A', {0b00100, 0b01010, 0b10001, 0b10001, 0b11111, 0b10001, 0b10001}},
    Glyph{'B', {0b11110, 0b10001, 0b10001, 0b11110, 0b10001, 0b10001, 0b11110}},
    Glyph{'C', {0b01110, 0b10001, 0b10000, 0b10000, 0b10000, 0b10001, 0b01110}},
    Glyph{'D', {0b11110, 0b10001, 0b10001, 0b10001, 0b10001, 0b10001, 0b11110}},
    Glyph{'E', {0b11111, 0b10000, 0b10000, 0b11110, 0b10000, 0b10000, 0b11111}},
    Glyph{'F', {0b11111, 0b10000, 0b10000, 0b11110, 0b10000, 0b10000, 0b10000}},
    Glyph{'G', {0b01110, 0b10001, 0b10000, 0b10111, 0b10001, 0b10001, 0b01111}},
    Glyph{'H', {0b10001, 0b10001, 0b10001, 0b11111, 0b10001, 0b10001, 0b10001}},
    Glyph{'I', {0b01110, 0b00100, 0b00100, 0b00100, 0b00100, 0b00100, 0b01110}},
    Glyph{'J', {0b00111, 0b00010, 0b00010, 0b00010, 0b00010, 0b10010, 0b01100}},
    Glyph{'K', {0b10001, 0b10010, 0b10100, 0b11000, 0b10100, 0b10010, 0b10001}},
    Glyph{'L', {0b10000, 0b10000, 0b10000, 0b10000, 0b10000, 0b10000, 0b11111}},
    Glyph{'M', {0b10001, 0b11011, 0b10101, 0b10101, 0b10001, 0b10001, 0b10001}},
    Glyph{'N', {0b10001, 0b11001, 0b11001, 0b10101, 0b10011, 0b10011, 0b10001}},
    Glyph{'O', {0b01110, 0b10001, 0b10001, 0b10001, 0b10001, 0b10001, 0b01110}},
    Glyph{'P', {0b11110, 0b10001, 0b10001, 0b11110, 0b10000, 0b10000, 0b10000}},
    Glyph{'Q', {0b01110, 0b10001, 0b10001, 0b10001, 0b10101, 0b10010, 0b01101}},
    Glyph{'R', {0b11110, 0b10001, 0b10001, 0b11110, 0b10100, 0b10010, 0b10001}},
    Glyph{'S', {0b01111, 0b10000, 0b10000, 0b01110, 0b00001, 0b00001, 0b11110}},
    Glyph{'T', {0b11111, 0b00100, 0b00100, 0b00100, 0b00100, 0b00100, 0b00100}},
    Glyph{'U', {0b10001, 0b10001, 0b10001, 0b10001, 0b10001, 0b10001, 0b01110}},
    Glyph{'V', {0b10001, 0b10001, 0b10001, 0b10001, 0b01010, 0b01010, 0b00100}},
    Glyph{'W', {0b10001, 0b10001, 0b10001, 0b10101, 0b10101, 0b11011, 0b10001}},
    Glyph{'X', {0b10001, 0b01010, 0b01010, 0b00100, 0b01010, 0b01010, 0b10001}},
    Glyph{'Y', {0b10001, 0b10001, 0b01010, 0b00100, 0b00100, 0b00100, 0b00100}},
    Glyph{'Z', {0b11111, 0b00001, 0b00010, 0b00100, 0b01000, 0b10000, 0b11111}},
    Glyph{'.', {0b00000, 0b00000, 0b00000, 0b00000, 0b00000, 0b01100, 0b01100}},
    Glyph{',', {0b00000, 0b00000, 0b00000, 0b00000, 0b01100, 0b00100, 0b01000}},
    Glyph{'-', {0b00000, 0b00000, 0b00000, 0b01110, 0b00000, 0b00000, 0b00000}},
    Glyph{'+', {0b00000, 0b00100, 0b00100, 0b11111, 0b00100, 0b00100, 0b00000}},
    Glyph{':', {0b00000, 0b01100, 0b01100, 0b00000, 0b01100, 0b01100, 0b00000}},
    Glyph{'/', {0b00001, 0b00001, 0b00010, 0b00100, 0b01000, 0b10000, 0b10000}},
    Glyph{'_', {0b00000, 0b00000, 0b00000, 0b00000, 0b00000, 0b00000, 0b11111}},
};

const Glyph* FindGlyph(char letter)
{
    const char large = letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
    const auto* found =
        std::find_if(kFont.begin(), kFont.end(), [large](const Glyph& g) { return g.letter == large; });
    return found == kFont.end() ? nullptr : found;
}

std::uint8_t Blend(std::uint8_t from, std::uint8_t to, double fraction)
{
    return static_cast<std::uint8_t>(std::lround(from + (to - from) * fraction));
}

Colour Shaded(Colour colour, double light)
{
    return {Blend(0, colour.red, light), Blend(0, colour.green, light), Blend(0, colour.blue, light)};
}

Point Minus(const Point& a, const Point& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }

Point Cross(const Point& a, const Point& b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

double Dot(const Point& a, const Point& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

// A parallel projection: the model is turned about the vertical and tilted towards the viewer. In the result
// x goes right, y goes up, and z comes out of the picture.
class View
{
public:
    View()
        : m_CosTurn(std::cos(kTurn)),
          m_SinTurn(std::sin(kTurn)),
          m_CosTilt(std::cos(kTilt)),
          m_SinTilt(std::sin(kTilt))
    {
    }

    Point Of(const Point& p) const
    {
        const double right = p.x * m_CosTurn - p.y * m_SinTurn;
        const double back = p.x * m_SinTurn + p.y * m_CosTurn;
        return {right, back * m_SinTilt + p.z * m_CosTilt, p.z * m_SinTilt - back * m_CosTilt};
    }

private:
    static constexpr double kTurn = -0.01; // radians
    static constexpr double kTilt = 0.75;  // radians above the horizon

    double m_CosTurn;
    double m_SinTurn;
    double m_CosTilt;
    double m_SinTilt;
};

struct Box
{
    double left = std::numeric_limits<double>::max();
    double right = std::numeric_limits<double>::lowest();
    double bottom = std::numeric_limits<double>::max();
    double top = std::numeric_limits<double>::lowest();

    void Include(const Point& p)
    {
        left = std::min(left, p.x);
        right = std::max(right, p.x);
        bottom = std::min(bottom, p.y);
        top = std::max(top, p.y);
    }
};

// Where on the canvas the model goes.
struct Area
{
    int left;
    int top;
    int width;
    int height;
};

class Renderer
{
public:
    Renderer(Canvas& canvas, const Scene& scene, const Area& area)
        : m_Canvas(canvas),
          m_Scene(scene),
          m_Depth(static_cast<std::size_t>(canvas.Width()) * static_cast<std::size_t>(canvas.Height()),
                  std::numeric_limits<double>::lowest())
    {
        FitInto(area);
    }

    void DrawSurfaces()
    {
        for (const Body& body : m_Scene.bodies)
        {
            for (const Triangle& triangle : body.surface)
            {
                DrawTriangle(triangle);
            }
        }
    }

    void DrawNames()
    {
        constexpr int scale = 2 * kOversampling;
        for (const Body& body : m_Scene.bodies)
        {
            const Box box = BoxOf(body);
            const Point bottom = OnCanvas({(box.left + box.right) / 2, box.bottom, 0});
            m_Canvas.Write(static_cast<int>(bottom.x) - Canvas::TextWidth(scale, body.name) / 2,
                           static_cast<int>(bottom.y) + kGlyphHeight * scale / 2, scale, body.name, kInk);
        }
    }

private:
    Box BoxOf(const Body& body) const
    {
        Box box;
        for (const Triangle& triangle : body.surface)
        {
            for (const Point& corner : triangle.corners)
            {
                box.Include(m_View.Of(corner));
            }
        }
        return box;
    }

    void FitInto(const Area& area)
    {
        Box box;
        for (const Body& body : m_Scene.bodies)
        {
            const Box part = BoxOf(body);
            box.Include({part.left, part.bottom, 0});
            box.Include({part.right, part.top, 0});
        }
        if (box.left >= box.right || box.bottom >= box.top)
        {
            throw std::invalid_argument("the surface to be drawn has no extent");
        }
        m_Scale = std::min(area.width / (box.right - box.left), area.height / (box.top - box.bottom));
        m_Left = area.left + (area.width - m_Scale * (box.right - box.left)) / 2 - m_Scale * box.left;
        m_Top = area.top + (area.height - m_Scale * (box.top - box.bottom)) / 2 + m_Scale * box.top;
    }

    Point OnCanvas(const Point& seen) const
    {
        return {m_Left + m_Scale * seen.x, m_Top - m_Scale * seen.y, m_Scale * seen.z};
    }

    void DrawTriangle(const Triangle& triangle)
    {
        std::array<Point, 3> p;
        std::transform(triangle.corners.begin(), triangle.corners.end(), p.begin(),
                       [this](const Point& corner) { return OnCanvas(m_View.Of(corner)); });
        const double area = (p[1].x - p[0].x) * (p[2].y - p[0].y) - (p[2].x - p[0].x) * (p[1].y - p[0].y);
        if (area == 0)
        {
            return; // seen edge on
        }
        const double light = LightOn(triangle);
        const auto [xs, xe] = std::minmax({p[0].x, p[1].x, p[2].x});
        const auto [ys, ye] = std::minmax({p[0].y, p[1].y, p[2].y});
        for (int y = std::max(0, static_cast<int>(ys));
             y <= std::min(m_Canvas.Height() - 1, static_cast<int>(ye)); ++y)
        {
            for (int x = std::max(0, static_cast<int>(xs));
                 x <= std::min(m_Canvas.Width() - 1, static_cast<int>(xe)); ++x)
            {
                DrawPixel(x, y, p, area, triangle.values, light);
            }
        }
    }

    void DrawPixel(int x, int y, const std::array<Point, 3>& p, double area,
                   const std::array<double, 3>& values, double light)
    {
        const double px = x + 0.5;
        const double py = y + 0.5;
        const double w0 = ((p[1].x - px) * (p[2].y - py) - (p[2].x - px) * (p[1].y - py)) / area;
        const double w1 = ((p[2].x - px) * (p[0].y - py) - (p[0].x - px) * (p[2].y - py)) / area;
        const double w2 = 1 - w0 - w1;
        if (w0 < 0 || w1 < 0 || w2 < 0)
        {
            return;
        }
        const double depth = w0 * p[0].z + w1 * p[1].z + w2 * p[2].z;
        double& nearest = m_Depth[static_cast<std::size_t>(y) * static_cast<std::size_t>(m_Canvas.Width()) +
                                  static_cast<std::size_t>(x)];
        if (depth <= nearest)
        {
            return;
        }
        nearest = depth;
        const double value = w0 * values[0] + w1 * values[1] + w2 * values[2];
        m_Canvas.Set(x, y, Shaded(TemperatureColour(FractionOf(value)), light));
    }

    double FractionOf(double value) const
    {
        const double span = m_Scene.highest - m_Scene.lowest;
        return span > 0 ? (value - m_Scene.lowest) / span : 0.5;
    }

    // Mild, so that a colour on the model still finds its place on the bar. The sign of a normal depends on
    // the order of the corners, which a mesh need not keep: a face is lit from whichever side is seen.
    static double LightOn(const Triangle& triangle)
    {
        static constexpr Point kLamp{-0.35, -0.35, 0.87};
        const Point normal = Cross(Minus(triangle.corners[1], triangle.corners[0]),
                                   Minus(triangle.corners[2], triangle.corners[0]));
        const double length = std::sqrt(Dot(normal, normal));
        return length > 0 ? 0.8 + 0.2 * std::abs(Dot(normal, kLamp)) / length : 1;
    }

    Canvas& m_Canvas;
    const Scene& m_Scene;
    View m_View;
    std::vector<double> m_Depth;
    double m_Scale = 1;
    double m_Left = 0;
    double m_Top = 0;
};

std::string WithTwoDigits(double value)
{
    std::ostringstream text;
    text << std::fixed << std::setprecision(2) << value;
    return text.str();
}

void DrawColourBar(Canvas& canvas, const Scene& scene, const Area& bar)
{
    constexpr int scale = 2 * kOversampling;
    constexpr int tickCount = 6;
    constexpr int tickLength = 6 * kOversampling;
    constexpr int frame = kOversampling;

    canvas.Fill(bar.left - frame, bar.top - frame, bar.width + 2 * frame, bar.height + 2 * frame, kInk);
    for (int y = 0; y < bar.height; ++y)
    {
        const double fraction = 1 - static_cast<double>(y) / (bar.height - 1);
        canvas.Fill(bar.left, bar.top + y, bar.width, 1, TemperatureColour(fraction));
    }
    for (int tick = 0; tick < tickCount; ++tick)
    {
        const double fraction = static_cast<double>(tick) / (tickCount - 1);
        const int y = bar.top + bar.height - 1 - static_cast<int>(std::lround(fraction * (bar.height - 1)));
        canvas.Fill(bar.left + bar.width + frame, y - frame / 2, tickLength, frame, kInk);
        const std::string number = WithTwoDigits(scene.lowest + fraction * (scene.highest - scene.lowest));
        canvas.Write(bar.left + bar.width + 2 * tickLength, y - kGlyphHeight * scale / 2, scale, number,
                     kInk);
    }
    canvas.Write(bar.left, bar.top - 5 * kGlyphHeight * scale / 2, scale, scene.unit, kInk);
}

} // namespace

Canvas::Canvas(int width, int height)
    : m_Width(width),
      m_Height(height),
      m_Pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), kWhite)
{
}

std::size_t Canvas::Index(int x, int y) const
{
    return static_cast<std::size_t>(y) * static_cast<std::size_t>(m_Width) + static_cast<std::size_t>(x);
}

void Canvas::Set(int x, int y, Colour colour)
{
    if (x >= 0 && y >= 0 && x < m_Width && y < m_Height)
    {
        m_Pixels[Index(x, y)] = colour;
    }
}

void Canvas::Fill(int x, int y, int width, int height, Colour colour)
{
    for (int row = y; row < y + height; ++row)
    {
        for (int column = x; column < x + width; ++column)
        {
            Set(column, row, colour);
        }
    }
}

void Canvas::Write(int x, int y, int scale, std::string_view text, Colour colour)
{
    for (const char letter : text)
    {
        if (const Glyph* glyph = FindGlyph(letter))
        {
            for (int row = 0; row < kGlyphHeight; ++row)
            {
                for (int column = 0; column < kGlyphWidth; ++column)
                {
                    if ((glyph->rows[static_cast<std::size_t>(row)] >> (kGlyphWidth - 1 - column) & 1) != 0)
                    {
                        Fill(x + column * scale, y + row * scale, scale, scale, colour);
                    }
                }
            }
        }
        x += (kGlyphWidth + 1) * scale;
    }
}

int Canvas::TextWidth(int scale, std::string_view text)
{
    return text.empty() ? 0 : (static_cast<int>(text.size()) * (kGlyphWidth + 1) - 1) * scale;
}

Canvas Canvas::Halved() const
{
    Canvas half(m_Width / 2, m_Height / 2);
    for (int y = 0; y < half.m_Height; ++y)
    {
        for (int x = 0; x < half.m_Width; ++x)
        {
            const std::array four{At(2 * x, 2 * y), At(2 * x + 1, 2 * y), At(2 * x, 2 * y + 1),
                                  At(2 * x + 1, 2 * y + 1)};
            const auto mean = [&four](auto part)
            {
                return static_cast<std::uint8_t>(
                    (part(four[0]) + part(four[1]) + part(four[2]) + part(four[3]) + 2) / 4);
            };
            half.Set(x, y,
                     {mean([](Colour c) { return c.red; }), mean([](Colour c) { return c.green; }),
                      mean([](Colour c) { return c.blue; })});
        }
    }
    return half;
}

void Canvas::SavePng(const std::string& fileName) const
{
    static_assert(sizeof(Colour) == 3, "pixels go to the file as they lie in memory");
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(m_Width);
    image.height = static_cast<png_uint_32>(m_Height);
    image.format = PNG_FORMAT_RGB;
    if (png_image_write_to_file(&image, fileName.c_str(), 0, m_Pixels.data(), 0, nullptr) == 0)
    {
        throw std::runtime_error(fileName + ": the picture could not be written: " + image.message);
    }
}

Colour TemperatureColour(double fraction)
{
    // From cold to hot, each stop lighter than the one before, so that the picture also reads in grey.
    static constexpr std::array kStops{Colour{38, 42, 120},  Colour{74, 82, 190},  Colour{130, 92, 190},
                                       Colour{196, 88, 150}, Colour{238, 108, 92}, Colour{250, 164, 64},
                                       Colour{252, 226, 110}};
    const double place = std::clamp(fraction, 0.0, 1.0) * static_cast<double>(kStops.size() - 1);
    const auto below = std::min(static_cast<std::size_t>(place), kStops.size() - 2);
    const double rest = place - static_cast<double>(below);
    const Colour& from = kStops[below];
    const Colour& to = kStops[below + 1];
    return {Blend(from.red, to.red, rest), Blend(from.green, to.green, rest),
            Blend(from.blue, to.blue, rest)};
}

Canvas Draw(const Scene& scene, int width, int height)
{
    Canvas canvas(width * kOversampling, height * kOversampling);
    const int margin = 40 * kOversampling;
    const int barRoom = 170 * kOversampling;
    const int titleRoom = 120 * kOversampling;

    canvas.Write(margin, margin, 3 * kOversampling, scene.title, kInk);
    canvas.Write(margin, margin + 30 * kOversampling, 2 * kOversampling, scene.subtitle, kInk);

    Renderer renderer(
        canvas, scene,
        {margin, titleRoom, canvas.Width() - barRoom - 2 * margin, canvas.Height() - titleRoom - 2 * margin});
    renderer.DrawSurfaces();
    renderer.DrawNames();
    DrawColourBar(canvas, scene,
                  {canvas.Width() - barRoom, titleRoom + margin, 28 * kOversampling,
                   canvas.Height() - titleRoom - 3 * margin});
    return canvas.Halved();
}

} // namespace picture
