#pragma once

#include <kestrel/Export.h>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace kestrel {

/// A picture of 8-bit pixels: R, G, B, A in memory order, alpha not premultiplied, the top row
/// first.
///
/// It wraps a pixel buffer and never writes to it. The buffer is either shared with whoever else
/// holds it (`sharing`), or only borrowed (`borrowing`): a borrowing picture shows whatever its
/// lender writes into the buffer, and is valid only as long as the lender says. Whoever wants to
/// keep such a picture takes a `copy`.
///
/// A picture is made by one of the static operations and held by `std::shared_ptr<const
/// BitmapImage>`. It may be used from any number of threads, as far as its buffer may.
class KESTREL_API BitmapImage {
 public:
  /// A picture over memory that somebody else keeps: `height` rows, each `bytesPerRow` bytes after
  /// the one above it. Null when `pixels` is null, when a side is not above 0, or when
  /// `bytesPerRow` is less than `width` × 4.
  static std::shared_ptr<const BitmapImage> borrowing(const uint8_t* pixels, int width, int height,
                                                      int bytesPerRow);

  /// The same over memory that lives at least as long as the picture does.
  static std::shared_ptr<const BitmapImage> sharing(std::shared_ptr<const uint8_t[]> pixels,
                                                    int width, int height, int bytesPerRow);

  /// Pixels of the top row; never null.
  const uint8_t* pixels() const { return pixels_; }

  /// The row `y` pixels below the top one, 0 ≤ `y` < `height()`.
  const uint8_t* row(int y) const {
    return pixels_ + static_cast<size_t>(y) * static_cast<size_t>(bytesPerRow_);
  }

  int width() const { return width_; }    ///< pixels
  int height() const { return height_; }  ///< pixels
  int bytesPerRow() const { return bytesPerRow_; }

  /// True when the picture keeps its own buffer alive.
  bool isOwning() const { return owner_ != nullptr; }

  /// A picture with the same pixels in memory of its own, rows tightly packed. Null when there is
  /// not enough memory.
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
