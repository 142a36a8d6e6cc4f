#include "support/PictureColor.h"

#include <kestrel/LMFFVideoColor.h>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixdesc.h>
}

namespace kestrel {

namespace {

constexpr int kHighDefinitionLines = 720;

bool isRgb(int pixelFormat) {
  const AVPixFmtDescriptor* format = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(pixelFormat));
  return format && (format->flags & (AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL));
}

/// Without any colour, with or without alpha.
bool isGrey(int pixelFormat) {
  const AVPixFmtDescriptor* format = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(pixelFormat));
  return format && format->nb_components > 0 && format->nb_components <= 2;
}

bool isFullRangeYuv(int pixelFormat) {
  switch (pixelFormat) {
    case AV_PIX_FMT_YUVJ420P:
    case AV_PIX_FMT_YUVJ422P:
    case AV_PIX_FMT_YUVJ444P:
    case AV_PIX_FMT_YUVJ440P:
    case AV_PIX_FMT_YUVJ411P:
      return true;
    default:
      return false;
  }
}

}  // namespace

int pictureMatrix(int colorspace, int pixelFormat, int height) {
  if (isRgb(pixelFormat)) return AVCOL_SPC_RGB;
  if (colorspace != AVCOL_SPC_UNSPECIFIED && colorspace != AVCOL_SPC_RGB &&
      colorspace != AVCOL_SPC_RESERVED)
    return colorspace;
  return height >= kHighDefinitionLines ? AVCOL_SPC_BT709 : AVCOL_SPC_SMPTE170M;
}

int pictureRange(int range, int pixelFormat) {
  if (isRgb(pixelFormat) || isFullRangeYuv(pixelFormat)) return AVCOL_RANGE_JPEG;
  if (range != AVCOL_RANGE_UNSPECIFIED) return range;
  return isGrey(pixelFormat) ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
}

LMFFVideoColor lm_resolved_video_color(const LMFFVideoColor& color, int pix_fmt, int height) {
  return {color.primaries, color.transfer, pictureMatrix(color.matrix, pix_fmt, height),
          pictureRange(color.range, pix_fmt)};
}

void tagPictureColor(AVFrame& frame) {
  frame.colorspace =
      static_cast<AVColorSpace>(pictureMatrix(frame.colorspace, frame.format, frame.height));
  frame.color_range = static_cast<AVColorRange>(pictureRange(frame.color_range, frame.format));
}

}  // namespace kestrel
