// The arithmetic of curves, bloom, gloom, sharpening, light, line screen and mosaics.

#include "platform/image/kernels/KernelTargets.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "platform/image/kernels/StylizeKernels.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "platform/image/kernels/FilterKernels.h"
#include "platform/image/values/ColorMatrix.h"

HWY_BEFORE_NAMESPACE();
namespace kestrel::kernels::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

const hn::ScalableTag<float> kMany;
const hn::FixedTag<float, 4> kOnePixel;

/// Calls `step(d, i)` for as many pixels at a time as a vector has lanes, then for each of the
/// rest; `i` is the index of the first pixel.
template <typename Step>
HWY_INLINE void forPlanar(size_t count, const Step& step) {
  const size_t lanes = hn::Lanes(kMany);
  size_t i = 0;
  for (; i + lanes <= count; i += lanes) step(kMany, i);
  for (; i < count; ++i) step(hn::FixedTag<float, 1>(), i);
}

/// Calls `step(d, i)` for the pixels as they lie in memory; `i` is the index of the first value.
template <typename Step>
HWY_INLINE void forPixels(size_t count, const Step& step) {
  const size_t lanes = hn::Lanes(kMany);
  size_t i = 0;
  for (; i + lanes <= 4 * count; i += lanes) step(kMany, i);
  for (; i < 4 * count; i += 4) step(kOnePixel, i);
}

/// Pixels with a vector for each component.
template <typename D>
struct Planar {
  HWY_INLINE Planar(D d, const float* pixels) : r(hn::Zero(d)), g(r), b(r), a(r) {
    hn::LoadInterleaved4(d, pixels, r, g, b, a);
  }

  HWY_INLINE hn::Vec<D> luminance(D d) const {
    auto sum = hn::Mul(r, hn::Set(d, static_cast<float>(kLuminance[0])));
    sum = hn::MulAdd(g, hn::Set(d, static_cast<float>(kLuminance[1])), sum);
    return hn::MulAdd(b, hn::Set(d, static_cast<float>(kLuminance[2])), sum);
  }

  hn::Vec<D> r, g, b, a;
};

template <typename D>
HWY_INLINE hn::Mask<D> alphaLanes(D d) {
  const hn::Repartition<uint64_t, D> d64;
  alignas(16) static constexpr uint64_t kAlpha[2] = {0, 0xFFFFFFFF00000000ull};
  return hn::MaskFromVec(hn::BitCast(d, hn::LoadDup128(d64, kAlpha)));
}

/// What depends on the place is computed for this many pixels at a time.
constexpr size_t kPlaces = 256;
/// Room beyond them for vectors that are loaded for their first values only.
constexpr size_t kSpare = HWY_MAX_BYTES / sizeof(float);

/// The values for the pixels that one vector holds, each four times over.
template <typename D>
HWY_INLINE hn::Vec<D> forEachChannel(D d, const float* values) {
  alignas(64) static constexpr int32_t kPixels[16] = {0, 0, 0, 0, 1, 1, 1, 1,
                                                      2, 2, 2, 2, 3, 3, 3, 3};
  static_assert(hn::MaxLanes(kMany) <= 16);
  return hn::TableLookupLanes(hn::LoadU(d, values), hn::SetTableIndices(d, kPixels));
}

template <typename D>
HWY_INLINE hn::Vec<D> limited(D d, hn::Vec<D> v, hn::Vec<D> most) {
  return hn::Max(hn::Min(v, most), hn::Zero(d));
}

void bloomPixelsNow(float* pixels, const float* blurred, size_t count, float intensity) {
  forPixels(count, [&](auto d, size_t i) HWY_ATTR {
    const auto v = hn::LoadU(d, pixels + i);
    const auto light = hn::Mul(hn::LoadU(d, blurred + i), hn::Set(d, intensity));
    // Of alpha nothing is left to add to.
    hn::StoreU(hn::MulAdd(light, hn::Sub(hn::Broadcast<3>(v), v), v), d, pixels + i);
  });
}

