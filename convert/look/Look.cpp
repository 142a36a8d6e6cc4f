#include "convert/look/Look.h"

#include <fmt/format.h>

#include <cmath>
#include <utility>

#include <kestrel/convert/Failure.h>
#include "convert/look/LookTable.h"
#include "convert/look/Overlay.h"
#include "convert/probe/Light.h"

namespace kestrel {

namespace {

constexpr double kSameAngle = 1e-6;        // degrees
constexpr double kDefaultFontSize = 0.06;  // of the output's height
constexpr double kDefaultOutline = 0.07;   // of the font's size
constexpr double kLeastOutline = 1.25;     // pixels; below that it is grey where it should be black
constexpr float kSubtitleMargin = 0.05F;   // of the output's width

/// The shape of a picture's pixels, width / height.
double pixelAspectOf(const VideoInfo& pictures) {
  const auto& aspect = pictures.pixelAspect;
  return aspect ? static_cast<double>(aspect->num) / aspect->den : 1;
}

/// Whether a turn maps the grid of pixels onto itself.
bool isQuarterTurn(double degrees) { return std::abs(std::remainder(degrees, 90)) < kSameAngle; }

bool swapsSides(double degrees) {
  return isQuarterTurn(degrees) && std::lround(degrees / 90) % 2 != 0;
}

/// Whether an area named on the upright picture lies within one of that size.
bool isWithin(const Area& area, Size size) {
  return 1.0 * area.x + area.width <= size.width && 1.0 * area.y + area.height <= size.height;
}

/// The same part of the stored picture, which is `stored` large before it is set upright.
Area storedArea(const Area& upright, const Orientation& orientation, Size stored) {
  const int width = static_cast<int>(stored.width);
  const int height = static_cast<int>(stored.height);
  const auto& [x, y, w, h] = upright;
  Area area = upright;
  const double turn = orientation.counterclockwise;
  switch (isQuarterTurn(turn) ? std::lround(turn / 90) & 3 : 0) {
    case 1:
      area = {width - y - h, x, h, w};
      break;
    case 2:
      area = {width - x - w, height - y - h, w, h};
      break;
    case 3:
      area = {y, height - x - w, h, w};
      break;
    default:
      break;
  }
  if (orientation.mirrored) area.x = width - area.x - area.width;
  return area;
}

/// Sets what the movie takes as it is: of the pictures themselves, or of how subtitles look on
/// them.
void handOn(const LookSettings& settings, MovieLook& look, bool ofSubtitles) {
  for (const LookRow& row : lookTable())
    if (row.hand && row.option.info.stylesSubtitles == ofSubtitles) row.hand(settings, look);
}

}  // namespace

Look::Look(const LookSettings& settings, const VideoInfo& pictures,
           const std::optional<Area>& picture)
    : settings_(settings), isTransparent_(pictures.hasAlpha), isHdr_(isHdr(pictures.color)) {
  const Size source{static_cast<double>(pictures.width), static_cast<double>(pictures.height)};
  const Orientation& own = pictures.orientation;
  const bool liesOnItsSide = swapsSides(own.counterclockwise);
  std::optional<Area> kept = picture;
  if (const auto& crop = settings.crop) {
    const Size upright = liesOnItsSide ? Size{source.height, source.width} : source;
    if (!isWithin(*crop, upright))
      throw Failure::settings(
          fmt::format("crop: {},{},{}x{} reaches beyond the picture, which is {}x{}", crop->x,
                      crop->y, crop->width, crop->height, upright.width, upright.height),
          "crop");
    kept = storedArea(*crop, own, source);
  }
  look_.cropRect = {{0, 0}, source};
  if (kept)
    look_.cropRect = {{static_cast<double>(kept->x), source.height - kept->y - kept->height},
                      {static_cast<double>(kept->width), static_cast<double>(kept->height)}};

  // The movie mirrors before it turns. The input's own turn comes first, then the settings'; a
  // mirror in between changes the sense of the turn before it.
  const bool changesSense = settings.hflip != settings.vflip;
  look_.rotate = static_cast<float>(std::remainder(
      (changesSense ? -own.counterclockwise : own.counterclockwise) - settings.rotate, 360));
  look_.hflip = own.mirrored != settings.hflip;
  look_.vflip = settings.vflip;
  handOn(settings, look_, false);

  pixelAspect_ = pixelAspectOf(pictures);
  const bool isSquare = std::abs(pixelAspect_ - 1) < 1e-3;
  // Boxes, bars and free turns are worked out in square pixels.
  const bool isTurnedFreely = !isQuarterTurn(look_.rotate);
  isFitted_ = settings.zoom.has_value() || isTurnedFreely;
  look_.zoomType =
      static_cast<int32_t>(settings.zoom.value_or(isFitted_ ? Zoom::kFit : Zoom::kStretch));
  look_.displayAspect = liesOnItsSide && settings.displayAspect != 0 ? 1 / settings.displayAspect
                                                                     : settings.displayAspect;
  if (look_.displayAspect == 0 && isFitted_ && !isSquare)
    look_.displayAspect = source.width * pixelAspect_ / source.height;
  size_ = look_.cropRect.size;
  if (look_.displayAspect != 0) {
    size_.width *= source.height * look_.displayAspect / source.width;
    pixelAspect_ = 1;
  }
  // A free turn keeps the shape of the upright picture.
  if (isTurnedFreely ? liesOnItsSide : swapsSides(look_.rotate)) {
    std::swap(size_.width, size_.height);
    pixelAspect_ = 1 / pixelAspect_;
  }
}

bool Look::isDrawn() const {
  if (!isQuarterTurn(look_.rotate) || (isHdr_ && look_.toneMaps)) return true;
  MovieLook turned;
  turned.cropRect = look_.cropRect;
  turned.zoomType = look_.zoomType;
  turned.scaler = look_.scaler;
  turned.toneMaps = look_.toneMaps;
  turned.rotate = look_.rotate;
  turned.hflip = look_.hflip;
  turned.vflip = look_.vflip;
  const LookSettings& s = settings_;
  return look_ != turned || s.crop || s.autoCrop || s.zoom || s.watermark || !s.subtitles.empty() ||
         s.subtitleTrack;
}

Look::Turn Look::turn() const {
  const auto quarters = static_cast<int>(std::lround(look_.rotate / 90) & 3);
  return {look_.hflip, look_.vflip, quarters};
}

void Look::apply(LMFFMovie& movie, Size output) const {
  MovieLook look = look_;
  if (settings_.watermark) look.watermark = loadWatermark(*settings_.watermark, output.height);
  handOn(settings_, look, true);
  look.subtitleMarkup = true;
  look.subtitleFont =
      settings_.subtitleFont.value_or(Font::systemFontOfSize(output.height * kDefaultFontSize));
  look.subtitleOutline = settings_.subtitleOutline.value_or(
      static_cast<float>(std::max(look.subtitleFont->size * kDefaultOutline, kLeastOutline)));
  look.subtitleMargin = kSubtitleMargin;
  movie.setLook(look);
  movie.setOutputVideoSize(output);
  if (!settings_.subtitles.empty()) openSubtitles(movie, settings_.subtitles);
  if (settings_.subtitleTrack) openSubtitleTrack(movie, *settings_.subtitleTrack);
}

}  // namespace kestrel
