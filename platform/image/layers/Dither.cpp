#include "platform/image/layers/Dither.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace kestrel {

namespace {

constexpr int kSide = 64;
constexpr int kCells = kSide * kSide;

using Field = std::array<float, kCells>;

/// A square of ranks, each once, of which all those below any rank lie evenly: Ulichney's void and
/// cluster (The void-and-cluster method for dither array generation, 1993). The square continues
/// itself on all sides.
class VoidAndCluster {
 public:
  VoidAndCluster() : bell_(makeBell()) {
    placeFirst();
    rank();
  }

  const std::array<int, kCells>& ranks() const { return ranks_; }

 private:
  static constexpr int kFirst = kCells / 10;
  static constexpr double kSigma = 1.9;

  static Field makeBell() {
    Field bell{};
    for (int y = 0; y < kSide; ++y) {
      for (int x = 0; x < kSide; ++x) {
        const double dx = std::min(x, kSide - x);
        const double dy = std::min(y, kSide - y);
        bell[static_cast<size_t>(y) * kSide + static_cast<size_t>(x)] =
            static_cast<float>(std::exp(-(dx * dx + dy * dy) / (2 * kSigma * kSigma)));
      }
    }
    return bell;
  }

  void add(int cell, bool isSet) {
    isSet_[static_cast<size_t>(cell)] = isSet;
    const float sign = isSet ? 1.0f : -1.0f;
    const int cx = cell % kSide;
    const int cy = cell / kSide;
    for (int y = 0; y < kSide; ++y) {
      const float* const bell = bell_.data() + ptrdiff_t{(y - cy) & (kSide - 1)} * kSide;
      float* const row = energy_.data() + ptrdiff_t{y} * kSide;
      for (int x = 0; x < cx; ++x) row[x] += sign * bell[x - cx + kSide];
      for (int x = cx; x < kSide; ++x) row[x] += sign * bell[x - cx];
    }
  }

  /// Of the cells that are set the one in the tightest cluster, or of the others that in the
  /// largest void.
  int find(bool isSet) const {
    int best = -1;
    for (int i = 0; i < kCells; ++i) {
      const auto cell = static_cast<size_t>(i);
      if (isSet_[cell] != isSet) continue;
      const float energy = isSet ? -energy_[cell] : energy_[cell];
      if (best >= 0) {
        const float least = energy_[static_cast<size_t>(best)];
        if (energy >= (isSet ? -least : least)) continue;
      }
      best = i;
    }
    return best;
  }

  /// Any cells, moved from clusters into voids until they lie evenly.
  void placeFirst() {
    uint32_t random = 1;
    for (int placed = 0; placed < kFirst;) {
      random = random * 1664525 + 1013904223;
      const auto cell = static_cast<int>(random >> 20) % kCells;
      if (isSet_[static_cast<size_t>(cell)]) continue;
      add(cell, true);
      ++placed;
    }
    for (int moves = 0; moves < kCells; ++moves) {
      const int from = find(true);
      add(from, false);
      const int to = find(false);
      add(to, true);
      if (to == from) break;
    }
  }

  void rank() {
    const auto first = isSet_;
    const Field energy = energy_;
    for (int rank = kFirst - 1; rank >= 0; --rank) {
      const int cell = find(true);
      ranks_[static_cast<size_t>(cell)] = rank;
      add(cell, false);
    }
    isSet_ = first;
    energy_ = energy;
    for (int rank = kFirst; rank < kCells; ++rank) {
      const int cell = find(false);
      ranks_[static_cast<size_t>(cell)] = rank;
      add(cell, true);
    }
  }

  const Field bell_;
  Field energy_{};
  std::array<bool, kCells> isSet_{};
  std::array<int, kCells> ranks_{};
};

/// The square with values from -1 to 1, without the ends.
const Field& noiseSquare() {
  static const Field square = [] {
    const auto made = std::make_unique<VoidAndCluster>();
    Field values;
    for (size_t i = 0; i < kCells; ++i)
      values[i] = (2 * static_cast<float>(made->ranks()[i]) + 1) / kCells - 1;
    return values;
  }();
  return square;
}

}  // namespace

void fillNoise(int x, int y, float reach, std::span<float> noise) {
  const float* const row = noiseSquare().data() + ptrdiff_t{y & (kSide - 1)} * kSide;
  // Whole runs of the square's row: the first from where `x` lies in it.
  size_t from = static_cast<unsigned>(x) & (kSide - 1);
  for (size_t i = 0; i < noise.size(); from = 0) {
    const size_t count = std::min(noise.size() - i, size_t{kSide} - from);
    for (size_t k = 0; k < count; ++k) noise[i + k] = reach * row[from + k];
    i += count;
  }
}

}  // namespace kestrel
