#pragma once

#include "platform/image/layers/Layer.h"

namespace kestrel {

/// Another layer with each pixel changed by a rule that knows where it is.
class PlaceLayer : public Layer {
 public:
  explicit PlaceLayer(const Layer& input) : Layer(input.bounds()), input_(input) {}

  void render(Worker& worker, const IntRect& rect, const Tile& out) const final;
  bool isOpaque(const IntRect& rect) const final { return input_.isOpaque(rect); }
  bool prefersBlocks() const final { return input_.prefersBlocks(); }

 protected:
  ~PlaceLayer() = default;

 private:
  /// Changes `count` pixels of row `y`, the first of which is `index` to the right of column `x`.
  /// The same pixel always comes with the same `x`, so that rounding is the same, too.
  virtual void apply(int x, int y, int index, float* pixels, size_t count) const = 0;

  const Layer& input_;
};

}  // namespace kestrel
