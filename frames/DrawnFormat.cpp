#include "frames/DrawnFormat.h"

#include <algorithm>

#include "support/FramePlanes.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace kestrel {

namespace {

bool isRgb(const AVPixFmtDescriptor& format) { return (format.flags & AV_PIX_FMT_FLAG_RGB) != 0; }

bool isDrawnInto(int pixelFormat) {
  const AVPixFmtDescriptor* format = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(pixelFormat));
  return format && format->nb_components == 3 && isYuvPlanes(pixelFormat);
}

}  // namespace

int drawnFormat(int pixelFormat) {
  if (isDrawnInto(pixelFormat)) return pixelFormat;
  const AVPixFmtDescriptor* wanted = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(pixelFormat));
  if (!wanted || wanted->comp[0].depth <= 8 || wanted->comp[0].depth > 16) return AV_PIX_FMT_NONE;
  const AVPixFmtDescriptor* format = nullptr;
  while ((format = av_pix_fmt_desc_next(format))) {
    const int id = av_pix_fmt_desc_get_id(format);
    if (isDrawnInto(id) && isRgb(*format) == isRgb(*wanted) &&
        format->comp[0].depth == wanted->comp[0].depth &&
        format->log2_chroma_w == wanted->log2_chroma_w &&
        format->log2_chroma_h == wanted->log2_chroma_h)
      return id;
  }
  return AV_PIX_FMT_NONE;
}

}  // namespace kestrel
