#pragma once

#include <kestrel/Filter.h>

#include <memory>
#include <string>

namespace kestrel {

/// The dark counterpart of bloom: bright places lose their shine, dark ones stay. With
/// the light x of each channel (see `Light.h`) multiplied by alpha, the light B about it, blurred
/// by the radius (default 10), and the intensity i (0 to 1, default 0.5), x becomes
///
///     (x + i/4 (B - x)) / (1 + 2 i B), at most the alpha of the pixel
///
/// What is divided is seen through haze, which mixes in light from around (Koschmieder, Theorie der
/// horizontalen Sichtweite, 1924) and so lifts shadows beside something bright. By what it is
/// divided, Reinhard et al. (Photographic Tone Reproduction for Digital Images, 2002, equation 9)
/// have bright surroundings darken a place; a white area keeps a third of its light. B continues
/// the picture beyond its border (see `Glow.h`). Alpha and extent stay.
std::shared_ptr<Filter> makeGloom(const std::string& name);

}  // namespace kestrel
