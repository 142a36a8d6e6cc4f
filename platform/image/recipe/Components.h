#pragma once

#include <kestrel/YUVPicture.h>

#include "platform/image/values/HdrCurves.h"

namespace kestrel {

/// Whether a matrix is one in name only: its components are no mixes of red, green and blue, but
/// of light or of cones.
constexpr bool isCurved(YUVMatrix matrix) {
  return matrix == YUVMatrix::kConstantLuminance || matrix == YUVMatrix::kICtCpOfPq ||
         matrix == YUVMatrix::kICtCpOfHlg;
}

/// From the components of a curved matrix to red, green and blue, and back. The first component is
/// from 0 to 1, the others from -½ to ½; colours are from 0 to 1, and those outside are limited.
Triple colorsOf(YUVMatrix matrix, const Triple& components);
Triple componentsOf(YUVMatrix matrix, const Triple& colors);

/// The same for rows of pixels, four floats multiplied by alpha, where ½ is added to the last two
/// components.
void componentsToColors(YUVMatrix matrix, float* pixels, size_t count);
void colorsToComponents(YUVMatrix matrix, float* pixels, size_t count);

}  // namespace kestrel