void gloomPixelsNow(float* pixels, const float* blurred, size_t count, float intensity) {
  forPixels(count, [&](auto d, size_t i) HWY_ATTR {
    const auto v = hn::LoadU(d, pixels + i);
    const auto around = hn::LoadU(d, blurred + i);
    const auto veiled = hn::MulAdd(hn::Sub(around, v), hn::Set(d, intensity / 4), v);
    const auto shade = hn::MulAdd(around, hn::Set(d, 2 * intensity), hn::Set(d, 1.0f));
    const auto shaded = hn::Min(hn::Div(veiled, shade), hn::Broadcast<3>(v));
    hn::StoreU(hn::IfThenElse(alphaLanes(d), v, shaded), d, pixels + i);
  });
}

template <bool kIsOpaque, bool kIsOfRoot>
void mapCurveBy(float* pixels, size_t count, const float* points) {
  forPixels(count, [&](auto d, size_t i) HWY_ATTR {
    const hn::Rebind<int32_t, decltype(d)> d32;
    const auto v = hn::LoadU(d, pixels + i);
    const auto alpha = hn::Broadcast<3>(v);
    auto at = v;
    // Where there is no alpha there is no colour.
    if constexpr (!kIsOpaque) at = hn::Div(v, hn::Max(alpha, hn::Set(d, 1e-9f)));
    at = limited(d, at, hn::Set(d, 1.0f));
    if constexpr (kIsOfRoot) at = hn::Sqrt(at);
    at = hn::Mul(at, hn::Set(d, static_cast<float>(kCurveSteps)));
    const auto step = hn::ConvertTo(d32, at);
    const auto part = hn::Sub(at, hn::ConvertTo(d, step));
    const auto low = hn::GatherIndex(d, points, step);
    const auto high = hn::GatherIndex(d, points + 1, step);
    auto mapped = hn::MulAdd(hn::Sub(high, low), part, low);
    if constexpr (!kIsOpaque) mapped = hn::Mul(mapped, alpha);
    hn::StoreU(hn::IfThenElse(alphaLanes(d), v, mapped), d, pixels + i);
  });
}

void mapCurveNow(float* pixels, size_t count, const Curve& curve, bool isOpaque) {
  if (curve.isOfRoot && isOpaque) return mapCurveBy<true, true>(pixels, count, curve.points);
  if (curve.isOfRoot) return mapCurveBy<false, true>(pixels, count, curve.points);
  if (isOpaque) return mapCurveBy<true, false>(pixels, count, curve.points);
  mapCurveBy<false, false>(pixels, count, curve.points);
}

void takeLuminanceNow(const float* pixels, size_t count, float* luminance) {
  forPlanar(count, [&](auto d, size_t i) HWY_ATTR {
    hn::StoreU(Planar(d, pixels + 4 * i).luminance(d), d, luminance + i);
  });
}

void takeLuminanceAndAlphaNow(const float* pixels, size_t count, float* values) {
  forPlanar(count, [&](auto d, size_t i) HWY_ATTR {
    const Planar v(d, pixels + 4 * i);
    hn::StoreInterleaved2(v.luminance(d), v.a, d, values + 2 * i);
  });
}

void takeEdgesNow(const float* values, const float* blurred, size_t count, float sharpness,
                  float* edges) {
  forPlanar(count, [&](auto d, size_t i) HWY_ATTR {
    auto luminance = hn::Zero(d), alpha = luminance, mean = luminance, around = luminance;
    hn::LoadInterleaved2(d, values + 2 * i, luminance, alpha);
    hn::LoadInterleaved2(d, blurred + 2 * i, mean, around);
    // Where there is no alpha around, there is none here.
    const auto expected = hn::Div(hn::Mul(mean, alpha), hn::Max(around, hn::Set(d, 1e-6f)));
    hn::StoreU(hn::Mul(hn::Sub(luminance, expected), hn::Set(d, sharpness)), d, edges + i);
  });
}

void addEdgesNow(const float* pixels, const float* edges, size_t count, float* out) {
  forPixels(count, [&](auto d, size_t i) HWY_ATTR {
    const auto v = hn::LoadU(d, pixels + i);
    const auto edge = hn::IfThenZeroElse(alphaLanes(d), forEachChannel(d, edges + i / 4));
    hn::StoreU(limited(d, hn::Add(v, edge), hn::Broadcast<3>(v)), d, out + i);
  });
}

/// 1 / √v, for v at least 1.
template <typename D>
HWY_INLINE hn::Vec<D> inverseRoot(D d, hn::Vec<D> v) {
  auto root = hn::ApproximateReciprocalSqrt(v);
  const auto half = hn::Mul(v, hn::Set(d, 0.5f));
  for (int step = 0; step < 2; ++step)
    root = hn::Mul(root, hn::NegMulAdd(hn::Mul(half, root), root, hn::Set(d, 1.5f)));
  return root;
}

