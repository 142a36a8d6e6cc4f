#include "convert/compose/ComposeRules.h"

#include <fmt/format.h>

#include <string>
#include <vector>

#include <kestrel/convert/OutputFile.h>
#include "convert/settings/Require.h"

namespace kestrel {

void require(const std::vector<Placement>& placements) {
  if (placements.empty()) refuse("placements", "there is no track");
  for (const Placement& placement : placements) {
    if (placement.track < 0)
      refuse("track", fmt::format("'{}' is no stream of '{}': they are numbers from 0",
                                  placement.track, placement.path));
    if (!(placement.position >= 0 && placement.position <= kFurthestPlace))
      refuse("position", fmt::format("'{}' s does not lie within a week after 0, for '{}'",
                                     placement.position, placement.path));
  }
}

void require(const CompositionSettings& settings) {
  require(settings.placements);
  std::vector<std::string> paths;
  for (const Placement& placement : settings.placements) paths.push_back(placement.path);
  requireNoInput(settings.output, paths);
}

}  // namespace kestrel
