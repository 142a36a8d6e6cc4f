#include "convert/values/OptionValues.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <system_error>

#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Text.h>
#include <kestrel/convert/Values.h>

namespace kestrel {

namespace {

constexpr double kDefaultFontSize = 40;  // where the font is named without one

/// As many numbers as there are, separated by commas; nothing where a part is none.
std::optional<std::vector<double>> numbersOf(std::string_view text) {
  std::vector<double> numbers;
  while (true) {
    const std::string_view part = text.substr(0, text.find(','));
    double number = 0;
    const auto [end, error] = std::from_chars(part.data(), part.data() + part.size(), number);
    if (error != std::errc{} || end != part.data() + part.size() || !std::isfinite(number))
      return std::nullopt;
    numbers.push_back(number);
    if (part.size() == text.size()) return numbers;
    text.remove_prefix(part.size() + 1);
  }
}

template <typename Value>
Value choose(std::string_view option, const std::string& text,
             const std::vector<std::pair<std::string, Value>>& choices) {
  std::string names;
  for (const auto& [name, value] : choices) {
    if (name == text) return value;
    names += (names.empty() ? "" : ", ") + name;
  }
  refuseValue(option, text, "one of " + names);
}

}  // namespace

void refuseValue(std::string_view option, std::string_view text, std::string_view wanted) {
  throw Failure::settings(fmt::format("{}: '{}' is not {}", option, text, wanted));
}

Area parseArea(std::string_view option, const std::string& text) {
  Area area;
  std::array<int*, 4> numbers{&area.x, &area.y, &area.width, &area.height};
  constexpr std::string_view kSeparators = ",,x";
  std::string_view rest = text;
  for (size_t i = 0; i < numbers.size(); ++i) {
    const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), *numbers[i]);
    const auto length = static_cast<size_t>(end - rest.data());
    const bool isLast = i + 1 == numbers.size();
    const bool isSeparated =
        isLast ? length == rest.size() : length < rest.size() && rest[length] == kSeparators[i];
    if (error != std::errc{} || !isSeparated)
      refuseValue(option, text, "an area such as 10,20,640x360 (X,Y,WxH from the upper left)");
    rest.remove_prefix(length + (isLast ? 0 : 1));
  }
  return area;
}

Watermark parseWatermark(std::string_view option, const std::string& text) {
  Watermark mark{.path = text};
  const size_t colon = text.rfind(':');
  if (colon == std::string::npos) return mark;
  const auto numbers = numbersOf(std::string_view(text).substr(colon + 1));
  if (!numbers) return mark;
  if (numbers->size() < 2 || numbers->size() > 4)
    refuseValue(option, text, "of the form FILE:X,Y[,SCALE[,OPACITY]]");
  mark.path.resize(colon);
  mark.x = (*numbers)[0];
  mark.y = (*numbers)[1];
  if (numbers->size() > 2) mark.scale = (*numbers)[2];
  if (numbers->size() > 3) mark.opacity = (*numbers)[3];
  return mark;
}

Color parseColor(std::string_view option, const std::string& text) {
  if (const auto color = colorWithName(text)) return *color;
  refuseValue(option, text,
              "a colour such as yellow or #FFCC00" + nearestNames(text, colorNames()));
}

Font parseFont(std::string_view option, const std::string& text) {
  const auto font = Font::fontWithDescription(text, kDefaultFontSize);
  if (!font) refuseValue(option, text, "a font such as \"DejaVu Sans Bold 40\"");
  if (!font->exists())
    throw Failure::settings(fmt::format("{}: no font '{}' is installed{}", option, font->family,
                                        nearestNames(font->family, Font::availableFontFamilies())));
  return *font;
}

Zoom parseZoom(std::string_view option, const std::string& text) {
  return choose<Zoom>(option, text,
                      {{"stretch", Zoom::kStretch},
                       {"fit", Zoom::kFit},
                       {"16:9", Zoom::k16To9},
                       {"4:3", Zoom::k4To3},
                       {"fill-width", Zoom::kFillWidth}});
}

HdrHandling parseHdr(std::string_view option, const std::string& text) {
  return choose<HdrHandling>(option, text,
                             {{"keep", HdrHandling::kKeep}, {"sdr", HdrHandling::kSdr}});
}

