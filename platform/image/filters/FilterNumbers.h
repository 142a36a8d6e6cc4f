#pragma once

#include <kestrel/Filter.h>
#include <kestrel/Vector.h>

#include <algorithm>
#include <cmath>

namespace kestrel {

/// How far from the origin places count: far beyond every picture, near enough for exact
/// arithmetic.
inline constexpr double kFarthestPlace = 1e7;

/// `place` with its components limited to what places may be; `fallback` where one is not a number.
inline Vector placeOf(const Vector& place, const Vector& fallback) {
  const double values[] = {place.x(), place.y(), place.z()};
  const bool isNumber = std::none_of(std::begin(values), std::end(values),
                                     [](double value) { return std::isnan(value); });
  if (!isNumber) return fallback;
  const auto within = [](double v) { return std::clamp(v, -kFarthestPlace, kFarthestPlace); };
  return {within(place.x()), within(place.y()), within(place.z())};
}

/// `kInputPixelSizeKey` of a filter, within what pictures have.
inline double limitedPixelSize(double size) { return std::clamp(size, 1e-3, 1e3); }

/// `place` where a filter's own pixel takes `size` of the picture's.
inline Vector scaledPlace(const Vector& place, double size) {
  return placeOf({place.x() * size, place.y() * size, place.z() * size}, place);
}

}  // namespace kestrel
