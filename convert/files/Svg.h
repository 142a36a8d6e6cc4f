#pragma once

#include <string>

namespace kestrel {

/// Levels of red, green and blue, of 255.
struct PlotColor {
  int red = 0;
  int green = 0;
  int blue = 0;
};

// What plots have in common.
inline constexpr PlotColor kPlotGround{250, 250, 252};
inline constexpr PlotColor kPlotGrid{218, 220, 226};
inline constexpr PlotColor kPlotText{60, 64, 72};
inline constexpr double kPlotFontSize = 14;

// Pieces of plots as SVG, in pixels from the upper left corner.

std::string colorText(const PlotColor& color);

/// The beginning of a plot, up to its ground; `</svg>` ends it.
std::string svgStart(double width, double height);

/// `anchor`: "start", "middle" or "end".
std::string svgText(double x, double y, const char* anchor, const std::string& text);

/// `more`: further attributes, with a space before them.
std::string svgLine(double x1, double y1, double x2, double y2, const PlotColor& color,
                    const char* more = "");

}  // namespace kestrel
