#include "platform/image/layers/OutputPass.h"

#include <algorithm>

#include "platform/image/kernels/Kernels.h"
#include "platform/image/kernels/TableKernels.h"
#include "platform/image/layers/Dither.h"
#include "platform/image/layers/ResampleLayers.h"

namespace kestrel {

namespace {

/// A picture in memory, the top row first, for rows counted from the bottom.
struct Picture {
  uint8_t* rowAt(int y) const { return pixels + (bounds.y1 - 1 - y) * bytesPerRow; }

  IntRect bounds;
  uint8_t* pixels;
  ptrdiff_t bytesPerRow;
};

class RgbaPass final : public Pass {
 public:
  RgbaPass(const Layer* layer, const Picture& picture, bool isFine)
      : layer_(layer), picture_(picture), isFine_(isFine), tiling_(layer, picture.bounds) {}

  int tasks() const override { return tiling_.count(); }

  void run(Worker& worker, int task) const override {
    const ArenaScope scope(worker.memory);
    const IntRect piece = tiling_.piece(task);
    const Tile tile = makeTile(worker.memory, piece);
    renderAnywhere(layer_, worker, piece, tile);
    const bool isOpaque = layer_ && layer_->bounds().contains(piece) && layer_->isOpaque(piece);
    const auto noise = worker.memory.array<float>(isFine_ ? static_cast<size_t>(piece.width()) : 0);
    for (int y = piece.y0; y < piece.y1; ++y) {
      if (isFine_) {
        fillNoise(piece.x0, y, kDitherReach / 255, noise);
        kernels::addNoise(tile.row(y - piece.y0), noise.data(), noise.size());
      }
      kernels::packRgba(tile.row(y - piece.y0), static_cast<size_t>(piece.width()), isOpaque,
                        picture_.rowAt(y) + 4 * ptrdiff_t{piece.x0 - picture_.bounds.x0});
    }
  }

 private:
  const Layer* layer_;
  Picture picture_;
  bool isFine_;  ///< finer than 8 bits
  Tiling tiling_;
};

/// A picture that is pixels of a bitmap as they are.
class CopyPass final : public Pass {
 public:
  CopyPass(const CopyLayer& layer, const Picture& picture) : layer_(layer), picture_(picture) {}

  int tasks() const override { return (picture_.bounds.height() + kRows - 1) / kRows; }

  void run(Worker& /*worker*/, int task) const override {
    const int begin = picture_.bounds.y0 + task * kRows;
    const int end = std::min(begin + kRows, picture_.bounds.y1);
    for (int y = begin; y < end; ++y)
      layer_.source().copyBytes(y - layer_.dy(), picture_.bounds.x0 - layer_.dx(),
                                picture_.bounds.x1 - layer_.dx(), picture_.rowAt(y));
  }

 private:
  static constexpr int kRows = 64;

  const CopyLayer& layer_;
  Picture picture_;
};

}  // namespace

const Pass* makeRgbaPass(const PassMaker& maker, const Layer* layer, const IntRect& picture,
                         uint8_t* pixels, ptrdiff_t bytesPerRow) {
  Arena& arena = maker.arena;
  const Picture target{picture, pixels, bytesPerRow};
  if (layer && layer->bounds().contains(picture)) {
    const CopyLayer* copy = layer->asPlainCopy();
    if (copy && copy->source().holdsBytes()) return arena.make<CopyPass>(*copy, target);
  }
  return arena.make<RgbaPass>(layer, target, maker.depth > 8);
}

}  // namespace kestrel
