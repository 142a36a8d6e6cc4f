#include "tools/cli/LookOptions.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tools/terminal/Outcome.h"

using namespace kestrel;

namespace {

/// The options that say how subtitles look.
constexpr const char* kSubtitleStyle[] = {"--subtitle-font", "--subtitle-color",
                                          "--subtitle-position", "--subtitle-outline",
                                          "--ignore-styles"};

void addGeometry(Verb verb) {
  verb.option("--crop", "what to keep, in pixels from the upper left of the upright picture")
      .type("X,Y,WxH")
      .notEmpty();
  verb.flag("--auto-crop", "leave black bars out");
  verb.option("--zoom",
              "how the picture fits the size: stretch, fit, 16:9, 4:3 "
              "or fill-width")
      .type("HOW")
      .notEmpty();
  verb.option("--scaler",
              "the curve that pixels of another size are mixed by: lanczos3, catmull-rom, "
              "mitchell, bilinear or area; with ,limited no edge gets a rim")
      .type("CURVE")
      .notEmpty();
  verb.option("--hdr",
              "what becomes of HDR pictures: keep, or sdr (default: sdr in pictures and wherever "
              "samples have 8 bits)")
      .type("WHAT")
      .notEmpty();
  verb.option("--display-aspect",
              "the shape that the source was meant to have: source, 4:3 or 16:9")
      .type("W:H")
      .notEmpty();
  verb.option("--rotate",
              "degrees clockwise; the source's own turn is applied "
              "by itself")
      .type("DEG");
  verb.flag("--hflip", "mirror left and right");
  verb.flag("--vflip", "mirror top and bottom");
}

void addColors(Verb verb) {
  const auto add = [&](const char* name, const char* text) {
    verb.option(name, text).type("X").between(0, 10);
  };
  add("--saturation", "0 is grey, 0.5 neutral, 1 twice as colourful");
  add("--brightness", "0 is black, 0.5 neutral, 1 white");
  add("--contrast", "0 is flat, 0.25 neutral, 0.5 twice as much");
  add("--hue", "0.5 is neutral; 0 and 1 turn the colours half way round");
  verb.option("--effect", "a look from 'kestrel effects'").type("NAME").notEmpty();
}

void addOverlays(Verb verb) {
  verb.option("--watermark", "a picture laid over all, its upper left at X,Y")
      .type("FILE[:X,Y[,SCALE[,OPACITY]]]")
      .notEmpty();
  addSubtitleOptions(verb);
  const auto add = [&](const char* name, const char* text, const char* type) {
    return verb.option(name, text).type(type).notEmpty();
  };
  verb.flag("--ignore-styles", "draw all subtitles alike, whatever styles and places they name");
  add("--subtitle-font", "such as \"DejaVu Sans Bold 40\" (size in pixels)", "FONT");
  add("--subtitle-color", "a name or #RRGGBB (default: white)", "COLOUR");
  add("--subtitle-position",
      "the lower edge of the text, from 0 at the bottom to 0.9 (default: 0.05)", "X")
      .between(0, 0.9);  // at 1 there is no room for a text
  add("--subtitle-outline",
      "how wide the black around the letters is, in pixels (default: as suits the font)", "X")
      .between(0, 100);
}

}  // namespace

void addSubtitleOptions(Verb verb) {
  verb.option("--subtitles", "a subtitle file to draw into the picture").type("FILE").notEmpty();
  verb.option("--subtitle-track", "one of the input's own: a number from 0 or a language")
      .type("N|LANG")
      .notEmpty();
}

void addLookOptions(Verb verb) {
  verb.group("Look");
  addGeometry(verb);
  addColors(verb);
  addOverlays(verb);
}

void requireSubtitles(const Verb& verb) {
  if (verb.isGiven("--subtitles") || verb.isGiven("--subtitle-track")) return;
  for (const char* option : kSubtitleStyle)
    if (verb.isGiven(option))
      throw wrongUsage(fmt::format("{} needs --subtitles or --subtitle-track", option));
}

ConversionOptions givenOptions(const Verb& verb, const std::vector<std::string>& known) {
  ConversionOptions options;
  for (const Verb::Given& given : verb.given())
    if (std::ranges::count(known, given.name) > 0)
      for (const std::string& value : given.values) options.push_back({given.name, value});
  return options;
}
