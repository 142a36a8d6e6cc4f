#pragma once

#include <cstddef>
#include <cstdint>

/// The inner loops of the filters that look at neighbours or at places, compiled like those of
/// `platform/image/kernels/Kernels.h`.
///
/// Unless something else is said, a pixel is four floats R, G, B, A from 0 to 1, multiplied by
/// alpha, and rows do not overlap.
namespace kestrel::kernels {

// Filters along rows and columns.

/// out[i] = the sum over t of weights[t] × rows[t][i], for `count` rows, at least one. The rows may
/// overlap each other: shifted by one pixel each, they make a filter along the row.
void sumRows(const float* const* rows, const float* weights, int count, size_t values, float* out);

/// Cell k of the result is the sum over t of weights[t] × pixel k × `side` + t, for `taps` of them.
void reduceRow(const float* row, const float* weights, int taps, int side, size_t cells,
               float* out);

/// From cells to pixels, `side` to the cell: pixel i lies at p = (`phase` + i) mod `side` in cell
/// c = (`phase` + i) / `side`, and is the sum over k from 0 to 2 of cell c + k times
/// weights[(k × side + p) × 4]; each weight stands there four times over.
void expandRow(const float* cells, const float* weights, int side, int phase, size_t pixels,
               float* out);

// Curves.

/// Steps of a curve from 0 to 1, between which it is straight; there is one point more than that,
/// and one to spare.
inline constexpr int kCurveSteps = 1024;
inline constexpr size_t kCurvePoints = kCurveSteps + 2;

/// What is made of colours that are not multiplied by alpha.
struct Curve {
  const float* points;
  bool isOfRoot;  ///< point i stands for (i / kCurveSteps)²: steps are finer where it is dark
};

/// Looks up the colours, limited to 0 to 1, in place; alpha stays.
void mapCurve(float* pixels, size_t count, const Curve& curve, bool isOpaque);

// Mixing with a blurred copy, in place.

/// c + intensity × blurred × (alpha - c); alpha stays.
void bloomPixels(float* pixels, const float* blurred, size_t count, float intensity);

/// (c + intensity / 4 × (blurred - c)) / (1 + 2 × intensity × blurred), at most alpha, which stays.
void gloomPixels(float* pixels, const float* blurred, size_t count, float intensity);

// Sharpening.

/// The luminance of each pixel.
void takeLuminance(const float* pixels, size_t count, float* luminance);

/// Luminance and alpha of each pixel, side by side.
void takeLuminanceAndAlpha(const float* pixels, size_t count, float* values);

/// From rows of luminance and alpha: sharpness × (luminance - alpha × blurred luminance / blurred
/// alpha).
void takeEdges(const float* values, const float* blurred, size_t count, float sharpness,
               float* edges);

/// Adds edges[i] to each colour of pixel i, limited to 0 to alpha. 15 floats beyond the last edge
/// are read, too.
void addEdges(const float* pixels, const float* edges, size_t count, float* out);

// What depends on the place.

/// A light over a row. Pixel i lies e = `dx` + (`index` + i) to the right of the light; the cosine
/// of the angle between the axis of the beam and the direction in which the light sees it is (e ×
/// `axis` + `along`) / √(e² + `across`).
struct LightRow {
  float index;
  float dx;
  float axis;
  float along;
  float across;
  float edge;      ///< the cosine where the light ends
  float scale;     ///< 1 / (1 - edge)
  float color[4];  ///< brightness included; the last has no meaning
};

/// Multiplies by the light, in place; colours are limited to alpha.
void lightPixels(float* pixels, size_t count, const LightRow& light);

/// Lines across a row: pixel i lies at u = `phase` + `step` × (`index` + i), in units of the
/// distance of lines.
struct LineRow {
  float index;
  float phase;
  float step;
  float gain;   ///< what luminance counts
  float slope;  ///< what the distance from the middle of a line counts
};

/// With v = 1 - |2 (u - ⌊u⌋) - 1|, each pixel becomes the grey gain × luminance - slope × v ×
/// alpha, limited to 0 to alpha, in place.
void screenPixels(float* pixels, size_t count, const LineRow& lines);

/// Neighbouring pixels of a row that share a colour.
template <typename Value>
struct PixelRun {
  int32_t begin;
  int32_t end;   ///< not below `begin`
  Value* color;  ///< four values
};

/// Adds the pixels of each run to its colour; indices count from `row`.
void addRuns(const float* row, const PixelRun<double>* runs, size_t count);

/// Gives the pixels of each run its colour.
void fillRuns(const PixelRun<const float>* runs, size_t count, float* row);

}  // namespace kestrel::kernels
