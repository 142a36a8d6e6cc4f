#include "support/FramePlanes.h"

#include <bit>
#include <utility>

#include "support/PictureColor.h"

extern "C" {
#include <libavutil/csp.h>
#include <libavutil/frame.h>
#include <libavutil/pixdesc.h>
}

namespace kestrel {

namespace {

constexpr uint64_t kOtherThanPlanes = AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_BITSTREAM |
                                      AV_PIX_FMT_FLAG_HWACCEL | AV_PIX_FMT_FLAG_BAYER |
                                      AV_PIX_FMT_FLAG_FLOAT;

const AVPixFmtDescriptor* descriptorOf(int pixelFormat) {
  return av_pix_fmt_desc_get(static_cast<AVPixelFormat>(pixelFormat));
}

int bytesPerSample(const AVComponentDescriptor& component) {
  return component.depth + component.shift > 8 ? 2 : 1;
}

bool isInMachineOrder(const AVPixFmtDescriptor& format) {
  const bool isBig = (format.flags & AV_PIX_FMT_FLAG_BE) != 0;
  return bytesPerSample(format.comp[0]) == 1 || isBig == (std::endian::native == std::endian::big);
}

/// Luma and alpha have planes to themselves; all components have the same kind of samples.
bool isPlanar(const AVPixFmtDescriptor& format) {
  const AVComponentDescriptor& luma = format.comp[0];
  for (int i = 0; i < format.nb_components; ++i) {
    const AVComponentDescriptor& component = format.comp[i];
    const bool isChroma = i == 1 || i == 2;
    if (component.depth != luma.depth || component.shift != luma.shift) return false;
    if (isChroma ? component.plane == luma.plane : component.step != bytesPerSample(luma))
      return false;
  }
  return format.nb_components != 2 && luma.depth >= 8 && luma.depth <= 16;
}

bool isRgb(const AVPixFmtDescriptor& format) { return (format.flags & AV_PIX_FMT_FLAG_RGB) != 0; }

/// RGB of more than 8 bits, in planes or in turns; with 8 it is a bitmap.
bool isDeepRgb(const AVPixFmtDescriptor& format) {
  const AVComponentDescriptor& first = format.comp[0];
  for (int i = 1; i < format.nb_components; ++i)
    if (format.comp[i].depth != first.depth || format.comp[i].shift != first.shift ||
        format.comp[i].step != first.step)
      return false;
  return format.nb_components >= 3 && first.depth > 8 && first.depth <= 16 && first.step % 2 == 0;
}

const AVPixFmtDescriptor* planesOf(int pixelFormat) {
  const AVPixFmtDescriptor* format = descriptorOf(pixelFormat);
  const bool isTaken = format && (format->flags & kOtherThanPlanes) == 0 &&
                       (isRgb(*format) ? isDeepRgb(*format) : isPlanar(*format)) &&
                       isInMachineOrder(*format);
  return isTaken ? format : nullptr;
}

/// The component that a plane shows.
int componentOf(const AVPixFmtDescriptor& format, size_t plane) {
  constexpr int kOfRgb[] = {1, 2, 0, 3};
  return isRgb(format) ? kOfRgb[plane] : static_cast<int>(plane);
}

/// Where a sample of chroma lies among those of luma, across and down: with the left one in the
/// middle where nothing else is told, as MPEG-2 and its followers have it.
std::pair<double, double> placeOfChroma(AVChromaLocation location) {
  switch (location) {
    case AVCHROMA_LOC_CENTER:
      return {0.5, 0.5};
    case AVCHROMA_LOC_TOPLEFT:
      return {0, 0};
    case AVCHROMA_LOC_TOP:
      return {0.5, 0};
    case AVCHROMA_LOC_BOTTOMLEFT:
      return {0, 1};
    case AVCHROMA_LOC_BOTTOM:
      return {0.5, 1};
    default:
      return {0, 0.5};
  }
}

YUVMatrix kindOf(int matrix, int transfer) {
  switch (matrix) {
    case AVCOL_SPC_RGB:
      return YUVMatrix::kRgb;
    case AVCOL_SPC_YCGCO:
      return YUVMatrix::kYCgCo;
    case AVCOL_SPC_BT2020_CL:
      return YUVMatrix::kConstantLuminance;
    case AVCOL_SPC_ICTCP:
      return transfer == AVCOL_TRC_ARIB_STD_B67 ? YUVMatrix::kICtCpOfHlg : YUVMatrix::kICtCpOfPq;
    default:
      return YUVMatrix::kLuma;
  }
}

std::optional<YUVFormat> formatOf(const AVFrame& frame) {
  const AVPixFmtDescriptor* planes = planesOf(frame.format);
  const int matrix = pictureMatrix(frame.colorspace, frame.format, frame.height);
  const YUVMatrix kind = kindOf(matrix, frame.color_trc);
  // Those of other kinds are told in terms of BT.709, and do not count.
  const AVLumaCoefficients* luma = av_csp_luma_coeffs_from_avcsp(
      kind == YUVMatrix::kLuma ? static_cast<AVColorSpace>(matrix) : AVCOL_SPC_BT709);
  if (!planes || !luma || !frame.data[0] || frame.width <= 0 || frame.height <= 0)
    return std::nullopt;
  const auto [chromaX, chromaY] = placeOfChroma(frame.chroma_location);
  return YUVFormat{.width = frame.width,
                   .height = frame.height,
                   .chromaShiftX = planes->log2_chroma_w,
                   .chromaShiftY = planes->log2_chroma_h,
                   .bitDepth = planes->comp[0].depth,
                   .bitShift = planes->comp[0].shift,
                   .kr = av_q2d(luma->cr),
                   .kb = av_q2d(luma->cb),
                   .fullRange = pictureRange(frame.color_range, frame.format) == AVCOL_RANGE_JPEG,
                   .chromaX = chromaX,
                   .chromaY = chromaY,
                   .matrix = kind,
                   .byFields = frame.interlaced_frame && planes->log2_chroma_h == 1};
}

template <typename Byte>
YUVPlaneOf<Byte> planeOf(const AVFrame& frame, size_t plane) {
  const AVPixFmtDescriptor& format = *descriptorOf(frame.format);
  const AVComponentDescriptor& component = format.comp[componentOf(format, plane)];
  return {.data = frame.data[component.plane] + component.offset,
          .bytesPerRow = frame.linesize[component.plane],
          .sampleStride = component.step / bytesPerSample(component)};
}

}  // namespace

bool isYuvPlanes(int pixelFormat) { return planesOf(pixelFormat) != nullptr; }

std::optional<YUVPicture> yuvPictureOf(std::shared_ptr<const AVFrame> frame) {
  const auto format = frame ? formatOf(*frame) : std::nullopt;
  if (!format) return std::nullopt;
  YUVPicture picture{.format = *format, .planes = {}, .owner = nullptr};
  for (size_t i = 0; i < descriptorOf(frame->format)->nb_components; ++i)
    picture.planes[i] = planeOf<const uint8_t>(*frame, i);
  picture.owner = std::move(frame);
  return picture;
}

std::optional<YUVTarget> yuvTargetOf(AVFrame& frame) {
  const auto format = formatOf(frame);
  if (!format || descriptorOf(frame.format)->nb_components != 3) return std::nullopt;
  YUVTarget target{.format = *format, .planes = {}};
  for (size_t i = 0; i < 3; ++i) target.planes[i] = planeOf<uint8_t>(frame, i);
  return target;
}

}  // namespace kestrel
