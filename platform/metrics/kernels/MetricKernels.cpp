#include "platform/image/kernels/KernelTargets.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "platform/metrics/kernels/MetricKernels.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "platform/metrics/kernels/MetricKernels.h"

HWY_BEFORE_NAMESPACE();
namespace kestrel::kernels::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

const hn::CappedTag<float, kRowUnit> kF;
const hn::Rebind<int32_t, decltype(kF)> kI;
using V = hn::Vec<decltype(kF)>;

HWY_INLINE size_t lanes() { return hn::Lanes(kF); }

/// 1 over the cube root of positive numbers. Minus a third of the bits is a guess within 3.5 %,
/// each step of Newton's takes the error to twice its square.
HWY_INLINE V inverseCubeRoot(V x) {
  const auto bits = hn::ConvertTo(kF, hn::BitCast(kI, x));
  // 4/3 of the bits of 1, less what balances the errors between powers of 2: found by trying.
  constexpr float kGuess = 1419920000;
  const auto guess = hn::NegMulAdd(bits, hn::Set(kF, 1.0F / 3), hn::Set(kF, kGuess));
  V root = hn::BitCast(kF, hn::ConvertTo(kI, guess));
  const V third = hn::Mul(x, hn::Set(kF, 1.0F / 3));
  for (int step = 0; step < 3; ++step) {
    const V cube = hn::Mul(hn::Mul(root, root), root);
    root = hn::Mul(root, hn::NegMulAdd(third, cube, hn::Set(kF, 4.0F / 3)));
  }
  return root;
}

HWY_INLINE V cubeRoot(V x) {
  const V root = inverseCubeRoot(x);
  return hn::Mul(hn::Mul(x, root), root);
}

/// What cones answer to light, and the light that they answer to in the dark, as JPEG XL's XYB has
/// them (ISO/IEC 18181-1, opsin absorbance).
constexpr float kCones[3][3] = {{0.3F, 0.622F, 0.078F},
                                {0.23F, 0.692F, 0.078F},
                                {0.24342268924547819F, 0.20476744424496821F, 0.55180986650955360F}};
constexpr float kDark = 0.0037930732552754493F;
constexpr float kDarkRoot = 0.155954200549248620F;

void lookUpPixelsTarget(const uint8_t* pixels, const float* table, size_t count,
                        float* const rgb[3]) {
  const auto byte = hn::Set(kI, 255);
  size_t i = 0;
  for (; i + lanes() <= count; i += lanes()) {
    const auto four = hn::LoadU(kI, reinterpret_cast<const int32_t*>(pixels + 4 * i));
    hn::Store(hn::GatherIndex(kF, table, hn::And(four, byte)), kF, rgb[0] + i);
    hn::Store(hn::GatherIndex(kF, table, hn::And(hn::ShiftRight<8>(four), byte)), kF, rgb[1] + i);
    hn::Store(hn::GatherIndex(kF, table, hn::And(hn::ShiftRight<16>(four), byte)), kF, rgb[2] + i);
  }
  for (; i < count; ++i)
    for (size_t c = 0; c < 3; ++c) rgb[c][i] = table[pixels[4 * i + c]];
}

void toXybTarget(const float* const rgb[3], size_t count, float* const xyb[3]) {
  const V dark = hn::Set(kF, kDark);
  for (size_t i = 0; i < count; i += lanes()) {
    const V r = hn::Load(kF, rgb[0] + i);
    const V g = hn::Load(kF, rgb[1] + i);
    const V b = hn::Load(kF, rgb[2] + i);
    V cones[3];
    for (int c = 0; c < 3; ++c) {
      const V light = hn::MulAdd(
          hn::Set(kF, kCones[c][0]), r,
          hn::MulAdd(hn::Set(kF, kCones[c][1]), g, hn::MulAdd(hn::Set(kF, kCones[c][2]), b, dark)));
      // Below any light that is: the root of 0 has no bits to guess from.
      cones[c] = cubeRoot(hn::Max(light, hn::Set(kF, 1e-30F)));
    }
    // The root of the dark is taken from each; from the difference it goes by itself.
    const V x = hn::Sub(cones[0], cones[1]);
    const V y = hn::MulAdd(hn::Add(cones[0], cones[1]), hn::Set(kF, 0.5F), hn::Set(kF, -kDarkRoot));
    const V blue = hn::Sub(cones[2], hn::Set(kF, kDarkRoot));
    hn::Store(hn::MulAdd(x, hn::Set(kF, 7.0F), hn::Set(kF, 0.42F)), kF, xyb[0] + i);
    hn::Store(hn::Add(y, hn::Set(kF, 0.01F)), kF, xyb[1] + i);
    hn::Store(hn::Add(hn::Sub(blue, y), hn::Set(kF, 0.55F)), kF, xyb[2] + i);
  }
}