void lightChunk(float* pixels, size_t begin, size_t count, const LightRow& light) {
  alignas(HWY_MAX_BYTES) float strengths[kPlaces + kSpare];
  const size_t lanes = hn::Lanes(kMany);
  const auto one = hn::Set(kMany, 1.0f);
  const auto first = hn::Iota(kMany, static_cast<float>(begin) + light.index);
  for (size_t i = 0; i < count; i += lanes) {
    const auto index = hn::Add(first, hn::Set(kMany, static_cast<float>(i)));
    const auto dx = hn::Add(index, hn::Set(kMany, light.dx));
    const auto dot = hn::MulAdd(dx, hn::Set(kMany, light.axis), hn::Set(kMany, light.along));
    const auto cosine =
        hn::Mul(dot, inverseRoot(kMany, hn::MulAdd(dx, dx, hn::Set(kMany, light.across))));
    const auto inside = hn::Sub(cosine, hn::Set(kMany, light.edge));
    const auto s = limited(kMany, hn::Mul(inside, hn::Set(kMany, light.scale)), one);
    const auto rest = hn::NegMulAdd(hn::Set(kMany, 2.0f), s, hn::Set(kMany, 3.0f));
    hn::Store(hn::Mul(hn::Mul(s, s), rest), kMany, strengths + i);
  }
  forPixels(count, [&](auto d, size_t i) HWY_ATTR {
    const auto v = hn::LoadU(d, pixels + i);
    const auto color = hn::LoadDup128(d, light.color);
    const auto lit = hn::Mul(hn::Mul(v, color), forEachChannel(d, strengths + i / 4));
    hn::StoreU(hn::IfThenElse(alphaLanes(d), v, hn::Min(lit, hn::Broadcast<3>(v))), d, pixels + i);
  });
}

void lightPixelsNow(float* pixels, size_t count, const LightRow& light) {
  for (size_t i = 0; i < count; i += kPlaces)
    lightChunk(pixels + 4 * i, i, HWY_MIN(kPlaces, count - i), light);
}

void screenChunk(float* pixels, size_t begin, size_t count, const LineRow& lines) {
  alignas(HWY_MAX_BYTES) float dark[kPlaces + kSpare];
  const size_t lanes = hn::Lanes(kMany);
  const auto one = hn::Set(kMany, 1.0f);
  const auto first = hn::Iota(kMany, static_cast<float>(begin) + lines.index);
  for (size_t i = 0; i < count; i += lanes) {
    const auto index = hn::Add(first, hn::Set(kMany, static_cast<float>(i)));
    const auto u = hn::MulAdd(index, hn::Set(kMany, lines.step), hn::Set(kMany, lines.phase));
    const auto part = hn::Sub(u, hn::Floor(u));
    const auto distance = hn::Sub(one, hn::Abs(hn::Sub(hn::Add(part, part), one)));
    hn::Store(hn::Mul(distance, hn::Set(kMany, -lines.slope)), kMany, dark + i);
  }
  float parts[3];
  for (size_t c = 0; c < 3; ++c) parts[c] = lines.gain * static_cast<float>(kLuminance[c]);
  forPixels(count, [&](auto d, size_t i) HWY_ATTR {
    const auto v = hn::LoadU(d, pixels + i);
    const auto alpha = hn::Broadcast<3>(v);
    auto grey = hn::Mul(alpha, forEachChannel(d, dark + i / 4));
    grey = hn::MulAdd(hn::Broadcast<0>(v), hn::Set(d, parts[0]), grey);
    grey = hn::MulAdd(hn::Broadcast<1>(v), hn::Set(d, parts[1]), grey);
    grey = hn::MulAdd(hn::Broadcast<2>(v), hn::Set(d, parts[2]), grey);
    hn::StoreU(hn::IfThenElse(alphaLanes(d), v, limited(d, grey, alpha)), d, pixels + i);
  });
}

void screenPixelsNow(float* pixels, size_t count, const LineRow& lines) {
  for (size_t i = 0; i < count; i += kPlaces)
    screenChunk(pixels + 4 * i, i, HWY_MIN(kPlaces, count - i), lines);
}

