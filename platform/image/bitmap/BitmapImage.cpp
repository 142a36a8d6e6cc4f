#include <kestrel/BitmapImage.h>

#include <cstring>
#include <new>
#include <utility>

namespace kestrel {

namespace {

constexpr int kBytesPerPixel = 4;

bool isValid(const uint8_t* pixels, int width, int height, int bytesPerRow) {
  return pixels && width > 0 && height > 0 && bytesPerRow / kBytesPerPixel >= width;
}

}  // namespace

BitmapImage::BitmapImage(std::shared_ptr<const uint8_t[]> owner, const uint8_t* pixels, int width,
                         int height, int bytesPerRow)
    : owner_(std::move(owner)),
      pixels_(pixels),
      width_(width),
      height_(height),
      bytesPerRow_(bytesPerRow) {}

std::shared_ptr<const BitmapImage> BitmapImage::borrowing(const uint8_t* pixels, int width,
                                                          int height, int bytesPerRow) {
  if (!isValid(pixels, width, height, bytesPerRow)) return nullptr;
  return std::shared_ptr<const BitmapImage>(
      new BitmapImage(nullptr, pixels, width, height, bytesPerRow));
}

std::shared_ptr<const BitmapImage> BitmapImage::sharing(std::shared_ptr<const uint8_t[]> pixels,
                                                        int width, int height, int bytesPerRow) {
  if (!isValid(pixels.get(), width, height, bytesPerRow)) return nullptr;
  const uint8_t* address = pixels.get();
  return std::shared_ptr<const BitmapImage>(
      new BitmapImage(std::move(pixels), address, width, height, bytesPerRow));
}

std::shared_ptr<const BitmapImage> BitmapImage::copy() const {
  const size_t rowLength = static_cast<size_t>(width_) * kBytesPerPixel;
  std::shared_ptr<uint8_t[]> memory(new (std::nothrow)
                                        uint8_t[rowLength * static_cast<size_t>(height_)]);
  if (!memory) return nullptr;
  for (int y = 0; y < height_; ++y) {
    std::memcpy(memory.get() + static_cast<size_t>(y) * rowLength, row(y), rowLength);
  }
  return sharing(std::move(memory), width_, height_, width_ * kBytesPerPixel);
}

}  // namespace kestrel
