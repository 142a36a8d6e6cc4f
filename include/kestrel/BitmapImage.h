#pragma once

#include <kestrel/Export.h>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace kestrel {

/// A picture of 8-bit pixels: R, G, B, A in memory order, alpha not premultiplied, top row first.
///
/// It wraps a pixel buffer and never writes to it. The buffer is either shared (`sharing`) or
/// borrowed (`borrowing`). A borrowing picture shows whatever the owner writes into the buffer and
/// is valid only as long as the owner says; make a `copy` to keep it longer.
///
/// Pictures are created by the static functions and held by `std::shared_ptr<const BitmapImage>`.
/// Any number of threads may use a picture, as far as its buffer allows.
class KESTREL_API BitmapImage {
 public:
  /// A picture over memory owned by somebody else: `height` rows, `bytesPerRow` bytes apart. Null
  /// if `pixels` is null, a side is 0 or negative, or `bytesPerRow` is less than `width` × 4.
  static std::shared_ptr<const BitmapImage> borrowing(const uint8_t* pixels, int width, int height,
                                                      int bytesPerRow);

  /// The same, but keeps the memory alive.
  static std::shared_ptr<const BitmapImage> sharing(std::shared_ptr<const uint8_t[]> pixels,
                                                    int width, int height, int bytesPerRow);

  /// The top row; never null.
  const uint8_t* pixels() const { return pixels_; }

  /// The row `y` pixels below the top one, 0 ≤ `y` < `height()`.
  const uint8_t* row(int y) const {
    return pixels_ + static_cast<size_t>(y) * static_cast<size_t>(bytesPerRow_);
  }

  int width() const { return width_; }    ///< pixels
  int height() const { return height_; }  ///< pixels
  int bytesPerRow() const { return bytesPerRow_; }

  /// True if the picture keeps its buffer alive.
  bool isOwning() const { return owner_ != nullptr; }

  /// A copy of the picture in memory of its own, without gaps between rows. Null if memory runs
  /// out.
  std::shared_ptr<const BitmapImage> copy() const;

 private:
  BitmapImage(std::shared_ptr<const uint8_t[]> owner, const uint8_t* pixels, int width, int height,
              int bytesPerRow);

  std::shared_ptr<const uint8_t[]> owner_;
  const uint8_t* pixels_;
  int width_;
  int height_;
  int bytesPerRow_;
};

}  // namespace kestrel
