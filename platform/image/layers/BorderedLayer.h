#pragma once

#include "platform/image/layers/Layer.h"
#include "platform/image/values/IntRect.h"

namespace kestrel {

/// What filters that look at neighbours find beyond the border of a picture.
enum class Border {
  kTransparent,
  kContinued,  ///< the pixels at the border, repeated, so that nothing fades there
};

/// A picture that can be asked for pixels anywhere.
class BorderedLayer {
 public:
  /// `picture` is where the picture lies. The layer computes what of it will be used; where the
  /// layer ends within the picture, the picture is transparent.
  BorderedLayer(const Layer& layer, const IntRect& picture, Border border)
      : layer_(&layer), picture_(picture), border_(border) {}

  const Layer& layer() const { return *layer_; }
  const IntRect& picture() const { return picture_; }
  Border border() const { return border_; }

  void render(Worker& worker, const IntRect& rect, const Tile& out) const;
  bool isOpaque(const IntRect& rect) const;

 private:
  /// What of the picture the pixels of `rect` are made of; never empty.
  IntRect nearest(const IntRect& rect) const;
  void renderContinued(Worker& worker, const IntRect& rect, const Tile& out) const;

  const Layer* layer_;
  IntRect picture_;
  Border border_;
};

}  // namespace kestrel
