// Weighted sums of source rows.

#include "platform/image/kernels/KernelTargets.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "platform/image/kernels/BlendKernels.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include <algorithm>
#include <cstring>

#include "platform/image/kernels/Kernels.h"

HWY_BEFORE_NAMESPACE();
namespace kestrel::kernels::HWY_NAMESPACE {
namespace {

namespace hn = hwy::HWY_NAMESPACE;

const hn::ScalableTag<int16_t> kD16;
const hn::ScalableTag<float> kDF;
using V16 = hn::Vec<decltype(kD16)>;

/// True for the lanes of alpha, in vectors that start with a pixel.
HWY_INLINE hn::Mask<decltype(kD16)> alphaLanes() {
  const hn::Repartition<uint64_t, decltype(kD16)> d64;
  return hn::MaskFromVec(hn::BitCast(kD16, hn::Set(d64, 0xFFFF000000000000ull)));
}

HWY_INLINE V16 alphaOfPixels(V16 v) {
  const hn::Repartition<uint8_t, decltype(kD16)> d8;
  alignas(16) static constexpr uint8_t kIndices[16] = {6,  7,  6,  7,  6,  7,  6,  7,
                                                       14, 15, 14, 15, 14, 15, 14, 15};
  return hn::BitCast(kD16, hn::TableLookupBytes(hn::BitCast(d8, v), hn::LoadDup128(d8, kIndices)));
}

/// Sources are loaded at twice their scale: a product with a weight is then at the scale itself.
struct Samples8 {
  using Sample = uint8_t;
  static constexpr bool kHasFixedAlpha = false;
  static HWY_INLINE V16 load(const Sample* from) {
    return hn::ShiftLeft<7>(
        hn::PromoteTo(kD16, hn::LoadU(hn::Rebind<uint8_t, decltype(kD16)>(), from)));
  }
  static HWY_INLINE V16 finish(V16 v) { return v; }
};

struct Opaque8 : Samples8 {
  static constexpr bool kHasFixedAlpha = true;
  static HWY_INLINE V16 finish(V16 v) {
    return hn::IfThenElse(alphaLanes(), hn::Set(kD16, static_cast<int16_t>(kOne)), v);
  }
};

struct Straight8 : Samples8 {
  static HWY_INLINE V16 load(const Sample* from) {
    const V16 v = Samples8::load(from);
    const V16 alpha = alphaOfPixels(v);
    // 255 becomes 32767, the nearest to 1.
    const V16 factor = hn::Add(alpha, hn::ShiftRight<8>(alpha));
    return hn::IfThenElse(alphaLanes(), v, hn::MulFixedPoint15(v, factor));
  }
};

struct Samples16 {
  using Sample = int16_t;
  static constexpr bool kHasFixedAlpha = false;
  static HWY_INLINE V16 load(const Sample* from) { return hn::ShiftLeft<1>(hn::LoadU(kD16, from)); }
  static HWY_INLINE V16 finish(V16 v) { return v; }
};

/// One vector of the sum, from value `i` of each row on.
template <typename Source, int kTaps>
HWY_INLINE V16 sumAt(const typename Source::Sample* const* rows, const V16* weights, size_t i) {
  if constexpr (kTaps == 1) return Source::finish(hn::ShiftRight<1>(Source::load(rows[0] + i)));
  V16 sum = hn::MulFixedPoint15(Source::load(rows[0] + i), weights[0]);
  for (int t = 1; t < kTaps; ++t)
    sum = hn::Add(sum, hn::MulFixedPoint15(Source::load(rows[t] + i), weights[t]));
  return Source::finish(sum);
}

/// The sum of exactly `kTaps` rows.
template <typename Source, int kTaps>
void blendExactly(const typename Source::Sample* const* given, const int16_t* shares, size_t values,
                  int16_t* out) {
  using Sample = typename Source::Sample;
  const Sample* rows[kTaps];
  V16 weights[kTaps];
  for (int t = 0; t < kTaps; ++t) {
    rows[t] = given[t];
    weights[t] = hn::Set(kD16, shares[t]);
  }
  const size_t lanes = hn::Lanes(kD16);
  size_t i = 0;
  for (; i + lanes <= values; i += lanes)
    hn::StoreU(sumAt<Source, kTaps>(rows, weights, i), kD16, out + i);
  if (i == values) return;

  // The rest is done with some of what is done already, or, in a row that is shorter than a vector,
  // in memory of its own: nothing beyond a row may be touched.
  if (values >= lanes) {
    const size_t last = values - lanes;
    hn::StoreU(sumAt<Source, kTaps>(rows, weights, last), kD16, out + last);
    return;
  }
  Sample padded[kTaps][HWY_MAX_BYTES / sizeof(int16_t)] = {};
  for (int t = 0; t < kTaps; ++t) {
    std::memcpy(padded[t], rows[t], values * sizeof(Sample));
    rows[t] = padded[t];
  }
  int16_t result[HWY_MAX_BYTES / sizeof(int16_t)];
  hn::StoreU(sumAt<Source, kTaps>(rows, weights, 0), kD16, result);
  std::memcpy(out, result, values * sizeof(int16_t));
}

/// Adds `weight` times a stretch of a row to `sums`, in 32 bits: many small products would lose too
/// much in 16.
template <typename Source>
HWY_INLINE void addRow(const typename Source::Sample* row, int weight, size_t count, float* sums) {
  const hn::Rebind<int16_t, decltype(kDF)> dHalf;
  const hn::Rebind<int32_t, decltype(kDF)> d32;
  const size_t lanes = hn::Lanes(kD16);
  const auto share = hn::Set(kDF, static_cast<float>(weight) / (2 * kWeightOne));
  for (size_t i = 0; i < count; i += lanes) {
    const V16 values = Source::load(row + i);
    const auto add = [&](auto half, float* to) HWY_ATTR {
      const auto wide = hn::ConvertTo(kDF, hn::PromoteTo(d32, half));
      hn::StoreU(hn::MulAdd(wide, share, hn::LoadU(kDF, to)), kDF, to);
    };
    add(hn::LowerHalf(dHalf, values), sums + i);
    add(hn::UpperHalf(dHalf, values), sums + i + lanes / 2);
  }
}

template <typename Source>
void blendMany(const typename Source::Sample* const* rows, const int16_t* weights, int taps,
               size_t values, int16_t* out) {
  constexpr size_t kChunk = 512;
  using Sample = typename Source::Sample;
  const hn::Rebind<int16_t, decltype(kDF)> dHalf;
  Sample padded[kChunk];
  float sums[kChunk];
  int16_t result[kChunk];
  for (size_t begin = 0; begin < values; begin += kChunk) {
    const size_t count = std::min(kChunk, values - begin);
    std::fill_n(sums, kChunk, 0.0f);
    for (int t = 0; t < taps; ++t) {
      const Sample* row = rows[t] + begin;
      if (count < kChunk) {
        // Vectors must not reach beyond the row.
        std::memcpy(padded, row, count * sizeof(Sample));
        std::memset(padded + count, 0, (kChunk - count) * sizeof(Sample));
        row = padded;
      }
      addRow<Source>(row, weights[t], count, sums);
    }
    for (size_t i = 0; i < count; i += hn::Lanes(kDF))
      hn::StoreU(hn::DemoteTo(dHalf, hn::NearestInt(hn::LoadU(kDF, sums + i))), dHalf, result + i);
    std::memcpy(out + begin, result, count * sizeof(int16_t));
    if constexpr (Source::kHasFixedAlpha) {
      for (size_t i = 3; i < count; i += 4) out[begin + i] = static_cast<int16_t>(kOne);
    }
  }
}

template <typename Source>
void blend(const typename Source::Sample* const* rows, const int16_t* weights, int taps,
           size_t values, int16_t* out) {
  switch (taps) {
    case 1:
      return blendExactly<Source, 1>(rows, weights, values, out);
    case 2:
      return blendExactly<Source, 2>(rows, weights, values, out);
    case 3:
      return blendExactly<Source, 3>(rows, weights, values, out);
    case 4:
      return blendExactly<Source, 4>(rows, weights, values, out);
    case 5:
      return blendExactly<Source, 5>(rows, weights, values, out);
    case 6:
      return blendExactly<Source, 6>(rows, weights, values, out);
    case 7:
      return blendExactly<Source, 7>(rows, weights, values, out);
    case 8:
      return blendExactly<Source, 8>(rows, weights, values, out);
    case 9:
      return blendExactly<Source, 9>(rows, weights, values, out);
    case 10:
      return blendExactly<Source, 10>(rows, weights, values, out);
    default:
      return blendMany<Source>(rows, weights, taps, values, out);
  }
}

void blendOpaqueRows(const uint8_t* const* rows, const int16_t* weights, int taps, size_t values,
                     int16_t* out) {
  blend<Opaque8>(rows, weights, taps, values, out);
}

void blendStraightRows(const uint8_t* const* rows, const int16_t* weights, int taps, size_t values,
                       int16_t* out) {
  blend<Straight8>(rows, weights, taps, values, out);
}

void blendRows16(const int16_t* const* rows, const int16_t* weights, int taps, size_t values,
                 int16_t* out) {
  blend<Samples16>(rows, weights, taps, values, out);
}

void blendRows8(const uint8_t* const* rows, const int16_t* weights, int taps, size_t values,
                int16_t* out) {
  blend<Samples8>(rows, weights, taps, values, out);
}

void joinRows(const int16_t* y, const int16_t* cb, const int16_t* cr, size_t pixels, int16_t* out) {
  const size_t lanes = hn::Lanes(kD16);
  const V16 alpha = hn::Set(kD16, static_cast<int16_t>(kOne));
  const auto join = [&](size_t i) HWY_ATTR {
    hn::StoreInterleaved4(hn::LoadU(kD16, y + i), hn::LoadU(kD16, cb + i), hn::LoadU(kD16, cr + i),
                          alpha, kD16, out + 4 * i);
  };
  size_t i = 0;
  for (; i + lanes <= pixels; i += lanes) join(i);
  if (i < pixels && pixels >= lanes) return join(pixels - lanes);
  for (; i < pixels; ++i) {
    out[4 * i] = y[i];
    out[4 * i + 1] = cb[i];
    out[4 * i + 2] = cr[i];
    out[4 * i + 3] = static_cast<int16_t>(kOne);
  }
}

/// Chroma of 8 bits for a vector of pixels: the first of them lies at sample `k`, or, where
/// `kIsBetween`, halfway from there to the next.
template <int kShift, bool kIsBetween>
HWY_INLINE V16 mixedChroma(const uint8_t* const* rows, const int* eighths, size_t k) {
  // The sums are in eighths, three bits below the scale.
  const auto sumOf = [&](auto load) HWY_ATTR {
    const auto weigh = [&](int row) HWY_ATTR {
      return hn::Mul(load(rows[row]), hn::Set(kD16, static_cast<int16_t>(eighths[row])));
    };
    return hn::Add(weigh(1), hn::Add(weigh(0), weigh(2)));
  };
  if constexpr (kShift == 0) {
    return hn::ShiftLeft<3>(sumOf([k](const uint8_t* row) HWY_ATTR {
      return hn::PromoteTo(kD16, hn::LoadU(hn::Rebind<uint8_t, decltype(kD16)>(), row + k));
    }));
  } else {
    // Each lane of 32 bits holds one sample, and at the end two pixels.
    const hn::RepartitionToWide<decltype(kD16)> d32;
    const auto mixedAt = [&](size_t at) HWY_ATTR {
      return sumOf([at, d32](const uint8_t* row) HWY_ATTR {
        return hn::BitCast(
            kD16, hn::PromoteTo(d32, hn::LoadU(hn::Rebind<uint8_t, decltype(d32)>(), row + at)));
      });
    };
    const V16 here = mixedAt(k);
    const V16 next = mixedAt(k + 1);
    const auto between = hn::ShiftLeft<2>(hn::Add(here, next));
    const auto whole = hn::ShiftLeft<3>(kIsBetween ? next : here);
    const auto first = hn::BitCast(d32, kIsBetween ? between : whole);
    const auto second = hn::BitCast(d32, kIsBetween ? whole : between);
    return hn::BitCast(kD16,
                       hn::Or(hn::And(first, hn::Set(d32, 0xFFFF)), hn::ShiftLeft<16>(second)));
  }
}

template <int kShift, bool kIsBetween>
HWY_INLINE void join8(const uint8_t* y, const ChromaRows& chroma, size_t k, int16_t* out) {
  hn::StoreInterleaved4(hn::ShiftRight<1>(Samples8::load(y)),
                        mixedChroma<kShift, kIsBetween>(chroma.cb, chroma.eighths, k),
                        mixedChroma<kShift, kIsBetween>(chroma.cr, chroma.eighths, k),
                        hn::Set(kD16, static_cast<int16_t>(kOne)), kD16, out);
}

template <int kShift>
void joinRowsBy(const uint8_t* y, const ChromaRows& chroma, size_t phase, size_t pixels,
                int16_t* out) {
  const size_t lanes = hn::Lanes(kD16);
  const auto join = [&](size_t i) HWY_ATTR {
    const size_t k = (phase + i) >> kShift;
    if (kShift == 0 || (phase + i) % 2 == 0)
      return join8<kShift, false>(y + i, chroma, k, out + 4 * i);
    join8<kShift, true>(y + i, chroma, k, out + 4 * i);
  };
  size_t i = 0;
  for (; i + lanes <= pixels; i += lanes) join(i);
  if (i == pixels) return;
  if (pixels >= lanes) return join(pixels - lanes);

  // A short row is done in memory of its own: nothing beyond it may be touched.
  constexpr size_t kMost = HWY_MAX_BYTES / sizeof(int16_t);
  uint8_t samples[7][kMost + 2] = {};
  std::memcpy(samples[6], y, pixels);
  const size_t first = phase >> kShift;
  const size_t used = ((phase + pixels - 1) >> kShift) + 1 + kShift - first;
  ChromaRows copies{{samples[0], samples[1], samples[2]},
                    {samples[3], samples[4], samples[5]},
                    {chroma.eighths[0], chroma.eighths[1], chroma.eighths[2]}};
  for (size_t row = 0; row < 3; ++row) {
    std::memcpy(samples[row], chroma.cb[row] + first, used);
    std::memcpy(samples[3 + row], chroma.cr[row] + first, used);
  }
  int16_t result[4 * kMost];
  if (kShift == 0 || phase % 2 == 0)
    join8<kShift, false>(samples[6], copies, 0, result);
  else
    join8<kShift, true>(samples[6], copies, 0, result);
  std::memcpy(out, result, 4 * pixels * sizeof(int16_t));
}

void joinRows8(const uint8_t* y, const ChromaRows& chroma, size_t phase, int shift, size_t pixels,
               int16_t* out) {
  if (shift == 0) return joinRowsBy<0>(y, chroma, phase, pixels, out);
  joinRowsBy<1>(y, chroma, phase, pixels, out);
}

bool isOpaqueRow(const uint8_t* row, size_t pixels) {
  const hn::ScalableTag<uint32_t> d;
  const hn::Repartition<uint8_t, decltype(d)> d8;
  const size_t lanes = hn::Lanes(d8);
  auto all = hn::Set(d, 0xFFFFFFFFu);
  size_t i = 0;
  for (; i + lanes <= 4 * pixels; i += lanes)
    all = hn::And(all, hn::BitCast(d, hn::LoadU(d8, row + i)));
  // Alpha is the byte at the highest address of a pixel, and so the highest in the machine's order.
  const auto alpha = hn::Set(d, 0xFF000000u);
  bool isOpaqueSoFar = hn::AllTrue(d, hn::Eq(hn::And(all, alpha), alpha));
  for (; i < 4 * pixels; i += 4) isOpaqueSoFar = isOpaqueSoFar && row[i + 3] == 255;
  return isOpaqueSoFar;
}

void copyOpaqueRow(const uint8_t* row, size_t pixels, uint8_t* out) {
  const hn::ScalableTag<uint32_t> d;
  const hn::Repartition<uint8_t, decltype(d)> d8;
  alignas(16) static constexpr uint8_t kAlpha[16] = {0, 0, 0, 255, 0, 0, 0, 255,
                                                     0, 0, 0, 255, 0, 0, 0, 255};
  const auto alpha = hn::LoadDup128(d8, kAlpha);
  const size_t lanes = hn::Lanes(d8);
  size_t i = 0;
  for (; i + lanes <= 4 * pixels; i += lanes)
    hn::StoreU(hn::Or(hn::LoadU(d8, row + i), alpha), d8, out + i);
  for (; i < 4 * pixels; ++i) out[i] = i % 4 == 3 ? 255 : row[i];
}

/// Twice as many values by linear interpolation, an even number from an even phase on.
void doubleRow(const int16_t* in, size_t inputs, int16_t* out) {
  // What overshoots on either side has room: the mean is taken of numbers without a sign.
  const hn::Repartition<uint16_t, decltype(kD16)> du;
  const auto sign = hn::Set(du, 0x8000);
  const size_t lanes = hn::Lanes(kD16);
  size_t i = 0;
  const auto twice = [&](size_t at) HWY_ATTR {
    const V16 here = hn::LoadU(kD16, in + at);
    const V16 next = hn::LoadU(kD16, in + at + 1);
    const auto mean = hn::AverageRound(hn::Xor(hn::BitCast(du, here), sign),
                                       hn::Xor(hn::BitCast(du, next), sign));
    const V16 between = hn::BitCast(kD16, hn::Xor(mean, sign));
    hn::StoreInterleaved2(here, between, kD16, out + 2 * at);
  };
  for (; i + lanes <= inputs; i += lanes) twice(i);
  if (i < inputs && inputs >= lanes) return twice(inputs - lanes);
  for (; i < inputs; ++i) {
    out[2 * i] = in[i];
    out[2 * i + 1] = static_cast<int16_t>((in[i] + in[i + 1] + 1) >> 1);
  }
}

}  // namespace
}  // namespace kestrel::kernels::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kestrel::kernels {

