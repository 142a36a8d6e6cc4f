// From rows and tiles in 16 bits to resampled pixels in floats.

#include "platform/image/KernelTargets.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "platform/image/SampleKernels.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "platform/image/Kernels.h"

HWY_BEFORE_NAMESPACE();
namespace kestrel::kernels::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

// A block of 128 bits holds one pixel of floats, or two neighbours in 16 bits. Two blocks make good
// use of 256 bits; loading more from scattered places costs what wider vectors would gain.
const hn::CappedTag<float, 8> kDF;
const hn::Rebind<int32_t, decltype(kDF)> kD32;
const hn::Repartition<int16_t, decltype(kD32)> kD16;
const hn::FixedTag<int16_t, 8> kBlock16;
using VF = hn::Vec<decltype(kDF)>;
using V32 = hn::Vec<decltype(kD32)>;
using V16 = hn::Vec<decltype(kD16)>;

#if HWY_TARGET == HWY_SCALAR
#error "The kernels need blocks of 128 bits."
#endif

HWY_INLINE size_t pixelsPerVector() { return hn::Lanes(kDF) / 4; }

/// Two neighbours from each of the places that one vector holds.
template <typename Index>
HWY_INLINE V16 loadPairs(const int16_t* row, const Index* first, ptrdiff_t more) {
#if HWY_TARGET <= HWY_AVX2 && HWY_ARCH_X86
  return hn::Combine(kD16, hn::LoadU(kBlock16, row + 4 * (first[1] + more)),
                     hn::LoadU(kBlock16, row + 4 * (first[0] + more)));
#else
  return hn::LoadU(kD16, row + 4 * (first[0] + more));
#endif
}

/// r0 g0 b0 a0 r1 g1 b1 a1 to r0 r1 g0 g1 b0 b1 a0 a1, in each block.
HWY_INLINE V16 pairUp(V16 v) {
  const hn::Repartition<uint8_t, decltype(kD16)> d8;
  alignas(16) static constexpr uint8_t kIndices[16] = {0, 1, 8,  9,  2, 3, 10, 11,
                                                       4, 5, 12, 13, 6, 7, 14, 15};
  return hn::BitCast(kD16, hn::TableLookupBytes(hn::BitCast(d8, v), hn::LoadDup128(d8, kIndices)));
}

/// Adds the products of neighbouring lanes to `sum`.
HWY_INLINE V32 addPairs(V16 a, V16 b, V32 sum) {
  V32 odd = hn::Zero(kD32);
  const V32 even = hn::ReorderWidenMulAccumulate(kD32, a, b, sum, odd);
  return hn::RearrangeToOddPlusEven(even, odd);
}

template <int kLane, typename V>
HWY_INLINE V channel(V v) {
  return hn::Broadcast<kLane>(v);
}

/// The matrix times each pixel of the vector.
template <typename D>
HWY_INLINE hn::Vec<D> mapped(D d, hn::Vec<D> v, const float* matrix) {
  hn::Vec<D> sum = hn::Mul(channel<3>(v), hn::LoadDup128(d, matrix + 12));
  sum = hn::MulAdd(channel<0>(v), hn::LoadDup128(d, matrix), sum);
  sum = hn::MulAdd(channel<1>(v), hn::LoadDup128(d, matrix + 4), sum);
  return hn::MulAdd(channel<2>(v), hn::LoadDup128(d, matrix + 8), sum);
}

constexpr float kScale = 1.0f / kOne;
constexpr float kWeightedScale = 1.0f / (static_cast<float>(kOne) * kWeightOne);