Scaler parseScaler(std::string_view option, const std::string& text) {
  constexpr std::string_view kLimited = ",limited";
  const bool isLimited = text.ends_with(kLimited);
  const std::string name = text.substr(0, text.size() - (isLimited ? kLimited.size() : 0));
  return {choose<Resampling>(option, name,
                             {{"lanczos3", Resampling::kLanczos3},
                              {"catmull-rom", Resampling::kCatmullRom},
                              {"mitchell", Resampling::kMitchell},
                              {"bilinear", Resampling::kBilinear},
                              {"area", Resampling::kArea}}),
          isLimited};
}

double parseDisplayAspect(std::string_view option, const std::string& text) {
  return choose<double>(option, text, {{"source", 0}, {"4:3", 4 / 3.0}, {"16:9", 16 / 9.0}});
}

Denoising parseDenoising(std::string_view option, const std::string& text) {
  if (text == "light") return Denoising::kLight;
  if (text == "medium") return Denoising::kMedium;
  if (text == "strong") return Denoising::kStrong;
  refuseValue(option, text, "one of light, medium and strong");
}

ChromaSampling parseChroma(std::string_view option, const std::string& text) {
  if (text == "420") return ChromaSampling::k420;
  if (text == "422") return ChromaSampling::k422;
  if (text == "444") return ChromaSampling::k444;
  throw Failure::settings(fmt::format("{}: '{}' is none of 420, 422 and 444", option, text));
}

ChapterSource parseChapterSource(std::string_view option, const std::string& text) {
  return choose<ChapterSource>(
      option, text, {{"input", ChapterSource::kInput}, {"scenes", ChapterSource::kScenes}});
}

double parseTargetScore(std::string_view option, const std::string& text) {
  if (text == "visually-lossless") return TargetQuality::kVisuallyLossless;
  if (text == "high") return TargetQuality::kHigh;
  if (text == "good") return TargetQuality::kGood;
  if (text.find_first_not_of("0123456789.") != std::string::npos)
    refuseValue(option, text, "visually-lossless, high, good or a score such as 85");
  return parseNumber(option, text, TargetQuality::kLeast, TargetQuality::kMost);
}

TargetQuality::Per parsePer(std::string_view option, const std::string& text) {
  return choose<TargetQuality::Per>(
      option, text, {{"file", TargetQuality::Per::kFile}, {"scene", TargetQuality::Per::kScene}});
}

double parseShare(std::string_view option, const std::string& text, double most) {
  if (!text.ends_with('%')) return parseNumber(option, text, 0, most);
  return parseNumber(option, std::string_view(text).substr(0, text.size() - 1), 0, 100 * most) /
         100;
}

std::pair<std::string, std::string> parseKeyValue(std::string_view option,
                                                  const std::string& text) {
  const size_t equals = text.find('=');
  if (equals == std::string::npos || equals == 0)
    throw Failure::settings(fmt::format("{}: '{}' is not of the form KEY=VALUE", option, text));
  return {text.substr(0, equals), text.substr(equals + 1)};
}

std::vector<std::string> parseNames(std::string_view option, const std::string& text) {
  std::vector<std::string> names;
  for (size_t from = 0; from <= text.size();) {
    const size_t comma = std::min(text.find(',', from), text.size());
    if (comma == from)
      throw Failure::settings(
          fmt::format("{}: '{}' is no list of names such as ac3,dts", option, text));
    names.push_back(text.substr(from, comma - from));
    from = comma + 1;
  }
  return names;
}

std::vector<int> parseLadder(std::string_view option, const std::string& text) {
  std::vector<int> ladder;
  for (std::string name : parseNames(option, text)) {
    if (name.ends_with('p')) name.pop_back();
    int lines = 0;
    const char* const end = name.data() + name.size();
    const auto [stop, failed] = std::from_chars(name.data(), end, lines);
    if (failed != std::errc() || stop != end)
      throw Failure::settings(
          fmt::format("{}: '{}' is no list of heights such as 1080,720,480", option, text));
    ladder.push_back(lines);
  }
  return ladder;
}

}  // namespace kestrel
