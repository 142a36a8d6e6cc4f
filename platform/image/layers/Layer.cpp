#include "platform/image/layers/Layer.h"

#include <algorithm>
#include <cstring>

#include "platform/image/layers/ScalePlanes.h"

namespace kestrel {

namespace {

void clear(const IntRect& rect, const Tile& out) {
  for (int y = 0; y < rect.height(); ++y)
    std::memset(out.row(y), 0, static_cast<size_t>(rect.width()) * 4 * sizeof(float));
}

int piecesOf(int length, int piece) { return (length + piece - 1) / piece; }

}  // namespace

Tile makeTile(Arena& arena, const IntRect& rect) {
  const auto stride = static_cast<size_t>(rect.width()) * 4;
  return {arena.array<float>(stride * static_cast<size_t>(rect.height())).data(),
          static_cast<ptrdiff_t>(stride)};
}

std::optional<PlainPlanes> Layer::plainPlanes() const { return std::nullopt; }

void renderAnywhere(const Layer* layer, Worker& worker, const IntRect& rect, const Tile& out) {
  const IntRect inside = layer ? rect.intersect(layer->bounds()) : IntRect{};
  if (inside != rect) clear(rect, out);
  if (!inside.isEmpty())
    layer->render(worker, inside, out.at(inside.x0 - rect.x0, inside.y0 - rect.y0));
}

Tiling::Tiling(const Layer* layer, const IntRect& rect) : rect_(rect) {
  // A piece and what it is made of stay in a core's own cache.
  constexpr int kBlockWidth = 256;
  constexpr int kBlockHeight = 64;
  constexpr int kStripPixels = 12 << 10;
  constexpr int kMostStripRows = 32;
  constexpr int kRowUnit = 4;
  const bool isBlocks = layer && layer->prefersBlocks();
  width_ = isBlocks ? kBlockWidth : std::max(rect.width(), 1);
  height_ = isBlocks ? kBlockHeight
                     : std::clamp(kStripPixels / std::max(rect.width(), 1) / kRowUnit * kRowUnit,
                                  kRowUnit, kMostStripRows);
  columns_ = piecesOf(rect.width(), width_);
  rows_ = piecesOf(rect.height(), height_);
}

IntRect Tiling::piece(int index) const {
  const int x = rect_.x0 + index % columns_ * width_;
  const int y = rect_.y0 + index / columns_ * height_;
  return IntRect{x, y, x + width_, y + height_}.intersect(rect_);
}

}  // namespace kestrel
