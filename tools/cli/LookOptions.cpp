#include <kestrel/Color.h>

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <cmath>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tools/cli/LookOptions.h"
#include "tools/cli/Text.h"
#include "tools/terminal/Outcome.h"

using namespace kestrel;

namespace {

constexpr double kDefaultFontSize = 40;  // where the font is named without one

/// What was typed; read when the command runs, so that a wrong value is told of like any failure.
struct Typed {
  LookSettings settings;
  std::string crop, zoom, subtitleTrack, displayAspect, watermark, font, color;
  std::vector<Option> subtitleStyle;  // the options that say how subtitles look
};

[[noreturn]] void refuse(std::string_view option, std::string_view text, std::string_view wanted) {
  throw wrongUsage(fmt::format("{}: '{}' is not {}", option, text, wanted));
}

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
      refuse(option, text, "an area such as 10,20,640x360 (X,Y,WxH from the upper left)");
    rest.remove_prefix(length + (isLast ? 0 : 1));
  }
  return area;
}

template <typename Value>
Value choose(std::string_view option, const std::string& text,
             const std::vector<std::pair<std::string, Value>>& choices) {
  std::string names;
  for (const auto& [name, value] : choices) {
    if (name == text) return value;
    names += (names.empty() ? "" : ", ") + name;
  }
  refuse(option, text, "one of " + names);
}

/// "FILE[:X,Y[,SCALE[,OPACITY]]]"; a name with a colon in it needs no quoting.
Watermark parseWatermark(std::string_view option, const std::string& text) {
  Watermark mark{.path = text};
  const size_t colon = text.rfind(':');
  if (colon == std::string::npos) return mark;
  const auto numbers = numbersOf(std::string_view(text).substr(colon + 1));
  if (!numbers) return mark;
  if (numbers->size() < 2 || numbers->size() > 4)
    refuse(option, text, "of the form FILE:X,Y[,SCALE[,OPACITY]]");
  mark.path.resize(colon);
  mark.x = (*numbers)[0];
  mark.y = (*numbers)[1];
  if (numbers->size() > 2) mark.scale = (*numbers)[2];
  if (numbers->size() > 3) mark.opacity = (*numbers)[3];
  return mark;
}

Color parseColor(std::string_view option, const std::string& text) {
  if (const auto color = colorWithName(text)) return *color;
  refuse(option, text, "a colour such as yellow or #FFCC00" + nearestNames(text, colorNames()));
}

Font parseFont(std::string_view option, const std::string& text) {
  const auto font = Font::fontWithDescription(text, kDefaultFontSize);
  if (!font) refuse(option, text, "a font such as \"DejaVu Sans Bold 40\"");
  if (!font->exists())
    throw wrongUsage(fmt::format("{}: no font '{}' is installed{}", option, font->family,
                                 nearestNames(font->family, Font::availableFontFamilies())));
  return *font;
}

LookSettings settingsOf(const Typed& typed) {
  LookSettings settings = typed.settings;
  if (!typed.crop.empty()) settings.crop = parseArea("--crop", typed.crop);
  if (!typed.zoom.empty())
    settings.zoom = choose<Zoom>("--zoom", typed.zoom,
                                 {{"stretch", Zoom::kStretch},
                                  {"fit", Zoom::kFit},
                                  {"16:9", Zoom::k16To9},
                                  {"4:3", Zoom::k4To3},
                                  {"fill-width", Zoom::kFillWidth}});
  if (!typed.displayAspect.empty())
    settings.displayAspect = choose<double>("--display-aspect", typed.displayAspect,
                                            {{"source", 0}, {"4:3", 4 / 3.0}, {"16:9", 16 / 9.0}});
  if (!typed.watermark.empty()) settings.watermark = parseWatermark("--watermark", typed.watermark);
  if (!typed.font.empty()) settings.subtitleFont = parseFont("--subtitle-font", typed.font);
  if (!typed.color.empty()) settings.subtitleColor = parseColor("--subtitle-color", typed.color);
  if (!typed.subtitleTrack.empty()) settings.subtitleTrack = parseTrackChoice(typed.subtitleTrack);
  const bool hasSubtitles = !settings.subtitles.empty() || !typed.subtitleTrack.empty();
  const auto& style = typed.subtitleStyle;
  for (auto option = style.rbegin(); option != style.rend(); ++option)
    if (!hasSubtitles && option->isGiven())
      throw wrongUsage(fmt::format("{} needs --subtitles or --subtitle-track", option->name()));
  return settings;
}

