#pragma once

#include <kestrel/BitmapImage.h>
#include <kestrel/Export.h>
#include <kestrel/Geometry.h>

#include <cstdint>
#include <memory>

namespace kestrel {

/// A drawing surface of 8-bit pixels that owns its memory.
///
/// Memory holds the top row first, each pixel as R, G, B and a fourth byte. Drawing coordinates are
/// pixels in doubles with the origin at the lower-left corner, so the last row of memory is the one
/// from y = 0 to y = 1.
///
/// The fourth byte is either the alpha of a pixel that is not premultiplied (`kRGBA`) or has no
/// meaning (`kRGBX`); a surface without alpha is opaque, and drawing keeps that byte at 255, so its
/// memory also reads as opaque RGBA. Drawing copes with any rectangle: what lies outside of the
/// surface is clipped, a border that cuts through pixels covers them in part, and a rectangle that
/// is empty or not finite draws nothing.
///
/// A surface can be declared with another depth than 32 bits per pixel, for a host that fills such
/// memory itself; drawing leaves it alone.
///
/// One thread at a time uses a context.
class KESTREL_API BitmapContext {
 public:
  enum class Format {
    kRGBX,  ///< no alpha: the surface is opaque
    kRGBA,  ///< alpha, not premultiplied
  };

  /// How the pixels of a picture join those below it.
  enum class Blend {
    kSourceOver,  ///< the picture is laid over what is there
    kCopy,        ///< the picture replaces what is there, transparency included
  };

  /// A surface of `width` × `height` pixels, as `clear` leaves it. When a side or the depth is not
  /// above 0, or there is not enough memory, the surface has no pixels: both sides are 0 and `data`
  /// is null.
  BitmapContext(int width, int height, Format format = Format::kRGBX, int bitsPerPixel = 32);

  BitmapContext(const BitmapContext&) = delete;
  BitmapContext& operator=(const BitmapContext&) = delete;

  /// The pixels of the top row, for reading and writing; null for a surface without pixels.
  uint8_t* data() { return memory_.get(); }
  const uint8_t* data() const { return memory_.get(); }

  int width() const { return width_; }    ///< pixels
  int height() const { return height_; }  ///< pixels
  Format format() const { return format_; }
  int bitsPerPixel() const { return bitsPerPixel_; }

  /// Exactly `width()` × 4; more only for a surface declared deeper than 32 bits.
  int bytesPerRow() const { return bytesPerRow_; }

  /// Makes every pixel transparent black, or opaque black on a surface without alpha; memory of
  /// another depth becomes zeros.
  void clear();

  /// Lays a colour over a rectangle. The components run from 0 to 1, beyond which they are clamped;
  /// they are not premultiplied by the alpha `a`.
  void fillRect(const Rect& rect, double r, double g, double b, double a = 1);

  /// Draws the whole picture stretched into `target`.
  ///
  /// Each direction is resampled by itself: bilinear where the picture is enlarged, the average of
  /// the area that a pixel covers where it is shrunk. A picture drawn in its own size onto whole
  /// pixels is not resampled at all, and with `Blend::kCopy` arrives byte for byte on a surface
  /// with alpha. On a surface without alpha, copying leaves transparent parts as they look over
  /// black.
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
