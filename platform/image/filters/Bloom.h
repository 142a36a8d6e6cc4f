#pragma once

#include <kestrel/Filter.h>

#include <memory>
#include <string>

namespace kestrel {

/// Light that spreads, as in a lens: light blurred by the radius (default 10) is added, by
/// intensity i (0 to 1, default 0.5), where there is room for more. With the light x of each
/// channel (see `Light.h`) multiplied by alpha, a the alpha of the pixel and B the blurred light, x
/// becomes
///
///     x + i B (a - x)
///
/// which is how the veil of a bright place adds up (Spencer et al., Physically-Based Glare Effects
/// for Digital Images, 1995), a Gaussian standing for its spread and 1 being the most that can be
/// shown. B continues the picture beyond its border (see `Glow.h`). Alpha and extent stay.
std::shared_ptr<Filter> makeBloom(const std::string& name);

}  // namespace kestrel
