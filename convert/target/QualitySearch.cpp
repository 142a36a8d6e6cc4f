#include "convert/target/QualitySearch.h"

#include <algorithm>
#include <cmath>

namespace kestrel {

namespace {

/// Numbers of encoders with fractions that are so near to each other are the same.
constexpr double kSame = 0.25;

/// How far what two points say of a step may be from what is usual: between near ones chance says
/// much.
constexpr double kFlattest = 0.3;
constexpr double kSteepest = 4;

}  // namespace

double QualitySearch::within(double crf) const {
  const double rounded = scale_.hasFractions ? std::round(crf * 100) / 100 : std::round(crf);
  return std::clamp(rounded, scale_.best, scale_.worst);
}

void QualitySearch::add(const QualityPoint& point) {
  points_.push_back(point);
  std::ranges::stable_sort(points_, {}, &QualityPoint::crf);
}

double QualitySearch::answer() const {
  if (points_.empty()) return within(scale_.guess);
  const auto straight = [&](const QualityPoint& from, double perStep) {
    return within(from.crf + (from.score - target_) / perStep);
  };
  if (points_.size() == 1) return straight(points_.front(), scale_.scorePerStep);
  // The first one below the target and the one before it, or two at an end.
  const auto below = std::ranges::find_if(
      points_, [&](const QualityPoint& point) { return point.score < target_; });
  const auto second =
      std::clamp<std::ptrdiff_t>(below - points_.begin(), 1, std::ssize(points_) - 1);
  const QualityPoint& low = points_[static_cast<size_t>(second - 1)];
  const QualityPoint& high = points_[static_cast<size_t>(second)];
  const double perStep = (low.score - high.score) / std::max(high.crf - low.crf, 1e-6);
  const auto& nearer = std::abs(low.score - target_) < std::abs(high.score - target_) ? low : high;
  return straight(nearer, std::clamp(perStep, kFlattest * scale_.scorePerStep,
                                     kSteepest * scale_.scorePerStep));
}

std::optional<double> QualitySearch::next(size_t atLeast) const {
  if (points_.size() >= kMostTries) return std::nullopt;
  const double crf = answer();
  const auto isTried = [&](double other) {
    return std::ranges::any_of(points_, [&](const QualityPoint& point) {
      return std::abs(point.crf - other) < (scale_.hasFractions ? kSame : 0.5);
    });
  };
  const bool isNear = std::ranges::any_of(
      points_, [&](const QualityPoint& point) { return std::abs(point.score - target_) <= kNear; });
  if (!isNear && !isTried(crf)) return crf;
  if (points_.size() >= atLeast) return std::nullopt;
  for (const double step : {2.0, -2.0})
    if (const double other = within(crf + step); !isTried(other)) return other;
  return std::nullopt;
}

}  // namespace kestrel
