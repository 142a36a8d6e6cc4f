// Arithmetic on rows of floats.

#include "platform/image/kernels/KernelTargets.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "platform/image/kernels/PixelKernels.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include <algorithm>
#include <cmath>

#include "platform/image/kernels/Kernels.h"

HWY_BEFORE_NAMESPACE();
namespace kestrel::kernels::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

const hn::ScalableTag<float> kManyPixels;
const hn::FixedTag<float, 4> kOnePixel;

/// Calls `step(d, i)` for as many pixels at a time as a vector holds, then for each of the rest;
/// `i` is the index of the first value.
template <typename Step>
HWY_INLINE void forPixels(size_t count, const Step& step) {
  const size_t lanes = hn::Lanes(kManyPixels);
  size_t i = 0;
  for (; i + lanes <= 4 * count; i += lanes) step(kManyPixels, i);
  for (; i < 4 * count; i += 4) step(kOnePixel, i);
}

/// The same for values that are not pixels.
template <typename Step>
HWY_INLINE void forValues(size_t count, const Step& step) {
  const size_t lanes = hn::Lanes(kManyPixels);
  size_t i = 0;
  for (; i + lanes <= count; i += lanes) step(kManyPixels, i);
  for (; i < count; ++i) step(hn::FixedTag<float, 1>(), i);
}

template <typename D>
HWY_INLINE hn::Mask<D> alphaLanes(D d) {
  const hn::Repartition<uint64_t, D> d64;
  alignas(16) static constexpr uint64_t kAlpha[2] = {0, 0xFFFFFFFF00000000ull};
  return hn::MaskFromVec(hn::BitCast(d, hn::LoadDup128(d64, kAlpha)));
}

void scalePixelsNow(float* pixels, size_t count, const float* factors) {
  for (size_t i = 0; i < count; ++i)
    hn::StoreU(hn::Mul(hn::LoadU(kOnePixel, pixels + 4 * i), hn::Set(kOnePixel, factors[i])),
               kOnePixel, pixels + 4 * i);
}

void layOverNow(float* pixels, const float* front, size_t count) {
  forPixels(count, [&](auto d, size_t i) HWY_ATTR {
    const auto above = hn::LoadU(d, front + i);
    const auto rest = hn::Sub(hn::Set(d, 1.0f), hn::Broadcast<3>(above));
    hn::StoreU(hn::MulAdd(hn::LoadU(d, pixels + i), rest, above), d, pixels + i);
  });
}

void layOverColorNow(float* pixels, size_t count, const float* color) {
  forPixels(count, [&](auto d, size_t i) HWY_ATTR {
    const auto above = hn::LoadU(d, pixels + i);
    const auto rest = hn::Sub(hn::Set(d, 1.0f), hn::Broadcast<3>(above));
    hn::StoreU(hn::MulAdd(hn::LoadDup128(d, color), rest, above), d, pixels + i);
  });
}

void keepInsideNow(float* pixels, const float* mask, size_t count) {
  forPixels(count, [&](auto d, size_t i) HWY_ATTR {
    const auto kept = hn::Broadcast<3>(hn::LoadU(d, mask + i));
    hn::StoreU(hn::Mul(hn::LoadU(d, pixels + i), kept), d, pixels + i);
  });
}

void widenSamplesNow(const uint16_t* samples, int shift, int most, int up, size_t count,
                     int16_t* out) {
  const hn::ScalableTag<uint16_t> d;
  const hn::Rebind<int16_t, decltype(d)> d16;
  const auto last = hn::Set(d, static_cast<uint16_t>(most));
  const size_t lanes = hn::Lanes(d);
  size_t i = 0;
  for (; i + lanes <= count; i += lanes) {
    const auto sample = hn::Min(hn::ShiftRightSame(hn::LoadU(d, samples + i), shift), last);
    hn::StoreU(hn::BitCast(d16, hn::ShiftLeftSame(sample, up)), d16, out + i);
  }
  for (; i < count; ++i)
    out[i] = static_cast<int16_t>((samples[i] >> shift < most ? samples[i] >> shift : most) << up);
}

void fillPixelsNow(float* pixels, size_t count, const float* color) {
  forPixels(count, [&](auto d, size_t i)
                       HWY_ATTR { hn::StoreU(hn::LoadDup128(d, color), d, pixels + i); });
}

