#include "convert/cut/FrameLikeness.h"

#include <kestrel/PlaneMetrics.h>

#include <cstring>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

namespace kestrel {

namespace {

constexpr int kLeastSide = 8;  // of what is measured

bool isStoredAlike(const AVFrame& one, const AVFrame& other) {
  return one.format == other.format && one.width == other.width && one.height == other.height;
}

int linesOf(const AVFrame& frame, const AVPixFmtDescriptor& format, int plane) {
  const bool isChroma = plane == 1 || plane == 2;
  return isChroma ? AV_CEIL_RSHIFT(frame.height, format.log2_chroma_h) : frame.height;
}

}  // namespace

bool samplesEqual(const AVFrame& one, const AVFrame& other) {
  if (!isStoredAlike(one, other)) return false;
  const auto format = static_cast<AVPixelFormat>(one.format);
  const AVPixFmtDescriptor& known = *av_pix_fmt_desc_get(format);
  for (int plane = 0; plane < av_pix_fmt_count_planes(format); ++plane) {
    const auto size = static_cast<size_t>(av_image_get_linesize(format, one.width, plane));
    for (int y = 0; y < linesOf(one, known, plane); ++y)
      if (std::memcmp(one.data[plane] + static_cast<ptrdiff_t>(y) * one.linesize[plane],
                      other.data[plane] + static_cast<ptrdiff_t>(y) * other.linesize[plane],
                      size) != 0)
        return false;
  }
  return true;
}

std::optional<double> likeness(const AVFrame& one, const AVFrame& other) {
  if (!isStoredAlike(one, other)) return std::nullopt;
  const AVPixFmtDescriptor& known = *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(one.format));
  double sum = 0;
  double samples = 0;
  for (int c = 0; c < known.nb_components; ++c) {
    const AVComponentDescriptor& component = known.comp[c];
    const bool isChroma = !(known.flags & AV_PIX_FMT_FLAG_RGB) && (c == 1 || c == 2);
    const int width = isChroma ? AV_CEIL_RSHIFT(one.width, known.log2_chroma_w) : one.width;
    const int height = isChroma ? AV_CEIL_RSHIFT(one.height, known.log2_chroma_h) : one.height;
    if (component.shift != 0 || component.step != (component.depth > 8 ? 2 : 1))
      return std::nullopt;
    if (width < kLeastSide || height < kLeastSide) continue;
    const auto plane = [&](const AVFrame& frame) {
      return PlaneView{frame.data[component.plane] + component.offset,
                       frame.linesize[component.plane], width, height, component.depth};
    };
    const double share = static_cast<double>(width) * height;
    sum += ssim(plane(one), plane(other)) * share;
    samples += share;
  }
  return samples > 0 ? std::optional(sum / samples) : std::nullopt;
}

}  // namespace kestrel
