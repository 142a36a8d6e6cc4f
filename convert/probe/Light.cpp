#include "convert/probe/Light.h"

#include <cmath>
#include <cstring>

#include "support/StreamSideData.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/frame.h>
#include <libavutil/mastering_display_metadata.h>
}

namespace kestrel {

namespace {

// The steps in which standards write them.
constexpr int kPlaces = 50000;      // of a coordinate
constexpr int kLightSteps = 10000;  // of a candela per square metre

constexpr double kBrightest = 10000;  // that PQ knows
constexpr int kMostLight = 65535;     // that is written of contents

template <typename Data>
const Data* sideData(const AVStream& stream, AVPacketSideDataType type) {
  const auto bytes = streamSideData(stream, type);
  return bytes.size() >= sizeof(Data) ? reinterpret_cast<const Data*>(bytes.data()) : nullptr;
}

template <typename Data>
const Data* sideData(const AVFrame& picture, AVFrameSideDataType type) {
  const AVFrameSideData* data = av_frame_get_side_data(&picture, type);
  return data && data->size >= sizeof(Data) ? reinterpret_cast<const Data*>(data->data) : nullptr;
}

DisplayColors colorsOf(const AVMasteringDisplayMetadata& display) {
  const auto at = [](const AVRational(&place)[2]) {
    return Chromaticity{av_q2d(place[0]), av_q2d(place[1])};
  };
  const auto& lights = display.display_primaries;
  return {at(lights[0]), at(lights[1]), at(lights[2]), at(display.white_point)};
}

std::optional<HdrInfo> lightOf(const AVMasteringDisplayMetadata* display,
                               const AVContentLightMetadata* light) {
  if (!display && !light) return std::nullopt;
  HdrInfo hdr;
  if (display && display->has_primaries) hdr.colors = colorsOf(*display);
  if (display && display->has_luminance) {
    hdr.darkest = av_q2d(display->min_luminance);
    hdr.brightest = av_q2d(display->max_luminance);
  }
  if (light) {
    hdr.maxContentLight = static_cast<int>(light->MaxCLL);
    hdr.maxAverageLight = static_cast<int>(light->MaxFALL);
  }
  return hdr;
}

AVRational inSteps(double number, int steps) {
  return {static_cast<int>(std::lround(number * steps)), steps};
}

/// Later libraries keep it among a stream's parameters.
void addSideData(AVStream& stream, AVPacketSideDataType type, const void* data, size_t size) {
#if LIBAVCODEC_VERSION_INT >= AV_VERSION_INT(60, 30, 100)
  AVCodecParameters& codec = *stream.codecpar;
  const AVPacketSideData* entry =
      av_packet_side_data_new(&codec.coded_side_data, &codec.nb_coded_side_data, type, size, 0);
  uint8_t* const bytes = entry ? entry->data : nullptr;
#else
  uint8_t* const bytes = av_stream_new_side_data(&stream, type, size);
#endif
  if (bytes) std::memcpy(bytes, data, size);
}

}  // namespace

bool isHdr(const VideoColor& color) {
  return color.transfer == AVCOL_TRC_SMPTE2084 || color.transfer == AVCOL_TRC_ARIB_STD_B67;
}

std::optional<HdrInfo> lightOf(const AVStream& stream) {
  return lightOf(
      sideData<AVMasteringDisplayMetadata>(stream, AV_PKT_DATA_MASTERING_DISPLAY_METADATA),
      sideData<AVContentLightMetadata>(stream, AV_PKT_DATA_CONTENT_LIGHT_LEVEL));
}

std::optional<HdrInfo> lightOf(const AVFrame& picture) {
  return lightOf(
      sideData<AVMasteringDisplayMetadata>(picture, AV_FRAME_DATA_MASTERING_DISPLAY_METADATA),
      sideData<AVContentLightMetadata>(picture, AV_FRAME_DATA_CONTENT_LIGHT_LEVEL));
}

std::vector<std::string> changingLightOf(const AVStream& stream, const AVFrame* picture) {
  const auto has = [&](AVFrameSideDataType type) {
    return picture && av_frame_get_side_data(picture, type);
  };
  std::vector<std::string> names;
  if (has(AV_FRAME_DATA_DYNAMIC_HDR_PLUS)) names.emplace_back("HDR10+");
  if (!streamSideData(stream, AV_PKT_DATA_DOVI_CONF).empty() || has(AV_FRAME_DATA_DOVI_METADATA))
    names.emplace_back("Dolby Vision");
  return names;
}

bool isPossible(const HdrInfo& light) {
  const auto isPlace = [](const Chromaticity& place) {
    return place.x >= 0 && place.x <= 1 && place.y >= 0 && place.y <= 1;
  };
  const auto isLight = [](const std::optional<double>& value) {
    return !value || (*value >= 0 && *value <= kBrightest);
  };
  const auto isLevel = [](const std::optional<int>& value) {
    return !value || (*value >= 0 && *value <= kMostLight);
  };
  const auto& colors = light.colors;
  const bool arePlaces = !colors || (isPlace(colors->red) && isPlace(colors->green) &&
                                     isPlace(colors->blue) && isPlace(colors->white));
  return arePlaces && isLight(light.darkest) && isLight(light.brightest) &&
         isLevel(light.maxContentLight) && isLevel(light.maxAverageLight);
}

void tellLight(const HdrInfo& light, AVStream& stream) {
  AVMasteringDisplayMetadata display{};
  if (light.colors) {
    const Chromaticity lights[] = {light.colors->red, light.colors->green, light.colors->blue};
    for (int i = 0; i < 3; ++i) {
      display.display_primaries[i][0] = inSteps(lights[i].x, kPlaces);
      display.display_primaries[i][1] = inSteps(lights[i].y, kPlaces);
    }
    display.white_point[0] = inSteps(light.colors->white.x, kPlaces);
    display.white_point[1] = inSteps(light.colors->white.y, kPlaces);
    display.has_primaries = 1;
  }
  if (light.darkest && light.brightest) {
    display.min_luminance = inSteps(*light.darkest, kLightSteps);
    display.max_luminance = inSteps(*light.brightest, kLightSteps);
    display.has_luminance = 1;
  }
  if (display.has_primaries || display.has_luminance)
    addSideData(stream, AV_PKT_DATA_MASTERING_DISPLAY_METADATA, &display, sizeof(display));
  if (!light.maxContentLight && !light.maxAverageLight) return;
  AVContentLightMetadata content{};
  content.MaxCLL = static_cast<unsigned>(light.maxContentLight.value_or(0));
  content.MaxFALL = static_cast<unsigned>(light.maxAverageLight.value_or(0));
  addSideData(stream, AV_PKT_DATA_CONTENT_LIGHT_LEVEL, &content, sizeof(content));
}

}  // namespace kestrel
