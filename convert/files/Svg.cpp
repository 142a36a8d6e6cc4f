#include "convert/files/Svg.h"

#include <fmt/format.h>

namespace kestrel {

std::string colorText(const PlotColor& color) {
  return fmt::format("#{:02x}{:02x}{:02x}", color.red, color.green, color.blue);
}

std::string svgStart(double width, double height) {
  return fmt::format(
      "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0}\" height=\"{1}\" "
      "viewBox=\"0 0 {0} {1}\" font-family=\"sans-serif\" font-size=\"{2}\" fill=\"{3}\">\n"
      "<rect width=\"{0}\" height=\"{1}\" fill=\"{4}\"/>\n",
      width, height, kPlotFontSize, colorText(kPlotText), colorText(kPlotGround));
}

std::string svgText(double x, double y, const char* anchor, const std::string& text) {
  return fmt::format("<text x=\"{:.1f}\" y=\"{:.1f}\" text-anchor=\"{}\">{}</text>\n", x, y, anchor,
                     text);
}

std::string svgLine(double x1, double y1, double x2, double y2, const PlotColor& color,
                    const char* more) {
  return fmt::format(
      "<line x1=\"{:.1f}\" y1=\"{:.1f}\" x2=\"{:.1f}\" y2=\"{:.1f}\" stroke=\"{}\"{}/>\n", x1, y1,
      x2, y2, colorText(color), more);
}

}  // namespace kestrel
