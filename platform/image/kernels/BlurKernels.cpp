// Filters along rows and columns of floats.

#include "platform/image/kernels/KernelTargets.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "platform/image/kernels/BlurKernels.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include <algorithm>

#include "platform/image/kernels/FilterKernels.h"

HWY_BEFORE_NAMESPACE();
namespace kestrel::kernels::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

const hn::ScalableTag<float> kMany;
const hn::FixedTag<float, 4> kOnePixel;
/// Wider vectors would span more pixels than a cell has.
const hn::CappedTag<float, 8> kFewPixels;

void sumRowsNow(const float* const* rows, const float* weights, int count, size_t values,
                float* out) {
  const size_t lanes = hn::Lanes(kMany);
  size_t i = 0;
  for (; i + 4 * lanes <= values; i += 4 * lanes) {
    const auto first = hn::Set(kMany, weights[0]);
    auto a = hn::Mul(first, hn::LoadU(kMany, rows[0] + i));
    auto b = hn::Mul(first, hn::LoadU(kMany, rows[0] + i + lanes));
    auto c = hn::Mul(first, hn::LoadU(kMany, rows[0] + i + 2 * lanes));
    auto d = hn::Mul(first, hn::LoadU(kMany, rows[0] + i + 3 * lanes));
    for (int t = 1; t < count; ++t) {
      const auto weight = hn::Set(kMany, weights[t]);
      const float* const row = rows[t] + i;
      a = hn::MulAdd(weight, hn::LoadU(kMany, row), a);
      b = hn::MulAdd(weight, hn::LoadU(kMany, row + lanes), b);
      c = hn::MulAdd(weight, hn::LoadU(kMany, row + 2 * lanes), c);
      d = hn::MulAdd(weight, hn::LoadU(kMany, row + 3 * lanes), d);
    }
    hn::StoreU(a, kMany, out + i);
    hn::StoreU(b, kMany, out + i + lanes);
    hn::StoreU(c, kMany, out + i + 2 * lanes);
    hn::StoreU(d, kMany, out + i + 3 * lanes);
  }
  const auto sumAt = [&](auto d, size_t at) HWY_ATTR {
    auto sum = hn::Mul(hn::Set(d, weights[0]), hn::LoadU(d, rows[0] + at));
    for (int t = 1; t < count; ++t)
      sum = hn::MulAdd(hn::Set(d, weights[t]), hn::LoadU(d, rows[t] + at), sum);
    hn::StoreU(sum, d, out + at);
  };
  for (; i + lanes <= values; i += lanes) sumAt(kMany, i);
  if (i == values) return;
  // The last vector overlaps the one before it; where there is none, values come one by one.
  if (values >= lanes) return sumAt(kMany, values - lanes);
  for (; i < values; ++i) sumAt(hn::FixedTag<float, 1>(), i);
}

void reduceRowNow(const float* row, const float* weights, int taps, int side, size_t cells,
                  float* out) {
  for (size_t k = 0; k < cells; ++k, row += 4 * static_cast<ptrdiff_t>(side)) {
    auto even = hn::Mul(hn::Set(kOnePixel, weights[0]), hn::LoadU(kOnePixel, row));
    auto odd = hn::Zero(kOnePixel);
    int t = 1;
    for (; t + 2 <= taps; t += 2) {
      odd = hn::MulAdd(hn::Set(kOnePixel, weights[t]), hn::LoadU(kOnePixel, row + 4 * t), odd);
      even = hn::MulAdd(hn::Set(kOnePixel, weights[t + 1]), hn::LoadU(kOnePixel, row + 4 * t + 4),
                        even);
    }
    if (t < taps)
      odd = hn::MulAdd(hn::Set(kOnePixel, weights[t]), hn::LoadU(kOnePixel, row + 4 * t), odd);
    hn::StoreU(hn::Add(even, odd), kOnePixel, out + 4 * k);
  }
}

void expandRowNow(const float* cells, const float* weights, int side, int phase, size_t pixels,
                  float* out) {
  const auto step = static_cast<int>(hn::Lanes(kFewPixels) / 4);
  const ptrdiff_t stride = 4 * static_cast<ptrdiff_t>(side);
  while (pixels > 0) {
    const int end =
        static_cast<int>(std::min<size_t>(static_cast<size_t>(side - phase), pixels)) + phase;
    const auto fill = [&](auto d, int p) HWY_ATTR {
      const float* const weight = weights + 4 * static_cast<ptrdiff_t>(p);
      auto sum = hn::Mul(hn::LoadDup128(d, cells), hn::LoadU(d, weight));
      sum = hn::MulAdd(hn::LoadDup128(d, cells + 4), hn::LoadU(d, weight + stride), sum);
      sum = hn::MulAdd(hn::LoadDup128(d, cells + 8), hn::LoadU(d, weight + 2 * stride), sum);
      hn::StoreU(sum, d, out + 4 * static_cast<ptrdiff_t>(p - phase));
    };
    int p = phase;
    for (; p + step <= end; p += step) fill(kFewPixels, p);
    for (; p < end; ++p) fill(kOnePixel, p);
    out += 4 * static_cast<ptrdiff_t>(end - phase);
    pixels -= static_cast<size_t>(end - phase);
    cells += 4;
    phase = 0;
  }
}

}  // namespace
}  // namespace kestrel::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kestrel::kernels {

HWY_EXPORT(sumRowsNow);
HWY_EXPORT(reduceRowNow);
HWY_EXPORT(expandRowNow);

void sumRows(const float* const* rows, const float* weights, int count, size_t values, float* out) {
  HWY_DYNAMIC_DISPATCH(sumRowsNow)(rows, weights, count, values, out);
}

void reduceRow(const float* row, const float* weights, int taps, int side, size_t cells,
               float* out) {
  HWY_DYNAMIC_DISPATCH(reduceRowNow)(row, weights, taps, side, cells, out);
}

void expandRow(const float* cells, const float* weights, int side, int phase, size_t pixels,
               float* out) {
  HWY_DYNAMIC_DISPATCH(expandRowNow)(cells, weights, side, phase, pixels, out);
}

}  // namespace kestrel::kernels
#endif  // HWY_ONCE
