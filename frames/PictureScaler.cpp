#include "frames/PictureScaler.h"

extern "C" {
#include <libavutil/opt.h>
}

#include <algorithm>
#include <iterator>
#include <thread>

#include "support/PictureColor.h"

namespace kestrel {

namespace {

// From here on two threads take clearly less time than one; smaller pictures are not worth waking
// a second one for.
constexpr int64_t kPixelsForTwoThreads = 640 * 360;

constexpr int kNeutral = 1 << 16;  // contrast and saturation

bool isRgb(int matrix) { return matrix == AVCOL_SPC_RGB; }

int flagsOf(const std::optional<Scaler>& how) {
  if (!how) return SWS_BILINEAR;
  switch (how->resampling) {
    case Resampling::kArea:
      return SWS_AREA | SWS_ACCURATE_RND;
    case Resampling::kBilinear:
      return SWS_BILINEAR | SWS_ACCURATE_RND;
    case Resampling::kCatmullRom:
    case Resampling::kMitchell:
      return SWS_BICUBIC | SWS_ACCURATE_RND;
    default:
      return SWS_LANCZOS | SWS_ACCURATE_RND;
  }
}

void freeNothing(void*, uint8_t*) {}

}  // namespace

bool PictureScaler::isSameMatrix(int a, int b) {
  if (isRgb(a) || isRgb(b)) return a == b;
  const int* first = sws_getCoefficients(a);
  return std::equal(first, first + 4, sws_getCoefficients(b));
}

int PictureScaler::plainFormat(int pixelFormat) {
  switch (pixelFormat) {
    case AV_PIX_FMT_YUVJ420P:
      return AV_PIX_FMT_YUV420P;
    case AV_PIX_FMT_YUVJ422P:
      return AV_PIX_FMT_YUV422P;
    case AV_PIX_FMT_YUVJ444P:
      return AV_PIX_FMT_YUV444P;
    case AV_PIX_FMT_YUVJ440P:
      return AV_PIX_FMT_YUV440P;
    case AV_PIX_FMT_YUVJ411P:
      return AV_PIX_FMT_YUV411P;
    default:
      return pixelFormat;
  }
}

PictureScaler::Side PictureScaler::sideOf(const AVFrame& frame) {
  return {frame.width, frame.height, plainFormat(frame.format),
          pictureMatrix(frame.colorspace, frame.format, frame.height),
          pictureRange(frame.color_range, frame.format)};
}

/// libswscale knows RGB to be full range and asks that nobody says so.
bool PictureScaler::isFullYuv(const Side& side) {
  return !isRgb(side.matrix) && side.range == AVCOL_RANGE_JPEG;
}

SwsPtr PictureScaler::makeContext(const Side& source, const Side& target,
                                  const std::optional<Scaler>& how) {
  SwsPtr context(sws_alloc_context());
  if (!context) return nullptr;
  const bool changesMatrix = !isSameMatrix(source.matrix, target.matrix);
  const bool meetsRgb = isRgb(source.matrix) || isRgb(target.matrix);
  // The libraries' fast ways between YUV and RGB are off by a step or two; between two YUV matrices
  // they go by RGB as well.
  const int flags = flagsOf(how) | (changesMatrix ? SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT : 0);
  // Between two YUV matrices every thread would do the first half of the work for itself.
  const int64_t pixels =
      std::max(int64_t{source.width} * source.height, int64_t{target.width} * target.height);
  const bool isWorthThreads = pixels >= kPixelsForTwoThreads && (!changesMatrix || meetsRgb) &&
                              std::thread::hardware_concurrency() > 1;
  const std::pair<const char*, int> options[] = {
      {"srcw", source.width},        {"srch", source.height},
      {"src_format", source.format}, {"src_range", isFullYuv(source)},
      {"dstw", target.width},        {"dsth", target.height},
      {"dst_format", target.format}, {"dst_range", isFullYuv(target)},
      {"sws_flags", flags},          {"threads", isWorthThreads ? 2 : 1},
  };
  for (const auto& [name, value] : options) av_opt_set_int(context.get(), name, value, 0);
  if (sws_init_context(context.get(), nullptr, nullptr) < 0) return nullptr;
  // The RGB side has no matrix of its own.
  const int* from = sws_getCoefficients(isRgb(source.matrix) ? target.matrix : source.matrix);
  const int* to = sws_getCoefficients(isRgb(target.matrix) ? source.matrix : target.matrix);
  sws_setColorspaceDetails(context.get(), from, isFullYuv(source), to, isFullYuv(target), 0,
                           kNeutral, kNeutral);
  return context;
}

/// Makes `view_` show the planes of `source`. libswscale copies the pixels of frames without
/// buffers, and the metadata of all frames: this one has a buffer, which keeps nothing, and no
/// more.
bool PictureScaler::lend(const AVFrame& source) {
  if (!view_) view_ = makeFrame();
  if (view_ && !view_->buf[0]) {
    view_->buf[0] = av_buffer_create(&nothing_, 1, freeNothing, nullptr, AV_BUFFER_FLAG_READONLY);
  }
  if (!view_ || !view_->buf[0]) return false;
  view_->format = plainFormat(source.format);
  view_->width = source.width;
  view_->height = source.height;
  std::copy(std::begin(source.data), std::end(source.data), view_->data);
  std::copy(std::begin(source.linesize), std::end(source.linesize), view_->linesize);
  return true;
}

bool PictureScaler::scale(const AVFrame& source, AVFrame& target,
                          const std::optional<Scaler>& how) {
  const Side from = sideOf(source);
  const Side to = sideOf(target);
  if (!context_ || from != source_ || to != target_ || how != how_) {
    context_ = makeContext(from, to, how);
    source_ = from;
    target_ = to;
    how_ = how;
  }
  return context_ && lend(source) && sws_scale_frame(context_.get(), &target, view_.get()) >= 0;
}

}  // namespace kestrel