/// Added to a float this makes its last bits count whole numbers.
constexpr float kWholeNumbers = 12582912.0f;

/// Rounds values from 0 to 255 to bytes: in a float this large the last bits count whole numbers.
template <typename D>
HWY_INLINE hn::Vec<hn::Rebind<uint32_t, D>> rounded(D d, hn::Vec<D> value) {
  const hn::Rebind<uint32_t, D> du;
  const auto bits = hn::BitCast(du, hn::Add(value, hn::Set(d, kWholeNumbers)));
  return hn::And(bits, hn::Set(du, 0xFFu));
}

template <typename D>
HWY_INLINE void storeBytes(D /*d*/, hn::Vec<hn::Rebind<uint32_t, D>> value, uint8_t* out) {
  const hn::Rebind<uint8_t, D> d8;
  hn::StoreU(hn::U8FromU32(value), d8, out);
}

/// 255 v, rounded once.
template <typename D>
HWY_INLINE hn::Vec<D> wholeSteps(D d, hn::Vec<D> v) {
  const auto wholes = hn::Set(d, kWholeNumbers);
  return hn::Sub(hn::MulAdd(v, hn::Set(d, 255.0f), wholes), wholes);
}

/// Two vectors of pixels at a time.
void packOpaque(const float* pixels, size_t count, uint8_t* out) {
  const hn::Rebind<int32_t, decltype(kManyPixels)> di;
  const hn::Repartition<int16_t, decltype(kManyPixels)> d16;
  const hn::Rebind<uint8_t, decltype(d16)> d8;
  const hn::Repartition<uint32_t, decltype(d8)> dPixels;
  const auto full = hn::Set(kManyPixels, 255.0f);
  const auto wholes = hn::Set(kManyPixels, kWholeNumbers);
  const auto wholeBits = hn::BitCast(di, wholes);
  const auto alpha = hn::Set(dPixels, 0xFF000000u);
  const auto numbers = [&](size_t i) HWY_ATTR {
    const auto value = hn::MulAdd(hn::LoadU(kManyPixels, pixels + i), full, wholes);
    return hn::Sub(hn::BitCast(di, value), wholeBits);
  };
  // Narrowing takes blocks of the two in turn.
  alignas(32) static constexpr int32_t kOrders[3][8] = {
      {0, 1}, {0, 2, 1, 3}, {0, 2, 4, 6, 1, 3, 5, 7}};
  const size_t lanes = hn::Lanes(kManyPixels);
  const auto order = hn::SetTableIndices(dPixels, kOrders[lanes / 8]);
  const auto pack = [&](size_t i) HWY_ATTR {
    const auto both = hn::ReorderDemote2To(d16, numbers(i), numbers(i + lanes));
    const auto bytes = hn::BitCast(dPixels, hn::DemoteTo(d8, both));
    hn::StoreU(hn::BitCast(d8, hn::Or(hn::TableLookupLanes(bytes, order), alpha)), d8, out + i);
  };
  const size_t values = 4 * count;
  size_t i = 0;
  for (; i + 2 * lanes <= values; i += 2 * lanes) pack(i);
  if (i < values && values >= 2 * lanes) return pack(values - 2 * lanes);
  const hn::FixedTag<float, 1> dOne;
  for (; i < values; ++i) {
    const float value = hn::GetLane(wholeSteps(dOne, hn::Set(dOne, pixels[i])));
    out[i] = i % 4 == 3 ? 255 : static_cast<uint8_t>(std::clamp(value, 0.0f, 255.0f));
  }
}

void packStraight(const float* pixels, size_t count, uint8_t* out) {
  forPixels(count, [&](auto d, size_t i) HWY_ATTR {
    const auto full = hn::Set(d, 255.0f);
    const auto v = hn::LoadU(d, pixels + i);
    const auto alpha = hn::Broadcast<3>(v);
    // Below half a step of alpha there is no colour to tell.
    const auto isVisible = hn::Ge(hn::Mul(alpha, full), hn::Set(d, 0.5f));
    const auto color = hn::Div(hn::Mul(v, full), hn::Max(alpha, hn::Set(d, 1e-6f)));
    // What is opaque comes out as it does where all is.
    const auto opaque = wholeSteps(d, v);
    const auto colors = hn::IfThenElse(hn::Eq(alpha, hn::Set(d, 1.0f)), opaque, color);
    const auto straight = hn::IfThenElse(alphaLanes(d), hn::Mul(v, full), colors);
    const auto value = hn::IfThenElseZero(isVisible, straight);
    storeBytes(d, rounded(d, hn::Min(hn::Max(value, hn::Zero(d)), full)), out + i);
  });
}