HWY_EXPORT(blendOpaqueRows);
HWY_EXPORT(blendStraightRows);
HWY_EXPORT(blendRows16);
HWY_EXPORT(blendRows8);
HWY_EXPORT(joinRows);
HWY_EXPORT(joinRows8);
HWY_EXPORT(doubleRow);
HWY_EXPORT(isOpaqueRow);
HWY_EXPORT(copyOpaqueRow);

bool isOpaque(const uint8_t* row, size_t pixels) {
  return HWY_DYNAMIC_DISPATCH(isOpaqueRow)(row, pixels);
}

void copyOpaque(const uint8_t* row, size_t pixels, uint8_t* out) {
  HWY_DYNAMIC_DISPATCH(copyOpaqueRow)(row, pixels, out);
}

void blendOpaque(const uint8_t* const* rows, const int16_t* weights, int taps, size_t pixels,
                 int16_t* out) {
  HWY_DYNAMIC_DISPATCH(blendOpaqueRows)(rows, weights, taps, 4 * pixels, out);
}

void blendStraight(const uint8_t* const* rows, const int16_t* weights, int taps, size_t pixels,
                   int16_t* out) {
  HWY_DYNAMIC_DISPATCH(blendStraightRows)(rows, weights, taps, 4 * pixels, out);
}

