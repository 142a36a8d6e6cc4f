// Planes of samples brought to another size.

#include "platform/image/kernels/KernelTargets.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "platform/image/kernels/PlaneKernels.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include <algorithm>
#include <cstring>

#include "platform/image/kernels/Kernels.h"
#include "platform/image/kernels/PlaneKernels.h"

HWY_BEFORE_NAMESPACE();
namespace kestrel::kernels::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

const hn::ScalableTag<int16_t> kD16;
const hn::RepartitionToWide<decltype(kD16)> kD32;
const hn::ScalableTag<float> kDF;

// A group of rows is one vector or two.
const hn::CappedTag<int32_t, kRowGroup> kRows32;
const hn::Repartition<int16_t, decltype(kRows32)> kRows16;
const hn::CappedTag<float, kRowGroup> kRowsF;

HWY_INLINE size_t rowsPerVector() { return hn::Lanes(kRows32); }

constexpr int kWeightBits = 14;
static_assert(1 << kWeightBits == kWeightOne);
constexpr int kMixedBits = 6;
static_assert(1 << kMixedBits == kMixedScale);

/// Two weights for neighbouring lanes, the first for the lower one.
HWY_INLINE int32_t pairOf(int16_t first, int16_t second) {
  return static_cast<int32_t>(static_cast<uint16_t>(first) |
                              static_cast<uint32_t>(static_cast<uint16_t>(second)) << 16);
}

/// A vector of mixed samples, from sample `i` of the rows on.
HWY_INLINE hn::Vec<decltype(kD16)> mixedAt(const uint8_t* const* rows, const int16_t* weights,
                                           int taps, size_t i) {
  const hn::Rebind<uint8_t, decltype(kD16)> d8;
  const auto rounding = hn::Set(kD32, 1 << (kWeightBits - kMixedBits - 1));
  auto low = rounding, high = rounding, lowOdd = hn::Zero(kD32), highOdd = lowOdd;
  for (int t = 0; t < taps; t += 2) {
    const bool isPair = t + 1 < taps;
    const auto a = hn::PromoteTo(kD16, hn::LoadU(d8, rows[t] + i));
    const auto b = hn::PromoteTo(kD16, hn::LoadU(d8, rows[isPair ? t + 1 : t] + i));
    const auto w =
        hn::BitCast(kD16, hn::Set(kD32, pairOf(weights[t], isPair ? weights[t + 1] : int16_t{0})));
    low = hn::ReorderWidenMulAccumulate(kD32, hn::InterleaveLower(kD16, a, b), w, low, lowOdd);
    high = hn::ReorderWidenMulAccumulate(kD32, hn::InterleaveUpper(kD16, a, b), w, high, highOdd);
  }
  low = hn::ShiftRight<kWeightBits - kMixedBits>(hn::RearrangeToOddPlusEven(low, lowOdd));
  high = hn::ShiftRight<kWeightBits - kMixedBits>(hn::RearrangeToOddPlusEven(high, highOdd));
  return hn::ReorderDemote2To(kD16, low, high);
}

void mixRows8(const uint8_t* const* rows, const int16_t* weights, int taps, size_t samples,
              int16_t* out) {
  const size_t lanes = hn::Lanes(kD16);
  size_t i = 0;
  for (; i + lanes <= samples; i += lanes)
    hn::StoreU(mixedAt(rows, weights, taps, i), kD16, out + i);
  if (i == samples) return;
  if (samples >= lanes) {
    hn::StoreU(mixedAt(rows, weights, taps, samples - lanes), kD16, out + samples - lanes);
    return;
  }
  for (; i < samples; ++i) {
    int sum = 1 << (kWeightBits - kMixedBits - 1);
    for (int t = 0; t < taps; ++t) sum += rows[t][i] * weights[t];
    out[i] =
        static_cast<int16_t>(std::clamp(sum >> (kWeightBits - kMixedBits), INT16_MIN, INT16_MAX));
  }
}

void mixRows16(const uint16_t* const* rows, const int16_t* weights, int taps, size_t samples,
               float* out) {
  constexpr float kUnit = 1.0f / kWeightOne;
  const hn::Rebind<uint16_t, decltype(kDF)> d16;
  const hn::Rebind<int32_t, decltype(kDF)> d32;
  const size_t lanes = hn::Lanes(kDF);
  size_t i = 0;
  for (; i + lanes <= samples; i += lanes) {
    auto sum = hn::Zero(kDF);
    for (int t = 0; t < taps; ++t) {
      const auto values = hn::ConvertTo(kDF, hn::PromoteTo(d32, hn::LoadU(d16, rows[t] + i)));
      sum = hn::MulAdd(values, hn::Set(kDF, static_cast<float>(weights[t]) * kUnit), sum);
    }
    hn::StoreU(sum, kDF, out + i);
  }
  for (; i < samples; ++i) {
    float sum = 0;
    for (int t = 0; t < taps; ++t)
      sum += static_cast<float>(rows[t][i]) * (static_cast<float>(weights[t]) * kUnit);
    out[i] = sum;
  }
}

