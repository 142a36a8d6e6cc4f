#pragma once

#include <kestrel/BitmapImage.h>
#include <kestrel/Image.h>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <random>

namespace kestrel::test {

using Pixel = std::array<uint8_t, 4>;

/// A bitmap whose pixel in column x of row y, counted from the top, is `color(x, y)`. Rows are
/// `spareBytes` longer than they need be.
std::shared_ptr<const BitmapImage> makeBitmap(int width, int height,
                                              const std::function<Pixel(int x, int y)>& color,
                                              int spareBytes = 0);

/// Noise, with alpha of any value or opaque.
std::shared_ptr<const BitmapImage> noise(int width, int height, uint32_t seed,
                                         Image::Alpha alpha = Image::Alpha::kOpaque,
                                         int spareBytes = 0);

/// The pixel in column x of row y, counted from the top.
Pixel pixelAt(const BitmapImage& bitmap, int x, int y);

/// A picture drawn over another.
std::shared_ptr<const Image> over(const std::shared_ptr<const Image>& front,
                                  const std::shared_ptr<const Image>& behind);

}  // namespace kestrel::test
