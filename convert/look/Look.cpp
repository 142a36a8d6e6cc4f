#include "convert/look/Look.h"

#include <kestrel/LMFFMedia.h>

#include <fmt/format.h>

#include <cmath>
#include <utility>

#include <kestrel/convert/Failure.h>
#include "convert/look/Overlay.h"
#include "convert/probe/Streams.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel {

namespace {

constexpr double kSameAngle = 1e-6;        // degrees
constexpr double kDefaultFontSize = 0.06;  // of the output's height
constexpr double kDefaultOutline = 0.05;   // of the font's size
constexpr float kSubtitleMargin = 0.05F;   // of the output's width

double pixelAspectOf(const AVStream& stream) {
  for (const AVRational aspect : {stream.sample_aspect_ratio, stream.codecpar->sample_aspect_ratio})
    if (aspect.num > 0 && aspect.den > 0) return av_q2d(aspect);
  return 1;
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

}  // namespace

Look::Look(const LookSettings& settings, const AVStream& stream, const std::optional<Area>& picture)
    : settings_(settings), isTransparent_(hasAlpha(stream)) {
  const Size source{static_cast<double>(stream.codecpar->width),
                    static_cast<double>(stream.codecpar->height)};
  const Orientation own = orientationOf(stream);
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
  crop_ = {{0, 0}, source};
  if (kept)
    crop_ = {{static_cast<double>(kept->x), source.height - kept->y - kept->height},
             {static_cast<double>(kept->width), static_cast<double>(kept->height)}};

  // The movie mirrors before it turns. The input's own turn comes first, then the settings'; a
  // mirror in between changes the sense of the turn before it.
  const bool changesSense = settings.hflip != settings.vflip;
  rotate_ = static_cast<float>(std::remainder(
      (changesSense ? -own.counterclockwise : own.counterclockwise) - settings.rotate, 360));
  mirrored_ = own.mirrored != settings.hflip;

  pixelAspect_ = pixelAspectOf(stream);
  const bool isSquare = std::abs(pixelAspect_ - 1) < 1e-3;
  // Boxes, bars and free turns are worked out in square pixels.
  isFitted_ = settings.zoom.has_value() || !isQuarterTurn(rotate_);
  displayAspect_ = liesOnItsSide && settings.displayAspect != 0 ? 1 / settings.displayAspect
                                                                : settings.displayAspect;
  if (displayAspect_ == 0 && isFitted_ && !isSquare)
    displayAspect_ = source.width * pixelAspect_ / source.height;
  size_ = crop_.size;
  if (displayAspect_ != 0) {
    size_.width *= source.height * displayAspect_ / source.width;
    pixelAspect_ = 1;
  }
  // A free turn keeps the shape of the upright picture.
  if (isQuarterTurn(rotate_) ? swapsSides(rotate_) : liesOnItsSide) {
    std::swap(size_.width, size_.height);
    pixelAspect_ = 1 / pixelAspect_;
  }
}

bool Look::isPlain() const {
  const LookSettings& s = settings_;
  const LookSettings none;
  return !s.crop && !s.autoCrop && !s.zoom && displayAspect_ == 0 && rotate_ == 0 && !mirrored_ &&
         !s.vflip && s.saturation == none.saturation && s.brightness == none.brightness &&
         s.contrast == none.contrast && s.hue == none.hue && s.effect.empty() && !s.watermark &&
         s.subtitles.empty() && !s.subtitleTrack && !isTransparent_;
}

void Look::apply(LMFFMovie& movie, Size output) const {
  movie.setCropRect(crop_);
  movie.setZoomType(
      static_cast<int32_t>(settings_.zoom.value_or(isFitted_ ? Zoom::kFit : Zoom::kStretch)));
  movie.setDisplayAspect(displayAspect_);
  movie.setRotate(rotate_);
  movie.setHflip(mirrored_);
  movie.setVflip(settings_.vflip);
  movie.setSaturation(settings_.saturation);
  movie.setBrightness(settings_.brightness);
  movie.setContrast(settings_.contrast);
  movie.setHue(settings_.hue);
  if (!settings_.effect.empty()) movie.setEffectName(settings_.effect);
  movie.setOutputVideoSize(output);
  if (settings_.watermark) movie.setWatermark(loadWatermark(*settings_.watermark, output.height));
  movie.setFullSubtitleText(true);
  const Font font =
      settings_.subtitleFont.value_or(Font::systemFontOfSize(output.height * kDefaultFontSize));
  movie.setSubtitleFont(font);
  movie.setSubtitleOutline(
      settings_.subtitleOutline.value_or(static_cast<float>(font.size * kDefaultOutline)));
  movie.setSubtitleMargin(kSubtitleMargin);
  movie.setSubtitleColor(settings_.subtitleColor);
  movie.setSubtitlePosition(settings_.subtitlePosition);
  if (!settings_.subtitles.empty()) openSubtitles(movie, settings_.subtitles);
  if (settings_.subtitleTrack) openSubtitleTrack(movie, *settings_.subtitleTrack);
}

}  // namespace kestrel
