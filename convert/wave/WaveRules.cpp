#include "convert/wave/WaveRules.h"

#include <fmt/format.h>

#include <cmath>
#include <cstdint>

#include "convert/settings/Require.h"

namespace kestrel {

namespace {

constexpr int kLongestWaveSide = 16384;  // pixels
constexpr int64_t kMostWavePixels = int64_t{1} << 27;

}  // namespace

void require(const WaveformSettings& settings) {
  if (!(settings.pointsPerSecond > 0 && std::isfinite(settings.pointsPerSecond)))
    refuse("pointsPerSecond",
           fmt::format("'{}' is not a number above 0", settings.pointsPerSecond));
  if (settings.tracks && settings.tracks->empty()) refuse("tracks", "no track is numbered");
}

void require(const WaveformFileSettings& settings) {
  using Form = WaveformFileSettings::Form;
  requireTitle(settings.title);
  requireOneOf("form", settings.form, {Form::kJson, Form::kData, Form::kPicture});
  if (settings.bits != 8 && settings.bits != 16)
    refuse("bits", fmt::format("'{}' is neither 8 nor 16", settings.bits));
  requireNumber("width", settings.width, 1, kLongestWaveSide);
  requireNumber("height", settings.height, 1, kLongestWaveSide);
  if (int64_t{settings.width} * settings.height > kMostWavePixels)
    refuse("width", fmt::format("{}x{} are more than {} pixels", settings.width, settings.height,
                                kMostWavePixels));
  require(settings.waveform);
}

}  // namespace kestrel
