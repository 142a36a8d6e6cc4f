#include "platform/image/layers/AxisTaps.h"

#include <algorithm>
#include <cmath>

#include "platform/image/kernels/Kernels.h"
#include "platform/image/recipe/Resampling.h"

namespace kestrel {

namespace {

/// The samples that a pixel is made of, from `first` on, and their weights, which add up to 1.
struct Exact {
  int first = 0;
  std::vector<double> weights;
  int coreBegin = 0;  ///< what limits the pixel, counted from `first`
  int coreEnd = 0;
};

/// Adds `weight` to sample `k`, or to that at the border of those in use.
void add(Exact& exact, const Axis& axis, double k, double weight) {
  const auto sample = static_cast<int>(std::clamp<double>(k, axis.low, axis.high - 1));
  if (exact.weights.empty()) exact.first = sample;
  const auto at = static_cast<size_t>(sample - exact.first);
  if (at >= exact.weights.size()) exact.weights.resize(at + 1);
  exact.weights[at] += weight;
}

bool isWhole(double value) {
  return std::abs(value - std::round(value)) < resampling::kEdgeTolerance;
}

/// The picture only moves along the axis, or is mirrored, by whole pixels.
bool copiesPixels(const Axis& axis) {
  constexpr double kFactorTolerance = 1e-8;
  return std::abs(std::abs(axis.scale) - 1) < kFactorTolerance && isWhole(axis.offset);
}

void weigh(const Axis& axis, double center, Exact& exact) {
  const double footprint = std::abs(axis.scale);
  const double span = std::max(1.0, footprint);
  exact.weights.clear();
  const bool isArea = resampling::isAreaMean(axis.scaler.resampling, footprint);
  const double reach = isArea ? span / 2 : resampling::radiusOf(axis.scaler.resampling) * span;
  const double from = center - reach;
  const double to = center + reach;
  double sum = 0;
  for (double k = std::floor(isArea ? from : from - 0.5) + (isArea ? 0 : 1);
       isArea ? k < to : k + 0.5 < to; ++k) {
    const double weight =
        isArea ? std::max(0.0, std::min(k + 1, to) - std::max(k, from)) / span
               : resampling::curveAt(axis.scaler.resampling, (k + 0.5 - center) / span);
    add(exact, axis, k, weight);
    sum += weight;
  }
  for (double& weight : exact.weights) weight /= sum;
  const auto sampleAt = [&](double k) {
    return static_cast<int>(std::clamp<double>(k, axis.low, axis.high - 1)) - exact.first;
  };
  const auto last = static_cast<int>(exact.weights.size()) - 1;
  exact.coreBegin = std::clamp(sampleAt(std::floor(center - span - 0.5) + 1), 0, last);
  exact.coreEnd = std::clamp(sampleAt(std::ceil(center + span - 0.5) - 1), 0, last) + 1;
}

/// Weights in units of `kWeightOne`: what gets lost in rounding goes to the largest, or, where
/// there are so many that each is small, is carried on from one to the next.
void quantize(const std::vector<double>& exact, std::vector<int16_t>& weights) {
  constexpr size_t kMany = 64;
  weights.resize(exact.size());
  if (exact.size() > kMany) {
    double upTo = 0;
    long given = 0;
    for (size_t i = 0; i < exact.size(); ++i) {
      upTo += exact[i];
      const long all = std::lround(upTo * kernels::kWeightOne);
      weights[i] = static_cast<int16_t>(all - given);
      given = all;
    }
    return;
  }
  int sum = 0;
  for (size_t i = 0; i < exact.size(); ++i) {
    weights[i] = static_cast<int16_t>(std::lround(exact[i] * kernels::kWeightOne));
    sum += weights[i];
  }
  int16_t& largest = *std::max_element(weights.begin(), weights.end());
  largest = static_cast<int16_t>(largest + kernels::kWeightOne - sum);
}

}  // namespace

void TapsStore::beginPlan() {
  constexpr size_t kMost = 24;
  ++plan_;
  for (auto entry = entries_.begin(); entries_.size() > kMost && entry != entries_.end();)
    entry = entry->plan < plan_ - 1 ? entries_.erase(entry) : std::next(entry);
}

const AxisTaps& TapsStore::tapsOf(const Axis& axis) {
  const auto known =
      std::ranges::find_if(entries_, [&](const Entry& entry) { return entry.axis == axis; });
  if (known != entries_.end()) {
    known->plan = plan_;
    return known->taps;
  }
  Entry& entry = entries_.emplace_front();
  entry.axis = axis;
  entry.plan = plan_;
  fill(entry);
  return entry.taps;
}

void TapsStore::fill(Entry& entry) {
  const Axis& axis = entry.axis;
  const auto pixels = static_cast<size_t>(axis.end - axis.begin);
  const bool isCopy = copiesPixels(axis);
  std::vector<std::vector<int16_t>> all(pixels);
  entry.first.resize(pixels);
  entry.count.resize(pixels);
  Exact exact;
  size_t most = 1;
  for (size_t i = 0; i < pixels; ++i) {
    const double center = axis.scale * (axis.begin + static_cast<double>(i) + 0.5) + axis.offset;
    if (isCopy) {
      exact = {0, {}, 0, 1};
      add(exact, axis, std::floor(center), 1);
    } else {
      weigh(axis, center, exact);
    }
    std::vector<int16_t>& weights = all[i];
    quantize(exact.weights, weights);
    // What comes out as 0 behind the last is not read. The first stays: from one pixel to the next
    // it never goes back.
    while (weights.size() > 1 && weights.back() == 0) weights.pop_back();
    entry.first[i] = exact.first;
    entry.count[i] = static_cast<int16_t>(weights.size());
    most = std::max(most, weights.size());
    if (axis.scaler.limited) {
      const auto last = static_cast<int>(weights.size()) - 1;
      entry.coreBegin.push_back(static_cast<int16_t>(std::min(exact.coreBegin, last)));
      entry.coreEnd.push_back(static_cast<int16_t>(std::min(exact.coreEnd, last + 1)));
    }
  }
  AxisTaps& taps = entry.taps;
  taps.low = entry.first[0];
  taps.high = taps.low + 1;
  for (size_t i = 0; i < pixels; ++i) {
    taps.low = std::min(taps.low, entry.first[i]);
    taps.high = std::max(taps.high, entry.first[i] + entry.count[i]);
  }
  size_t pairs = 1;
  for (size_t i = 0; i < pixels; ++i)
    pairs = std::max(
        pairs, (static_cast<size_t>((entry.first[i] - taps.low) % 2) + all[i].size() + 1) / 2);
  entry.begins.resize(pixels);
  entry.weights.assign(pixels * most, 0);
  entry.paired.assign(pixels * 2 * pairs, 0);
  taps.length = 0;
  taps.isCopy = most == 1;
  for (size_t i = 0; i < pixels; ++i) {
    const int at = entry.first[i] - taps.low;
    const auto lead = static_cast<size_t>(at % 2);
    entry.begins[i] = at - at % 2;
    taps.length = std::max(taps.length, entry.begins[i] + 2 * static_cast<int>(pairs));
    std::ranges::copy(all[i], entry.weights.begin() + static_cast<ptrdiff_t>(i * most));
    std::ranges::copy(all[i], entry.paired.begin() + static_cast<ptrdiff_t>(i * 2 * pairs + lead));
    taps.isCopy = taps.isCopy && entry.first[i] == entry.first[0] + static_cast<int>(i);
  }
  taps.begin = axis.begin;
  taps.first = entry.first;
  taps.count = entry.count;
  taps.weights = entry.weights;
  taps.most = static_cast<int>(most);
  taps.begins = entry.begins;
  taps.paired = entry.paired;
  taps.pairs = static_cast<int>(pairs);
  taps.coreBegin = entry.coreBegin;
  taps.coreEnd = entry.coreEnd;
}

}  // namespace kestrel
