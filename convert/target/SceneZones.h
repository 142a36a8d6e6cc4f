#pragma once

#include <kestrel/convert/ConversionPlan.h>

#include <cstdint>
#include <span>
#include <vector>

namespace kestrel {

/// A number of the encoder's for a scene.
struct SceneCrf {
  int64_t start = 0;  ///< microseconds from the start of the result
  int64_t end = 0;
  double crf = 0;
};

/// Tells an encoder that takes zones (`EncoderRow::hasZones`) what each scene gets, beside the
/// number of the whole file. `times`: when the pictures of the result are shown, where they keep
/// their own times; empty: they come at the plan's rate. Microseconds from its start.
void setZones(ConversionPlan& plan, double fileCrf, std::span<const SceneCrf> scenes,
              const std::vector<int64_t>& times);

}  // namespace kestrel
