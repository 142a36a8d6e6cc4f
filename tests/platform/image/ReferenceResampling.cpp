#include "tests/platform/image/ReferenceResampling.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace kestrel::test::reference {

namespace {

double snapped(double edge) {
  return std::abs(edge - std::round(edge)) < 1.0 / 1024 ? std::round(edge) : edge;
}

double curve(Resampling resampling, double t) {
  const double d = std::abs(t);
  const double pi = std::numbers::pi;
  const auto cubic = [d](double b, double c) {
    if (d >= 2) return 0.0;
    const double p =
        d < 1 ? (12 - 9 * b - 6 * c) * d * d * d + (-18 + 12 * b + 6 * c) * d * d + (6 - 2 * b)
              : (-b - 6 * c) * d * d * d + (6 * b + 30 * c) * d * d + (-12 * b - 48 * c) * d +
                    (8 * b + 24 * c);
    return p / 6;
  };
  if (resampling == Resampling::kCatmullRom) return cubic(0, 0.5);
  if (resampling == Resampling::kMitchell) return cubic(1.0 / 3, 1.0 / 3);
  if (resampling == Resampling::kBilinear) return std::max(0.0, 1 - d);
  if (d >= 3) return 0;
  return d == 0 ? 1 : std::sin(pi * d) / (pi * d) * std::sin(pi * d / 3) / (pi * d / 3);
}

/// What maps that turn weigh their samples by: a cubic of two samples to both sides.
double turnedCurve(double span, double t) {
  const double d = std::abs(t);
  const double b = span - 1;
  const double c = 1 - span / 2;
  if (d >= 2) return 0;
  if (d >= 1)
    return ((-b - 6 * c) * d * d * d + (6 * b + 30 * c) * d * d + (-12 * b - 48 * c) * d + 8 * b +
            24 * c) /
           6;
  return ((12 - 9 * b - 6 * c) * d * d * d + (-18 + 12 * b + 6 * c) * d * d + 6 - 2 * b) / 6;
}

double radius(Resampling resampling) {
  if (resampling == Resampling::kLanczos3) return 3;
  return resampling == Resampling::kBilinear ? 1 : 2;
}

}  // namespace

double overlap(double low, double high, double from, double to) {
  return std::max(0.0, std::min(high, to) - std::max(low, from));
}

Rect snapped(const Rect& rect) {
  if (isInfinite(rect)) return rect;
  const double x = snapped(rect.minX());
  const double y = snapped(rect.minY());
  return {{x, y}, {snapped(rect.maxX()) - x, snapped(rect.maxY()) - y}};
}

AffineTransform cleaned(AffineTransform t) {
  const double most = std::max({std::abs(t.a), std::abs(t.b), std::abs(t.c), std::abs(t.d)});
  for (double* entry : {&t.a, &t.b, &t.c, &t.d}) {
    if (std::abs(*entry) < 1e-9 * most) *entry = 0;
  }
  return t;
}

bool isUpright(const AffineTransform& t) {
  return (t.b == 0 && t.c == 0) || (t.a == 0 && t.d == 0);
}

double share(const Rect& rect, int x, int y) {
  if (isInfinite(rect)) return 1;
  return overlap(rect.minX(), rect.maxX(), x, x + 1) * overlap(rect.minY(), rect.maxY(), y, y + 1);
}

Axis curveAxis(Resampling resampling, double center, double footprint, double low, double high) {
  const double span = std::max(1.0, footprint);
  const double reach = radius(resampling) * span;
  Axis result;
  double sum = 0;
  for (double k = std::floor(center - reach) - 1; k <= center + reach + 1; ++k) {
    const double weight = curve(resampling, (k + 0.5 - center) / span);
    if (std::abs(k + 0.5 - center) >= reach) continue;
    result.taps.emplace_back(static_cast<int>(std::clamp(k, std::floor(low), std::ceil(high) - 1)),
                             weight);
    sum += weight;
  }
  for (auto& [sample, weight] : result.taps) weight /= sum;
  return result;
}

AffineTransform between(AffineTransform back, const Rect& from, const Rect& to) {
  if (isInfinite(from) || isInfinite(to)) return back;
  const auto fit = [](double* scale, double* offset, double low, double high, double toLow,
                      double toHigh) {
    if (*scale < 0) std::swap(toLow, toHigh);
    *scale = (toHigh - toLow) / (high - low);
    *offset = toLow - *scale * low;
  };
  const bool isTurned = back.a == 0;
  fit(isTurned ? &back.c : &back.a, &back.tx, isTurned ? from.minY() : from.minX(),
      isTurned ? from.maxY() : from.maxX(), to.minX(), to.maxX());
  fit(isTurned ? &back.b : &back.d, &back.ty, isTurned ? from.minX() : from.minY(),
      isTurned ? from.maxX() : from.maxY(), to.minY(), to.maxY());
  return back;
}

Axis axis(double center, double span, double low, double high, int block, bool isTurned) {
  Axis result;
  const double first = std::floor(low);
  const double last = std::ceil(high) - 1;
  const double corner = first < -1e15 ? 0 : first;
  if (block > 1) {
    center = (center - corner) / block;
    span = std::max(1.0, span / block);
  }
  const double reach = isTurned ? 2 : span / 2;
  for (double k = std::floor(center - reach) - 1; k <= center + reach + 1; ++k) {
    const double weight = isTurned ? turnedCurve(span, k + 0.5 - center)
                                   : overlap(k, k + 1, center - reach, center + reach) / span;
    if (weight == 0) continue;
    if (block == 1) {
      result.taps.emplace_back(static_cast<int>(std::clamp(k, first, last)), weight);
      continue;
    }
    const double blocks = std::ceil((last + 1 - corner) / block);
    const double j = std::clamp(k, first < -1e15 ? first : 0.0, blocks - 1);
    for (int i = 0; i < block; ++i) {
      const double sample = std::min(corner + j * block + i, last);
      result.taps.emplace_back(static_cast<int>(sample), weight / block);
    }
  }
  return result;
}

}  // namespace kestrel::test::reference
