// From rows and tiles in 16 bits to resampled pixels in floats, and the mapping of their colours.

#include "platform/image/kernels/KernelTargets.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "platform/image/kernels/SampleKernels.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include <type_traits>

#include "platform/image/kernels/Kernels.h"

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
const hn::FixedTag<int32_t, 4> kBlock32;
using VF = hn::Vec<decltype(kDF)>;
using V32 = hn::Vec<decltype(kD32)>;
using V16 = hn::Vec<decltype(kD16)>;

#if HWY_TARGET == HWY_SCALAR
#error "The kernels need blocks of 128 bits."
#endif

const hn::ScalableTag<float> kLanesF;
const hn::Rebind<int32_t, decltype(kLanesF)> kLanes32;

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
template <typename D>
HWY_INLINE hn::Vec<D> pairUp(D d, hn::Vec<D> v) {
  const hn::Repartition<uint8_t, D> d8;
  alignas(16) static constexpr uint8_t kIndices[16] = {0, 1, 8,  9,  2, 3, 10, 11,
                                                       4, 5, 12, 13, 6, 7, 14, 15};
  return hn::BitCast(d, hn::TableLookupBytes(hn::BitCast(d8, v), hn::LoadDup128(d8, kIndices)));
}

/// Adds the products of neighbouring lanes to `sum`.
template <typename D, typename V>
HWY_INLINE hn::Vec<D> addPairs(D d, V a, V b, hn::Vec<D> sum) {
  auto odd = hn::Zero(d);
  const auto even = hn::ReorderWidenMulAccumulate(d, a, b, sum, odd);
  return hn::RearrangeToOddPlusEven(even, odd);
}

/// Stores the first pixel of a vector.
HWY_INLINE void storeFirst(VF pixels, float* out) {
  alignas(32) float values[8];
  hn::Store(pixels, kDF, values);
  __builtin_memcpy(out, values, 4 * sizeof(float));
}

/// What is done with the colours of resampled pixels.
enum class Colors { kKept, kLimited, kMapped, kMappedOpaque };

/// The matrix times each pixel of the vector, and the limits.
template <Colors kColors, typename D>
HWY_INLINE hn::Vec<D> mapped(D d, hn::Vec<D> v, const float* matrix) {
  if constexpr (kColors == Colors::kKept) return v;
  if constexpr (kColors == Colors::kLimited) {
    const auto limited = hn::Min(v, hn::Set(d, 1.0f));
    return hn::Max(hn::Min(limited, hn::Broadcast<3>(limited)), hn::Zero(d));
  }
  constexpr bool kIsOpaque = kColors == Colors::kMappedOpaque;
  hn::Vec<D> sum = hn::LoadDup128(d, matrix + 12);
  if constexpr (!kIsOpaque) sum = hn::Mul(hn::Broadcast<3>(v), sum);
  sum = hn::MulAdd(hn::Broadcast<0>(v), hn::LoadDup128(d, matrix), sum);
  sum = hn::MulAdd(hn::Broadcast<1>(v), hn::LoadDup128(d, matrix + 4), sum);
  sum = hn::MulAdd(hn::Broadcast<2>(v), hn::LoadDup128(d, matrix + 8), sum);
  sum = hn::Min(sum, hn::Set(d, 1.0f));
  if constexpr (!kIsOpaque) sum = hn::Min(sum, hn::Broadcast<3>(sum));
  return hn::Max(sum, hn::Zero(d));
}

/// Calls `run` with what there is to do with colours, as a type.
template <typename Run>
void withColors(const float* matrix, bool isOpaque, const Run& run) {
  if (!matrix) return run(std::integral_constant<Colors, Colors::kLimited>());
  if (isOpaque) return run(std::integral_constant<Colors, Colors::kMappedOpaque>());
  run(std::integral_constant<Colors, Colors::kMapped>());
}

constexpr float kScale = 1.0f / kOne;
constexpr float kWeightedScale = 1.0f / (static_cast<float>(kOne) * kWeightOne);

