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
/// Only what the requested rectangle needs is computed, in strips, on threads that all contexts of
/// the process share. The number of threads does not affect the result. Values are clamped and
/// rounded once, at the end. A context keeps its working memory until it is destroyed, so that
/// rendering similar pictures does not allocate again.
///
/// Safe from any thread, also concurrently. Pictures with a side above 32768 pixels are refused.
class KESTREL_API ImageContext {
 public:
  ImageContext();
  ~ImageContext();
  ImageContext(const ImageContext&) = delete;
  ImageContext& operator=(const ImageContext&) = delete;

  /// The maximum number of threads, including the caller's, that work on one picture, from the next
  /// picture on. 0, the default, means one per processor.
  void setThreads(int threads);
  int threads() const;

  /// Renders the pixels of `integral(bounds)`: R, G, B, A, alpha not premultiplied, top row first,
  /// rows `bytesPerRow` bytes apart. Pixels that the image does not cover become transparent black
  /// (all zeros), as do all pixels of a null image. Returns false and writes nothing if `bounds` is
  /// empty, infinite or too large, `pixels` is null or a row is too short for its pixels. Also
  /// returns false if memory runs out.
  bool render(const std::shared_ptr<const Image>& image, const Rect& bounds, uint8_t* pixels,
              int bytesPerRow) const;

  /// The same into luma and chroma planes. The width and height of the target's format must be
  /// those of `integral(bounds)`. Transparency shows as black. Chroma is the average of the rows
  /// that share it and, if two columns do, of the one it is sited with (¾), its neighbours (¼ each)
  /// and theirs (-⅛ each): what `Image::fromPlanes` made of chroma of the same format becomes that
  /// again. Where all that an image does to planes of the same depth, matrix and range is to crop,
  /// scale or mirror them, each plane is scaled by itself, or copied. So it is outside of whatever
  /// lies over such a picture, but for the samples of chroma that it touches.
  bool render(const std::shared_ptr<const Image>& image, const Rect& bounds,
              const YUVTarget& target) const;

  /// The pixels of `integral(rect)` in new memory, without gaps between rows; null if `render`
  /// would return false.
  std::shared_ptr<const BitmapImage> bitmapImage(const std::shared_ptr<const Image>& image,
                                                 const Rect& rect) const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
