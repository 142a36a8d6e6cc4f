#pragma once

#include <kestrel/convert/ConversionPlan.h>
#include <kestrel/convert/Scanning.h>

#include <functional>
#include <optional>

namespace kestrel {

class LMMediaSource;

/// What only decoded pictures tell.
struct Measures {
  std::optional<Area> picture = {};  ///< between the black bars, where those are to be left out
  std::function<Scanning()> scanning = {};  ///< asked where the plan needs it; empty: not known
};

/// Plans the conversion of an opened input; throws `Failure` for what cannot be done.
ConversionPlan planConversion(const ConversionSettings& settings, const LMMediaSource& input,
                              const Measures& measures = {});

}  // namespace kestrel
