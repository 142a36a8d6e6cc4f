#pragma once

#include <kestrel/Filter.h>

#include <memory>
#include <string>

namespace kestrel {

/// Light that spreads: a copy blurred by the radius (default 10) is added, by intensity i (0 to 1,
/// default 0.5), as a screen adds it. With colours multiplied by alpha, a the alpha of the pixel
/// and B the blurred copy, each channel c becomes
///
///     c + i B (a - c)
///
/// where B continues the picture beyond its border (see `Glow.h`). Alpha and extent stay.
std::shared_ptr<Filter> makeBloom(const std::string& name);

}  // namespace kestrel
