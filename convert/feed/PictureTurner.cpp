#include "convert/feed/PictureTurner.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <string_view>
#include <utility>
#include <vector>

#include "support/FFmpegOwners.h"
#include "support/PictureColor.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace kestrel {

namespace {

constexpr char kScaling[] = "flags=bicubic+accurate_rnd+full_chroma_int";

bool isTransparent(AVPixelFormat format) {
  return (av_pix_fmt_desc_get(format)->flags & AV_PIX_FMT_FLAG_ALPHA) != 0;
}

/// A format like another with one sample of each kind for every pixel, of no fewer bits than it
/// has.
std::string wholeFormat(AVPixelFormat format) {
  const AVPixFmtDescriptor& own = *av_pix_fmt_desc_get(format);
  const bool isRgb = (own.flags & AV_PIX_FMT_FLAG_RGB) != 0;
  const std::string alpha = isTransparent(format) ? "a" : "";
  const int depth = own.comp[0].depth;
  if (std::string_view(own.name).starts_with("yuvj")) return "yuvj444p";
  const std::string name = isRgb ? "gbr" + alpha + "p" : "yuv" + alpha + "444p";
  if (depth <= 8) return name;
  return name + (depth <= 10 ? "10" : depth <= 12 ? "12" : "16");
}

/// Where samples of colour lie, counted in pixels from the middle of those that share one.
struct Place {
  double x = 0;
  double y = 0;
};

/// They lie at the left in the middle where nothing else is told, as MPEG-2 and its followers have
/// it.
Place placeOfColor(const AVFrame& frame) {
  const AVPixFmtDescriptor& format = *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
  Place place;
  const auto told = frame.chroma_location;
  const bool isCentred =
      told == AVCHROMA_LOC_CENTER || told == AVCHROMA_LOC_TOP || told == AVCHROMA_LOC_BOTTOM;
  if (format.log2_chroma_w == 1 && !isCentred) place.x = -0.5;
  if (format.log2_chroma_h != 1) return place;
  if (told == AVCHROMA_LOC_TOPLEFT || told == AVCHROMA_LOC_TOP) place.y = -0.5;
  if (told == AVCHROMA_LOC_BOTTOMLEFT || told == AVCHROMA_LOC_BOTTOM) place.y = 0.5;
  return place;
}

/// Gives every pixel samples of its own, from colour that lies at a place. The libraries, which are
/// told 256ths of a pixel from the first one that shares a sample, would take it for the middle.
std::vector<FilterChain::Filter> makingWhole(AVPixelFormat format, const Place& place) {
  const AVPixFmtDescriptor& own = *av_pix_fmt_desc_get(format);
  const auto position = [](double offset, int shift) {
    return shift == 1 ? std::lround((offset + 0.5) * 256) : -513;  // -513: not told
  };
  return {{"scale",
           fmt::format("in_h_chr_pos={}:in_v_chr_pos={}:{}", position(place.x, own.log2_chroma_w),
                       position(place.y, own.log2_chroma_h), kScaling)},
          {"format", "pix_fmts=" + wholeFormat(format)}};
}

/// Where they lie in a picture that is mirrored. In one of an odd length the last sample has one
/// pixel less, and the mirrored ones begin with it.
double mirrored(double place, int pixels) { return pixels % 2 == 0 ? -place : -place - 1; }

/// Where they lie after a turn of whole planes.
Place turned(Place place, const AVFrame& frame, const Look::Turn& turn) {
  const AVPixFmtDescriptor& format = *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
  // Odd lengths matter where two pixels share a sample.
  int width = format.log2_chroma_w == 1 ? frame.width : 2;
  int height = format.log2_chroma_h == 1 ? frame.height : 2;
  if (turn.mirrored) place.x = mirrored(place.x, width);
  if (turn.flipped) place.y = mirrored(place.y, height);
  for (int i = 0; i < turn.quarters; ++i) {
    place = {place.y, mirrored(place.x, width)};
    std::swap(width, height);
  }
  return place;
}

/// Whether as many columns as rows share a sample of colour, so that it stays so when they change
/// places.
bool sharesSquares(const AVFrame& frame) {
  const AVPixFmtDescriptor& format = *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
  return format.log2_chroma_w == format.log2_chroma_h;
}

using Taps = std::array<int, 5>;
constexpr int kTapsUnit = 128;

/// Moves samples by up to half their distance, by the cubic of Catmull and Rom.
Taps tapsAt(double distance) {
  const double t = std::abs(distance);
  const auto part = [](double value) { return static_cast<int>(std::lround(value * kTapsUnit)); };
  Taps taps{0, part(((2 - t) * t - 1) * t / 2), part(((3 * t - 5) * t * t + 2) / 2),
            part(((4 - 3 * t) * t + 1) * t / 2), part((t - 1) * t * t / 2)};
  if (distance < 0) std::ranges::reverse(taps);
  return taps;
}

/// Puts samples of colour back where they lay before planes were turned.
FilterChain::Filter placing(const Place& before, const Place& after) {
  const Taps across = tapsAt((before.x - after.x) / 2);
  const Taps down = tapsAt((before.y - after.y) / 2);
  std::string matrix;
  for (const int row : down)
    for (const int column : across) matrix += fmt::format("{} ", row * column);
  matrix.pop_back();
  const double unit = 1.0 / (kTapsUnit * kTapsUnit);
  return {"convolution", fmt::format("1m={0}:2m={0}:1rdiv={1:.12f}:2rdiv={1:.12f}", matrix, unit)};
}

}  // namespace

void PictureTurner::build(const AVFrame& frame) {
  width_ = frame.width;
  height_ = frame.height;
  format_ = frame.format;
  std::vector<FilterChain::Filter> filters{
      {"buffer",
       fmt::format("video_size={}x{}:pix_fmt={}:time_base=1/25", width_, height_, format_)}};
  const auto format = static_cast<AVPixelFormat>(format_);
  const Place before = placeOfColor(frame);
  const bool flattens = flattens_ && isTransparent(format);
  const bool turnsAside = turn_.quarters % 2 != 0 && !sharesSquares(frame);
  if (flattens || turnsAside)
    std::ranges::move(makingWhole(format, before), std::back_inserter(filters));
  if (flattens) filters.push_back({"premultiply", "inplace=1"});
  if (turn_.mirrored != (turn_.quarters == 2)) filters.push_back({"hflip", ""});
  if (turn_.flipped != (turn_.quarters == 2)) filters.push_back({"vflip", ""});
  if (turn_.quarters == 1) filters.push_back({"transpose", "dir=cclock"});
  if (turn_.quarters == 3) filters.push_back({"transpose", "dir=clock"});
  const Place after = turned(before, frame, turn_);
  const bool keepsPlanes = !flattens && !turnsAside;
  if (keepsPlanes && (before.x != after.x || before.y != after.y))
    filters.push_back(placing(before, after));
  filters.push_back({"buffersink", ""});
  chain_ = FilterChain::make(filters, kScaling);
}

std::shared_ptr<LMFFImage> PictureTurner::make(const std::shared_ptr<LMFFImage>& frame) {
  if (frame == frame_) return picture_;
  const FramePtr own(av_frame_clone(frame->getFrame()));
  frame_ = frame;
  picture_ = frame;
  if (!own) return picture_;
  tagPictureColor(*own);
  if (own->width != width_ || own->height != height_ || own->format != format_) build(*own);
  FramePtr turned = makeFrame();
  if (chain_ && turned && chain_->push(own.get()) && chain_->pull(*turned))
    picture_ = LMFFImage::imageWithFrame(turned.release(), true);
  return picture_;
}

}  // namespace kestrel