void addRunsNow(const float* row, const PixelRun<double>* runs, size_t count) {
  for (size_t r = 0; r < count; ++r) {
    const float* pixel = row + 4 * static_cast<ptrdiff_t>(runs[r].begin);
    const float* const end = row + 4 * static_cast<ptrdiff_t>(runs[r].end);
    auto even = hn::Zero(kOnePixel);
    auto odd = even;
    for (; pixel + 8 <= end; pixel += 8) {
      even = hn::Add(even, hn::LoadU(kOnePixel, pixel));
      odd = hn::Add(odd, hn::LoadU(kOnePixel, pixel + 4));
    }
    if (pixel < end) even = hn::Add(even, hn::LoadU(kOnePixel, pixel));
    alignas(16) float sum[4];
    hn::Store(hn::Add(even, odd), kOnePixel, sum);
    for (int c = 0; c < 4; ++c) runs[r].color[c] += static_cast<double>(sum[c]);
  }
}

void fillRunsNow(const PixelRun<const float>* runs, size_t count, float* row) {
  for (size_t r = 0; r < count; ++r) {
    const auto color = hn::LoadU(kOnePixel, runs[r].color);
    float* const end = row + 4 * static_cast<ptrdiff_t>(runs[r].end);
    for (float* pixel = row + 4 * static_cast<ptrdiff_t>(runs[r].begin); pixel < end; pixel += 4)
      hn::StoreU(color, kOnePixel, pixel);
  }
}

}  // namespace
}  // namespace kestrel::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kestrel::kernels {

HWY_EXPORT(bloomPixelsNow);
HWY_EXPORT(gloomPixelsNow);
HWY_EXPORT(mapCurveNow);
HWY_EXPORT(takeLuminanceNow);
HWY_EXPORT(takeLuminanceAndAlphaNow);
HWY_EXPORT(takeEdgesNow);
HWY_EXPORT(addEdgesNow);
HWY_EXPORT(lightPixelsNow);
HWY_EXPORT(screenPixelsNow);
HWY_EXPORT(addRunsNow);
HWY_EXPORT(fillRunsNow);

void bloomPixels(float* pixels, const float* blurred, size_t count, float intensity) {
  HWY_DYNAMIC_DISPATCH(bloomPixelsNow)(pixels, blurred, count, intensity);
}

void gloomPixels(float* pixels, const float* blurred, size_t count, float intensity) {
  HWY_DYNAMIC_DISPATCH(gloomPixelsNow)(pixels, blurred, count, intensity);
}

void mapCurve(float* pixels, size_t count, const Curve& curve, bool isOpaque) {
  HWY_DYNAMIC_DISPATCH(mapCurveNow)(pixels, count, curve, isOpaque);
}

void takeLuminance(const float* pixels, size_t count, float* luminance) {
  HWY_DYNAMIC_DISPATCH(takeLuminanceNow)(pixels, count, luminance);
}

void takeLuminanceAndAlpha(const float* pixels, size_t count, float* values) {
  HWY_DYNAMIC_DISPATCH(takeLuminanceAndAlphaNow)(pixels, count, values);
}

void takeEdges(const float* values, const float* blurred, size_t count, float sharpness,
               float* edges) {
  HWY_DYNAMIC_DISPATCH(takeEdgesNow)(values, blurred, count, sharpness, edges);
}

void addEdges(const float* pixels, const float* edges, size_t count, float* out) {
  HWY_DYNAMIC_DISPATCH(addEdgesNow)(pixels, edges, count, out);
}

void lightPixels(float* pixels, size_t count, const LightRow& light) {
  HWY_DYNAMIC_DISPATCH(lightPixelsNow)(pixels, count, light);
}

void screenPixels(float* pixels, size_t count, const LineRow& lines) {
  HWY_DYNAMIC_DISPATCH(screenPixelsNow)(pixels, count, lines);
}

void addRuns(const float* row, const PixelRun<double>* runs, size_t count) {
  HWY_DYNAMIC_DISPATCH(addRunsNow)(row, runs, count);
}

void fillRuns(const PixelRun<const float>* runs, size_t count, float* row) {
  HWY_DYNAMIC_DISPATCH(fillRunsNow)(runs, count, row);
}

}  // namespace kestrel::kernels
#endif  // HWY_ONCE
