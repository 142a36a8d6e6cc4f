#pragma once

#include <kestrel/BitmapContext.h>
#include <kestrel/Image.h>
#include <kestrel/ImageContext.h>

#include <memory>

struct AVFrame;

namespace kestrel {

/// What images are drawn on before they are converted, one after another and each over the one
/// before: a bitmap context, made once.
///
/// An image can also be drawn right into a frame of luma and chroma, which spares the context and
/// the conversion. The surface then shows what that frame shows, and the context follows when
/// somebody needs it.
class DrawingSurface {
 public:
  /// Makes the context, unless there is one.
  void create(int width, int height);

  int width() const { return context_ ? context_->width() : 0; }
  int height() const { return context_ ? context_->height() : 0; }

  /// The context with all that was drawn; null before `create`.
  BitmapContext* context();

  /// The same, to somebody who may draw there at any later time: from then on nothing is drawn past
  /// the context.
  BitmapContext* share();

  /// Draws `image` over what the surface shows, stretched over all of it, into `frame`, which has
  /// the context's size. False, and the surface as it was, when the frame's pixel format or the
  /// context being shared does not allow that. `byFields` says how chroma of 4:2:0 is made.
  bool drawInto(AVFrame& frame, const Image& image, bool byFields = false);

  /// Draws `image` over what `context` shows, stretched over all of it.
  void draw(const Image& image, BitmapContext& context) const;

 private:
  std::shared_ptr<const Image> content() const;

  std::unique_ptr<BitmapContext> context_;
  std::shared_ptr<const AVFrame> latest_;  ///< shows what was drawn past the context
  bool isShared_ = false;
  ImageContext renderer_;
};

}  // namespace kestrel
