#pragma once

#include <cstddef>
#include <cstdint>

namespace kestrel::kernels {

/// Colours at the corners of cubes: `side`³ of them, blue running fastest, four values each (red,
/// green, blue and one without meaning), `kOne` for 1 and none below 0.
struct ColorCube {
  static constexpr int kOne = 32767;

  const int16_t* colors;
  int side;     ///< 2 to 128
  float scale;  ///< from a sample to its place, which is limited to 0 to `side` - 1
};

/// Maps the colours of pixels (four floats, multiplied by alpha) in place, between corners by
/// tetrahedral interpolation. `isOpaque`: alpha is 1 everywhere.
void lookUpColors(float* pixels, size_t count, const ColorCube& cube, bool isOpaque);

/// Adds noise[i] × alpha to each colour of pixel i, in place.
void addNoise(float* pixels, const float* noise, size_t count);

}  // namespace kestrel::kernels
