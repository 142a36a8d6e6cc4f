#include "convert/look/LookTable.h"

#include <fmt/format.h>

#include <cctype>
#include <cmath>
#include <string>
#include <string_view>
#include <utility>

#include "convert/settings/Require.h"
#include "convert/values/OptionValues.h"

namespace kestrel {

namespace {

constexpr double kWidestOutline = 100;  // pixels
constexpr double kLargestFont = 10000;  // pixels
constexpr double kLargestScale = 100;

using L = LookSettings;
using M = MovieLook;
constexpr auto kNumber = OptionForm::kNumber;
constexpr auto kSwitch = OptionForm::kSwitch;
constexpr auto kText = OptionForm::kText;
constexpr auto kPictures = Shapes::kPictures;
constexpr bool kStylesSubtitles = true;

float parseOutline(std::string_view option, const std::string& text) {
  return static_cast<float>(parseNumber(option, text, 0, kWidestOutline));
}

void requireCrop(const LookSettings& look) {
  if (!look.crop) return;
  if (look.autoCrop) refuseBeside("crop", "leaving black bars out");
  const auto& [x, y, width, height] = *look.crop;
  if (x < 0 || y < 0 || width <= 0 || height <= 0)
    refuse("crop",
           fmt::format("'{},{},{}x{}' is not an area within the picture", x, y, width, height));
}

void requireZoom(const LookSettings& look) {
  if (look.zoom)
    requireOneOf("zoom", *look.zoom,
                 {Zoom::kStretch, Zoom::kFit, Zoom::k16To9, Zoom::k4To3, Zoom::kFillWidth});
}

void requireScaler(const LookSettings& look) {
  requireOneOf("scaler", look.scaler.resampling,
               {Resampling::kArea, Resampling::kBilinear, Resampling::kCatmullRom,
                Resampling::kMitchell, Resampling::kLanczos3});
}

void requireHdr(const LookSettings& look) {
  if (look.hdr) requireOneOf("hdr", *look.hdr, {HdrHandling::kKeep, HdrHandling::kSdr});
}

void requireDisplayAspect(const LookSettings& look) {
  if (look.displayAspect != 0) requireAspect("displayAspect", look.displayAspect);
}

void requireRotation(const LookSettings& look) {
  if (!std::isfinite(look.rotate)) refuse("rotate", "the angle must be finite");
}

void requireWatermark(const LookSettings& look) {
  if (!look.watermark) return;
  const Watermark& mark = *look.watermark;
  const bool isPlaced = std::isfinite(mark.x) && std::isfinite(mark.y);
  const bool isPossible = isPlaced && mark.scale > 0 && mark.scale <= kLargestScale &&
                          mark.opacity >= 0 && mark.opacity <= 1;
  if (isPossible) return;
  refuse("watermark",
         fmt::format("'{}:{},{},{},{}' is not possible: a scale is above 0 and up to {}, an "
                     "opacity from 0 to 1",
                     mark.path, mark.x, mark.y, mark.scale, mark.opacity, kLargestScale));
}

void requireTrack(const LookSettings& look) {
  if (!look.subtitles.empty() && look.subtitleTrack)
    refuseBeside("subtitles", "a track of the input's own");
  if (look.subtitleTrack) requireChoice("subtitleTrack", *look.subtitleTrack);
}

void requireFont(const LookSettings& look) {
  if (look.subtitleFont) requireNumber("subtitleFont", look.subtitleFont->size, 1, kLargestFont);
}

void requireColor(const LookSettings& look) {
  if (const auto& color = look.subtitleColor)
    for (const double part : {color->red, color->green, color->blue, color->alpha})
      requireNumber("subtitleColor", part, 0, 1);
}

void requireOutline(const LookSettings& look) {
  if (look.subtitleOutline)
    requireNumber("subtitleOutline", *look.subtitleOutline, 0, kWidestOutline);
}

/// Hands a setting on as it is.
template <auto setting, auto target>
void hand(const LookSettings& look, MovieLook& movie) {
  movie.*target = look.*setting;
}

void handHdr(const LookSettings& look, MovieLook& movie) {
  movie.toneMaps = look.hdr != HdrHandling::kKeep;
}

void handEffect(const LookSettings& look, MovieLook& movie) {
  if (!look.effect.empty()) movie.effectName = look.effect;
}

void handStyles(const LookSettings& look, MovieLook& movie) {
  movie.subtitleStyles = !look.ignoreStyles;
}

/// "subtitlePosition" for "subtitle-position".
std::string settingOf(std::string_view option) {
  std::string setting;
  for (const char letter : option) {
    const bool isFirst = !setting.empty() && setting.back() == '-';
    if (isFirst) setting.pop_back();
    setting +=
        isFirst ? static_cast<char>(std::toupper(static_cast<unsigned char>(letter))) : letter;
  }
  return setting;
}

/// A number from `low` to `high` that the movie takes as it is. The setting's name is the option's.
template <auto setting, auto target>
LookRow number(OptionInfo info, double low, double high) {
  info.form = kNumber;
  const std::string name = settingOf(info.name);
  return {{info,
           [=](LookSettings& look, std::string_view option, const std::string& text) {
             look.*setting = static_cast<float>(parseNumber(option, text, low, high));
           },
           kPictures},
          hand<setting, target>,
          [=](const LookSettings& look) { requireNumber(name, look.*setting, low, high); }};
}

/// What a row has beside its option.
struct More {
  decltype(LookRow::hand) hand = {};
  decltype(LookRow::check) check = {};
  std::string_view saysTheSame = {};
};

LookRow row(const OptionInfo& info, OptionRow<L>::Setter set, const More& more = {}) {
  return {{info, std::move(set), kPictures, more.saysTheSame}, more.hand, more.check};
}

std::vector<LookRow> rows() {
  return {
      row({"crop", "X,Y,WxH", "what to keep, in pixels from the upper left of the upright picture"},
          set<&L::crop, parseArea>, {.check = requireCrop, .saysTheSame = "crop"}),
      row({"auto-crop", "", "leave black bars out", kSwitch}, turn<&L::autoCrop>,
          {.saysTheSame = "crop"}),
      row({"zoom", "HOW", "how the picture fits the size: stretch, fit, 16:9, 4:3 or fill-width"},
          set<&L::zoom, parseZoom>, {.check = requireZoom}),
      row({"scaler", "CURVE",
           "the curve that pixels of another size are mixed by: lanczos3, catmull-rom, mitchell, "
           "bilinear or area; with ,limited no edge gets a rim"},
          set<&L::scaler, parseScaler>, {hand<&L::scaler, &M::scaler>, requireScaler}),
      row({"hdr", "WHAT",
           "what becomes of HDR pictures: keep, or sdr (default: sdr in pictures and wherever "
           "samples have 8 bits)"},
          set<&L::hdr, parseHdr>, {handHdr, requireHdr}),
      row({"display-aspect", "W:H",
           "the shape that the source was meant to have: source, 4:3 or 16:9"},
          set<&L::displayAspect, parseDisplayAspect>, {.check = requireDisplayAspect}),
      row({"rotate", "DEG", "degrees clockwise; the source's own turn is applied by itself",
           kNumber},
          set<&L::rotate, parseAnyNumber>, {.check = requireRotation}),
      row({"hflip", "", "mirror left and right", kSwitch}, turn<&L::hflip>),
      row({"vflip", "", "mirror top and bottom", kSwitch}, turn<&L::vflip>),
      number<&L::saturation, &M::saturation>(
          {"saturation", "X", "0 is grey, 0.5 neutral, 1 twice as colourful"}, 0, 10),
      number<&L::brightness, &M::brightness>(
          {"brightness", "X", "0 is black, 0.5 neutral, 1 white"}, 0, 10),
      number<&L::contrast, &M::contrast>(
          {"contrast", "X", "0 is flat, 0.25 neutral, 0.5 twice as much"}, 0, 10),
      number<&L::hue, &M::hue>(
          {"hue", "X", "0.5 is neutral; 0 and 1 turn the colours half way round"}, 0, 10),
      row({"effect", "NAME", "a look from 'kestrel effects'"}, set<&L::effect, parseText>,
          {handEffect, [](const L& look) { requireEffect(look.effect); }}),
      row({"watermark", "FILE[:X,Y[,SCALE[,OPACITY]]]",
           "a picture laid over all, its upper left at X,Y"},
          set<&L::watermark, parseWatermark>, {.check = requireWatermark}),
      row({"subtitles", "FILE", "a subtitle file to draw into the picture"},
          set<&L::subtitles, parseText>, {.saysTheSame = "subtitles"}),
      row({"subtitle-track", "N|LANG", "one of the input's own: a number from 0 or a language"},
          set<&L::subtitleTrack, parseTracks>, {.check = requireTrack, .saysTheSame = "subtitles"}),
      row({"ignore-styles", "", "draw all subtitles alike, whatever styles and places they name",
           kSwitch, kStylesSubtitles},
          turn<&L::ignoreStyles>, {handStyles}),
      row({"subtitle-font", "FONT", "such as \"DejaVu Sans Bold 40\" (size in pixels)", kText,
           kStylesSubtitles},
          set<&L::subtitleFont, parseFont>, {.check = requireFont}),
      row({"subtitle-color", "COLOUR", "a name or #RRGGBB (default: white)", kText,
           kStylesSubtitles},
          set<&L::subtitleColor, parseColor>,
          {hand<&L::subtitleColor, &M::subtitleColor>, requireColor}),
      // At 1 there is no room for a text.
      number<&L::subtitlePosition, &M::subtitlePosition>(
          {"subtitle-position", "X",
           "the lower edge of the text, from 0 at the bottom to 0.9 (default: 0.05)", kNumber,
           kStylesSubtitles},
          0, 0.9),
      row({"subtitle-outline", "X",
           "how wide the black around the letters is, in pixels (default: as suits the font)",
           kNumber, kStylesSubtitles},
          set<&L::subtitleOutline, parseOutline>, {.check = requireOutline}),
  };
}

}  // namespace

const std::vector<LookRow>& lookTable() {
  static const std::vector<LookRow> kTable = [] {
    std::vector<LookRow> all = rows();
    for (LookRow& row : all) row.option.info.group = "Look";
    return all;
  }();
  return kTable;
}

void require(const LookSettings& look) {
  for (const LookRow& row : lookTable())
    if (row.check) row.check(look);
}

}  // namespace kestrel
