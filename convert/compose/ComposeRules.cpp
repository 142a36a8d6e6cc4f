#include "convert/compose/ComposeRules.h"

#include <fmt/format.h>

#include <string>
#include <vector>

#include "convert/files/SameFile.h"
#include "convert/settings/Require.h"

namespace kestrel {

void require(const std::vector<Placement>& placements) {
  if (placements.empty()) refuse("placements", "there is no track");
  for (const Placement& placement : placements) {
    requireTitle(placement.title);
    if (placement.track < 0)
      refuse("track", fmt::format("'{}' is no stream of '{}': they are numbers from 0",
                                  placement.track, placement.path));
    if (!(placement.position >= 0 && placement.position <= kFurthestPlace))
      refuse("position", fmt::format("'{}' s does not lie within a week after 0, for '{}'",
                                     placement.position, placement.path));
  }
}

void require(const CompositionSettings& settings) {
  if (settings.output.empty() && settings.archive.empty())
    refuse("output", "there is nothing to do: neither an output nor an archive is named");
  require(settings.placements);
  std::vector<std::string> paths;
  for (const Placement& placement : settings.placements) paths.push_back(placement.path);
  for (const std::string& target : {settings.output, settings.archive})
    if (!target.empty()) requireNoInput(target, paths);
  const bool areSame = !settings.output.empty() && isSameFile(settings.archive, settings.output);
  if (!settings.archive.empty() && areSame) refuse("archive", "it is the output, too");
}

}  // namespace kestrel