/// 1 in the weights of lines, which are of 15 bits.
constexpr int kLineOne = 32767;
constexpr float kLineScale = 1.0f / (static_cast<float>(kOne) * 32768);

/// `kPairs` is the number of pairs, or 0 for any.
template <int kPairs, Colors kColors>
void resampleRowBy(const int16_t* row, const RowTaps& taps, size_t pixels, const float* matrix,
                   float* HWY_RESTRICT out) {
  const int pairs = kPairs > 0 ? kPairs : taps.pairs;
  const VF scale = hn::Set(kDF, kWeightedScale);
  const auto sumAt = [&](const int32_t* first, const int16_t* weights) HWY_ATTR {
    V32 sum = hn::Zero(kD32);
    for (int p = 0; p < pairs; ++p)
      sum = addPairs(kD32, pairUp(kD16, loadPairs(row, first, 2 * p)),
                     hn::LoadU(kD16, weights + p * taps.pairStride), sum);
    const VF pixel = hn::Mul(hn::ConvertTo(kDF, sum), scale);
    return mapped<kColors>(kDF, pixel, matrix);
  };
  const size_t step = pixelsPerVector();
  size_t i = 0;
  for (; i + step <= pixels; i += step)
    hn::StoreU(sumAt(taps.first + i, taps.weights + 8 * i), kDF, out + 4 * i);
  if (i == pixels) return;
  const int32_t last[2] = {taps.first[i], taps.first[i]};
  storeFirst(sumAt(last, taps.weights + 8 * i), out + 4 * i);
}

template <Colors kColors>
void resampleRowAny(const int16_t* row, const RowTaps& taps, size_t pixels, const float* matrix,
                    float* out) {
  switch (taps.pairs) {
    case 1:
      return resampleRowBy<1, kColors>(row, taps, pixels, matrix, out);
    case 2:
      return resampleRowBy<2, kColors>(row, taps, pixels, matrix, out);
    case 3:
      return resampleRowBy<3, kColors>(row, taps, pixels, matrix, out);
    case 5:
      return resampleRowBy<5, kColors>(row, taps, pixels, matrix, out);
    default:
      return resampleRowBy<0, kColors>(row, taps, pixels, matrix, out);
  }
}

void resampleRowNow(const int16_t* row, const RowTaps& taps, size_t pixels, const float* matrix,
                    float* out) {
  withColors(matrix, taps.isOpaque, [&](auto colors) {
    resampleRowAny<decltype(colors)::value>(row, taps, pixels, matrix, out);
  });
}

/// Calls `step(d, i)` for as many pixels at a time as a vector holds, then for each of the rest;
/// `i` is the index of the first value.
template <typename Step>
HWY_INLINE void forPixels(size_t count, const Step& step) {
  const size_t lanes = hn::Lanes(kLanesF);
  size_t i = 0;
  for (; i + lanes <= 4 * count; i += lanes) step(kLanesF, i);
  for (; i < 4 * count; i += 4) step(hn::FixedTag<float, 4>(), i);
}

template <Colors kColors>
void widenRowBy(const int16_t* row, size_t pixels, const float* matrix, float* out) {
  forPixels(pixels, [&](auto d, size_t i) HWY_ATTR {
    const hn::Rebind<int32_t, decltype(d)> d32;
    const hn::Rebind<int16_t, decltype(d)> d16;
    const auto value = hn::ConvertTo(d, hn::PromoteTo(d32, hn::LoadU(d16, row + i)));
    const auto pixel = hn::Mul(value, hn::Set(d, kScale));
    hn::StoreU(mapped<kColors>(d, pixel, matrix), d, out + i);
  });
}

void widenRowNow(const int16_t* row, size_t pixels, const float* matrix, float* out) {
  if (matrix) return widenRowBy<Colors::kMapped>(row, pixels, matrix, out);
  widenRowBy<Colors::kKept>(row, pixels, matrix, out);
}

