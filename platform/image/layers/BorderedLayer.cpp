#include "platform/image/layers/BorderedLayer.h"

#include <algorithm>
#include <cstring>

namespace kestrel {

namespace {

void copyRow(const float* from, size_t pixels, float* to) {
  std::memcpy(to, from, pixels * 4 * sizeof(float));
}

/// Fills a row of `width` pixels to both sides of those from `begin` to `end`.
void continueRow(float* row, int begin, int end, int width) {
  for (int x = 0; x < begin; ++x) copyRow(row + 4 * ptrdiff_t{begin}, 1, row + 4 * ptrdiff_t{x});
  for (int x = end; x < width; ++x)
    copyRow(row + 4 * ptrdiff_t{end - 1}, 1, row + 4 * ptrdiff_t{x});
}

}  // namespace

IntRect BorderedLayer::nearest(const IntRect& rect) const {
  const int x0 = std::clamp(rect.x0, picture_.x0, picture_.x1 - 1);
  const int y0 = std::clamp(rect.y0, picture_.y0, picture_.y1 - 1);
  return {x0, y0, std::clamp(rect.x1, x0 + 1, picture_.x1),
          std::clamp(rect.y1, y0 + 1, picture_.y1)};
}

bool BorderedLayer::isOpaque(const IntRect& rect) const {
  const IntRect used = nearest(rect);
  return layer_->bounds().contains(used) && layer_->isOpaque(used);
}

void BorderedLayer::render(Worker& worker, const IntRect& rect, const Tile& out) const {
  const IntRect inside = nearest(rect);
  const auto width = static_cast<size_t>(rect.width());
  if (!rect.contains(inside)) {
    // The rectangle lies beside the picture: it is a part of one that reaches there.
    const ArenaScope scope(worker.memory);
    const IntRect both{std::min(rect.x0, inside.x0), std::min(rect.y0, inside.y0),
                       std::max(rect.x1, inside.x1), std::max(rect.y1, inside.y1)};
    const Tile tile = makeTile(worker.memory, both);
    render(worker, both, tile);
    const Tile part = tile.at(rect.x0 - both.x0, rect.y0 - both.y0);
    for (int y = 0; y < rect.height(); ++y) copyRow(part.row(y), width, out.row(y));
    return;
  }
  renderAnywhere(layer_, worker, inside, out.at(inside.x0 - rect.x0, inside.y0 - rect.y0));
  const int first = inside.y0 - rect.y0;
  const int last = inside.y1 - rect.y0 - 1;
  for (int y = first; y <= last; ++y)
    continueRow(out.row(y), inside.x0 - rect.x0, inside.x1 - rect.x0, rect.width());
  for (int y = 0; y < first; ++y) copyRow(out.row(first), width, out.row(y));
  for (int y = last + 1; y < rect.height(); ++y) copyRow(out.row(last), width, out.row(y));
}

}  // namespace kestrel
