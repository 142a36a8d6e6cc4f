#include "tools/terminal/TerminalPicture.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>

namespace {

using Color = std::array<int, 3>;

Color colorAt(const kestrel::BitmapImage& picture, int x, int y) {
  if (y >= picture.height()) return {};
  const uint8_t* pixel = picture.row(y) + static_cast<ptrdiff_t>(x) * 4;
  const auto shown = [&](int channel) { return pixel[channel] * pixel[3] / 255; };
  return {shown(0), shown(1), shown(2)};
}

void addColor(std::string& text, char layer, const Color& color) {
  fmt::format_to(std::back_inserter(text), "\x1b[{}8;2;{};{};{}m", layer, color[0], color[1],
                 color[2]);
}

}  // namespace

kestrel::Size terminalPictureSize(double shape, TerminalSize terminal) {
  const double most = terminal.columns - 1;
  const double mostRows = 2.0 * (terminal.rows - 2);
  if (most < 1 || mostRows < 2 || !(shape > 0)) return {};
  const double width = std::min(most, mostRows * shape);
  const double height = std::max(std::round(width / shape / 2), 1.0) * 2;
  return {std::max(std::round(width), 1.0), std::min(height, mostRows)};
}

std::string terminalPicture(const kestrel::BitmapImage& picture) {
  std::string text;
  for (int y = 0; y < picture.height(); y += 2) {
    text += '\n';
    Color upper{-1, 0, 0};
    Color lower = upper;
    for (int x = 0; x < picture.width(); ++x) {
      const Color above = colorAt(picture, x, y);
      const Color below = colorAt(picture, x, y + 1);
      // Neighbours are often alike, and a terminal may be far away.
      if (above != upper) addColor(text, '3', above);
      if (below != lower) addColor(text, '4', below);
      text += "▀";
      upper = above;
      lower = below;
    }
    text += "\x1b[0m";
  }
  return text;
}
