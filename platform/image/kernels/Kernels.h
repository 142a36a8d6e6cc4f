#pragma once

#include <cstddef>
#include <cstdint>

/// The inner loops of the image engine, compiled for several instruction sets; the best one of the
/// machine is chosen at run time.
///
/// Pixels on the way from a source to a resampler are four `int16_t` (R, G, B, A, or Y, Cb, Cr, A)
/// that are multiplied by alpha, 16320 standing for 1: eight bits and six below, with room on both
/// sides for what curves with negative lobes overshoot. Resampled pixels are four floats,
/// multiplied by alpha, 1 for 1. Rows never overlap unless it is said. Weights are `int16_t` that
/// add up to 16384; some may be negative.
namespace kestrel::kernels {

inline constexpr int kOne = 16320;

/// 1 in weights.
inline constexpr int kWeightOne = 16384;

// From a source to 16 bits: `out` is the weighted sum of `taps` rows. One tap means a plain copy.

/// Rows of 8-bit R, G, B and a fourth byte that is taken for 255.
void blendOpaque(const uint8_t* const* rows, const int16_t* weights, int taps, size_t pixels,
                 int16_t* out);

/// Rows of 8-bit R, G, B, A that are not multiplied by alpha.
void blendStraight(const uint8_t* const* rows, const int16_t* weights, int taps, size_t pixels,
                   int16_t* out);

/// Rows in 16 bits.
void blend16(const int16_t* const* rows, const int16_t* weights, int taps, size_t values,
             int16_t* out);

/// Rows of 8-bit samples of one component.
void blend8(const uint8_t* const* rows, const int16_t* weights, int taps, size_t values,
            int16_t* out);

/// Samples of one component of up to 14 bits, which stand `shift` bits too high and are limited to
/// `most`, moved up by `up` bits.
void widenSamples(const uint16_t* samples, int shift, int most, int up, size_t count, int16_t* out);

/// Joins three components to pixels with alpha 1. `y` has a value for each pixel; pixel i has the
/// chroma that lies at `phase` + i in units of luma, where chroma sample k lies at k × 2^shift, by
/// linear interpolation between `cb[k]` and `cb[k + 1]`; so chroma must reach one sample further.
void joinPlanes(const int16_t* y, const int16_t* cb, const int16_t* cr, int phase, int shift,
                size_t pixels, int16_t* out);

/// The same from rows of 8-bit samples, where chroma is mixed of three rows, each of which counts
/// so many eighths. `shift` is 0 or 1.
struct ChromaRows {
  const uint8_t* cb[3];
  const uint8_t* cr[3];
  int eighths[3];
};
void joinPlanes8(const uint8_t* y, const ChromaRows& chroma, int phase, int shift, size_t pixels,
                 int16_t* out);

/// True when the fourth byte of every 8-bit pixel is 255.
bool isOpaque(const uint8_t* row, size_t pixels);

/// Copies 8-bit pixels, the fourth byte becoming 255.
void copyOpaque(const uint8_t* row, size_t pixels, uint8_t* out);

// From 16 bits to floats.

/// A resampling along a row: pixel i of the result is the sum over 2 × `pairs` pixels from
/// `first[i]` on. `weights` holds, for pair p of pixel i, the two weights at p × `pairStride` + 8
/// i, four times over. Pixels up to first[i] + 2 × pairs - 1 are read, with weight 0 or not, and
/// the weights of one pixel beyond the last.
struct RowTaps {
  const int32_t* first;
  const int16_t* weights;
  size_t pairStride;
  int pairs;
  bool isOpaque;  ///< of all that is resampled, the same below
};

/// `matrix`, where not null, is applied to the result: 16 floats, what r, g, b and a each
/// contribute to the four values. Then alpha is limited to 0 to 1 and the colours to 0 to alpha.
void resampleRow(const int16_t* row, const RowTaps& taps, size_t pixels, const float* matrix,
                 float* out);

/// The same without resampling.
void widenRow(const int16_t* row, size_t pixels, const float* matrix, float* out);

/// The same from 8-bit pixels whose fourth byte is taken for 255.
void widenOpaque(const uint8_t* row, size_t pixels, const float* matrix, float* out);

/// A resampling along a line through a tile of pixels, of four by four of them each. Pixel i lies
/// at (u + (`index` + i) du, v + (`index` + i) dv) from pixel `origin` of the tile; positions are
/// first limited to the given ranges. The weights are those of the spans, 1 to 2, as
/// `platform/image/recipe/Resampling.h` has them. The tile reaches two pixels beyond the ranges.
struct AffineLine {
  const int16_t* tile;
  ptrdiff_t rowStride;  ///< in pixels
  int32_t origin;       ///< counted from the tile's first pixel; it may lie outside
  float index;
  float u, v, du, dv;
  float minU, maxU, minV, maxV;
  float spanU, spanV;
  bool isOpaque;
};

/// At most `kMaxAffinePixels` at a time.
void resampleLine(const AffineLine& line, size_t pixels, const float* matrix, float* out);
inline constexpr size_t kMaxAffinePixels = 256;

// On rows of floats.

/// Applies `matrix` and the limits (as above) in place.
void mapPixels(float* pixels, size_t count, const float* matrix);

/// Multiplies pixel i by factors[i], in place.
void scalePixels(float* pixels, size_t count, const float* factors);

/// Lays `front` over `pixels`, in place.
void layOver(float* pixels, const float* front, size_t count);

/// Lays `pixels` over one colour, in place.
void layOverColor(float* pixels, size_t count, const float* color);

/// Multiplies pixel i by the alpha of mask[4 i …], in place.
void keepInside(float* pixels, const float* mask, size_t count);

/// Fills with one colour of four values.
void fillPixels(float* pixels, size_t count, const float* color);

/// To 8 bits that are not multiplied by alpha, clamped and rounded. An opaque row may hold anything
/// for alpha; its colours lie within -1000 to 1000.
void packRgba(const float* pixels, size_t count, bool isOpaque, uint8_t* out);

/// To 16 bits, clamped and rounded.
void pack16(const float* pixels, size_t count, int16_t* out);

/// The components of Y, Cb and Cr of each pixel: three times four floats, what r, g, b and 1
/// contribute. Colours are limited to 0 to 1; alpha plays no part, so what is transparent is black.
void splitPlanes(const float* pixels, size_t count, const float* matrix, float* y, float* cb,
                 float* cr);

/// How much of each pixel of a line is covered: the product of the shares in two directions. A
/// share is the least of `low` + (`index` + i) `step`, `high` - (`index` + i) `step` and `most`,
/// and not below 0.
struct CoverLine {
  struct Axis {
    float low;
    float high;
    float step;
    float most;
  };
  Axis u;
  Axis v;
  float index;
};
void coverLine(const CoverLine& line, size_t count, float* out);

/// sums[i] += values[i]
void addValues(float* sums, const float* values, size_t count);

/// out[i] = `scale` × (6 values[2 i + 2] + 2 (values[2 i + 1] + values[2 i + 3]) - values[2 i] -
/// values[2 i + 4]) / 8; one more value than that is read.
void halveRow(const float* values, float scale, size_t count, float* out);

/// Samples of 8 bits, clamped and rounded.
void packSamples(const float* values, size_t count, uint8_t* out);

}  // namespace kestrel::kernels
