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
/// and what each of the four counts, the first two and the last two in the halves of a number.
struct Corners {
  static constexpr size_t kMost = HWY_MAX_BYTES / sizeof(float);
  HWY_ALIGN int32_t first[kMost];
  HWY_ALIGN int32_t second[kMost];
  HWY_ALIGN int32_t third[kMost];
  HWY_ALIGN int32_t near[kMost];
  HWY_ALIGN int32_t far[kMost];
  HWY_ALIGN float alpha[kMost];
};

/// 1 in what a corner counts.
constexpr int kWhole = 1 << 14;

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
  // Rounded before they are subtracted, so that the four make a whole.
  const auto rounded = [&](hn::Vec<D> value) HWY_ATTR {
    return hn::NearestInt(hn::Mul(value, hn::Set(d, static_cast<float>(kWhole))));
  };
  const auto ofFirst = rounded(most);
  const auto ofSecond = rounded(middle);
  const auto ofLast = rounded(least);
  const auto joined = [&](hn::Vec<decltype(di)> low, hn::Vec<decltype(di)> high)
                          HWY_ATTR { return hn::Or(low, hn::ShiftLeft<16>(high)); };
  hn::Store(joined(hn::Sub(hn::Set(di, kWhole), ofFirst), hn::Sub(ofFirst, ofSecond)), di,
            out.near);
  hn::Store(joined(hn::Sub(ofSecond, ofLast), ofLast), di, out.far);
  hn::Store(a, d, out.alpha);
}

/// Two colours, their values in turn.
HWY_INLINE hn::Vec<hn::FixedTag<int16_t, 8>> colorsAt(const int16_t* first, const int16_t* second) {
  const hn::FixedTag<int16_t, 4> half;
  const hn::FixedTag<int16_t, 8> whole;
  return hn::InterleaveLower(whole, hn::ZeroExtendVector(whole, hn::LoadU(half, first)),
                             hn::ZeroExtendVector(whole, hn::LoadU(half, second)));
}

HWY_INLINE void mixCorners(const ColorCube& cube, const Corners& at, size_t count, float* pixels) {
  const hn::FixedTag<int32_t, 4> d32;
  const hn::FixedTag<int16_t, 8> d16;
  const int32_t opposite = 4 * (cube.side * cube.side + cube.side + 1);
  constexpr float kScale = 1.0f / (static_cast<float>(kWhole) * ColorCube::kOne);
  const int16_t* const colors = cube.colors;
  for (size_t i = 0; i < count; ++i, pixels += 4) {
    const int32_t first = at.first[i];
    const auto near = colorsAt(colors + first, colors + at.second[i]);
    const auto far = colorsAt(colors + at.third[i], colors + first + opposite);
    auto odd = hn::Zero(d32);
    auto sum = hn::ReorderWidenMulAccumulate(d32, near, hn::BitCast(d16, hn::Set(d32, at.near[i])),
                                             hn::Zero(d32), odd);
    sum = hn::ReorderWidenMulAccumulate(d32, far, hn::BitCast(d16, hn::Set(d32, at.far[i])), sum,
                                        odd);
    const auto color = hn::ConvertTo(kPixel, hn::RearrangeToOddPlusEven(sum, odd));
    hn::StoreU(hn::Mul(color, hn::Set(kPixel, at.alpha[i] * kScale)), kPixel, pixels);
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