void addGeometry(Verb verb, Typed& typed) {
  LookSettings& settings = typed.settings;
  verb.option("--crop", typed.crop,
              "what to keep, in pixels from the upper left of the upright picture")
      .type("X,Y,WxH")
      .notEmpty();
  verb.flag("--auto-crop", settings.autoCrop, "leave black bars out");
  verb.option("--zoom", typed.zoom,
              "how the picture fits the size: stretch, fit, 16:9, 4:3 "
              "or fill-width")
      .type("HOW")
      .notEmpty();
  verb.option("--display-aspect", typed.displayAspect,
              "the shape that the source was meant to have: source, 4:3 or 16:9")
      .type("W:H")
      .notEmpty();
  verb.option("--rotate", settings.rotate,
              "degrees clockwise; the source's own turn is applied "
              "by itself")
      .type("DEG");
  verb.flag("--hflip", settings.hflip, "mirror left and right");
  verb.flag("--vflip", settings.vflip, "mirror top and bottom");
}

void addColors(Verb verb, Typed& typed) {
  LookSettings& settings = typed.settings;
  const auto add = [&](const char* name, float& value, const char* text) {
    verb.option(name, value, text).type("X").between(0, 10);
  };
  add("--saturation", settings.saturation, "0 is grey, 0.5 neutral, 1 twice as colourful");
  add("--brightness", settings.brightness, "0 is black, 0.5 neutral, 1 white");
  add("--contrast", settings.contrast, "0 is flat, 0.25 neutral, 0.5 twice as much");
  add("--hue", settings.hue, "0.5 is neutral; 0 and 1 turn the colours half way round");
  verb.option("--effect", settings.effect, "a look from 'kestrel effects'").type("NAME").notEmpty();
}

void addOverlays(Verb verb, Typed& typed) {
  LookSettings& settings = typed.settings;
  verb.option("--watermark", typed.watermark, "a picture laid over all, its upper left at X,Y")
      .type("FILE[:X,Y[,SCALE[,OPACITY]]]")
      .notEmpty();
  verb.option("--subtitles", settings.subtitles, "a subtitle file to draw into the picture")
      .type("FILE")
      .notEmpty();
  verb.option("--subtitle-track", typed.subtitleTrack,
              "one of the input's own: a number from 0 or a language")
      .type("N|LANG")
      .notEmpty();
  const auto add = [&](const char* name, auto& value, const char* text, const char* type) {
    Option option = verb.option(name, value, text).type(type).notEmpty();
    typed.subtitleStyle.push_back(option);
    return option;
  };
  add("--subtitle-font", typed.font, "such as \"DejaVu Sans Bold 40\" (size in pixels)", "FONT");
  add("--subtitle-color", typed.color, "a name or #RRGGBB (default: white)", "COLOUR");
  add("--subtitle-position", settings.subtitlePosition,
      "the lower edge of the text, from 0 at the bottom to 0.9 (default: 0.05)", "X")
      .between(0, 0.9);  // at 1 there is no room for a text
  add("--subtitle-outline", settings.subtitleOutline,
      "how wide the black around the letters is, in pixels (default: as suits the font)", "X")
      .between(0, 100);
}

}  // namespace

std::function<LookSettings()> addLookOptions(Verb verb) {
  auto typed = std::make_shared<Typed>();
  verb.group("Look");
  addGeometry(verb, *typed);
  addColors(verb, *typed);
  addOverlays(verb, *typed);
  return [typed] { return settingsOf(*typed); };
}