/// Four values from `at` on of rows r and, where a vector has two blocks, r + 4.
template <typename D, typename T>
HWY_INLINE hn::Vec<D> loadBlocks(D d, const T* const* rows, size_t r, size_t at) {
#if HWY_TARGET <= HWY_AVX2 && HWY_ARCH_X86
  const hn::Half<D> block;
  return hn::Combine(d, hn::LoadU(block, rows[r + 4] + at), hn::LoadU(block, rows[r] + at));
#else
  return hn::LoadU(d, rows[r] + at);
#endif
}

/// Rows of `length` values of 32 bits to columns: `kRowGroup` values of each place, one after
/// another.
template <typename D, typename T>
HWY_INLINE void transpose(D d, const T* const* rows, size_t length, T* columns) {
  const hn::RepartitionToWide<hn::RebindToSigned<D>> wide;
  const size_t lanes = hn::Lanes(d);
  size_t x = 0;
  for (; x + 4 <= length; x += 4) {
    for (size_t r = 0; r < kRowGroup; r += lanes) {
      const auto a = loadBlocks(d, rows, r, x);
      const auto b = loadBlocks(d, rows, r + 1, x);
      const auto c = loadBlocks(d, rows, r + 2, x);
      const auto e = loadBlocks(d, rows, r + 3, x);
      const auto ab = hn::BitCast(wide, hn::InterleaveLower(d, a, b));
      const auto ce = hn::BitCast(wide, hn::InterleaveLower(d, c, e));
      const auto upperAb = hn::BitCast(wide, hn::InterleaveUpper(d, a, b));
      const auto upperCe = hn::BitCast(wide, hn::InterleaveUpper(d, c, e));
      T* const to = columns + kRowGroup * x + r;
      hn::StoreU(hn::BitCast(d, hn::InterleaveLower(wide, ab, ce)), d, to);
      hn::StoreU(hn::BitCast(d, hn::InterleaveUpper(wide, ab, ce)), d, to + kRowGroup);
      hn::StoreU(hn::BitCast(d, hn::InterleaveLower(wide, upperAb, upperCe)), d,
                 to + 2 * kRowGroup);
      hn::StoreU(hn::BitCast(d, hn::InterleaveUpper(wide, upperAb, upperCe)), d,
                 to + 3 * kRowGroup);
    }
  }
  for (; x < length; ++x) {
    for (size_t r = 0; r < kRowGroup; ++r)
      std::memcpy(columns + kRowGroup * x + r, rows[r] + x, sizeof(T));
  }
}

/// A sample of 8 bits for each row of a vector: the sum over the pairs of a place.
template <int kPairs>
HWY_INLINE hn::Vec<decltype(kRows32)> sampleOf(const int32_t* columns, const int16_t* weights,
                                               int pairs) {
  constexpr int kBits = kWeightBits + kMixedBits;
  auto sum = hn::Set(kRows32, 1 << (kBits - 1));
  auto odd = hn::Zero(kRows32);
  const int count = kPairs > 0 ? kPairs : pairs;
  for (int p = 0; p < count; ++p) {
    int32_t pair;
    std::memcpy(&pair, weights + 2 * p, sizeof(pair));
    sum = hn::ReorderWidenMulAccumulate(
        kRows32,
        hn::BitCast(kRows16, hn::LoadU(kRows32, columns + kRowGroup * static_cast<size_t>(p))),
        hn::BitCast(kRows16, hn::Set(kRows32, pair)), sum, odd);
  }
  sum = hn::ShiftRight<kBits>(hn::RearrangeToOddPlusEven(sum, odd));
  return hn::Min(hn::Max(sum, hn::Zero(kRows32)), hn::Set(kRows32, 255));
}

