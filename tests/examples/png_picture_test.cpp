#include "png_picture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>

namespace
{

using picture::Canvas;
using picture::Colour;
using picture::TemperatureColour;

constexpr Colour kWhite{255, 255, 255};
constexpr Colour kBlack{0, 0, 0};

int CountOf(const Canvas& canvas, const Colour& colour)
{
    int count = 0;
    for (int y = 0; y < canvas.Height(); ++y)
    {
        for (int x = 0; x < canvas.Width(); ++x) count += canvas.At(x, y) == colour ? 1 : 0;
    }
    return count;
}

// A square of two triangles that lies flat, at one height and one value.
picture::Body FlatSquare(double size, double height, double value)
{
    const picture::Point a{-size, -size, height};
    const picture::Point b{size, -size, height};
    const picture::Point c{size, size, height};
    const picture::Point d{-size, size, height};
    return {"", {{{a, b, c}, {value, value, value}}, {{a, c, d}, {value, value, value}}}};
}

// The colour in the middle of the drawn model, left of the colour bar.
Colour Middle(const Canvas& canvas)
{
    return canvas.At((canvas.Width() - 170) / 2, (canvas.Height() + 80) / 2);
}

TEST(Canvas, IsWhiteAndLeavesOutWhatLiesOutside)
{
    Canvas canvas(4, 3);
    canvas.Set(-1, 0, kBlack);
    canvas.Set(4, 0, kBlack);
    canvas.Set(0, 3, kBlack);
    EXPECT_EQ(CountOf(canvas, kWhite), 12);
    canvas.Set(3, 2, kBlack);
    EXPECT_EQ(canvas.At(3, 2), kBlack);
    EXPECT_EQ(CountOf(canvas, kBlack), 1);
}

TEST(Canvas, ALetterHasItsDotsAtItsScale)
{
    Canvas canvas(5, 7);
    canvas.Write(0, 0, 1, "T", kBlack);
    EXPECT_EQ(CountOf(canvas, kBlack), 5 + 6);
    EXPECT_EQ(canvas.At(0, 0), kBlack);
    EXPECT_EQ(canvas.At(0, 1), kWhite);
    EXPECT_EQ(canvas.At(2, 6), kBlack);

    Canvas large(10, 14);
    large.Write(0, 0, 2, "t", kBlack); // small letters are drawn as large ones
    EXPECT_EQ(CountOf(large, kBlack), 4 * (5 + 6));
}

TEST(Canvas, EveryDigitLooksDifferentAndUnknownLettersAreBlank)
{
    const std::string digits = "0123456789-.";
    for (const char first : digits)
    {
        for (const char second : digits)
        {
            Canvas a(5, 7);
            Canvas b(5, 7);
            a.Write(0, 0, 1, std::string(1, first), kBlack);
            b.Write(0, 0, 1, std::string(1, second), kBlack);
            bool same = true;
            for (int y = 0; y < 7; ++y)
            {
                for (int x = 0; x < 5; ++x) same = same && a.At(x, y) == b.At(x, y);
            }
            EXPECT_EQ(same, first == second) << first << second;
        }
    }
    Canvas canvas(5, 7);
    canvas.Write(0, 0, 1, "\xC3", kBlack);
    EXPECT_EQ(CountOf(canvas, kWhite), 35);
}

TEST(Canvas, HalvedMixesFourPixelsToTheirMean)
{
    Canvas canvas(4, 2);
    canvas.Set(0, 0, kBlack);
    canvas.Set(1, 1, kBlack);
    const Canvas half = canvas.Halved();
    EXPECT_EQ(half.Width(), 2);
    EXPECT_EQ(half.Height(), 1);
    EXPECT_EQ(half.At(0, 0), (Colour{128, 128, 128}));
    EXPECT_EQ(half.At(1, 0), kWhite);
}

TEST(TemperatureColour, GrowsLighterFromColdToHotAndStaysAtItsEnds)
{
    const auto lightness = [](double fraction)
    {
        const Colour colour = TemperatureColour(fraction);
        return 0.299 * colour.red + 0.587 * colour.green + 0.114 * colour.blue;
    };
    for (int i = 1; i <= 100; ++i) EXPECT_GE(lightness(i / 100.0), lightness((i - 1) / 100.0) - 1.0) << i;
    EXPECT_EQ(TemperatureColour(-3), TemperatureColour(0));
    EXPECT_EQ(TemperatureColour(7), TemperatureColour(1));
}

TEST(Draw, WhatLiesNearerHidesWhatLiesBehind)
{
    picture::Scene scene;
    scene.lowest = 0;
    scene.highest = 1;
    scene.bodies = {FlatSquare(1, 0.5, 1), FlatSquare(1, 0, 0)}; // the upper one first: order must not matter
    const Colour upperFirst = Middle(picture::Draw(scene, 600, 500));
    scene.bodies = {FlatSquare(1, 0, 0), FlatSquare(1, 0.5, 1)};
    EXPECT_EQ(Middle(picture::Draw(scene, 600, 500)), upperFirst);
    scene.bodies = {FlatSquare(1, 0, 0)};
    EXPECT_NE(Middle(picture::Draw(scene, 600, 500)), upperFirst);
}

TEST(Draw, AFaceLooksTheSameWhicheverWayItsCornersRun)
{
    picture::Scene scene;
    scene.highest = 1;
    scene.bodies = {FlatSquare(1, 0, 0.5)};
    const Colour forward = Middle(picture::Draw(scene, 600, 500));
    for (picture::Triangle& triangle : scene.bodies[0].surface)
        std::swap(triangle.corners[0], triangle.corners[1]);
    EXPECT_EQ(Middle(picture::Draw(scene, 600, 500)), forward);
    EXPECT_NE(forward, kWhite);
}

TEST(Draw, AFieldOfOneValueIsDrawnToo)
{
    picture::Scene scene;
    scene.lowest = scene.highest = 20;
    scene.bodies = {FlatSquare(1, 0, 20)};
    EXPECT_NE(Middle(picture::Draw(scene, 600, 500)), kWhite);
}

TEST(Draw, ASurfaceWithoutExtentIsRefused)
{
    EXPECT_THROW(picture::Draw(picture::Scene{}, 600, 500), std::invalid_argument);
}

TEST(SavePng, TheFileStartsAsAPngWithTheCanvasSize)
{
    const std::string name = testing::TempDir() + "png_picture_test.png";
    Canvas(300, 2).SavePng(name);
    std::ifstream file(name, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    std::filesystem::remove(name);
    ASSERT_GT(bytes.size(), 24U);
    EXPECT_EQ(bytes.substr(0, 8), "\x89PNG\r\n\x1A\n");
    EXPECT_EQ(bytes.substr(12, 12), std::string("IHDR\0\0\x01\x2C\0\0\0\x02", 12));
}

TEST(SavePng, AFolderThatIsNotThereIsAnErrorThatNamesTheFile)
{
    const std::string name = testing::TempDir() + "no_such_folder/picture.png";
    try
    {
        Canvas(1, 1).SavePng(name);
        FAIL() << "nothing was thrown";
    }
    catch (const std::runtime_error& error)
    {
        EXPECT_THAT(error.what(), testing::HasSubstr(name));
    }
}

} // namespace
