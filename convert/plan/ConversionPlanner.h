#pragma once

#include <kestrel/convert/ConversionPlan.h>
#include <kestrel/convert/MediaInfo.h>
#include <kestrel/convert/Scanning.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace kestrel {

class LMMediaSource;

/// What only decoded pictures tell.
struct Measures {
  /// What is in the input, where pictures were asked, too; absent: what the container tells.
  std::optional<MediaInfo> info = {};
  std::optional<Area> picture = {};  ///< between the black bars, where those are to be left out
  std::function<Scanning()> scanning = {};  ///< asked where the plan needs it; empty: not known
  /// When pictures are shown (`pictureTimes`); likewise.
  std::function<std::vector<int64_t>()> times = {};
};

/// Plans the conversion of an opened input; throws `Failure` for what cannot be done.
ConversionPlan planConversion(const ConversionSettings& settings, const LMMediaSource& input,
                              const Measures& measures = {});

}  // namespace kestrel