template <int kPairs>
void scaleColumns8(const int32_t* columns, const PlaneTaps& taps, size_t samples,
                   uint8_t* const* out) {
  const size_t lanes = rowsPerVector();
  const size_t step = 2 * static_cast<size_t>(kPairs > 0 ? kPairs : taps.pairs);
  alignas(64) int32_t four[kRowGroup];
  for (size_t i = 0; i < samples; i += 4) {
    const size_t count = std::min<size_t>(4, samples - i);
    for (size_t r = 0; r < kRowGroup; r += lanes) {
      const auto at = [&](size_t k) HWY_ATTR {
        const size_t sample = i + std::min(k, count - 1);
        return sampleOf<kPairs>(
            columns + kRowGroup / 2 * static_cast<size_t>(taps.first[sample]) + r,
            taps.weights + step * sample, taps.pairs);
      };
      const auto lower = hn::Or(at(0), hn::ShiftLeft<8>(at(1)));
      const auto upper = hn::Or(hn::ShiftLeft<16>(at(2)), hn::ShiftLeft<24>(at(3)));
      hn::Store(hn::Or(lower, upper), kRows32, four + r);
    }
    if (count == 4) {
      for (size_t r = 0; r < kRowGroup; ++r) std::memcpy(out[r] + i, four + r, 4);
    } else {
      for (size_t r = 0; r < kRowGroup; ++r) std::memcpy(out[r] + i, four + r, count);
    }
  }
}

void scaleGroup8(const int16_t* const* rows, size_t length, const PlaneTaps& taps, size_t samples,
                 int32_t* scratch, uint8_t* const* out) {
  const int32_t* pairs[kRowGroup];
  for (size_t r = 0; r < kRowGroup; ++r) pairs[r] = reinterpret_cast<const int32_t*>(rows[r]);
  transpose(kRows32, pairs, length / 2, scratch);
  switch (taps.pairs) {
    case 3:
      return scaleColumns8<3>(scratch, taps, samples, out);
    case 4:
      return scaleColumns8<4>(scratch, taps, samples, out);
    case 5:
      return scaleColumns8<5>(scratch, taps, samples, out);
    case 6:
      return scaleColumns8<6>(scratch, taps, samples, out);
    case 7:
      return scaleColumns8<7>(scratch, taps, samples, out);
    default:
      return scaleColumns8<0>(scratch, taps, samples, out);
  }
}

void scaleGroup16(const float* const* rows, size_t length, const PlaneTaps& taps, size_t samples,
                  const WideSamples& kind, float* scratch, uint16_t* const* out) {
  constexpr float kUnit = 1.0f / kWeightOne;
  transpose(kRowsF, rows, length, scratch);
  const size_t lanes = rowsPerVector();
  const size_t step = 2 * static_cast<size_t>(taps.pairs);
  const auto down = hn::Set(kRowsF, kUnit / static_cast<float>(1 << kind.sourceShift));
  const auto limit = hn::Set(kRowsF, static_cast<float>(kind.most));
  alignas(64) int32_t values[kRowGroup];
  for (size_t i = 0; i < samples; ++i) {
    const float* const columns = scratch + kRowGroup * static_cast<size_t>(taps.first[i]);
    const int16_t* const weights = taps.weights + step * i;
    for (size_t r = 0; r < kRowGroup; r += lanes) {
      auto sum = hn::Zero(kRowsF);
      for (size_t t = 0; t < step; ++t)
        sum = hn::MulAdd(hn::LoadU(kRowsF, columns + kRowGroup * t + r),
                         hn::Set(kRowsF, static_cast<float>(weights[t])), sum);
      sum = hn::Min(hn::Max(hn::Mul(sum, down), hn::Zero(kRowsF)), limit);
      hn::Store(hn::NearestInt(sum), kRows32, values + r);
    }
    for (size_t r = 0; r < kRowGroup; ++r)
      out[r][i] = static_cast<uint16_t>(values[r] << kind.shift);
  }
}

}  // namespace
}  // namespace kestrel::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kestrel::kernels {

HWY_EXPORT(mixRows8);
HWY_EXPORT(mixRows16);
HWY_EXPORT(scaleGroup8);
HWY_EXPORT(scaleGroup16);

void mixSamples8(const uint8_t* const* rows, const int16_t* weights, int taps, size_t samples,
                 int16_t* out) {
  HWY_DYNAMIC_DISPATCH(mixRows8)(rows, weights, taps, samples, out);
}

void mixSamples16(const uint16_t* const* rows, const int16_t* weights, int taps, size_t samples,
                  float* out) {
  HWY_DYNAMIC_DISPATCH(mixRows16)(rows, weights, taps, samples, out);
}

void scaleRows8(const int16_t* const* rows, size_t length, const PlaneTaps& taps, size_t samples,
                int32_t* scratch, uint8_t* const* out) {
  HWY_DYNAMIC_DISPATCH(scaleGroup8)(rows, length, taps, samples, scratch, out);
}

void scaleRows16(const float* const* rows, size_t length, const PlaneTaps& taps, size_t samples,
                 const WideSamples& kind, float* scratch, uint16_t* const* out) {
  HWY_DYNAMIC_DISPATCH(scaleGroup16)(rows, length, taps, samples, kind, scratch, out);
}

}  // namespace kestrel::kernels
#endif  // HWY_ONCE
