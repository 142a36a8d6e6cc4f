#include <kestrel/Color.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdint>
#include <string_view>
#include <system_error>

extern "C" {
#include <libavutil/parseutils.h>
}

namespace kestrel {

namespace {

bool isSameName(std::string_view a, std::string_view b) {
  return std::ranges::equal(
      a, b, [](unsigned char x, unsigned char y) { return std::tolower(x) == std::tolower(y); });
}

/// Hexadecimal digits alone.
std::optional<uint32_t> hexNumber(std::string_view digits) {
  uint32_t number = 0;
  const char* const end = digits.data() + digits.size();
  const auto [next, error] = std::from_chars(digits.data(), end, number, 16);
  return error == std::errc{} && next == end ? std::optional(number) : std::nullopt;
}

/// "FFCC00" or "FFCC0080".
std::optional<Color> colorOfDigits(std::string digits) {
  if (digits.size() == 6) digits += "FF";
  const auto number = digits.size() == 8 ? hexNumber(digits) : std::nullopt;
  if (!number) return std::nullopt;
  const auto part = [&](int shift) { return (*number >> shift & 0xFFU) / 255.0; };
  return Color{part(24), part(16), part(8), part(0)};
}

std::optional<Color> colorOfName(std::string_view name) {
  const uint8_t* rgb = nullptr;
  for (int i = 0; const char* known = av_get_known_color_name(i, &rgb); ++i)
    if (isSameName(name, known)) return Color{rgb[0] / 255.0, rgb[1] / 255.0, rgb[2] / 255.0, 1};
  return std::nullopt;
}

/// "0.5", or "0x80" of 255.
std::optional<double> alphaOf(std::string_view text) {
  double alpha = 0;
  if (text.starts_with("0x")) {
    const auto number = hexNumber(text.substr(2));
    if (!number) return std::nullopt;
    alpha = *number / 255.0;
  } else {
    const char* const end = text.data() + text.size();
    const auto [next, error] = std::from_chars(text.data(), end, alpha);
    if (error != std::errc{} || next != end) return std::nullopt;
  }
  return alpha >= 0 && alpha <= 1 ? std::optional(alpha) : std::nullopt;
}

std::optional<Color> colorBeforeAlpha(const std::string& text) {
  if (const auto color = colorOfName(text)) return color;
  if (text.starts_with('#') && text.size() == 4)
    return colorOfDigits({text[1], text[1], text[2], text[2], text[3], text[3]});
  if (text.starts_with('#')) return colorOfDigits(text.substr(1));
  return colorOfDigits(text.starts_with("0x") ? text.substr(2) : text);
}

}  // namespace

std::optional<Color> colorWithName(const std::string& text) {
  const size_t at = text.find('@');
  auto color = colorBeforeAlpha(text.substr(0, at));
  if (!color || at == std::string::npos) return color;
  const auto alpha = alphaOf(std::string_view(text).substr(at + 1));
  if (!alpha) return std::nullopt;
  color->alpha = *alpha;
  return color;
}

std::vector<std::string> colorNames() {
  std::vector<std::string> names;
  const uint8_t* ignored = nullptr;
  for (int i = 0; const char* name = av_get_known_color_name(i, &ignored); ++i)
    names.emplace_back(name);
  return names;
}

}  // namespace kestrel
