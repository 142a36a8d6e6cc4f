#include "convert/join/JoinRules.h"

#include <fmt/format.h>

#include <cmath>
#include <string>
#include <vector>

#include "convert/files/SameFile.h"
#include "convert/join/JoinFormat.h"
#include "convert/plan/SettingsRules.h"
#include "convert/settings/Require.h"

namespace kestrel {

namespace {

/// Nobody plays slower or faster.
constexpr double kSlowest = 0.01;
constexpr double kFastest = 100;

void requireInput(const JoinInput& input) {
  requireTitle(input.title);
  if (!(input.rate >= kSlowest && input.rate <= kFastest))
    refuse("rate", fmt::format("'{}' is not a number from {} to {}, for '{}'", input.rate, kSlowest,
                               kFastest, input.path));
  if (!std::isfinite(input.position) || input.position > kFurthestPlace)
    refuse("position",
           fmt::format("'{}' s does not lie within a week, for '{}'", input.position, input.path));
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
  require(conversionLike(settings));
  requireNoInput(settings.output, paths);
}

}  // namespace kestrel
