#pragma once

#include <kestrel/BitmapImage.h>
#include <kestrel/Export.h>
#include <kestrel/Geometry.h>
#include <kestrel/Image.h>
#include <kestrel/YUVPicture.h>

#include <cstdint>
#include <memory>

namespace kestrel {

/// Computes the pixels of recipes.
///
/// Only what the asked rectangle needs is computed, in strips, by the threads that all contexts of
/// the process share; the same recipe gives the same bytes whatever their number. Values are
/// clamped and rounded once, at the end. A context keeps the memory it worked with, so that a
/// further picture of the same kind allocates none; it gives it back when it is destroyed.
///
/// Any thread may use a context, and several at a time may. A picture with a side above 32768
/// pixels is refused.
class KESTREL_API ImageContext {
 public:
  ImageContext();
  ~ImageContext();
  ImageContext(const ImageContext&) = delete;
  ImageContext& operator=(const ImageContext&) = delete;

  /// How many threads, the caller's included, work on one picture: 1 to `threads`, from the next
  /// picture on. 0, the default, is as many as the machine has.
  void setThreads(int threads);
  int threads() const;

  /// Writes the pixels of `integral(bounds)`: R, G, B, A, alpha not premultiplied, the top row
  /// first, rows `bytesPerRow` bytes apart. What the image does not cover becomes transparent black
  /// (all zeros), as does every pixel of a null image. False, and nothing written, when `bounds` is
  /// empty, infinite or too large, `pixels` is null, or a row does not hold its pixels; also when
  /// there is not enough memory.
  bool render(const std::shared_ptr<const Image>& image, const Rect& bounds, uint8_t* pixels,
              int bytesPerRow) const;

  /// The same into planes of luma and chroma, whose format's width and height are those of
  /// `integral(bounds)`; transparency shows black. Chroma is the average of the rows that share it
  /// and, where columns share it, of the column it is sited with (½) and its neighbours (¼ each).
  /// An image that is nothing but planes of the same format keeps its samples.
  bool render(const std::shared_ptr<const Image>& image, const Rect& bounds,
              const YUVTarget& target) const;

  /// The pixels of `integral(rect)` in memory of their own, rows tightly packed; null where
  /// `render` would be false.
  std::shared_ptr<const BitmapImage> bitmapImage(const std::shared_ptr<const Image>& image,
                                                 const Rect& rect) const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