/// `kPairs` is the number of pairs, or 0 for any.
template <int kPairs, bool kMatrix>
void resampleRowBy(const int16_t* row, const RowTaps& taps, size_t pixels, const float* matrix,
                   float* out) {
  const int pairs = kPairs > 0 ? kPairs : taps.pairs;
  const VF scale = hn::Set(kDF, kWeightedScale);
  const auto sumAt = [&](const int32_t* first, const int16_t* weights) HWY_ATTR {
    V32 sum = hn::Zero(kD32);
    for (int p = 0; p < pairs; ++p)
      sum = addPairs(pairUp(loadPairs(row, first, 2 * p)),
                     hn::LoadU(kD16, weights + p * taps.pairStride), sum);
    const VF pixel = hn::Mul(hn::ConvertTo(kDF, sum), scale);
    if constexpr (kMatrix) return mapped(kDF, pixel, matrix);
    return pixel;
  };
  const size_t step = pixelsPerVector();
  size_t i = 0;
  for (; i + step <= pixels; i += step)
    hn::StoreU(sumAt(taps.first + i, taps.weights + 8 * i), kDF, out + 4 * i);
  if (i == pixels) return;
  const int32_t last[2] = {taps.first[i], taps.first[i]};
  alignas(32) float pixel[8];
  hn::Store(sumAt(last, taps.weights + 8 * i), kDF, pixel);
  __builtin_memcpy(out + 4 * i, pixel, 4 * sizeof(float));
}

template <bool kMatrix>
void resampleRowAny(const int16_t* row, const RowTaps& taps, size_t pixels, const float* matrix,
                    float* out) {
  switch (taps.pairs) {
    case 1:
      return resampleRowBy<1, kMatrix>(row, taps, pixels, matrix, out);
    case 2:
      return resampleRowBy<2, kMatrix>(row, taps, pixels, matrix, out);
    default:
      return resampleRowBy<0, kMatrix>(row, taps, pixels, matrix, out);
  }
}

void resampleRowNow(const int16_t* row, const RowTaps& taps, size_t pixels, const float* matrix,
                    float* out) {
  if (matrix) return resampleRowAny<true>(row, taps, pixels, matrix, out);
  resampleRowAny<false>(row, taps, pixels, matrix, out);
}

template <typename D>
HWY_INLINE size_t widenBy(D d, const int16_t* row, size_t begin, size_t pixels, const float* matrix,
                          float* out) {
  const hn::Rebind<int32_t, D> d32;
  const hn::Rebind<int16_t, D> d16;
  const auto scale = hn::Set(d, kScale);
  const size_t step = hn::Lanes(d) / 4;
  size_t i = begin;
  for (; i + step <= pixels; i += step) {
    const auto value = hn::PromoteTo(d32, hn::LoadU(d16, row + 4 * i));
    const auto pixel = hn::Mul(hn::ConvertTo(d, value), scale);
    hn::StoreU(matrix ? mapped(d, pixel, matrix) : pixel, d, out + 4 * i);
  }
  return i;
}

void widenRowNow(const int16_t* row, size_t pixels, const float* matrix, float* out) {
  const size_t done = widenBy(hn::ScalableTag<float>(), row, 0, pixels, matrix, out);
  widenBy(hn::CappedTag<float, 4>(), row, done, pixels, matrix, out);
}

/// Where the pixels of a line begin in the tile, and their weights.
struct LinePlan {
  alignas(64) int32_t offset[kMaxAffinePixels];
  alignas(64) int16_t across[4 * kMaxAffinePixels];  ///< four for each pixel
  alignas(64) int16_t down[3][kMaxAffinePixels];
};

const hn::ScalableTag<float> kLanesF;
const hn::Rebind<int32_t, decltype(kLanesF)> kLanes32;
const hn::Rebind<int16_t, decltype(kLanesF)> kLanes16;

/// Weights of three neighbours from `base` on, for an area of `span` about `position`.
struct Weights {
  HWY_INLINE Weights(hn::Vec<decltype(kLanesF)> position, float span) {
    const auto reach = hn::Set(kLanesF, (span + 1) / 2);
    const auto scale = hn::Set(kLanesF, static_cast<float>(kWeightOne - 1) / span);
    const auto one = hn::Set(kLanesF, 1.0f);
    base = hn::Add(hn::Floor(hn::Sub(position, reach)), one);
    auto distance = hn::Sub(base, position);
    for (auto* weight : {&first, &second, &third}) {
      const auto inside = hn::Max(hn::Sub(reach, hn::Abs(distance)), hn::Zero(kLanesF));
      *weight = hn::DemoteTo(kLanes16, hn::NearestInt(hn::Mul(hn::Min(inside, one), scale)));
      distance = hn::Add(distance, one);
    }
  }

