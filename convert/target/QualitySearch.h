#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace kestrel {

/// What an encoder made of pictures with one of its numbers.
struct QualityPoint {
  double crf = 0;
  double score = 0;
  double bytesPerSecond = 0;
};

/// Finds the number of an encoder's that gives pictures a score, from what tried ones came to:
/// between two of them the score goes straight (secant). Higher numbers give lower scores.
class QualitySearch {
 public:
  struct Scale {
    double best = 0;  ///< the number of the best quality
    double worst = 0;
    double guess = 0;         ///< to begin with
    double scorePerStep = 1;  ///< what a step costs, as long as nothing was tried
    bool hasFractions = false;
  };

  static constexpr int kMostTries = 4;
  static constexpr double kNear = 1.5;  ///< from scores so near it is known how to go on

  QualitySearch(double target, const Scale& scale) : target_(target), scale_(scale) {}

  /// The number to try next; none once the answer is known well enough. `atLeast`: so many are
  /// tried in any case, as far as there are different ones.
  std::optional<double> next(size_t atLeast = 1) const;

  void add(const QualityPoint& point);

  /// What was tried, by number.
  const std::vector<QualityPoint>& points() const { return points_; }

  /// The number that gives the target by what is known.
  double answer() const;

 private:
  double within(double crf) const;

  const double target_;
  const Scale scale_;
  std::vector<QualityPoint> points_;
};

}  // namespace kestrel
