// Rows of planes whose samples have more bits than the pixels of a raster, read as floats.

#include <algorithm>
#include <cmath>
#include <cstring>

#include "platform/image/kernels/Kernels.h"
#include "platform/image/layers/PlanesRaster.h"

namespace kestrel {

namespace {

constexpr int kBitsOfPixels = 14;
constexpr float kNeutralChroma = 128.0f / 255;

}  // namespace

float PlanesRaster::sampleAt(size_t plane, int x, int row) const {
  const auto& source = picture_.planes[plane];
  uint16_t sample;
  std::memcpy(&sample,
              source.data + row * source.bytesPerRow + ptrdiff_t{2} * x * source.sampleStride,
              sizeof(sample));
  return static_cast<float>(sample >> picture_.format.bitShift);
}

/// The chroma of a pixel, by linear interpolation between samples that `mix` makes of rows.
float PlanesRaster::chromaAt(size_t plane, int x, const ChromaMix& mix) const {
  const YUVFormat& format = picture_.format;
  const auto mixed = [&](int at) {
    const int inside = std::min(at, chromaWidth_ - 1);
    float sum = 0;
    for (size_t r = 0; r < mix.rows.size(); ++r)
      if (mix.shares[r] != 0)
        sum += static_cast<float>(mix.shares[r]) * sampleAt(plane, inside, mix.rows[r]);
    return sum / 16;
  };
  const double place = format.chromaX * ((1 << format.chromaShiftX) - 1);
  const double at = std::max(std::ldexp(x - place, -format.chromaShiftX), 0.0);
  const auto index = static_cast<int>(at);
  const auto share = static_cast<float>(at - index);
  return share == 0 ? mixed(index) : (1 - share) * mixed(index) + share * mixed(index + 1);
}

void PlanesRaster::readRow(Worker& worker, int y, int x0, int x1, const float* matrix,
                           float* out) const {
  const YUVFormat& format = picture_.format;
  if (format.bitDepth <= kBitsOfPixels) return Raster::readRow(worker, y, x0, x1, matrix, out);
  const int row = bounds().y1 - 1 - y;
  const ChromaMix mix = chromaOf(row);
  const float scale = 1 / (255 * std::ldexp(1.0f, format.bitDepth - 8));
  const float whole = 1 / (std::ldexp(1.0f, format.bitDepth) - 1);
  for (int x = x0; x < x1; ++x) {
    float* const pixel = out + ptrdiff_t{4} * (x - x0);
    const float alpha = picture_.planes[3].data ? sampleAt(3, x, row) * whole : 1;
    pixel[0] = alpha * sampleAt(0, x, row) * scale;
    for (size_t c = 1; c < 3; ++c)
      pixel[c] = alpha * (picture_.planes[c].data ? chromaAt(c, x, mix) * scale : kNeutralChroma);
    pixel[3] = alpha;
  }
  if (matrix) kernels::mapPixels(out, static_cast<size_t>(x1 - x0), matrix);
}

}  // namespace kestrel
