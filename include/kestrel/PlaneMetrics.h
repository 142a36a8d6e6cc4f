#pragma once

#include <kestrel/Export.h>

#include <cstddef>
#include <cstdint>

namespace kestrel {

/// Samples of one component of a picture, top row first.
struct PlaneView {
  const uint8_t* data = nullptr;
  ptrdiff_t bytesPerRow = 0;
  int width = 0;     ///< samples
  int height = 0;    ///< rows
  int bitDepth = 8;  ///< 8 to 16; above 8, samples have two bytes in native byte order
};

/// The sum of the squared differences of all samples. Throws std::invalid_argument where the planes
/// differ in size or depth.
KESTREL_API uint64_t squaredError(const PlaneView& one, const PlaneView& other);

/// The peak signal-to-noise ratio of a mean squared error, dB: infinite for none.
KESTREL_API double psnr(double meanSquaredError, int bitDepth);

/// The structural similarity of two planes, up to 1: the mean over windows of 8 by 8 samples, 4
/// apart, of (2 ma mb + c1) (2 cov + c2) / ((ma² + mb² + c1) (va + vb + c2)) with k1 0.01 and k2
/// 0.03 (Z. Wang, A. Bovik, H. Sheikh, E. Simoncelli, Image Quality Assessment, IEEE Transactions
/// on Image Processing 13, 2004), to the digits that ffmpeg's `ssim` prints. Throws
/// std::invalid_argument where the planes differ in size or depth or a side is below 8.
KESTREL_API double ssim(const PlaneView& one, const PlaneView& other);

}  // namespace kestrel
