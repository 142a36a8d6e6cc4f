#pragma once

#include <kestrel/Filter.h>

#include <memory>
#include <string>

namespace kestrel {

/// The dark counterpart of bloom: darkness that spreads. It is what bloom makes of the negative,
/// brought back. With colours multiplied by alpha, a copy B blurred by the radius (default 10), its
/// alpha A and the intensity i (0 to 1, default 0.5), each channel c becomes
///
///     c (1 - i (A - B))
///
/// where B continues the picture beyond its border (see `Glow.h`). Alpha and extent stay.
std::shared_ptr<Filter> makeGloom(const std::string& name);

}  // namespace kestrel
