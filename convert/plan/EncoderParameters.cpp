#include "convert/plan/EncoderParameters.h"

#include <fmt/format.h>

#include <cmath>

extern "C" {
#include <libavcodec/codec_par.h>
#include <libavutil/pixdesc.h>
}

namespace kestrel {

namespace {

constexpr int kPlaces = 50000;      // steps of a coordinate in HEVC's messages
constexpr int kLightSteps = 10000;  // of a candela per square metre

/// x265 writes to standard error by itself, past the libraries' log.
constexpr const char* kQuietX265 = "log-level=none";

/// A value in a list, whose parts colons separate.
std::string escaped(std::string_view value) {
  std::string text;
  for (const char letter : value) {
    if (std::string_view("\\':=").find(letter) != std::string_view::npos) text += '\\';
    text += letter;
  }
  return text;
}

/// An encoder's list, as it is before anything is added.
std::string& listOf(std::map<std::string, std::string>& options, std::string_view encoder) {
  std::string& list = options[parameterOption(encoder)];
  if (list.empty() && encoder == "libx265") list = kQuietX265;
  return list;
}

/// The light of the display in an encoder's own words: in whole steps for x265, else as it is.
std::string displayOf(const HdrInfo& light, bool isInSteps) {
  const auto number = [&](double value, int steps) {
    return isInSteps ? std::to_string(std::lround(value * steps)) : fmt::format("{:.6g}", value);
  };
  const auto place = [&](const char* name, const Chromaticity& at) {
    return fmt::format("{}({},{})", name, number(at.x, kPlaces), number(at.y, kPlaces));
  };
  const DisplayColors& colors = *light.colors;
  return place("G", colors.green) + place("B", colors.blue) + place("R", colors.red) +
         place("WP", colors.white) +
         fmt::format("L({},{})", number(*light.brightest, kLightSteps),
                     number(*light.darkest, kLightSteps));
}

}  // namespace

std::string parameterOption(std::string_view encoder) {
  if (encoder == "libx264" || encoder == "libx264rgb") return "x264-params";
  if (encoder == "libx265") return "x265-params";
  if (encoder == "libsvtav1") return "svtav1-params";
  return "";
}

void addParameter(std::map<std::string, std::string>& options, std::string_view encoder,
                  std::string_view name, std::string_view value) {
  std::string& list = listOf(options, encoder);
  if (!list.empty()) list += ':';
  list += name;
  list += '=';
  list += escaped(value);
}

void addLight(std::map<std::string, std::string>& options, std::string_view encoder,
              const HdrInfo& light) {
  const bool isX265 = encoder == "libx265";
  if (!isX265 && encoder != "libsvtav1") return;
  const auto add = [&](const char* name, const std::string& value) {
    if (listOf(options, encoder).find(name) == std::string::npos)
      addParameter(options, encoder, name, value);
  };
  if (light.colors && light.darkest && light.brightest)
    add(isX265 ? "master-display" : "mastering-display", displayOf(light, isX265));
  if (light.maxContentLight || light.maxAverageLight)
    add(isX265 ? "max-cll" : "content-light",
        fmt::format("{},{}", light.maxContentLight.value_or(0), light.maxAverageLight.value_or(0)));
}

void keepChromaPlace(std::map<std::string, std::string>& options, const AVCodecParameters& source,
                     const std::string& pixelFormat) {
  const AVChromaLocation place = source.chroma_location;
  if (place == AVCHROMA_LOC_UNSPECIFIED || place == AVCHROMA_LOC_LEFT) return;
  const auto isShared = [](AVPixelFormat format) {
    const AVPixFmtDescriptor* samples = av_pix_fmt_desc_get(format);
    return samples && samples->log2_chroma_w == 1 && samples->log2_chroma_h == 1;
  };
  if (isShared(static_cast<AVPixelFormat>(source.format)) &&
      isShared(av_get_pix_fmt(pixelFormat.c_str())))
    options.emplace("chroma_sample_location", std::to_string(place));
}

void addOptions(std::map<std::string, std::string>& options, std::string_view encoder,
                const std::map<std::string, std::string>& own) {
  const std::string parameters = parameterOption(encoder);
  for (const auto& [key, value] : own) {
    std::string* const list = key == parameters ? &listOf(options, encoder) : nullptr;
    if (list && !list->empty())
      *list += ':' + value;
    else
      options[key] = value;
  }
}

}  // namespace kestrel
