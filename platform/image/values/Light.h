#pragma once

#include <algorithm>
#include <cmath>

namespace kestrel {

/// Light and the values that stand for it in a picture, both from 0 to 1: the curve of sRGB (IEC
/// 61966-2-1), which displays show.
inline double lightOf(double value) {
  return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
}

inline double valueOf(double light) {
  return light <= 0.0031308 ? 12.92 * light : 1.055 * std::pow(light, 1 / 2.4) - 0.055;
}

}  // namespace kestrel