  hn::Vec<decltype(kLanesF)> base;
  hn::Vec<decltype(kLanes16)> first, second, third;
};

void planLine(const AffineLine& line, size_t pixels, LinePlan* plan) {
  const size_t lanes = hn::Lanes(kLanesF);
  const auto limited = [](auto position, float low, float high) HWY_ATTR {
    return hn::Min(hn::Max(position, hn::Set(kLanesF, low)), hn::Set(kLanesF, high));
  };
  const auto stride = hn::Set(kLanes32, static_cast<int32_t>(line.rowStride));
  for (size_t i = 0; i < pixels; i += lanes) {
    const auto index = hn::Iota(kLanesF, static_cast<float>(i));
    const auto u = limited(hn::MulAdd(index, hn::Set(kLanesF, line.du), hn::Set(kLanesF, line.u)),
                           line.minU, line.maxU);
    const auto v = limited(hn::MulAdd(index, hn::Set(kLanesF, line.dv), hn::Set(kLanesF, line.v)),
                           line.minV, line.maxV);
    const Weights across(u, line.spanU);
    const Weights down(v, line.spanV);
    hn::StoreU(hn::Add(hn::Mul(hn::ConvertTo(kLanes32, down.base), stride),
                       hn::ConvertTo(kLanes32, across.base)),
               kLanes32, plan->offset + i);
    hn::StoreInterleaved4(across.first, across.second, across.third, hn::Zero(kLanes16), kLanes16,
                          plan->across + 4 * i);
    hn::StoreU(down.first, kLanes16, plan->down[0] + i);
    hn::StoreU(down.second, kLanes16, plan->down[1] + i);
    hn::StoreU(down.third, kLanes16, plan->down[2] + i);
  }
}

/// Two neighbours of `kRows` rows, from pixel `more` of the footprint on, with their two weights.
template <int kRows, int kMore>
HWY_INLINE hn::Vec<hn::FixedTag<int32_t, 4>> footprintPair(const int16_t* first, ptrdiff_t stride,
                                                           const LinePlan& plan, size_t i) {
  const hn::FixedTag<int32_t, 4> d32;
  const hn::Repartition<uint8_t, decltype(d32)> d8;
  auto column = hn::MulFixedPoint15(hn::LoadU(kBlock16, first + 4 * kMore),
                                    hn::Set(kBlock16, plan.down[0][i]));
  for (int r = 1; r < kRows; ++r)
    column =
        hn::Add(column, hn::MulFixedPoint15(hn::LoadU(kBlock16, first + 4 * (r * stride + kMore)),
                                            hn::Set(kBlock16, plan.down[r][i])));
  alignas(16) static constexpr uint8_t kPairs[16] = {0, 1, 8,  9,  2, 3, 10, 11,
                                                     4, 5, 12, 13, 6, 7, 14, 15};
  const auto pairs =
      hn::BitCast(kBlock16, hn::TableLookupBytes(hn::BitCast(d8, column), hn::Load(d8, kPairs)));
  int32_t weights;
  __builtin_memcpy(&weights, plan.across + 4 * i + kMore, sizeof(weights));
  auto odd = hn::Zero(d32);
  const auto even = hn::ReorderWidenMulAccumulate(
      d32, pairs, hn::BitCast(kBlock16, hn::Set(d32, weights)), hn::Zero(d32), odd);
  return hn::RearrangeToOddPlusEven(even, odd);
}

/// A footprint of two by two.
void sampleNarrowLine(const AffineLine& line, size_t pixels, const LinePlan& plan, float* out) {
  const hn::FixedTag<float, 4> d;
  const auto scale = hn::Set(d, kWeightedScale);
  for (size_t i = 0; i < pixels; ++i) {
    const int16_t* first = line.tile + 4 * static_cast<ptrdiff_t>(plan.offset[i]);
    const auto sum = footprintPair<2, 0>(first, line.rowStride, plan, i);
    hn::StoreU(hn::Mul(hn::ConvertTo(d, sum), scale), d, out + 4 * i);
  }
}

