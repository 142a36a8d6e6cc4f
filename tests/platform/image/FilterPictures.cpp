#include "tests/platform/image/FilterPictures.h"

#include <gtest/gtest.h>
#include <kestrel/FilterRegistry.h>
#include <kestrel/ImageContext.h>

#include <algorithm>

namespace kestrel::test {

ImagePointer filtered(const std::string& name, const ImagePointer& input,
                      const FilterSettings& settings) {
  const auto filter = FilterRegistry::filterWithName(name);
  if (!filter) {
    ADD_FAILURE() << "There is no " << name;
    return input;
  }
  for (const auto& [key, value] : settings) filter->setValue(value, key);
  filter->setValue(input, kCIInputImageKey);
  return filter->outputImage();
}

ImagePointer opaqueNoise(int width, int height, uint32_t seed) {
  return Image::fromBitmap(noise(width, height, seed), Image::Alpha::kOpaque);
}

ImagePointer seeThroughNoise(int width, int height, uint32_t seed) {
  return Image::fromBitmap(noise(width, height, seed, Image::Alpha::kStraight));
}

ImagePointer flat(int width, int height, const Pixel& color) {
  return Image::fromBitmap(makeBitmap(width, height, [&](int, int) { return color; }),
                           Image::Alpha::kOpaque);
}

std::shared_ptr<const BitmapImage> rendered(const ImagePointer& image, const Rect& rect) {
  auto bitmap = ImageContext().bitmapImage(image, rect);
  EXPECT_TRUE(bitmap);
  return bitmap ? bitmap : makeBitmap(1, 1, [](int, int) { return Pixel{}; });
}

Pixel shownAt(const ImagePointer& image, int x, int y) {
  return pixelAt(*rendered(image, {{static_cast<double>(x), static_cast<double>(y)}, {1, 1}}), 0,
                 0);
}

bool isPartOfWhole(const ImagePointer& image, const Rect& whole, const Rect& part) {
  const auto all = rendered(image, whole);
  const auto some = rendered(image, part);
  const auto dx = static_cast<int>(part.minX() - whole.minX());
  const auto dy = static_cast<int>(whole.maxY() - part.maxY());
  for (int y = 0; y < some->height(); ++y) {
    if (!std::equal(some->row(y), some->row(y) + 4 * some->width(), all->row(dy + y) + 4 * dx))
      return false;
  }
  return true;
}

}  // namespace kestrel::test
