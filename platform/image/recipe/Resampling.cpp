#include "platform/image/recipe/Resampling.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace kestrel::resampling {

namespace {

double snappedEdge(double edge) {
  const double whole = std::round(edge);
  return std::abs(edge - whole) < kEdgeTolerance ? whole : edge;
}

/// The cubic of Mitchell and Netravali, "Reconstruction Filters in Computer Graphics" (1988).
double cubicAt(double b, double c, double t) {
  if (t < 1)
    return ((12 - 9 * b - 6 * c) * t * t * t + (-18 + 12 * b + 6 * c) * t * t + 6 - 2 * b) / 6;
  if (t >= 2) return 0;
  return ((-b - 6 * c) * t * t * t + (6 * b + 30 * c) * t * t + (-12 * b - 48 * c) * t + 8 * b +
          24 * c) /
         6;
}

double lanczosAt(double lobes, double t) {
  if (t >= lobes) return 0;
  if (t == 0) return 1;
  const double p = std::numbers::pi * t;
  return lobes * std::sin(p) * std::sin(p / lobes) / (p * p);
}

bool isWhole(double value) { return std::abs(value - std::round(value)) < kEdgeTolerance; }

}  // namespace

double curveAt(Resampling resampling, double t) {
  const double distance = std::abs(t);
  switch (resampling) {
    case Resampling::kCatmullRom:
      return cubicAt(0, 0.5, distance);
    case Resampling::kMitchell:
      return cubicAt(1.0 / 3, 1.0 / 3, distance);
    case Resampling::kLanczos3:
      return lanczosAt(3, distance);
    default:
      return std::max(0.0, 1 - distance);
  }
}

double radiusOf(Resampling resampling) {
  switch (resampling) {
    case Resampling::kCatmullRom:
    case Resampling::kMitchell:
      return 2;
    case Resampling::kLanczos3:
      return 3;
    default:
      return 1;
  }
}

bool isAreaMean(Resampling resampling, double footprint) {
  return resampling == Resampling::kArea || footprint > kWidestCurve;
}

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
