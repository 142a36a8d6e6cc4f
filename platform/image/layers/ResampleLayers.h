#pragma once

#include <kestrel/Geometry.h>

#include <cstdint>
#include <span>

#include "platform/image/kernels/Kernels.h"
#include "platform/image/layers/Layer.h"
#include "platform/image/layers/Raster.h"

namespace kestrel {

/// A mapping of colours as kernels take it: what r, g, b and a each contribute, with limits at the
/// end. Not owned; null leaves colours as they are.
using KernelMatrix = const float*;

/// The pixels of a raster, moved by whole pixels.
class CopyLayer final : public Layer {
 public:
  /// Pixel (x, y) of the result is (x - dx, y - dy) of the source, within `bounds`. `isPlain`
  /// says that the matrix does no more than to bring the source to RGB.
  CopyLayer(const Raster& source, int dx, int dy, const IntRect& bounds, KernelMatrix matrix,
            bool isPlain = false);

  void render(Worker& worker, const IntRect& rect, const Tile& out) const override;
  bool isOpaque(const IntRect& /*rect*/) const override { return source_.isOpaque(); }
  bool prefersBlocks() const override { return source_.prefersBlocks(); }
  const CopyLayer* asPlainCopy() const override { return isPlain_ ? this : nullptr; }

  const Raster& source() const { return source_; }
  int dx() const { return dx_; }
  int dy() const { return dy_; }

 private:
  const Raster& source_;
  int dx_;
  int dy_;
  KernelMatrix matrix_;
  bool isPlain_;
};

/// What each pixel of one direction is made of: weights of neighbouring samples.
struct AxisTaps {
  int begin = 0;                     ///< the pixel that the first entry stands for
  std::span<const int32_t> first;    ///< the first sample of each
  std::span<const int16_t> weights;  ///< `most` for each, beyond `count` zeros
  std::span<const int16_t> count;    ///< how many samples each has
  int most = 0;                      ///< the largest count
};

/// The taps of the pixels from `begin` to `end`: pixel p lies at `scale` × (p + ½) + `offset` in
/// the source, of which the samples from `low` to `high` are used.
AxisTaps makeAxisTaps(Arena& arena, double scale, double offset, int low, int high, int begin,
                      int end);

/// A raster scaled along both axes, mirrored or not.
class ScaleLayer final : public Layer {
 public:
  ScaleLayer(Arena& arena, const Raster& source, const AxisTaps& across, const AxisTaps& down,
             const IntRect& bounds, KernelMatrix matrix);

  void render(Worker& worker, const IntRect& rect, const Tile& out) const override;
  bool isOpaque(const IntRect& /*rect*/) const override { return source_.isOpaque(); }
  bool prefersBlocks() const override { return source_.prefersBlocks(); }

 private:
  const Raster& source_;
  AxisTaps across_;
  AxisTaps down_;
  kernels::RowTaps rowTaps_;  ///< of the whole width
  KernelMatrix matrix_;
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