void blend16(const int16_t* const* rows, const int16_t* weights, int taps, size_t values,
             int16_t* out) {
  HWY_DYNAMIC_DISPATCH(blendRows16)(rows, weights, taps, values, out);
}

void blend8(const uint8_t* const* rows, const int16_t* weights, int taps, size_t values,
            int16_t* out) {
  HWY_DYNAMIC_DISPATCH(blendRows8)(rows, weights, taps, values, out);
}

void joinPlanes(const int16_t* y, const int16_t* cb, const int16_t* cr, int phase, int shift,
                size_t pixels, int16_t* out) {
  // Chroma is brought to the size of luma chunk by chunk.
  constexpr size_t kChunk = 512;
  constexpr size_t kSpare = 8;
  int16_t wide[2][kChunk + kSpare];
  const int scale = 1 << shift;
  for (size_t begin = 0; begin < pixels; begin += kChunk) {
    const size_t count = std::min(kChunk, pixels - begin);
    const int16_t* chroma[2] = {cb, cr};
    const size_t from = static_cast<size_t>(phase) + begin;
    for (int c = 0; c < 2; ++c) {
      const int16_t* first = chroma[c] + (from >> shift);
      const size_t skipped = from % static_cast<size_t>(scale);
      if (shift == 0) {
        chroma[c] = first;
      } else if (shift == 1) {
        HWY_DYNAMIC_DISPATCH(doubleRow)(first, (skipped + count + 1) / 2, wide[c]);
        chroma[c] = wide[c] + skipped;
      } else {
        for (size_t i = 0; i < count; ++i) {
          const size_t k = (skipped + i) >> shift;
          const int part = static_cast<int>((skipped + i) % static_cast<size_t>(scale));
          wide[c][i] = static_cast<int16_t>(
              (first[k] * (scale - part) + first[k + 1] * part + scale / 2) >> shift);
        }
        chroma[c] = wide[c];
      }
    }
    HWY_DYNAMIC_DISPATCH(joinRows)(y + begin, chroma[0], chroma[1], count, out + 4 * begin);
  }
}

void joinPlanes8(const uint8_t* y, const ChromaRows& chroma, int phase, int shift, size_t pixels,
                 int16_t* out) {
  HWY_DYNAMIC_DISPATCH(joinRows8)(y, chroma, static_cast<size_t>(phase), shift, pixels, out);
}

}  // namespace kestrel::kernels
#endif  // HWY_ONCE