template <Colors kColors>
void widenOpaqueBy(const uint8_t* row, size_t pixels, const float* matrix,
                   float* HWY_RESTRICT out) {
  forPixels(pixels, [&](auto d, size_t i) HWY_ATTR {
    const hn::Rebind<int32_t, decltype(d)> d32;
    const hn::Rebind<uint8_t, decltype(d)> d8;
    alignas(16) static constexpr uint32_t kAlpha[4] = {0, 0, 0, 255};
    const auto bytes = hn::PromoteTo(d32, hn::LoadU(d8, row + i));
    const auto opaque = hn::Or(
        bytes, hn::BitCast(d32, hn::LoadDup128(hn::Rebind<uint32_t, decltype(d)>(), kAlpha)));
    const auto pixel = hn::Mul(hn::ConvertTo(d, opaque), hn::Set(d, 1.0f / 255));
    hn::StoreU(mapped<kColors>(d, pixel, matrix), d, out + i);
  });
}

void widenOpaqueNow(const uint8_t* row, size_t pixels, const float* matrix, float* out) {
  if (matrix) return widenOpaqueBy<Colors::kMappedOpaque>(row, pixels, matrix, out);
  widenOpaqueBy<Colors::kKept>(row, pixels, matrix, out);
}

void mapPixelsNow(float* pixels, size_t count, const float* matrix) {
  forPixels(count, [&](auto d, size_t i) HWY_ATTR {
    hn::StoreU(mapped<Colors::kMapped>(d, hn::LoadU(d, pixels + i), matrix), d, pixels + i);
  });
}

/// Where the pixels of a line begin in the tile, and their weights.
struct LinePlan {
  alignas(64) int32_t offset[kMaxAffinePixels];
  alignas(64) int32_t across[2 * kMaxAffinePixels];  ///< four halves for each pixel
  alignas(64) int32_t down[3][kMaxAffinePixels];     ///< in both halves the same
};

/// Added to a float this makes its last 16 bits the nearest whole number.
constexpr float kWholeNumbers = 12582912.0f;

/// Along one axis, the footprints of pixels on a line: three neighbours and their weights, for an
/// area that begins `span` / 2 before the position. Pixel k reaches from k - 1/2 to k + 1/2.
struct Footprints {
  HWY_INLINE Footprints(float start, float step, float low, float high, float span)
      : step_(hn::Set(kLanesF, step)), past_(hn::Set(kLanesF, span - 1.5f)) {
    start_ = hn::Set(kLanesF, start - span / 2);
    low_ = hn::Set(kLanesF, low - span / 2);
    high_ = hn::Set(kLanesF, high - span / 2);
    scale_ = hn::Set(kLanesF, static_cast<float>(kLineOne) / span);
  }

  /// For the pixels whose numbers are `index`.
  HWY_INLINE void at(hn::Vec<decltype(kLanesF)> index) {
    const auto wholes = hn::Set(kLanesF, kWholeNumbers);
    const auto edge = hn::Min(hn::Max(hn::MulAdd(index, step_, start_), low_), high_);
    base = hn::Sub(hn::Add(edge, wholes), wholes);
    const auto rest = hn::Sub(edge, base);
    const auto before = hn::Sub(hn::Set(kLanesF, 0.5f), rest);
    const auto beyond = hn::Max(hn::Add(rest, past_), hn::Zero(kLanesF));
    first = hn::BitCast(kLanes32, hn::MulAdd(before, scale_, wholes));
    third = hn::BitCast(kLanes32, hn::MulAdd(beyond, scale_, wholes));
    second = hn::Sub(hn::Set(kLanes32, kLineOne), hn::Add(first, third));
  }

  hn::Vec<decltype(kLanesF)> base;                   ///< the first neighbour
  hn::Vec<decltype(kLanes32)> first, second, third;  ///< the lower halves are the weights

 private:
  hn::Vec<decltype(kLanesF)> start_, step_, low_, high_, past_, scale_;
};

