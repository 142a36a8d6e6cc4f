#include "convert/join/JoinRules.h"

#include <fmt/format.h>

#include <cmath>
#include <string>
#include <vector>

#include <kestrel/convert/OutputFile.h>
#include "convert/plan/SettingsRules.h"
#include "convert/settings/Require.h"

namespace kestrel {

namespace {

/// Nobody plays slower or faster.
constexpr double kSlowest = 0.01;
constexpr double kFastest = 100;

void requireInput(const JoinInput& input) {
  if (!(input.rate >= kSlowest && input.rate <= kFastest))
    refuse("rate", fmt::format("'{}' is not a number from {} to {}, for '{}'", input.rate, kSlowest,
                               kFastest, input.path));
  if (!std::isfinite(input.position) || input.position > kFurthestPlace)
    refuse("position",
           fmt::format("'{}' s does not lie within a week, for '{}'", input.position, input.path));
}

/// What a join's inputs decide by themselves, or nobody does, is not to be set.
void requireFormat(const ConversionSettings& format) {
  const std::string nothing = "files are joined";
  requireNone({{"input", !format.input.empty()},
               {"title", format.title.has_value()},
               {"output", !format.output.empty()},
               {"video", format.video.has_value()},
               {"look", format.look != LookSettings{}},
               {"deinterlacing", format.deinterlacing.has_value()},
               {"audio", format.audio.has_value()},
               {"audioTracks", format.audioTracks != TrackChoice{}},
               {"volume", format.volume != 1},
               {"start", format.start != 0},
               {"end", format.end.has_value()},
               {"duration", format.duration.has_value()},
               {"chapters", format.chapters.has_value()}},
              nothing);
  require(format);
}

}  // namespace

void require(const JoinSettings& settings) {
  using Reencode = JoinSettings::Reencode;
  if (settings.inputs.empty()) refuse("inputs", "there is nothing to join");
  std::vector<std::string> paths;
  for (const JoinInput& input : settings.inputs) {
    requireInput(input);
    paths.push_back(input.path);
  }
  requireOneOf("reencode", settings.reencode,
               {Reencode::kAuto, Reencode::kNever, Reencode::kAlways});
  requireFormat(settings.format);
  requireNoInput(settings.output, paths);
}

}  // namespace kestrel
