#pragma once

#include <kestrel/BitmapImage.h>
#include <kestrel/Color.h>
#include <kestrel/YUVPicture.h>

#include <cstdint>

#include "platform/image/layers/Layer.h"
#include "platform/image/values/IntRect.h"

namespace kestrel {

/// Pixels that resamplers read: a grid in the plane of its picture, y upwards.
///
/// Rasters live in the planner's arena, do not change while a picture is made, and hold pointers to
/// what the recipe or the arena keeps alive.
class Raster {
 public:
  Raster(const IntRect& bounds, bool isOpaque) : bounds_(bounds), isOpaque_(isOpaque) {}

  const IntRect& bounds() const { return bounds_; }
  bool isOpaque() const { return isOpaque_; }

  /// Writes to `out` the sum of `count` rows from `y` upwards, each times its weight, of the pixels
  /// from `x0` to `x1`: in 16 bits as `platform/image/kernels/Kernels.h` has them, with alpha
  /// multiplied in. All of it lies within the bounds. The weights add up to `kernels::kWeightOne`.
  virtual void blendRows(Worker& worker, int y, const int16_t* weights, int count, int x0, int x1,
                         int16_t* out) const = 0;

  /// Writes the pixels of row `y` from `x0` to `x1` as floats, mapped as `kernels::widenRow` does
  /// it.
  virtual void readRow(Worker& worker, int y, int x0, int x1, const float* matrix,
                       float* out) const;

  /// The raster to read `rect` from: this one, or one in the worker's memory that has it ready.
  virtual const Raster* local(Worker& /*worker*/, const IntRect& /*rect*/) const { return this; }

  /// True when the raster holds its pixels as bytes, R, G, B, A not multiplied by alpha.
  virtual bool holdsBytes() const { return false; }
  /// Copies such bytes of row `y`, the pixels from `x0` to `x1`; does nothing where there are none.
  virtual void copyBytes(int /*y*/, int /*x0*/, int /*x1*/, uint8_t* /*out*/) const {}

  /// The planes that the raster shows, one of its pixels for each luma sample and opaque; null for
  /// every other raster.
  virtual const YUVPicture* planes() const { return nullptr; }

  /// True when reading in squares is cheaper than in rows of full width.
  virtual bool prefersBlocks() const { return false; }

 protected:
  ~Raster() = default;

 private:
  IntRect bounds_;
  bool isOpaque_;
};

/// Has the processor bring memory near. Where a picture is read in blocks, it does not see by
/// itself where reading goes next: some rows further up.
inline void fetch(const uint8_t* begin, const uint8_t* end) {
  constexpr ptrdiff_t kCacheLine = 64;
  for (const uint8_t* line = begin; line < end; line += kCacheLine) __builtin_prefetch(line);
}
inline constexpr int kRowsAhead = 8;

/// The pixels of a bitmap.
class BitmapRaster final : public Raster {
 public:
  BitmapRaster(const BitmapImage& bitmap, bool isOpaque)
      : Raster({0, 0, bitmap.width(), bitmap.height()}, isOpaque), bitmap_(bitmap) {}

  void blendRows(Worker& worker, int y, const int16_t* weights, int count, int x0, int x1,
                 int16_t* out) const override;
  void readRow(Worker& worker, int y, int x0, int x1, const float* matrix,
               float* out) const override;
  bool holdsBytes() const override { return true; }
  void copyBytes(int y, int x0, int x1, uint8_t* out) const override;

  /// The pixels at (x, y), y upwards.
  const uint8_t* at(int x, int y) const {
    return bitmap_.row(bounds().y1 - 1 - y) + 4 * static_cast<ptrdiff_t>(x);
  }

 private:
  void fetchAhead(int y, int x0, int x1) const;

  const BitmapImage& bitmap_;
};

/// Pixels in 16 bits in the engine's own memory.
class BufferRaster final : public Raster {
 public:
  /// `pixels` is the lower left one of `bounds`; a row is `stride` values below the next.
  BufferRaster(const IntRect& bounds, const int16_t* pixels, ptrdiff_t stride, bool isOpaque)
      : Raster(bounds, isOpaque), pixels_(pixels), stride_(stride) {}

  void blendRows(Worker& worker, int y, const int16_t* weights, int count, int x0, int x1,
                 int16_t* out) const override;

 private:
  const int16_t* pixels_;
  ptrdiff_t stride_;
};

/// One colour everywhere.
class ColorRaster final : public Raster {
 public:
  explicit ColorRaster(const Color& color);

  void blendRows(Worker& worker, int y, const int16_t* weights, int count, int x0, int x1,
                 int16_t* out) const override;

 private:
  int16_t color_[4];
};

/// Another raster mirrored about the diagonal: its pixel (x, y) is the other's (y, x).
class TransposedRaster final : public Raster {
 public:
  explicit TransposedRaster(const Raster& source);

  /// Only what `local` answers can be read.
  void blendRows(Worker& worker, int y, const int16_t* weights, int count, int x0, int x1,
                 int16_t* out) const override;
  const Raster* local(Worker& worker, const IntRect& rect) const override;
  bool prefersBlocks() const override { return true; }

 private:
  const Raster& source_;
};

/// Means of blocks of another raster: block (i, j) covers `across` × `down` pixels, counted from
/// the lower left of `clip`; where a block reaches beyond the clip, the pixels at its border
/// repeat.
class ReducedRaster final : public Raster {
 public:
  ReducedRaster(const Raster& source, const IntRect& clip, int across, int down);

  void blendRows(Worker& worker, int y, const int16_t* weights, int count, int x0, int x1,
                 int16_t* out) const override;

 private:
  const Raster& source_;
  IntRect clip_;
  int across_;
  int down_;
};

/// Copies `rect`, which may reach beyond `clip`, to a tile of 16 bits: beyond `clip`, which lies
/// within the raster, the pixels at its border repeat. `out` is the lower left pixel; rows are
/// `stride` values apart.
void copyContinued(const Raster& source, Worker& worker, const IntRect& clip, const IntRect& rect,
                   int16_t* out, ptrdiff_t stride);

}  // namespace kestrel
