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
enum class Colors { kKept, kLimited, kLimitedOpaque, kMapped, kMappedOpaque };

/// The matrix times each pixel of the vector, and the limits.
template <Colors kColors, typename D>
HWY_INLINE hn::Vec<D> mapped(D d, hn::Vec<D> v, const float* matrix) {
  if constexpr (kColors == Colors::kKept) return v;
  if constexpr (kColors == Colors::kLimited) {
    const auto limited = hn::Min(v, hn::Set(d, 1.0f));
    return hn::Max(hn::Min(limited, hn::Broadcast<3>(limited)), hn::Zero(d));
  }
  if constexpr (kColors == Colors::kLimitedOpaque) {
    // Sums of rounded weights miss 1 by a little.
    alignas(16) static constexpr float kAlpha[4] = {0, 0, 0, 1};
    const auto limited = hn::Max(hn::Min(v, hn::Set(d, 1.0f)), hn::Zero(d));
    const auto alpha = hn::LoadDup128(d, kAlpha);
    return hn::IfThenElse(hn::Gt(alpha, hn::Zero(d)), alpha, limited);
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
  if (!matrix && isOpaque) return run(std::integral_constant<Colors, Colors::kLimitedOpaque>());
  if (!matrix) return run(std::integral_constant<Colors, Colors::kLimited>());
  if (isOpaque) return run(std::integral_constant<Colors, Colors::kMappedOpaque>());
  run(std::integral_constant<Colors, Colors::kMapped>());
}

constexpr float kScale = 1.0f / kOne;
constexpr float kWeightedScale = 1.0f / (static_cast<float>(kOne) * kWeightOne);

/// 1 in the weights of lines, which are of 15 bits.
constexpr int kLineOne = 32767;
constexpr float kLineScale =
    static_cast<float>(32768.0 / (static_cast<double>(kOne) * kLineOne * kLineOne));

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
  alignas(64) int32_t down[4][kMaxAffinePixels];     ///< in both halves the same
};

/// Added to a float this makes its last 16 bits the nearest whole number.
constexpr float kWholeNumbers = 12582912.0f;

/// Along one axis, what pixels on a line are made of: four neighbours, the first of which lies 1 to
/// 2 before the position, and their weights, cubics of the rest f of the position.
struct Footprints {
  HWY_INLINE Footprints(float start, float step, float low, float high, float span)
      : step_(hn::Set(kLanesF, step)) {
    start_ = hn::Set(kLanesF, start);
    low_ = hn::Set(kLanesF, low);
    high_ = hn::Set(kLanesF, high);
    const float b = span - 1;
    const float c = (2 - span) / 2;
    const auto part = [](float value) { return value * (static_cast<float>(kLineOne) / 6); };
    outer_[0] = part(b);
    outer_[1] = part(-3 * b - 6 * c);
    outer_[2] = part(3 * b + 12 * c);
    outer_[3] = part(-b - 6 * c);
    inner_[0] = part(6 - 2 * b);
    inner_[1] = part(-18 + 12 * b + 6 * c);
    inner_[2] = part(12 - 9 * b - 6 * c);
  }

  /// For the pixels whose numbers are `index`.
  HWY_INLINE void at(hn::Vec<decltype(kLanesF)> index) {
    const auto wholes = hn::Set(kLanesF, kWholeNumbers);
    const auto place = hn::Min(hn::Max(hn::MulAdd(index, step_, start_), low_), high_);
    base = hn::Floor(place);
    const auto f = hn::Sub(place, base);
    const auto rest = hn::Sub(hn::Set(kLanesF, 1.0f), f);
    weights[0] = hn::BitCast(kLanes32, hn::Add(outer(f), wholes));
    const auto second = hn::MulAdd(
        hn::Mul(f, f), hn::MulAdd(f, hn::Set(kLanesF, inner_[2]), hn::Set(kLanesF, inner_[1])),
        hn::Set(kLanesF, inner_[0]));
    weights[1] = hn::BitCast(kLanes32, hn::Add(second, wholes));
    weights[3] = hn::BitCast(kLanes32, hn::Add(outer(rest), wholes));
    const auto others = hn::Add(hn::Add(weights[0], weights[1]), weights[3]);
    weights[2] = hn::Sub(hn::Set(kLanes32, kLineOne), others);
  }

  hn::Vec<decltype(kLanesF)> base;         ///< the second neighbour
  hn::Vec<decltype(kLanes32)> weights[4];  ///< in the lower halves

