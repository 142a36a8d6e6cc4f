#pragma once

#include <kestrel/Color.h>
#include <kestrel/Geometry.h>

#include "platform/image/layers/Layer.h"
#include "platform/image/layers/ResampleLayers.h"

namespace kestrel {

/// One colour.
class ColorLayer final : public Layer {
 public:
  /// Components from 0 to 1, not multiplied by alpha.
  ColorLayer(const Color& color, const IntRect& bounds);

  void render(Worker& worker, const IntRect& rect, const Tile& out) const override;
  bool isOpaque(const IntRect& /*rect*/) const override { return color_[3] == 1; }
  const float* color() const override { return color_; }

 private:
  float color_[4];
};

/// Another layer with its colours mapped and limited to what can be shown.
class MatrixLayer final : public Layer {
 public:
  MatrixLayer(const Layer& input, KernelMatrix matrix)
      : Layer(input.bounds()), input_(input), matrix_(matrix) {}

  void render(Worker& worker, const IntRect& rect, const Tile& out) const override;
  bool isOpaque(const IntRect& rect) const override { return input_.isOpaque(rect); }
  bool prefersBlocks() const override { return input_.prefersBlocks(); }

 private:
  const Layer& input_;
  KernelMatrix matrix_;
};

/// Another layer moved by whole pixels.
class ShiftLayer final : public Layer {
 public:
  ShiftLayer(const Layer& input, int dx, int dy)
      : Layer(input.bounds().moved(dx, dy)), input_(input), dx_(dx), dy_(dy) {}

  void render(Worker& worker, const IntRect& rect, const Tile& out) const override {
    input_.render(worker, rect.moved(-dx_, -dy_), out);
  }
  bool isOpaque(const IntRect& rect) const override {
    return input_.isOpaque(rect.moved(-dx_, -dy_));
  }
  bool prefersBlocks() const override { return input_.prefersBlocks(); }

 private:
  const Layer& input_;
  int dx_;
  int dy_;
};

/// Another layer with transparency around it.
class PaddedLayer final : public Layer {
 public:
  PaddedLayer(const Layer& input, const IntRect& bounds) : Layer(bounds), input_(input) {}

  void render(Worker& worker, const IntRect& rect, const Tile& out) const override {
    renderAnywhere(&input_, worker, rect, out);
  }
  bool isOpaque(const IntRect& rect) const override {
    return input_.bounds().contains(rect) && input_.isOpaque(rect);
  }
  bool prefersBlocks() const override { return input_.prefersBlocks(); }

 private:
  const Layer& input_;
};

/// What of another layer lies in a rectangle whose edges may cut through pixels.
class CropLayer final : public Layer {
 public:
  /// `rect` and the input have pixels in common.
  CropLayer(const Layer& input, const Rect& rect);

  void render(Worker& worker, const IntRect& rect, const Tile& out) const override;
  bool isOpaque(const IntRect& rect) const override {
    return whole_.contains(rect) && input_.isOpaque(rect);
  }
  bool prefersBlocks() const override { return input_.prefersBlocks(); }

 private:
  double coverageOfColumn(int x) const;
  double coverageOfRow(int y) const;

  const Layer& input_;
  Rect rect_;
  IntRect whole_;  ///< the pixels that are covered wholly
};

/// A layer over another one.
class OverLayer final : public Layer {
 public:
  OverLayer(const Layer& front, const Layer& behind, const IntRect& bounds)
      : Layer(bounds), front_(front), behind_(behind) {}

  void render(Worker& worker, const IntRect& rect, const Tile& out) const override;
  bool isOpaque(const IntRect& rect) const override;
  bool prefersBlocks() const override { return front_.prefersBlocks() || behind_.prefersBlocks(); }
  void addParts(std::pmr::vector<const Layer*>& parts) const override {
    behind_.addParts(parts);
    front_.addParts(parts);
  }

 private:
  const Layer& front_;
  const Layer& behind_;
};

/// A layer where another one is; both cover the bounds.
class InLayer final : public Layer {
 public:
  InLayer(const Layer& front, const Layer& mask, const IntRect& bounds)
      : Layer(bounds), front_(front), mask_(mask) {}

  void render(Worker& worker, const IntRect& rect, const Tile& out) const override;
  bool isOpaque(const IntRect& rect) const override {
    return front_.isOpaque(rect) && mask_.isOpaque(rect);
  }
  bool prefersBlocks() const override { return front_.prefersBlocks() || mask_.prefersBlocks(); }

 private:
  const Layer& front_;
  const Layer& mask_;
};

}  // namespace kestrel
