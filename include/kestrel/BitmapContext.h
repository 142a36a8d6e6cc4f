#pragma once

#include <kestrel/BitmapImage.h>
#include <kestrel/Export.h>
#include <kestrel/Geometry.h>

#include <cstdint>
#include <memory>

namespace kestrel {

/// A drawing surface of 8-bit pixels that owns its memory.
///
/// The top row comes first in memory; each pixel is R, G, B and a fourth byte. Drawing coordinates
/// are pixels, as doubles, with the origin at the lower-left corner: the last row in memory extends
/// from y = 0 to y = 1.
///
/// The fourth byte is either alpha, not premultiplied (`kRGBA`), or unused (`kRGBX`). A surface
/// without alpha is opaque: drawing keeps the fourth byte at 255, so that its memory can also be
/// read as opaque RGBA. Rectangles may have any position and size: they are clipped to the surface,
/// pixels at a fractional edge are partly covered, and a rectangle that is empty or not finite
/// draws nothing.
///
/// A surface may have a depth other than 32 bits per pixel, for hosts that fill the memory
/// themselves; drawing on it has no effect.
///
/// Use from one thread at a time.
class KESTREL_API BitmapContext {
 public:
  enum class Format {
    kRGBX,  ///< no alpha: the surface is opaque
    kRGBA,  ///< alpha, not premultiplied
  };

  /// How a picture is combined with the pixels below it.
  enum class Blend {
    kSourceOver,  ///< the picture is drawn over what is there
    kCopy,        ///< the picture replaces what is there, transparency included
  };

  /// A surface of `width` × `height` pixels, cleared. If a side or the depth is 0 or negative, or
  /// memory runs out, the surface has no pixels: both sides are 0 and `data` is null.
  BitmapContext(int width, int height, Format format = Format::kRGBX, int bitsPerPixel = 32);

  BitmapContext(const BitmapContext&) = delete;
  BitmapContext& operator=(const BitmapContext&) = delete;

  /// Pointer to the top row; null for a surface without pixels.
  uint8_t* data() { return memory_.get(); }
  const uint8_t* data() const { return memory_.get(); }

  int width() const { return width_; }    ///< pixels
  int height() const { return height_; }  ///< pixels
  Format format() const { return format_; }
  int bitsPerPixel() const { return bitsPerPixel_; }

  /// `width()` × 4; more only if the surface is deeper than 32 bits.
  int bytesPerRow() const { return bytesPerRow_; }

  /// Makes every pixel transparent black, or opaque black on a surface without alpha. Memory of
  /// another depth is zeroed.
  void clear();

  /// Draws a colour over a rectangle. The components are clamped to 0 to 1 and not premultiplied by
  /// the alpha `a`.
  void fillRect(const Rect& rect, double r, double g, double b, double a = 1);

  /// Draws the whole picture, stretched to `target`.
  ///
  /// Each direction is resampled separately: bilinear when enlarging, the average of the covered
  /// area when shrinking. A picture drawn at its own size onto whole pixels is not resampled; with
  /// `Blend::kCopy` it arrives byte for byte on a surface with alpha. On a surface without alpha,
  /// copying shows transparent parts as over black.
  void drawImage(const BitmapImage& image, const Rect& target, Blend blend = Blend::kSourceOver);

 private:
  bool canDraw() const { return memory_ != nullptr && bitsPerPixel_ == 32; }
  uint8_t* pixelAt(int x, int y);

  std::unique_ptr<uint8_t[]> memory_;
  int width_ = 0;
  int height_ = 0;
  int bytesPerRow_ = 0;
  int bitsPerPixel_;
  Format format_;
};

}  // namespace kestrel
