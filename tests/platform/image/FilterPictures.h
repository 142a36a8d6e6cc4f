#pragma once

#include <kestrel/Filter.h>
#include <kestrel/Image.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/platform/image/TestPictures.h"

namespace kestrel::test {

using ImagePointer = std::shared_ptr<const Image>;
using FilterSettings = std::vector<std::pair<std::string_view, FilterValue>>;

/// The output of a fresh filter of that name with these values.
ImagePointer filtered(const std::string& name, const ImagePointer& input,
                      const FilterSettings& settings = {});

/// Noise at the origin, opaque or with any alpha.
ImagePointer opaqueNoise(int width, int height, uint32_t seed = 1);
ImagePointer seeThroughNoise(int width, int height, uint32_t seed = 1);

/// One opaque colour at the origin.
ImagePointer flat(int width, int height, const Pixel& color);

/// The pixels of `rect`; fails the test when there are none.
std::shared_ptr<const BitmapImage> rendered(const ImagePointer& image, const Rect& rect);

/// The pixel from (x, y) to (x + 1, y + 1) of the plane.
Pixel shownAt(const ImagePointer& image, int x, int y);

/// True when `part` of the picture, rendered alone, has the same bytes as in the picture of
/// `whole`.
bool isPartOfWhole(const ImagePointer& image, const Rect& whole, const Rect& part);

}  // namespace kestrel::test
