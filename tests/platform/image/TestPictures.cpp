#include "tests/platform/image/TestPictures.h"

#include <kestrel/FilterRegistry.h>

#include <algorithm>

namespace kestrel::test {

std::shared_ptr<const BitmapImage> makeBitmap(int width, int height,
                                              const std::function<Pixel(int x, int y)>& color,
                                              int spareBytes) {
  const int bytesPerRow = width * 4 + spareBytes;
  const size_t size = static_cast<size_t>(bytesPerRow) * static_cast<size_t>(height - 1) +
                      static_cast<size_t>(width) * 4;
  const auto memory = std::make_shared<uint8_t[]>(size);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const Pixel pixel = color(x, y);
      std::copy(pixel.begin(), pixel.end(), memory.get() + y * bytesPerRow + 4 * x);
    }
  }
  return BitmapImage::sharing(memory, width, height, bytesPerRow);
}

std::shared_ptr<const BitmapImage> noise(int width, int height, uint32_t seed, Image::Alpha alpha,
                                         int spareBytes) {
  std::mt19937 random(seed);
  const auto byte = [&random] { return static_cast<uint8_t>(random() >> 24); };
  return makeBitmap(
      width, height,
      [&](int, int) -> Pixel {
        const uint8_t r = byte(), g = byte(), b = byte(), a = byte();
        // Ends of the range come often: that is where arithmetic goes wrong.
        const uint8_t edge = a < 64 ? 0 : a > 192 ? 255 : a;
        return {r, g, b, alpha == Image::Alpha::kOpaque ? uint8_t{255} : edge};
      },
      spareBytes);
}

Pixel pixelAt(const BitmapImage& bitmap, int x, int y) {
  const uint8_t* p = bitmap.row(y) + 4 * x;
  return {p[0], p[1], p[2], p[3]};
}

std::shared_ptr<const Image> over(const std::shared_ptr<const Image>& front,
                                  const std::shared_ptr<const Image>& behind) {
  const auto filter = FilterRegistry::filterWithName("CISourceOverCompositing");
  filter->setValue(front, kCIInputImageKey);
  filter->setValue(behind, kCIInputBackgroundImageKey);
  return filter->outputImage();
}

}  // namespace kestrel::test