void packRgbaNow(const float* pixels, size_t count, bool isOpaque, uint8_t* out) {
  if (isOpaque) return packOpaque(pixels, count, out);
  packStraight(pixels, count, out);
}

void pack16Now(const float* pixels, size_t count, int16_t* out) {
  forPixels(count, [&](auto d, size_t i) HWY_ATTR {
    const hn::Rebind<int16_t, decltype(d)> d16;
    const auto one = hn::Set(d, static_cast<float>(kOne));
    const auto value = hn::Mul(hn::LoadU(d, pixels + i), one);
    const auto limited = hn::Max(hn::Min(value, one), hn::Zero(d));
    hn::StoreU(hn::DemoteTo(d16, hn::NearestInt(limited)), d16, out + i);
  });
}

void splitPlanesNow(const float* pixels, size_t count, const float* m, float* y, float* cb,
                    float* cr) {
  const auto split = [&](auto d, size_t i) HWY_ATTR {
    auto r = hn::Zero(d), g = r, b = r, a = r;
    hn::LoadInterleaved4(d, pixels + 4 * i, r, g, b, a);
    const auto limited = [&](auto v) HWY_ATTR {
      return hn::Max(hn::Min(v, hn::Set(d, 1.0f)), hn::Zero(d));
    };
    r = limited(r);
    g = limited(g);
    b = limited(b);
    float* const planes[3] = {y, cb, cr};
    for (int p = 0; p < 3; ++p) {
      auto sum = hn::Set(d, m[4 * p + 3]);
      sum = hn::MulAdd(r, hn::Set(d, m[4 * p]), sum);
      sum = hn::MulAdd(g, hn::Set(d, m[4 * p + 1]), sum);
      sum = hn::MulAdd(b, hn::Set(d, m[4 * p + 2]), sum);
      hn::StoreU(sum, d, planes[p] + i);
    }
  };
  const size_t lanes = hn::Lanes(kManyPixels);
  size_t i = 0;
  for (; i + lanes <= count; i += lanes) split(kManyPixels, i);
  for (; i < count; ++i) split(hn::FixedTag<float, 1>(), i);
}

void packSamplesNow(const float* values, size_t count, uint8_t* out) {
  forValues(count, [&](auto d, size_t i) HWY_ATTR {
    const auto value = hn::Max(hn::LoadU(d, values + i), hn::Zero(d));
    storeBytes(d, rounded(d, hn::Min(value, hn::Set(d, 255.0f))), out + i);
  });
}

void addValuesNow(float* sums, const float* values, size_t count) {
  forValues(count, [&](auto d, size_t i) HWY_ATTR {
    hn::StoreU(hn::Add(hn::LoadU(d, sums + i), hn::LoadU(d, values + i)), d, sums + i);
  });
}

void halveRowNow(const float* values, float scale, size_t count, float* out) {
  forValues(count, [&](auto d, size_t i) HWY_ATTR {
    auto farBefore = hn::Zero(d), before = farBefore, here = before, after = before;
    auto farAfter = before, unused = before;
    hn::LoadInterleaved2(d, values + 2 * i, farBefore, before);
    hn::LoadInterleaved2(d, values + 2 * i + 2, here, after);
    hn::LoadInterleaved2(d, values + 2 * i + 4, farAfter, unused);
    const auto far = hn::Mul(hn::Add(farBefore, farAfter), hn::Set(d, -0.125f * scale));
    const auto near = hn::MulAdd(hn::Add(before, after), hn::Set(d, 0.25f * scale), far);
    hn::StoreU(hn::MulAdd(here, hn::Set(d, 0.75f * scale), near), d, out + i);
  });
}

