#pragma once

#include "PlotData.h"

namespace rfm_tool
{
/// Columns of pixels between the axes of the picture.
constexpr int kSvgPlotWidth = 700;

/// A picture that scales, with axes, names and a legend where there are several series. `asDots`: no lines.
std::string SvgOf(const PlotData& plot, bool asDots);
} // namespace rfm_tool
