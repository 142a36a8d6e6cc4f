#include "convert/target/SceneZones.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "convert/plan/EncoderParameters.h"

namespace kestrel {

namespace {

/// Steps of a quantiser that double what it divides by.
constexpr double kStepsOfTwo = 6;

/// Differences below change nothing that could be seen.
constexpr double kLeastDifference = 0.1;

int64_t pictureAt(const ConversionPlan& plan, int64_t time, const std::vector<int64_t>& times) {
  if (!times.empty())
    return std::ranges::lower_bound(times, time - 500) - times.begin();  // to the millisecond
  return std::llround(static_cast<double>(time) / 1e6 * plan.rate().num / plan.rate().den);
}

}  // namespace

void setZones(ConversionPlan& plan, double fileCrf, std::span<const SceneCrf> scenes,
              const std::vector<int64_t>& times) {
  std::string zones;
  for (const SceneCrf& scene : scenes) {
    const double difference = fileCrf - scene.crf;
    const int64_t first = pictureAt(plan, scene.start, times);
    const int64_t last = pictureAt(plan, scene.end, times) - 1;
    if (std::abs(difference) < kLeastDifference || last < first) continue;
    // A factor on bits is what both encoders divide their steps by.
    zones += fmt::format("{}{},{},b={:.4f}", zones.empty() ? "" : "/", first, last,
                         std::exp2(difference / kStepsOfTwo));
  }
  if (!zones.empty()) addParameter(plan.videoOptions, plan.videoEncoder, "zones", zones);
}

}  // namespace kestrel