void halveTarget(const float* upper, const float* lower, size_t count, float* out) {
  const V quarter = hn::Set(kF, 0.25F);
  for (size_t i = 0; i < count; i += lanes()) {
    V even;
    V odd;
    V evenBelow;
    V oddBelow;
    hn::LoadInterleaved2(kF, upper + 2 * i, even, odd);
    hn::LoadInterleaved2(kF, lower + 2 * i, evenBelow, oddBelow);
    hn::Store(hn::Mul(hn::Add(hn::Add(even, odd), hn::Add(evenBelow, oddBelow)), quarter), kF,
              out + i);
  }
}

void compareRowsTarget(const float* a, const float* b, size_t count, float* differences,
                       float* squares, float* sums) {
  for (size_t i = 0; i < count; i += lanes()) {
    const V one = hn::Load(kF, a + i);
    const V two = hn::Load(kF, b + i);
    const V difference = hn::Sub(two, one);
    hn::Store(difference, kF, differences + i);
    if (!squares || !sums) continue;
    hn::Store(hn::Mul(difference, difference), kF, squares + i);
    hn::Store(hn::MulAdd(one, one, hn::Mul(two, two)), kF, sums + i);
  }
}

void blurAcrossTarget(const float* row, const BlurWeights& weights, size_t count, float* out) {
  V weight[kBlurReach + 1];
  for (int k = 0; k <= kBlurReach; ++k) weight[k] = hn::Set(kF, weights[static_cast<size_t>(k)]);
  for (size_t i = 0; i < count; i += lanes()) {
    V sum = hn::Mul(hn::Load(kF, row + i), weight[0]);
    for (int k = 1; k <= kBlurReach; ++k)
      sum = hn::MulAdd(hn::Add(hn::LoadU(kF, row + i - k), hn::LoadU(kF, row + i + k)), weight[k],
                       sum);
    hn::Store(sum, kF, out + i);
  }
}

void blurDownTarget(const float* const* rows, const BlurWeights& weights, size_t begin, size_t end,
                    float* const* out) {
  V weight[kBlurReach + 1];
  for (int k = 0; k <= kBlurReach; ++k) weight[k] = hn::Set(kF, weights[static_cast<size_t>(k)]);
  for (size_t x = begin; x < end; x += lanes()) {
    V row[2 * kBlurReach + kBlurRows];
    for (int r = 0; r < 2 * kBlurReach + kBlurRows; ++r) row[r] = hn::Load(kF, rows[r] + x);
    for (int r = 0; r < kBlurRows; ++r) {
      V sum = hn::Mul(row[r + kBlurReach], weight[0]);
      for (int k = 1; k <= kBlurReach; ++k)
        sum = hn::MulAdd(hn::Add(row[r + kBlurReach - k], row[r + kBlurReach + k]), weight[k], sum);
      hn::Store(sum, kF, out[r] + (x - begin));
    }
  }
}

/// Adds errors up lane by lane, and their fourth powers.
struct Sums {
  V first;
  V fourth;

  HWY_INLINE void add(V error) {
    first = hn::Add(first, error);
    const V square = hn::Mul(error, error);
    fourth = hn::MulAdd(square, square, fourth);
  }

  HWY_INLINE ErrorSums total() const {
    return {hn::GetLane(hn::SumOfLanes(kF, first)), hn::GetLane(hn::SumOfLanes(kF, fourth))};
  }
};

/// Calls `add(i, keep)` for each vector of a row; `keep` makes the lanes behind its end 0.
template <typename Add>
HWY_INLINE void forEachVector(size_t count, const Add& add) {
  size_t i = 0;
  for (; i + lanes() <= count; i += lanes()) add(i, [](V v) HWY_ATTR { return v; });
  if (i == count) return;
  const auto mask = hn::FirstN(kF, count - i);
  add(i, [mask](V v) HWY_ATTR { return hn::IfThenElseZero(mask, v); });
}