void coverLineNow(const CoverLine& line, size_t count, float* out) {
  const auto cover = [&](auto d, auto index, size_t i) HWY_ATTR {
    const auto share = [&](const CoverLine::Axis& axis) HWY_ATTR {
      const auto step = hn::Set(d, axis.step);
      const auto low = hn::MulAdd(index, step, hn::Set(d, axis.low));
      const auto high = hn::NegMulAdd(index, step, hn::Set(d, axis.high));
      return hn::Max(hn::Min(hn::Min(low, high), hn::Set(d, axis.most)), hn::Zero(d));
    };
    hn::StoreU(hn::Mul(share(line.u), share(line.v)), d, out + i);
  };
  const hn::FixedTag<float, 1> dOne;
  const size_t lanes = hn::Lanes(kManyPixels);
  auto index = hn::Iota(kManyPixels, line.index);
  const auto step = hn::Set(kManyPixels, static_cast<float>(lanes));
  size_t i = 0;
  for (; i + lanes <= count; i += lanes, index = hn::Add(index, step)) cover(kManyPixels, index, i);
  for (; i < count; ++i) cover(dOne, hn::Set(dOne, line.index + static_cast<float>(i)), i);
}

}  // namespace
}  // namespace kestrel::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kestrel::kernels {

HWY_EXPORT(scalePixelsNow);
HWY_EXPORT(layOverNow);
HWY_EXPORT(layOverColorNow);
HWY_EXPORT(keepInsideNow);
HWY_EXPORT(fillPixelsNow);
HWY_EXPORT(widenSamplesNow);
HWY_EXPORT(packRgbaNow);
HWY_EXPORT(pack16Now);
HWY_EXPORT(splitPlanesNow);
HWY_EXPORT(packSamplesNow);
HWY_EXPORT(addValuesNow);
HWY_EXPORT(halveRowNow);
HWY_EXPORT(coverLineNow);

void addValues(float* sums, const float* values, size_t count) {
  HWY_DYNAMIC_DISPATCH(addValuesNow)(sums, values, count);
}

void halveRow(const float* values, float scale, size_t count, float* out) {
  HWY_DYNAMIC_DISPATCH(halveRowNow)(values, scale, count, out);
}

void coverLine(const CoverLine& line, size_t count, float* out) {
  HWY_DYNAMIC_DISPATCH(coverLineNow)(line, count, out);
}

void packSamples(const float* values, size_t count, uint8_t* out) {
  HWY_DYNAMIC_DISPATCH(packSamplesNow)(values, count, out);
}

void scalePixels(float* pixels, size_t count, const float* factors) {
  HWY_DYNAMIC_DISPATCH(scalePixelsNow)(pixels, count, factors);
}

void layOver(float* pixels, const float* front, size_t count) {
  HWY_DYNAMIC_DISPATCH(layOverNow)(pixels, front, count);
}

void layOverColor(float* pixels, size_t count, const float* color) {
  HWY_DYNAMIC_DISPATCH(layOverColorNow)(pixels, count, color);
}

void keepInside(float* pixels, const float* mask, size_t count) {
  HWY_DYNAMIC_DISPATCH(keepInsideNow)(pixels, mask, count);
}

void widenSamples(const uint16_t* samples, int shift, int most, int up, size_t count,
                  int16_t* out) {
  HWY_DYNAMIC_DISPATCH(widenSamplesNow)(samples, shift, most, up, count, out);
}

void fillPixels(float* pixels, size_t count, const float* color) {
  HWY_DYNAMIC_DISPATCH(fillPixelsNow)(pixels, count, color);
}

void packRgba(const float* pixels, size_t count, bool isOpaque, uint8_t* out) {
  HWY_DYNAMIC_DISPATCH(packRgbaNow)(pixels, count, isOpaque, out);
}

void pack16(const float* pixels, size_t count, int16_t* out) {
  HWY_DYNAMIC_DISPATCH(pack16Now)(pixels, count, out);
}

void splitPlanes(const float* pixels, size_t count, const float* matrix, float* y, float* cb,
                 float* cr) {
  HWY_DYNAMIC_DISPATCH(splitPlanesNow)(pixels, count, matrix, y, cb, cr);
}

}  // namespace kestrel::kernels
#endif  // HWY_ONCE