void planLine(const AffineLine& line, size_t pixels, LinePlan* plan) {
  Footprints across(line.u, line.du, line.minU, line.maxU, line.spanU);
  Footprints down(line.v, line.dv, line.minV, line.maxV, line.spanV);
  const auto lower = hn::Set(kLanes32, 0xFFFF);
  const auto bothHalves = [&](auto low, auto high) HWY_ATTR {
    return hn::Or(hn::And(low, lower), hn::ShiftLeft<16>(high));
  };
  const size_t lanes = hn::Lanes(kLanesF);
  const auto stride = hn::Set(kLanesF, static_cast<float>(line.rowStride));
  auto index = hn::Iota(kLanesF, 0.0f);
  const auto next = hn::Set(kLanesF, static_cast<float>(lanes));
  for (size_t i = 0; i < pixels; i += lanes, index = hn::Add(index, next)) {
    across.at(index);
    down.at(index);
    const auto offset = hn::MulAdd(down.base, stride, across.base);
    hn::StoreU(hn::ConvertTo(kLanes32, offset), kLanes32, plan->offset + i);
    hn::StoreInterleaved2(bothHalves(across.first, across.second), hn::And(across.third, lower),
                          kLanes32, plan->across + 2 * i);
    hn::StoreU(bothHalves(down.first, down.first), kLanes32, plan->down[0] + i);
    hn::StoreU(bothHalves(down.second, down.second), kLanes32, plan->down[1] + i);
    hn::StoreU(bothHalves(down.third, down.third), kLanes32, plan->down[2] + i);
  }
}

/// Two neighbours of `kRows` rows from `first` on, the weights of the rows being those of pixel
/// `i`, times their own two.
template <int kRows>
HWY_INLINE hn::Vec<decltype(kBlock32)> footprintPair(const int16_t* first, ptrdiff_t stride,
                                                     const LinePlan& plan, size_t i,
                                                     int32_t across) {
  const auto row = [&](int r) HWY_ATTR {
    return hn::MulFixedPoint15(hn::LoadU(kBlock16, first + r * stride),
                               hn::BitCast(kBlock16, hn::Set(kBlock32, plan.down[r][i])));
  };
  auto column = hn::Add(row(0), row(1));
  if constexpr (kRows == 3) column = hn::Add(column, row(2));
  const auto weights = hn::BitCast(kBlock16, hn::Set(kBlock32, across));
  return addPairs(kBlock32, pairUp(kBlock16, column), weights, hn::Zero(kBlock32));
}

/// The sums over the footprints, of two by two pixels or three by three, for the pixels of one
/// vector from `i` on.
template <bool kWide>
HWY_INLINE V32 footprints(const int16_t* tile, ptrdiff_t stride, const LinePlan& plan, size_t i) {
  const auto firstOf = [&](size_t at) {
    return tile + 4 * static_cast<ptrdiff_t>(plan.offset[at]);
  };
  const auto narrow = [&](size_t at) HWY_ATTR {
    return footprintPair<2>(firstOf(at), stride, plan, at, plan.across[2 * at]);
  };
#if HWY_TARGET <= HWY_AVX2 && HWY_ARCH_X86
  // Rows of four pixels as one vector each.
  const auto wide = [&](size_t at) HWY_ATTR {
    // The first pair of weights for the first block, the second for the second.
    const hn::Repartition<uint8_t, decltype(kD16)> d8;
    const hn::Repartition<uint64_t, decltype(kD16)> d64;
    alignas(32) static constexpr uint8_t kSpread[32] = {0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2,
                                                        3, 0, 1, 2, 3, 4, 5, 6, 7, 4, 5,
                                                        6, 7, 4, 5, 6, 7, 4, 5, 6, 7};
    const int16_t* const first = firstOf(at);
    const auto row = [&](int r) HWY_ATTR {
      return hn::MulFixedPoint15(hn::LoadU(kD16, first + r * stride),
                                 hn::BitCast(kD16, hn::Set(kD32, plan.down[r][at])));
    };
    const V16 column = hn::Add(hn::Add(row(0), row(1)), row(2));
    uint64_t four;
    __builtin_memcpy(&four, plan.across + 2 * at, sizeof(four));
    const auto weights =
        hn::TableLookupBytes(hn::BitCast(d8, hn::Set(d64, four)), hn::Load(d8, kSpread));
    return addPairs(kD32, pairUp(kD16, column), hn::BitCast(kD16, weights), hn::Zero(kD32));
  };
  if constexpr (kWide) {
    const V32 here = wide(i);
    const V32 next = wide(i + 1);
    return hn::Add(hn::ConcatLowerLower(kD32, next, here), hn::ConcatUpperUpper(kD32, next, here));
  }
  return hn::Combine(kD32, narrow(i + 1), narrow(i));
#else
  if constexpr (kWide) {
    return hn::Add(footprintPair<3>(firstOf(i), stride, plan, i, plan.across[2 * i]),
                   footprintPair<3>(firstOf(i) + 8, stride, plan, i, plan.across[2 * i + 1]));
  }
  return narrow(i);
#endif
}