ErrorSums structureSumsTarget(const float* mean, const float* difference, const float* square,
                              const float* sum, size_t count) {
  Sums sums{hn::Zero(kF), hn::Zero(kF)};
  forEachVector(count, [&](size_t i, const auto& keep) HWY_ATTR {
    const V one = hn::Load(kF, mean + i);
    const V apart = hn::Load(kF, difference + i);
    const V two = hn::Add(one, apart);
    const V apart2 = hn::Mul(apart, apart);
    const V variances =
        hn::Add(hn::NegMulAdd(two, two, hn::NegMulAdd(one, one, hn::Load(kF, sum + i))),
                hn::Set(kF, 0.0009F));
    const V variance = hn::Sub(hn::Load(kF, square + i), apart2);
    // 1 - (1 - m²) (1 - v / V), without the 1 in which small errors would drown.
    const V ratio = hn::Div(variance, variances);
    const V error = hn::Add(apart2, hn::NegMulAdd(apart2, ratio, ratio));
    sums.add(keep(hn::Max(error, hn::Zero(kF))));
  });
  return sums.total();
}

EdgeSums edgeSumsTarget(const float* a, const float* b, const float* mean, const float* difference,
                        size_t count) {
  const V zero = hn::Zero(kF);
  Sums more{zero, zero};
  Sums less{zero, zero};
  forEachVector(count, [&](size_t i, const auto& keep) HWY_ATTR {
    const V one = hn::Load(kF, mean + i);
    const V two = hn::Add(one, hn::Load(kF, difference + i));
    const V edge = hn::AbsDiff(hn::Load(kF, a + i), one);
    const V other = hn::AbsDiff(hn::Load(kF, b + i), two);
    const V error = keep(hn::Div(hn::Sub(other, edge), hn::Add(edge, hn::Set(kF, 1.0F))));
    more.add(hn::Max(error, zero));
    less.add(hn::Max(hn::Neg(error), zero));
  });
  return {more.total(), less.total()};
}

}  // namespace
}  // namespace kestrel::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

namespace kestrel::kernels {

HWY_EXPORT(lookUpPixelsTarget);
HWY_EXPORT(toXybTarget);
HWY_EXPORT(halveTarget);
HWY_EXPORT(compareRowsTarget);
HWY_EXPORT(blurAcrossTarget);
HWY_EXPORT(blurDownTarget);
HWY_EXPORT(structureSumsTarget);
HWY_EXPORT(edgeSumsTarget);

void lookUpPixels(const uint8_t* pixels, const float* table, size_t count, float* const rgb[3]) {
  HWY_DYNAMIC_DISPATCH(lookUpPixelsTarget)(pixels, table, count, rgb);
}

void toXyb(const float* const rgb[3], size_t count, float* const xyb[3]) {
  HWY_DYNAMIC_DISPATCH(toXybTarget)(rgb, count, xyb);
}

void halve(const float* upper, const float* lower, size_t count, float* out) {
  HWY_DYNAMIC_DISPATCH(halveTarget)(upper, lower, count, out);
}

void compareRows(const float* a, const float* b, size_t count, float* differences, float* squares,
                 float* sums) {
  HWY_DYNAMIC_DISPATCH(compareRowsTarget)(a, b, count, differences, squares, sums);
}

void blurAcross(const float* row, const BlurWeights& weights, size_t count, float* out) {
  HWY_DYNAMIC_DISPATCH(blurAcrossTarget)(row, weights, count, out);
}

void blurDown(const float* const* rows, const BlurWeights& weights, size_t begin, size_t end,
              float* const* out) {
  HWY_DYNAMIC_DISPATCH(blurDownTarget)(rows, weights, begin, end, out);
}

ErrorSums structureSums(const float* mean, const float* difference, const float* square,
                        const float* sum, size_t count) {
  return HWY_DYNAMIC_DISPATCH(structureSumsTarget)(mean, difference, square, sum, count);
}

EdgeSums edgeSums(const float* a, const float* b, const float* mean, const float* difference,
                  size_t count) {
  return HWY_DYNAMIC_DISPATCH(edgeSumsTarget)(a, b, mean, difference, count);
}

}  // namespace kestrel::kernels

#endif
