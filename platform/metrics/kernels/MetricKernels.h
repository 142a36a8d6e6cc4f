#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// The inner loops of metrics that compare pictures, compiled for several instruction sets.
///
/// They work on rows of floats that begin at a multiple of 64 bytes, that may be read and written
/// up to the next multiple of `kRowUnit` values, and in front of whose first and behind whose last
/// value there are at least `kRowMargin` zeros where it is said.
namespace kestrel::kernels {

inline constexpr size_t kRowUnit = 16;
inline constexpr size_t kRowMargin = 16;

/// How many rows above and below, and columns left and right, a blurred value is made of.
inline constexpr int kBlurReach = 4;

/// How many rows `blurDown` makes at a time.
inline constexpr int kBlurRows = 4;

/// The middle of a symmetrical curve and its one side, which add up to 1 with the other side.
using BlurWeights = std::array<float, kBlurReach + 1>;

/// R, G and B of 8-bit pixels of R, G, B and a fourth byte, each through a table of 256 values.
void lookUpPixels(const uint8_t* pixels, const float* table, size_t count, float* const rgb[3]);

/// R, G and B in linear light to X, Y and B - Y as metrics compare them: shifted so that no natural
/// colour is negative, X and B - Y stretched.
void toXyb(const float* const rgb[3], size_t count, float* const xyb[3]);

/// Means of two by two: of values 2i and 2i + 1 of two rows. `count` values come out; where the
/// rows have an odd number, their last one is there twice.
void halve(const float* upper, const float* lower, size_t count, float* out);

/// b - a, the square of that, and a² + b². `squares` and `sums` may be null.
void compareRows(const float* a, const float* b, size_t count, float* differences, float* squares,
                 float* sums);

/// A row blurred across. `row` has zeros in front and behind.
void blurAcross(const float* row, const BlurWeights& weights, size_t count, float* out);

/// Columns `begin` to `end` of `kBlurRows` rows, blurred down: row i is made of `rows[i]` to
/// `rows[i + 2 * kBlurReach]`. `begin` is a multiple of `kRowUnit`.
void blurDown(const float* const* rows, const BlurWeights& weights, size_t begin, size_t end,
              float* const* out);

/// What a stretch of two pictures adds to an error's mean and to the mean of its fourth power.
struct ErrorSums {
  double first = 0;
  double fourth = 0;
};

/// How much two pictures differ in structure: `mean` is the blurred original, `difference` the
/// blurred difference, `square` its square, blurred, `sum` the blurred sum of both squares.
ErrorSums structureSums(const float* mean, const float* difference, const float* square,
                        const float* sum, size_t count);

/// How much more of edges, and how much less, the second picture has than the first.
struct EdgeSums {
  ErrorSums more;
  ErrorSums less;
};
EdgeSums edgeSums(const float* a, const float* b, const float* mean, const float* difference,
                  size_t count);

}  // namespace kestrel::kernels