#if HWY_TARGET <= HWY_AVX2 && HWY_ARCH_X86
/// A footprint of three by three: rows of four pixels as one vector each.
void sampleWideLine(const AffineLine& line, size_t pixels, const LinePlan& plan, float* out) {
  const hn::FixedTag<float, 4> d;
  const hn::FixedTag<int32_t, 4> d32;
  const hn::FixedTag<int16_t, 16> dRow;
  const hn::Repartition<uint8_t, decltype(dRow)> d8;
  const hn::Repartition<uint64_t, decltype(dRow)> d64;
  const hn::Repartition<int32_t, decltype(dRow)> dSum;
  // The first pair of weights for the first block, the second for the second.
  alignas(32) static constexpr uint8_t kSpread[32] = {0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2,
                                                      3, 0, 1, 2, 3, 4, 5, 6, 7, 4, 5,
                                                      6, 7, 4, 5, 6, 7, 4, 5, 6, 7};
  const auto spread = hn::Load(d8, kSpread);
  const auto scale = hn::Set(d, kWeightedScale);
  const ptrdiff_t stride = 4 * line.rowStride;
  for (size_t i = 0; i < pixels; ++i) {
    const int16_t* first = line.tile + 4 * static_cast<ptrdiff_t>(plan.offset[i]);
    const auto row = [&](int r) HWY_ATTR {
      return hn::MulFixedPoint15(hn::LoadU(dRow, first + r * stride),
                                 hn::Set(dRow, plan.down[r][i]));
    };
    const auto column = hn::Add(hn::Add(row(0), row(1)), row(2));
    uint64_t four;
    __builtin_memcpy(&four, plan.across + 4 * i, sizeof(four));
    const auto weights =
        hn::BitCast(dRow, hn::TableLookupBytes(hn::BitCast(d8, hn::Set(d64, four)), spread));
    auto odd = hn::Zero(dSum);
    const auto even =
        hn::ReorderWidenMulAccumulate(dSum, pairUp(column), weights, hn::Zero(dSum), odd);
    const auto sums = hn::RearrangeToOddPlusEven(even, odd);
    const auto sum = hn::Add(hn::LowerHalf(d32, sums), hn::UpperHalf(d32, sums));
    hn::StoreU(hn::Mul(hn::ConvertTo(d, sum), scale), d, out + 4 * i);
  }
}
#else
/// A footprint of three by three, as two pairs of columns.
void sampleWideLine(const AffineLine& line, size_t pixels, const LinePlan& plan, float* out) {
  const hn::FixedTag<float, 4> d;
  const auto scale = hn::Set(d, kWeightedScale);
  for (size_t i = 0; i < pixels; ++i) {
    const int16_t* first = line.tile + 4 * static_cast<ptrdiff_t>(plan.offset[i]);
    const auto sum = hn::Add(footprintPair<3, 0>(first, line.rowStride, plan, i),
                             footprintPair<3, 2>(first, line.rowStride, plan, i));
    hn::StoreU(hn::Mul(hn::ConvertTo(d, sum), scale), d, out + 4 * i);
  }
}
#endif

void resampleLineNow(const AffineLine& line, size_t pixels, float* out) {
  LinePlan plan;
  planLine(line, pixels, &plan);
  if (line.spanU > 1 || line.spanV > 1) return sampleWideLine(line, pixels, plan, out);
  sampleNarrowLine(line, pixels, plan, out);
}

}  // namespace
}  // namespace kestrel::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kestrel::kernels {

HWY_EXPORT(resampleRowNow);
HWY_EXPORT(widenRowNow);
HWY_EXPORT(resampleLineNow);

void resampleRow(const int16_t* row, const RowTaps& taps, size_t pixels, const float* matrix,
                 float* out) {
  HWY_DYNAMIC_DISPATCH(resampleRowNow)(row, taps, pixels, matrix, out);
}

void widenRow(const int16_t* row, size_t pixels, const float* matrix, float* out) {
  HWY_DYNAMIC_DISPATCH(widenRowNow)(row, pixels, matrix, out);
}

void resampleLine(const AffineLine& line, size_t pixels, const float* matrix, float* out) {
  HWY_DYNAMIC_DISPATCH(resampleLineNow)(line, pixels, out);
  if (matrix) applyMatrix(out, pixels, matrix);
}

}  // namespace kestrel::kernels
#endif  // HWY_ONCE
