#pragma once

#include <kestrel/Filter.h>

#include <memory>
#include <string>

namespace kestrel {

/// Turns the colour cube about the grey axis by the angle (radians, default 0); by 2π/3 red becomes
/// green, green blue and blue red. With s = sin(angle), k = cos(angle) and the mean m = (r + g +
/// b)/3:
///
///     r = k r + (1 - k) m + s (b - g)/√3
///     g = k g + (1 - k) m + s (r - b)/√3
///     b = k b + (1 - k) m + s (g - r)/√3
std::shared_ptr<Filter> makeHueAdjust(const std::string& name);

}  // namespace kestrel