 private:
  /// At a distance of 1 + f.
  HWY_INLINE hn::Vec<decltype(kLanesF)> outer(hn::Vec<decltype(kLanesF)> f) const {
    auto sum = hn::MulAdd(f, hn::Set(kLanesF, outer_[3]), hn::Set(kLanesF, outer_[2]));
    sum = hn::MulAdd(f, sum, hn::Set(kLanesF, outer_[1]));
    return hn::MulAdd(f, sum, hn::Set(kLanesF, outer_[0]));
  }

  hn::Vec<decltype(kLanesF)> start_, step_, low_, high_;
  float outer_[4];
  float inner_[3];
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
  const auto first = hn::Set(kLanes32, line.origin - 1 - static_cast<int32_t>(line.rowStride));
  auto index = hn::Iota(kLanesF, line.index);
  const auto next = hn::Set(kLanesF, static_cast<float>(lanes));
  for (size_t i = 0; i < pixels; i += lanes, index = hn::Add(index, next)) {
    across.at(index);
    down.at(index);
    const auto offset = hn::MulAdd(down.base, stride, across.base);
    hn::StoreU(hn::Add(hn::ConvertTo(kLanes32, offset), first), kLanes32, plan->offset + i);
    hn::StoreInterleaved2(bothHalves(across.weights[0], across.weights[1]),
                          bothHalves(across.weights[2], across.weights[3]), kLanes32,
                          plan->across + 2 * i);
    for (int r = 0; r < 4; ++r)
      hn::StoreU(bothHalves(down.weights[r], down.weights[r]), kLanes32, plan->down[r] + i);
  }
}

/// Two neighbours of four rows from `first` on, the weights of the rows being those of pixel `i`,
/// times their own two.
HWY_INLINE hn::Vec<decltype(kBlock32)> footprintPair(const int16_t* first, ptrdiff_t stride,
                                                     const LinePlan& plan, size_t i,
                                                     int32_t across) {
  const auto row = [&](int r) HWY_ATTR {
    return hn::MulFixedPoint15(hn::LoadU(kBlock16, first + r * stride),
                               hn::BitCast(kBlock16, hn::Set(kBlock32, plan.down[r][i])));
  };
  const auto column = hn::Add(hn::Add(row(0), row(1)), hn::Add(row(2), row(3)));
  const auto weights = hn::BitCast(kBlock16, hn::Set(kBlock32, across));
  return addPairs(kBlock32, pairUp(kBlock16, column), weights, hn::Zero(kBlock32));
}

/// The sums over four by four pixels, for the pixels of one vector from `i` on.
HWY_INLINE V32 footprints(const int16_t* tile, ptrdiff_t stride, const LinePlan& plan, size_t i) {
  const auto firstOf = [&](size_t at) {
    return tile + 4 * static_cast<ptrdiff_t>(plan.offset[at]);
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
    const V16 column = hn::Add(hn::Add(row(0), row(1)), hn::Add(row(2), row(3)));
    uint64_t four;
    __builtin_memcpy(&four, plan.across + 2 * at, sizeof(four));
    const auto weights =
        hn::TableLookupBytes(hn::BitCast(d8, hn::Set(d64, four)), hn::Load(d8, kSpread));
    return addPairs(kD32, pairUp(kD16, column), hn::BitCast(kD16, weights), hn::Zero(kD32));
  };
  const V32 here = wide(i);
  const V32 next = wide(i + 1);
  return hn::Add(hn::ConcatLowerLower(kD32, next, here), hn::ConcatUpperUpper(kD32, next, here));
#else
  return hn::Add(footprintPair(firstOf(i), stride, plan, i, plan.across[2 * i]),
                 footprintPair(firstOf(i) + 8, stride, plan, i, plan.across[2 * i + 1]));
#endif
}

template <Colors kColors>
void resampleLineBy(const AffineLine& line, size_t pixels, const float* matrix,
                    float* HWY_RESTRICT out) {
  LinePlan plan;
  planLine(line, pixels, &plan);
  const int16_t* const tile = line.tile;
  const ptrdiff_t stride = 4 * line.rowStride;
  const VF scale = hn::Set(kDF, kLineScale);
  const auto at = [&](size_t i) HWY_ATTR {
    const VF pixel = hn::Mul(hn::ConvertTo(kDF, footprints(tile, stride, plan, i)), scale);
    return mapped<kColors>(kDF, pixel, matrix);
  };
  const size_t step = pixelsPerVector();
  size_t i = 0;
  for (; i + step <= pixels; i += step) hn::StoreU(at(i), kDF, out + 4 * i);
  if (i < pixels) storeFirst(at(i), out + 4 * i);
}

void resampleLineNow(const AffineLine& line, size_t pixels, const float* matrix, float* out) {
  withColors(matrix, line.isOpaque, [&](auto colors) {
    resampleLineBy<decltype(colors)::value>(line, pixels, matrix, out);
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
