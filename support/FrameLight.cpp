#include "support/FrameLight.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/frame.h>
#include <libavutil/mastering_display_metadata.h>
}

#include <span>

#include "support/StreamSideData.h"

namespace kestrel {

namespace {

std::span<const uint8_t> bytesOf(const AVFrame& frame, AVFrameSideDataType type) {
  const AVFrameSideData* data = av_frame_get_side_data(&frame, type);
  return data ? std::span<const uint8_t>(data->data, data->size) : std::span<const uint8_t>();
}

template <typename Data>
const Data* as(std::span<const uint8_t> bytes) {
  return bytes.size() >= sizeof(Data) ? reinterpret_cast<const Data*>(bytes.data()) : nullptr;
}

std::optional<double> brightest(std::span<const uint8_t> content,
                                std::span<const uint8_t> display) {
  const auto* light = as<AVContentLightMetadata>(content);
  if (light && light->MaxCLL > 0) return light->MaxCLL;
  const auto* mastering = as<AVMasteringDisplayMetadata>(display);
  if (mastering && mastering->has_luminance && mastering->max_luminance.num > 0 &&
      mastering->max_luminance.den > 0)
    return av_q2d(mastering->max_luminance);
  return std::nullopt;
}

HdrLight::Primaries primariesOf(const AVFrame& frame) {
  switch (frame.color_primaries) {
    case AVCOL_PRI_BT709:
      return HdrLight::Primaries::kRec709;
    case AVCOL_PRI_SMPTE432:
      return HdrLight::Primaries::kDisplayP3;
    default:
      return HdrLight::Primaries::kRec2020;
  }
}

}  // namespace

std::optional<HdrLight> hdrLightOf(const AVFrame& frame, const AVStream* stream) {
  HdrLight light{.primaries = primariesOf(frame)};
  if (frame.color_trc == AVCOL_TRC_ARIB_STD_B67) {
    light.transfer = HdrLight::Transfer::kHlg;
    return light;
  }
  if (frame.color_trc != AVCOL_TRC_SMPTE2084) return std::nullopt;
  auto peak = brightest(bytesOf(frame, AV_FRAME_DATA_CONTENT_LIGHT_LEVEL),
                        bytesOf(frame, AV_FRAME_DATA_MASTERING_DISPLAY_METADATA));
  if (!peak && stream)
    peak = brightest(streamSideData(*stream, AV_PKT_DATA_CONTENT_LIGHT_LEVEL),
                     streamSideData(*stream, AV_PKT_DATA_MASTERING_DISPLAY_METADATA));
  light.peak = peak.value_or(light.peak);
  return light;
}

}  // namespace kestrel
