#pragma once

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

#include <kestrel/LMFFImageColorspaceConverter.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iterator>
#include <vector>

#include "support/FFmpegOwners.h"

namespace kestrel::test {

/// The three components of a colour: R, G, B or Y, U, V.
using Triple = std::array<double, 3>;

/// A reference-counted frame with undefined pixels.
inline FramePtr makePicture(AVPixelFormat format, int width, int height) {
  FramePtr frame = makeFrame();
  frame->format = format;
  frame->width = width;
  frame->height = height;
  return av_frame_get_buffer(frame.get(), 16) < 0 ? nullptr : std::move(frame);
}

inline FramePtr tagged(FramePtr frame, int matrix, int range) {
  frame->colorspace = static_cast<AVColorSpace>(matrix);
  frame->color_range = static_cast<AVColorRange>(range);
  return frame;
}

/// The sample of component `index` at pixel `x`, `y`, whatever the format's layout.
inline double sampleAt(const AVFrame& frame, int index, int x, int y) {
  const AVPixFmtDescriptor* format = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
  const AVComponentDescriptor& component = format->comp[index];
  const bool isChroma = (index == 1 || index == 2) && !(format->flags & AV_PIX_FMT_FLAG_RGB);
  const int column = isChroma ? x >> format->log2_chroma_w : x;
  const int row = isChroma ? y >> format->log2_chroma_h : y;
  const uint8_t* at = frame.data[component.plane] + row * frame.linesize[component.plane] +
                      column * component.step + component.offset;
  if (component.depth == 8) return *at;
  uint16_t value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

inline void setSampleAt(AVFrame& frame, int index, int x, int y, double value) {
  const AVPixFmtDescriptor* format = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
  const AVComponentDescriptor& component = format->comp[index];
  const bool isChroma = (index == 1 || index == 2) && !(format->flags & AV_PIX_FMT_FLAG_RGB);
  const int column = isChroma ? x >> format->log2_chroma_w : x;
  const int row = isChroma ? y >> format->log2_chroma_h : y;
  uint8_t* at = frame.data[component.plane] + row * frame.linesize[component.plane] +
                column * component.step + component.offset;
  const auto rounded = static_cast<uint16_t>(std::lround(value));
  if (component.depth == 8) {
    *at = static_cast<uint8_t>(rounded);
  } else {
    std::memcpy(at, &rounded, sizeof rounded);
  }
}

/// Paints every pixel with what `color` answers for it; alpha becomes full.
inline void paint(AVFrame& frame, const std::function<Triple(int x, int y)>& color) {
  const AVPixFmtDescriptor* format = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
  for (int y = 0; y < frame.height; y++) {
    for (int x = 0; x < frame.width; x++) {
      const Triple value = color(x, y);
      for (int i = 0; i < 3; i++) setSampleAt(frame, i, x, y, value[i]);
      if (format->nb_components == 4) setSampleAt(frame, 3, x, y, 255);
    }
  }
}

inline Triple colorAt(const AVFrame& frame, int x, int y) {
  return {sampleAt(frame, 0, x, y), sampleAt(frame, 1, x, y), sampleAt(frame, 2, x, y)};
}

/// A BT.601 YUV picture of one brightness.
inline FramePtr greyPicture(int width, int height, double luma,
                            AVPixelFormat format = AV_PIX_FMT_YUV420P) {
  FramePtr frame =
      tagged(makePicture(format, width, height), AVCOL_SPC_SMPTE170M, AVCOL_RANGE_MPEG);
  paint(*frame, [luma](int, int) { return Triple{luma, 128, 128}; });
  return frame;
}

inline FramePtr rgbPicture(int width, int height, Triple color) {
  FramePtr frame = makePicture(AV_PIX_FMT_RGB24, width, height);
  paint(*frame, [color](int, int) { return color; });
  return frame;
}

inline bool hasAlignedRows(const AVFrame& frame) {
  return frame.linesize[0] > 0 && std::all_of(std::begin(frame.linesize), std::end(frame.linesize),
                                              [](int size) { return size % 16 == 0; });
}

/// A converter with its output format set.
struct SizedConverter : LMFFImageColorspaceConverter {
  SizedConverter(AVPixelFormat format, int width, int height) {
    setOutputFormat({format, width, height});
  }
  const AVFrame& output() const { return *outputFrame(); }
  Triple color(int x = 5, int y = 5) const { return colorAt(output(), x, y); }
};

/// How the components of a picture follow from R, G, B: the weights of red and blue in the
/// brightness, the range, and the bits of a sample.
struct YuvModel {
  double red;
  double blue;
  bool isFull;
  int bits = 8;

  double lumaRange() const { return (isFull ? 255.0 : 219.0) * scale(); }
  double chromaRange() const { return (isFull ? 255.0 : 224.0) * scale(); }
  double black() const { return isFull ? 0 : 16 * scale(); }
  double neutral() const { return 128 * scale(); }

  Triple fromRgb(const Triple& rgb) const {
    const double luma = red * rgb[0] + (1 - red - blue) * rgb[1] + blue * rgb[2];
    const double most = (1 << bits) - 1;
    return {black() + luma / 255 * lumaRange(),
            std::min(most, neutral() + (rgb[2] - luma) / (2 - 2 * blue) / 255 * chromaRange()),
            std::min(most, neutral() + (rgb[0] - luma) / (2 - 2 * red) / 255 * chromaRange())};
  }

  Triple toRgb(const Triple& yuv) const {
    const double luma = (yuv[0] - black()) / lumaRange() * 255;
    const double b = luma + (yuv[1] - neutral()) / chromaRange() * (2 - 2 * blue) * 255;
    const double r = luma + (yuv[2] - neutral()) / chromaRange() * (2 - 2 * red) * 255;
    const double g = (luma - red * r - blue * b) / (1 - red - blue);
    return {std::clamp(r, 0.0, 255.0), std::clamp(g, 0.0, 255.0), std::clamp(b, 0.0, 255.0)};
  }

 private:
  /// Full range is not quite a multiple: its white has all bits set.
  double scale() const {
    return isFull ? ((1 << bits) - 1) / 255.0 : static_cast<double>(1 << (bits - 8));
  }
};

inline constexpr YuvModel kBt601{0.299, 0.114, false};
inline constexpr YuvModel kBt601Full{0.299, 0.114, true};
inline constexpr YuvModel kBt709{0.2126, 0.0722, false};
inline constexpr YuvModel kBt709Full{0.2126, 0.0722, true};
inline constexpr YuvModel kBt2020{0.2627, 0.0593, false};

/// The colours of the usual bars at 100 % and 75 %, and some greys.
inline const std::vector<Triple>& barColors() {
  static const std::vector<Triple> colors = [] {
    std::vector<Triple> all;
    for (const double level : {255.0, 191.0}) {
      for (int bits = 7; bits >= 0; bits--) {
        all.push_back({bits & 2 ? level : 0, bits & 4 ? level : 0, bits & 1 ? level : 0});
      }
    }
    for (const double grey : {16.0, 64.0, 128.0, 235.0}) all.push_back({grey, grey, grey});
    return all;
  }();
  return colors;
}

inline constexpr int kBarWidth = 16;

inline int barsWidth() { return static_cast<int>(barColors().size()) * kBarWidth; }

/// Vertical bars of `barColors`, passed through `color`.
inline FramePtr barsPicture(AVPixelFormat format, int height,
                            const std::function<Triple(const Triple&)>& color) {
  FramePtr frame = makePicture(format, barsWidth(), height);
  paint(*frame, [&](int x, int) { return color(barColors()[x / kBarWidth]); });
  return frame;
}

/// The largest difference of any component of any bar, away from the bars' edges, between a
/// picture of bars and what `color` expects.
inline double worstBarError(const AVFrame& frame,
                            const std::function<Triple(const Triple&)>& color) {
  double worst = 0;
  for (size_t bar = 0; bar < barColors().size(); bar++) {
    const Triple expected = color(barColors()[bar]);
    for (const int y : {0, frame.height / 2, frame.height - 1}) {
      for (int x = 4; x < kBarWidth - 4; x++) {
        const Triple actual = colorAt(frame, static_cast<int>(bar) * kBarWidth + x, y);
        for (int i = 0; i < 3; i++) worst = std::max(worst, std::fabs(actual[i] - expected[i]));
      }
    }
  }
  return worst;
}

}  // namespace kestrel::test
