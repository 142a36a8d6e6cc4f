// Colours looked up in tables, and the noise that hides the steps of samples.

#include "platform/image/kernels/KernelTargets.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "platform/image/kernels/TableKernels.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "platform/image/kernels/TableKernels.h"

HWY_BEFORE_NAMESPACE();
namespace kestrel::kernels::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

const hn::ScalableTag<float> kMany;
const hn::FixedTag<float, 4> kPixel;

/// What some pixels are mixed of: from the first corner of each the way to two others and the last,
/// and what each of the four counts.
struct Corners {
  static constexpr size_t kMost = HWY_MAX_BYTES / sizeof(float);
  HWY_ALIGN int32_t first[kMost];
  HWY_ALIGN int32_t second[kMost];
  HWY_ALIGN int32_t third[kMost];
  HWY_ALIGN float weights[4][kMost];
  HWY_ALIGN float alpha[kMost];
};

template <typename D>
HWY_INLINE void findCorners(D d, const float* pixels, const ColorCube& cube, bool isOpaque,
                            Corners& out) {
  const hn::RebindToSigned<D> di;
  auto r = hn::Zero(d), g = r, b = r, a = r;
  hn::LoadInterleaved4(d, pixels, r, g, b, a);
  auto scale = hn::Set(d, cube.scale);
  if (!isOpaque) {
    const auto none = hn::Le(a, hn::Zero(d));
    scale = hn::IfThenZeroElse(none, hn::Div(scale, hn::IfThenElse(none, hn::Set(d, 1.0f), a)));
  }
  const auto last = hn::Set(d, static_cast<float>(cube.side - 1));
  const auto lastCube = hn::Set(di, cube.side - 2);
  const auto place = [&](hn::Vec<D> value) HWY_ATTR {
    return hn::Min(hn::Max(hn::Mul(value, scale), hn::Zero(d)), last);
  };
  r = place(r);
  g = place(g);
  b = place(b);
  const auto ri = hn::Min(hn::ConvertTo(di, r), lastCube);
  const auto gi = hn::Min(hn::ConvertTo(di, g), lastCube);
  const auto bi = hn::Min(hn::ConvertTo(di, b), lastCube);
  r = hn::Sub(r, hn::ConvertTo(d, ri));
  g = hn::Sub(g, hn::ConvertTo(d, gi));
  b = hn::Sub(b, hn::ConvertTo(d, bi));

  const auto ofRed = hn::Set(di, 4 * cube.side * cube.side);
  const auto ofGreen = hn::Set(di, 4 * cube.side);
  const auto ofBlue = hn::Set(di, 4);
  const auto sum = hn::Add(hn::Add(ofRed, ofGreen), ofBlue);
  const auto most = hn::Max(r, hn::Max(g, b));
  const auto least = hn::Min(r, hn::Min(g, b));
  const auto middle = hn::Max(hn::Min(r, g), hn::Min(hn::Max(r, g), b));
  const auto pick = [&](hn::Vec<D> value) HWY_ATTR {
    const auto isRed = hn::RebindMask(di, hn::Eq(value, r));
    const auto isGreen = hn::RebindMask(di, hn::Eq(value, g));
    return hn::IfThenElse(isRed, ofRed, hn::IfThenElse(isGreen, ofGreen, ofBlue));
  };
  const auto first =
      hn::Add(hn::Add(hn::Mul(ri, ofRed), hn::Mul(gi, ofGreen)), hn::Mul(bi, ofBlue));
  hn::Store(first, di, out.first);
  hn::Store(hn::Add(first, pick(most)), di, out.second);
  hn::Store(hn::Add(first, hn::Sub(sum, pick(least))), di, out.third);
  hn::Store(hn::Sub(hn::Set(d, 1.0f), most), d, out.weights[0]);
  hn::Store(hn::Sub(most, middle), d, out.weights[1]);
  hn::Store(hn::Sub(middle, least), d, out.weights[2]);
  hn::Store(least, d, out.weights[3]);
  hn::Store(a, d, out.alpha);
}

HWY_INLINE hn::Vec<decltype(kPixel)> colorAt(const uint16_t* colors, int32_t at) {
  const hn::Rebind<uint16_t, decltype(kPixel)> d16;
  const hn::Rebind<int32_t, decltype(kPixel)> d32;
  return hn::ConvertTo(kPixel, hn::PromoteTo(d32, hn::LoadU(d16, colors + at)));
}

HWY_INLINE void mixCorners(const ColorCube& cube, const Corners& at, size_t count, float* pixels) {
  const int32_t opposite = 4 * (cube.side * cube.side + cube.side + 1);
  for (size_t i = 0; i < count; ++i, pixels += 4) {
    const auto weight = [&](size_t corner)
                            HWY_ATTR { return hn::Set(kPixel, at.weights[corner][i]); };
    auto color = hn::Mul(colorAt(cube.colors, at.first[i]), weight(0));
    color = hn::MulAdd(colorAt(cube.colors, at.second[i]), weight(1), color);
    color = hn::MulAdd(colorAt(cube.colors, at.third[i]), weight(2), color);
    color = hn::MulAdd(colorAt(cube.colors, at.first[i] + opposite), weight(3), color);
    hn::StoreU(hn::Mul(color, hn::Set(kPixel, at.alpha[i] * (1.0f / 65535))), kPixel, pixels);
    pixels[3] = at.alpha[i];
  }
}

void lookUp(float* pixels, size_t count, const ColorCube& cube, bool isOpaque) {
  Corners corners;
  const size_t lanes = hn::Lanes(kMany);
  size_t i = 0;
  for (; i + lanes <= count; i += lanes) {
    findCorners(kMany, pixels + 4 * i, cube, isOpaque, corners);
    mixCorners(cube, corners, lanes, pixels + 4 * i);
  }
  for (; i < count; ++i) {
    findCorners(hn::FixedTag<float, 1>(), pixels + 4 * i, cube, isOpaque, corners);
    mixCorners(cube, corners, 1, pixels + 4 * i);
  }
}

void shake(float* pixels, const float* noise, size_t count) {
  for (size_t i = 0; i < count; ++i, pixels += 4) {
    const auto pixel = hn::LoadU(kPixel, pixels);
    const float alpha = pixels[3];
    hn::StoreU(hn::MulAdd(hn::Set(kPixel, noise[i]), hn::Set(kPixel, alpha), pixel), kPixel,
               pixels);
    pixels[3] = alpha;
  }
}

}  // namespace
}  // namespace kestrel::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kestrel::kernels {

HWY_EXPORT(lookUp);
HWY_EXPORT(shake);

void lookUpColors(float* pixels, size_t count, const ColorCube& cube, bool isOpaque) {
  HWY_DYNAMIC_DISPATCH(lookUp)(pixels, count, cube, isOpaque);
}

void addNoise(float* pixels, const float* noise, size_t count) {
  HWY_DYNAMIC_DISPATCH(shake)(pixels, noise, count);
}

}  // namespace kestrel::kernels
#endif  // HWY_ONCE
