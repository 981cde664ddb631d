#pragma once

#include "PlotData.h"

namespace rfm_tool
{
/// What a screen can show.
struct TextScreen
{
    int lines = 24;
    int columns = 80;
    bool hasUtf8 = false;   // dots of braille, eight in a character; else one mark for each
    bool hasColour = false; // tells series apart; without it marks do
};

/// Columns of dots between the edges of the screen.
int DotColumns(const TextScreen& screen);
/// As many lines as the screen has, less one for the prompt, each with its end.
std::string TextOf(const PlotData& plot, const TextScreen& screen, bool asDots);
} // namespace rfm_tool
