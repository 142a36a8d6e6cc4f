#pragma once

#include <kestrel/Scaler.h>

#include <cstdint>
#include <list>
#include <span>
#include <vector>

namespace kestrel {

/// The direction of a resampling: pixel p, of those from `begin` to `end`, lies at
/// `scale` × (p + ½) + `offset` in the source, of which the samples from `low` to `high` are used.
struct Axis {
  Scaler scaler;
  double scale = 1;
  double offset = 0;
  int low = 0;
  int high = 0;
  int begin = 0;
  int end = 0;

  bool operator==(const Axis&) const = default;
};

/// What each pixel of one direction is made of: weights of neighbouring samples, which add up to
/// `kernels::kWeightOne` and may be negative. What they refer to belongs to a `TapsStore`.
struct AxisTaps {
  int begin = 0;                     ///< the pixel that the first entry stands for
  std::span<const int32_t> first;    ///< the first sample of each
  std::span<const int16_t> count;    ///< how many samples each has
  std::span<const int16_t> weights;  ///< `most` for each, beyond `count` zeros
  int most = 0;                      ///< the largest count
  /// The same for kernels that take samples by twos: of pixel i the `pairs` × 2 weights of the
  /// samples from `begins[i]`, which is even and counts from `low`, on.
  std::span<const int32_t> begins;
  std::span<const int16_t> paired;
  int pairs = 0;
  int low = 0;     ///< the least sample
  int high = 0;    ///< behind the largest
  int length = 0;  ///< how many samples from `low` on are taken, those of weight 0 included; even
  /// Where the scaler is limited, which samples limit each: from `first[i]` + coreBegin[i] to
  /// `first[i]` + coreEnd[i]; else empty.
  std::span<const int16_t> coreBegin;
  std::span<const int16_t> coreEnd;
  bool isCopy = false;  ///< every pixel is one sample, the next one the next sample

  size_t indexOf(int pixel) const { return static_cast<size_t>(pixel - begin); }
  const int16_t* weightsOf(int pixel) const {
    return weights.data() + indexOf(pixel) * static_cast<size_t>(most);
  }
};

/// Taps, kept from picture to picture: to compute them takes longer than to use them.
///
/// What was answered stays until the second `beginPlan` after it was last asked for.
class TapsStore {
 public:
  /// The axis has pixels and samples.
  const AxisTaps& tapsOf(const Axis& axis);
  /// From here on what was asked for before may go.
  void beginPlan();

 private:
  struct Entry {
    Axis axis;
    AxisTaps taps;
    std::vector<int32_t> first, begins;
    std::vector<int16_t> count, weights, paired, coreBegin, coreEnd;
    int plan = 0;  ///< the last one that asked
  };
  static void fill(Entry& entry);

  std::list<Entry> entries_;
  int plan_ = 0;
};

}  // namespace kestrel
