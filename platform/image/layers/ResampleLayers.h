#pragma once

#include <kestrel/Geometry.h>

#include <optional>
#include <span>

#include "platform/image/kernels/Kernels.h"
#include "platform/image/layers/AxisTaps.h"
#include "platform/image/layers/Layer.h"
#include "platform/image/layers/Raster.h"
#include "platform/image/layers/ScalePlanes.h"

namespace kestrel {

/// A mapping of colours as kernels take it: what r, g, b and a each contribute, with limits at the
/// end. Not owned; null leaves colours as they are.
using KernelMatrix = const float*;

/// The pixels of a raster, moved by whole pixels.
class CopyLayer final : public Layer {
 public:
  /// Pixel (x, y) of the result is (x - dx, y - dy) of the source, within `bounds`. `isPlain`
  /// says that the matrix does no more than to bring the source to RGB; `scaler` is for planes
  /// whose samples lie elsewhere in the result.
  CopyLayer(const Raster& source, int dx, int dy, const IntRect& bounds, KernelMatrix matrix,
            bool isPlain = false, const Scaler& scaler = {});

  void render(Worker& worker, const IntRect& rect, const Tile& out) const override;
  bool isOpaque(const IntRect& /*rect*/) const override { return source_.isOpaque(); }
  bool prefersBlocks() const override { return source_.prefersBlocks(); }
  const CopyLayer* asPlainCopy() const override { return isPlain_ ? this : nullptr; }
  std::optional<PlainPlanes> plainPlanes() const override;

  const Raster& source() const { return source_; }
  int dx() const { return dx_; }
  int dy() const { return dy_; }

 private:
  const Raster& source_;
  int dx_;
  int dy_;
  KernelMatrix matrix_;
  bool isPlain_;
  Scaler scaler_;
};

/// A raster scaled along both axes, mirrored or not.
class ScaleLayer final : public Layer {
 public:
  /// `planes`: where it does no more than to show planes, what it does to them; else null.
  ScaleLayer(Arena& arena, const Raster& source, const AxisTaps& across, const AxisTaps& down,
             const IntRect& bounds, KernelMatrix matrix, const PlainPlanes* planes);

  void render(Worker& worker, const IntRect& rect, const Tile& out) const override;
  bool isOpaque(const IntRect& /*rect*/) const override { return source_.isOpaque(); }
  bool prefersBlocks() const override { return source_.prefersBlocks(); }
  std::optional<PlainPlanes> plainPlanes() const override {
    return planes_ ? std::optional(*planes_) : std::nullopt;
  }

 private:
  void limitRow(Worker& worker, const Raster& source, int y, const IntRect& used,
                std::span<int16_t> row) const;
  void limitPixels(const int16_t* row, const int32_t* first, size_t offset, size_t pixels,
                   float* out) const;

  const Raster& source_;
  const AxisTaps& across_;
  const AxisTaps& down_;
  kernels::RowTaps rowTaps_;  ///< of the whole width
  KernelMatrix matrix_;
  const PlainPlanes* planes_;
};

/// A raster under a map that keeps neither axis.
class TurnLayer final : public Layer {
 public:
  struct Source {
    const Raster& raster;
    IntRect clip;              ///< the pixels in use, within the raster
    AffineTransform toSource;  ///< from the result's plane to the raster's
    double spanU;              ///< sides of the averaged area in the raster, 1 to 2
    double spanV;
  };
  /// Where the picture ends: a rectangle in the plane of `toClip`'s results.
  struct Border {
    Rect clip;
    AffineTransform toClip;
  };
  TurnLayer(const Source& source, const Border& border, const IntRect& bounds, KernelMatrix matrix);

  void render(Worker& worker, const IntRect& rect, const Tile& out) const override;
  bool isOpaque(const IntRect& rect) const override;
  bool prefersBlocks() const override { return true; }

 private:
  void renderBlock(Worker& worker, const IntRect& rect, const Tile& out) const;
  /// Copies the pixels that `rect` is made of to a tile, which lies within the clip.
  void copyUsed(const Raster& source, Worker& worker, const IntRect& rect, const IntRect& tile,
                int16_t* pixels, ptrdiff_t stride) const;
  /// True when no pixel of `rect` touches the border.
  bool isInside(const IntRect& rect) const;
  void coverRow(int y, int x0, size_t count, float* coverage) const;

  Source source_;
  Border border_;
  double footprintU_;
  double footprintV_;
  KernelMatrix matrix_;
};

}  // namespace kestrel
