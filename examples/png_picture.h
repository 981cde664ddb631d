// A small software renderer: triangles with a value at each corner, seen from above at a slant, coloured by
// value, with a colour bar and words, written as a PNG.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace picture
{

struct Point
{
    double x = 0;
    double y = 0;
    double z = 0;
};

struct Triangle
{
    std::array<Point, 3> corners{};
    std::array<double, 3> values{};
};

/// One closed part of the model, whose name stands below it.
struct Body
{
    std::string name;
    std::vector<Triangle> surface;
};

struct Scene
{
    std::string title;
    std::string subtitle;
    std::string unit; ///< above the colour bar
    std::vector<Body> bodies;
    double lowest = 0; ///< ends of the colour bar
    double highest = 0;
};

struct Colour
{
    std::uint8_t red = 0;
    std::uint8_t green = 0;
    std::uint8_t blue = 0;

    friend bool operator==(const Colour&, const Colour&) = default;
};

class Canvas
{
public:
    Canvas(int width, int height);

    int Width() const { return m_Width; }
    int Height() const { return m_Height; }
    Colour At(int x, int y) const { return m_Pixels[Index(x, y)]; }

    /// Pixels outside the canvas are left out.
    void Set(int x, int y, Colour colour);
    void Fill(int x, int y, int width, int height, Colour colour);

    /// Draws in letters of 5 by 7 dots, `scale` pixels a dot. Small letters are drawn as large ones, and what
    /// the font lacks as a blank.
    void Write(int x, int y, int scale, std::string_view text, Colour colour);
    static int TextWidth(int scale, std::string_view text);

    /// The canvas at half the size, each pixel the mean of four: what smooths the edges.
    Canvas Halved() const;

    /// Throws std::runtime_error, with the name, when the file can't be written.
    void SavePng(const std::string& fileName) const;

private:
    std::size_t Index(int x, int y) const;

    int m_Width;
    int m_Height;
    std::vector<Colour> m_Pixels;
};

/// The colour of a value at `fraction` of the bar: 0 the cold end, 1 the hot one.
Colour TemperatureColour(double fraction);

Canvas Draw(const Scene& scene, int width, int height);

} // namespace picture
