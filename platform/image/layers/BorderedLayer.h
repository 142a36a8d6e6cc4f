#pragma once

#include "platform/image/layers/Layer.h"
#include "platform/image/values/IntRect.h"

namespace kestrel {

/// A picture that can be asked for pixels anywhere, as filters do that look at neighbours: beyond
/// its border the pixels there repeat, so that nothing fades.
class BorderedLayer {
 public:
  /// `picture` is where the picture lies. The layer computes what of it will be used; where the
  /// layer ends within the picture, the picture is transparent.
  BorderedLayer(const Layer& layer, const IntRect& picture) : layer_(&layer), picture_(picture) {}

  const Layer& layer() const { return *layer_; }
  const IntRect& picture() const { return picture_; }

  void render(Worker& worker, const IntRect& rect, const Tile& out) const;
  bool isOpaque(const IntRect& rect) const;

 private:
  /// What of the picture the pixels of `rect` are made of; never empty.
  IntRect nearest(const IntRect& rect) const;

  const Layer* layer_;
  IntRect picture_;
};

}  // namespace kestrel
