#pragma once

#include <span>

namespace kestrel {

/// In samples: a value that is one stays that one.
inline constexpr float kDitherReach = 0.49f;

/// Noise that hides the steps of samples with fewer bits than their picture: added before rounding,
/// it makes of a value between two samples so many of each as suit it. It is the same wherever and
/// however often the picture is made, and blue: neighbours differ, and no pattern is seen.
///
/// Writes the noise for row `y` of the plane from column `x` on, between -`reach` and `reach`.
void fillNoise(int x, int y, float reach, std::span<float> noise);

}  // namespace kestrel
