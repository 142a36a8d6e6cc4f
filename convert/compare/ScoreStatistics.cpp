#include "convert/compare/ScoreStatistics.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace kestrel {

namespace {

constexpr size_t kMostSpans = 5;

/// Low pictures so near to each other are one span; microseconds.
constexpr int64_t kSpanGap = 500000;

/// Interpolated between the two nearest of sorted scores.
double percentile(const std::vector<double>& sorted, double share) {
  const double place = share * static_cast<double>(sorted.size() - 1);
  const auto below = static_cast<size_t>(place);
  const size_t above = std::min(below + 1, sorted.size() - 1);
  const double rest = place - static_cast<double>(below);
  if (rest == 0 || sorted[below] == sorted[above]) return sorted[below];
  return sorted[below] + rest * (sorted[above] - sorted[below]);
}

/// Stretches of pictures that score no better than a limit, the worst first.
std::vector<WorstSpan> spansBelow(const std::vector<PictureScore>& scores, double limit) {
  std::vector<WorstSpan> spans;
  std::vector<size_t> counts;
  for (const PictureScore& each : scores) {
    if (each.score > limit) continue;
    if (spans.empty() || each.time - spans.back().end > kSpanGap) {
      spans.push_back({each.time, each.time, each.score, each.score});
      counts.push_back(1);
      continue;
    }
    WorstSpan& span = spans.back();
    span.mean += each.score;
    ++counts.back();
    span.end = each.time;
    span.least = std::min(span.least, each.score);
  }
  for (size_t i = 0; i < spans.size(); ++i) spans[i].mean /= static_cast<double>(counts[i]);
  std::ranges::stable_sort(spans, {}, &WorstSpan::least);
  if (spans.size() > kMostSpans) spans.resize(kMostSpans);
  return spans;
}

}  // namespace

void summarise(Comparison& comparison) {
  std::vector<double> sorted;
  double sum = 0;
  double inverse = 0;
  const double least = comparison.metric == PictureMetric::kSsim ? 1e-6 : 1;
  for (const PictureScore& each : comparison.scores) {
    sorted.push_back(each.score);
    sum += each.score;
    inverse += 1 / std::max(each.score, least);
  }
  std::ranges::sort(sorted);
  const auto count = static_cast<double>(sorted.size());
  comparison.mean = sum / count;
  comparison.harmonicMean = count / inverse;
  comparison.percentile5 = percentile(sorted, 0.05);
  comparison.least = sorted.front();
  comparison.worst = spansBelow(comparison.scores, comparison.percentile5);
}

}  // namespace kestrel
