#include <kestrel/Color.h>

#include <array>
#include <cstdint>

extern "C" {
#include <libavutil/parseutils.h>
}

namespace kestrel {

namespace {

/// "#FC0" as "#FFCC00"; any other text as it is.
std::string withWholeDigits(const std::string& text) {
  if (text.size() != 4 || text[0] != '#') return text;
  return {'#', text[1], text[1], text[2], text[2], text[3], text[3]};
}

}  // namespace

std::optional<Color> colorWithName(const std::string& text) {
  std::array<uint8_t, 4> rgba{};
  const bool isKnown = av_parse_color(rgba.data(), withWholeDigits(text).c_str(), -1, nullptr) >= 0;
  // No colour of its own: another one each time.
  if (!isKnown || text == "random") return std::nullopt;
  return Color{rgba[0] / 255.0, rgba[1] / 255.0, rgba[2] / 255.0, rgba[3] / 255.0};
}

std::vector<std::string> colorNames() {
  std::vector<std::string> names;
  const uint8_t* ignored = nullptr;
  for (int i = 0; const char* name = av_get_known_color_name(i, &ignored); ++i)
    names.emplace_back(name);
  return names;
}

}  // namespace kestrel