template <bool kWide, Colors kColors>
void resampleLineBy(const AffineLine& line, size_t pixels, const float* matrix,
                    float* HWY_RESTRICT out) {
  LinePlan plan;
  planLine(line, pixels, &plan);
  const int16_t* const tile = line.tile;
  const ptrdiff_t stride = 4 * line.rowStride;
  const VF scale = hn::Set(kDF, kLineScale);
  const auto at = [&](size_t i) HWY_ATTR {
    const VF pixel = hn::Mul(hn::ConvertTo(kDF, footprints<kWide>(tile, stride, plan, i)), scale);
    return mapped<kColors>(kDF, pixel, matrix);
  };
  const size_t step = pixelsPerVector();
  size_t i = 0;
  for (; i + step <= pixels; i += step) hn::StoreU(at(i), kDF, out + 4 * i);
  if (i < pixels) storeFirst(at(i), out + 4 * i);
}

void resampleLineNow(const AffineLine& line, size_t pixels, const float* matrix, float* out) {
  withColors(matrix, line.isOpaque, [&](auto colors) {
    constexpr Colors kColors = decltype(colors)::value;
    if (line.spanU > 1 || line.spanV > 1)
      resampleLineBy<true, kColors>(line, pixels, matrix, out);
    else
      resampleLineBy<false, kColors>(line, pixels, matrix, out);
  });
}

}  // namespace
}  // namespace kestrel::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kestrel::kernels {

HWY_EXPORT(resampleRowNow);
HWY_EXPORT(widenRowNow);
HWY_EXPORT(widenOpaqueNow);
HWY_EXPORT(mapPixelsNow);
HWY_EXPORT(resampleLineNow);

void resampleRow(const int16_t* row, const RowTaps& taps, size_t pixels, const float* matrix,
                 float* out) {
  HWY_DYNAMIC_DISPATCH(resampleRowNow)(row, taps, pixels, matrix, out);
}

void widenRow(const int16_t* row, size_t pixels, const float* matrix, float* out) {
  HWY_DYNAMIC_DISPATCH(widenRowNow)(row, pixels, matrix, out);
}

void widenOpaque(const uint8_t* row, size_t pixels, const float* matrix, float* out) {
  HWY_DYNAMIC_DISPATCH(widenOpaqueNow)(row, pixels, matrix, out);
}

void resampleLine(const AffineLine& line, size_t pixels, const float* matrix, float* out) {
  HWY_DYNAMIC_DISPATCH(resampleLineNow)(line, pixels, matrix, out);
}

void mapPixels(float* pixels, size_t count, const float* matrix) {
  HWY_DYNAMIC_DISPATCH(mapPixelsNow)(pixels, count, matrix);
}

}  // namespace kestrel::kernels
#endif  // HWY_ONCE
