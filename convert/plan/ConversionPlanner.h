#pragma once

#include <kestrel/convert/ConversionPlan.h>

#include <optional>

namespace kestrel {

class LMMediaSource;

/// Plans the conversion of an opened input; throws `Failure` for what cannot be done. `picture`:
/// what of the stored pictures lies between black bars, where those are to be left out.
ConversionPlan planConversion(const ConversionSettings& settings, const LMMediaSource& input,
                              const std::optional<Area>& picture = {});

}  // namespace kestrel
