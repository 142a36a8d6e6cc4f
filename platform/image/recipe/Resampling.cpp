#include "platform/image/recipe/Resampling.h"

#include <algorithm>
#include <cmath>

namespace kestrel::resampling {

namespace {

double snappedEdge(double edge) {
  const double whole = std::round(edge);
  return std::abs(edge - whole) < kEdgeTolerance ? whole : edge;
}

bool isWhole(double value) { return std::abs(value - std::round(value)) < kEdgeTolerance; }

}  // namespace

AffineTransform cleaned(const AffineTransform& map) {
  AffineTransform result = map;
  const double most =
      std::max({std::abs(map.a), std::abs(map.b), std::abs(map.c), std::abs(map.d)});
  for (double* entry : {&result.a, &result.b, &result.c, &result.d}) {
    if (std::abs(*entry) < most * kSkewTolerance) *entry = 0;
  }
  return result;
}

bool keepsAxes(const AffineTransform& map) {
  return (map.b == 0 && map.c == 0) || (map.a == 0 && map.d == 0);
}

bool isWholeShift(const AffineTransform& map) {
  // Over the widest picture an error of this size in a factor moves an edge by less than the
  // tolerance.
  constexpr double kFactorTolerance = 1e-8;
  return map.b == 0 && map.c == 0 && std::abs(map.a - 1) < kFactorTolerance &&
         std::abs(map.d - 1) < kFactorTolerance && isWhole(map.tx) && isWhole(map.ty);
}

Rect snapped(const Rect& rect) {
  if (isInfinite(rect)) return rect;
  const double left = snappedEdge(rect.minX());
  const double bottom = snappedEdge(rect.minY());
  return {{left, bottom}, {snappedEdge(rect.maxX()) - left, snappedEdge(rect.maxY()) - bottom}};
}

}  // namespace kestrel::resampling
