#include <kestrel/PlaneMetrics.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <vector>

namespace kestrel {

namespace {

constexpr int kBlock = 4;
constexpr int kWindow = 2 * kBlock;
constexpr int kWindowSamples = kWindow * kWindow;

void requireAlike(const PlaneView& one, const PlaneView& other) {
  if (one.width != other.width || one.height != other.height || one.bitDepth != other.bitDepth)
    throw std::invalid_argument("planes of different size or depth cannot be compared");
}

template <typename Sample>
const Sample* rowOf(const PlaneView& plane, int y) {
  return reinterpret_cast<const Sample*>(plane.data + y * plane.bytesPerRow);
}

/// Calls `work` with a value of the type that the planes' samples have.
template <typename Work>
auto withSamples(const PlaneView& plane, const Work& work) {
  return plane.bitDepth > 8 ? work(uint16_t{}) : work(uint8_t{});
}

/// Sums over a stretch of two planes.
struct Sums {
  int64_t one = 0;
  int64_t other = 0;
  int64_t squares = 0;  ///< of both
  int64_t products = 0;

  friend Sums operator+(const Sums& a, const Sums& b) {
    return {a.one + b.one, a.other + b.other, a.squares + b.squares, a.products + b.products};
  }
};

/// The sums of each block of a row of blocks.
template <typename Sample>
void sumBlocks(const PlaneView& one, const PlaneView& other, int blockRow,
               std::vector<Sums>& sums) {
  const Sample* first[kBlock];
  const Sample* second[kBlock];
  for (int r = 0; r < kBlock; ++r) {
    first[r] = rowOf<Sample>(one, blockRow * kBlock + r);
    second[r] = rowOf<Sample>(other, blockRow * kBlock + r);
  }
  // A block's sums of squares of 8 bits fit into 32, which takes half the time.
  using Sum = std::conditional_t<sizeof(Sample) == 1, int32_t, int64_t>;
  for (size_t block = 0; block < sums.size(); ++block) {
    Sum a = 0;
    Sum b = 0;
    Sum squares = 0;
    Sum products = 0;
    for (int r = 0; r < kBlock; ++r) {
      const Sample* const p = first[r] + block * kBlock;
      const Sample* const q = second[r] + block * kBlock;
      for (int x = 0; x < kBlock; ++x) {
        const Sum v = p[x];
        const Sum w = q[x];
        a += v;
        b += w;
        squares += v * v + w * w;
        products += v * w;
      }
    }
    sums[block] = {a, b, squares, products};
  }
}

/// The similarity of a window of four blocks. The constants are whole numbers, at the scale of sums
/// over a window; the quotient has the precision in which the metric is printed elsewhere.
float similarity(const Sums& window, int bitDepth) {
  const double peak = (1 << bitDepth) - 1;
  const auto c1 = std::llround(0.01 * 0.01 * peak * peak * kWindowSamples);
  const auto c2 = std::llround(0.03 * 0.03 * peak * peak * kWindowSamples * (kWindowSamples - 1));
  const int64_t means = window.one * window.other;
  const int64_t meanSquares = window.one * window.one + window.other * window.other;
  const int64_t variances = window.squares * kWindowSamples - meanSquares;
  const int64_t covariance = window.products * kWindowSamples - means;
  return static_cast<float>(2 * means + c1) * static_cast<float>(2 * covariance + c2) /
         (static_cast<float>(meanSquares + c1) * static_cast<float>(variances + c2));
}

template <typename Sample>
uint64_t squaredErrorOf(const PlaneView& one, const PlaneView& other) {
  uint64_t sum = 0;
  for (int y = 0; y < one.height; ++y) {
    const Sample* const a = rowOf<Sample>(one, y);
    const Sample* const b = rowOf<Sample>(other, y);
    // 65,536 samples of 8 bits at most go into 32 bits.
    using RowSum = std::conditional_t<sizeof(Sample) == 1, uint32_t, uint64_t>;
    constexpr int kStretch = 65536;
    for (int from = 0; from < one.width; from += kStretch) {
      const int end = std::min(one.width, from + kStretch);
      RowSum row = 0;
      for (int x = from; x < end; ++x) {
        const int32_t difference = a[x] - b[x];
        row +=
            static_cast<RowSum>(std::abs(difference)) * static_cast<RowSum>(std::abs(difference));
      }
      sum += row;
    }
  }
  return sum;
}

}  // namespace

uint64_t squaredError(const PlaneView& one, const PlaneView& other) {
  requireAlike(one, other);
  return withSamples(one,
                     [&](auto sample) { return squaredErrorOf<decltype(sample)>(one, other); });
}

double psnr(double meanSquaredError, int bitDepth) {
  const double peak = (1 << bitDepth) - 1;
  return meanSquaredError > 0 ? 10 * std::log10(peak * peak / meanSquaredError)
                              : std::numeric_limits<double>::infinity();
}

double ssim(const PlaneView& one, const PlaneView& other) {
  requireAlike(one, other);
  const int columns = one.width / kBlock;
  const int rows = one.height / kBlock;
  if (columns < 2 || rows < 2)
    throw std::invalid_argument("planes of less than 8 by 8 samples have no similarity");
  std::vector<Sums> above(static_cast<size_t>(columns));
  std::vector<Sums> below(above.size());
  double sum = 0;
  for (int row = 0; row < rows; ++row) {
    std::swap(above, below);
    withSamples(one, [&](auto sample) { sumBlocks<decltype(sample)>(one, other, row, below); });
    if (row == 0) continue;
    for (size_t i = 0; i + 1 < above.size(); ++i)
      sum += double{similarity(above[i] + above[i + 1] + below[i] + below[i + 1], one.bitDepth)};
  }
  return sum / (static_cast<double>(columns - 1) * (rows - 1));
}

}  // namespace kestrel
