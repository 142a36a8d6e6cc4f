#pragma once

#include <cstddef>
#include <memory_resource>
#include <optional>
#include <vector>

#include "platform/image/layers/Arena.h"
#include "platform/image/values/IntRect.h"

namespace kestrel {

/// What a thread works with while it renders.
struct Worker {
  Arena memory;
};

/// Pixels under computation: four floats each, R, G, B, A from 0 to 1, multiplied by alpha.
/// `pixels` is the lower left one of the rectangle that the tile stands for; rows go upwards.
struct Tile {
  float* pixels = nullptr;
  ptrdiff_t stride = 0;  ///< floats from a row to the one above

  float* row(int y) const { return pixels + y * stride; }
  /// The tile whose lower left pixel is (x, y) of this one.
  Tile at(int x, int y) const { return {pixels + y * stride + 4 * ptrdiff_t{x}, stride}; }
};

/// A tile for `rect` in memory of `arena`.
Tile makeTile(Arena& arena, const IntRect& rect);

class CopyLayer;
struct PlainPlanes;

/// Something that computes pixels of a plane: one stage of a plan, the stages it takes its input
/// from included.
///
/// Layers live in the planner's arena and are never destroyed; they hold numbers and pointers to
/// what the recipe keeps alive. They do not change while a picture is made, and any number of
/// threads use them at once. A layer computes the same value for a pixel whatever rectangle it is
/// asked for.
class Layer {
 public:
  explicit Layer(const IntRect& bounds) : bounds_(bounds) {}

  /// Where it may leave anything but transparency; never empty.
  const IntRect& bounds() const { return bounds_; }

  /// Computes the pixels of `rect`, which is not empty and lies within the bounds, to `out`.
  virtual void render(Worker& worker, const IntRect& rect, const Tile& out) const = 0;

  /// True when every pixel of `rect`, which lies within the bounds, is known to be opaque.
  virtual bool isOpaque(const IntRect& /*rect*/) const { return false; }

  /// True when squares are cheaper to compute than rows of full width.
  virtual bool prefersBlocks() const { return false; }

  /// The one colour that it has everywhere, four values, else null.
  virtual const float* color() const { return nullptr; }

  /// This layer where all it does is to show pixels of a raster in their own colours, else null.
  virtual const CopyLayer* asPlainCopy() const { return nullptr; }

  /// The planes whose samples it shows within its bounds, moved or scaled and in their own colours;
  /// none for every other layer.
  virtual std::optional<PlainPlanes> plainPlanes() const;

  /// Appends the layers that this one lays over each other, the undermost first: pixels that those
  /// above a layer do not cover are that layer's. By default itself.
  virtual void addParts(std::pmr::vector<const Layer*>& parts) const { parts.push_back(this); }

 protected:
  ~Layer() = default;

 private:
  IntRect bounds_;
};

/// Computes the pixels of `rect`, which may reach beyond the layer; null is a layer without bounds.
void renderAnywhere(const Layer* layer, Worker& worker, const IntRect& rect, const Tile& out);

/// Work that must be done, all of it, before the layers that use its result are asked.
class Pass {
 public:
  /// Into how many independent tasks it falls.
  virtual int tasks() const = 0;
  /// Does one of them, on any thread.
  virtual void run(Worker& worker, int task) const = 0;

 protected:
  ~Pass() = default;
};

/// The pieces in which a rectangle of a layer is best computed.
class Tiling {
 public:
  Tiling(const Layer* layer, const IntRect& rect);

  int count() const { return columns_ * rows_; }
  /// The pieces cover the rectangle and do not overlap. They begin at multiples of 4 rows and
  /// columns from its corner.
  IntRect piece(int index) const;

 private:
  IntRect rect_;
  int width_;
  int height_;
  int columns_;
  int rows_;
};

}  // namespace kestrel
