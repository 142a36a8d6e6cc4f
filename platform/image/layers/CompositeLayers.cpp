#include "platform/image/layers/CompositeLayers.h"

#include <algorithm>
#include <cmath>

#include "platform/image/kernels/Kernels.h"

namespace kestrel {

namespace {

size_t widthOf(const IntRect& rect) { return static_cast<size_t>(rect.width()); }

/// The pixels that lie in `rect` as a whole.
IntRect wholePixelsOf(const Rect& rect) {
  const auto within = [](double edge) {
    return static_cast<int>(std::clamp<double>(edge, -kFarthestPixel, kFarthestPixel));
  };
  return {within(std::ceil(rect.minX())), within(std::ceil(rect.minY())),
          within(std::floor(rect.maxX())), within(std::floor(rect.maxY()))};
}

}  // namespace

ColorLayer::ColorLayer(const Color& color, const IntRect& bounds)
    : Layer(bounds),
      color_{static_cast<float>(color.red * color.alpha),
             static_cast<float>(color.green * color.alpha),
             static_cast<float>(color.blue * color.alpha), static_cast<float>(color.alpha)} {}

void ColorLayer::render(Worker& /*worker*/, const IntRect& rect, const Tile& out) const {
  for (int y = 0; y < rect.height(); ++y) kernels::fillPixels(out.row(y), widthOf(rect), color_);
}

void MatrixLayer::render(Worker& worker, const IntRect& rect, const Tile& out) const {
  input_.render(worker, rect, out);
  for (int y = 0; y < rect.height(); ++y) kernels::mapPixels(out.row(y), widthOf(rect), matrix_);
}

CropLayer::CropLayer(const Layer& input, const Rect& rect)
    : Layer(input.bounds().intersect(pixelsOf(rect))),
      input_(input),
      rect_(rect),
      whole_(wholePixelsOf(rect)) {}

double CropLayer::coverageOfColumn(int x) const {
  return std::clamp(std::min(x + 1.0, rect_.maxX()) - std::max<double>(x, rect_.minX()), 0.0, 1.0);
}

double CropLayer::coverageOfRow(int y) const {
  return std::clamp(std::min(y + 1.0, rect_.maxY()) - std::max<double>(y, rect_.minY()), 0.0, 1.0);
}

void CropLayer::render(Worker& worker, const IntRect& rect, const Tile& out) const {
  input_.render(worker, rect, out);
  if (whole_.contains(rect)) return;
  const ArenaScope scope(worker.memory);
  const auto factors = worker.memory.array<float>(widthOf(rect));
  for (int y = rect.y0; y < rect.y1; ++y) {
    for (int x = rect.x0; x < rect.x1; ++x) {
      factors[static_cast<size_t>(x - rect.x0)] =
          static_cast<float>(coverageOfColumn(x) * coverageOfRow(y));
    }
    kernels::scalePixels(out.row(y - rect.y0), widthOf(rect), factors.data());
  }
}

void OverLayer::render(Worker& worker, const IntRect& rect, const Tile& out) const {
  const IntRect shared = rect.intersect(front_.bounds());
  const auto tileAt = [&](const IntRect& part) {
    return out.at(part.x0 - rect.x0, part.y0 - rect.y0);
  };
  const auto renderBehind = [&](const IntRect& part) {
    if (!part.isEmpty()) renderAnywhere(&behind_, worker, part, tileAt(part));
  };
  if (shared.isEmpty()) return renderBehind(rect);
  if (front_.isOpaque(shared)) {
    renderBehind({rect.x0, rect.y0, rect.x1, shared.y0});
    renderBehind({rect.x0, shared.y1, rect.x1, rect.y1});
    renderBehind({rect.x0, shared.y0, shared.x0, shared.y1});
    renderBehind({shared.x1, shared.y0, rect.x1, shared.y1});
    return front_.render(worker, shared, tileAt(shared));
  }
  if (behind_.color() && shared == rect && behind_.bounds().contains(rect)) {
    front_.render(worker, rect, out);
    for (int y = 0; y < rect.height(); ++y)
      kernels::layOverColor(out.row(y), widthOf(rect), behind_.color());
    return;
  }
  renderBehind(rect);
  const ArenaScope scope(worker.memory);
  const Tile above = makeTile(worker.memory, shared);
  front_.render(worker, shared, above);
  const Tile below = tileAt(shared);
  for (int y = 0; y < shared.height(); ++y)
    kernels::layOver(below.row(y), above.row(y), widthOf(shared));
}

bool OverLayer::isOpaque(const IntRect& rect) const {
  const auto covers = [&rect](const Layer& layer) {
    return layer.bounds().contains(rect) && layer.isOpaque(rect);
  };
  return covers(behind_) || covers(front_);
}

void InLayer::render(Worker& worker, const IntRect& rect, const Tile& out) const {
  front_.render(worker, rect, out);
  if (mask_.isOpaque(rect)) return;
  const ArenaScope scope(worker.memory);
  const Tile mask = makeTile(worker.memory, rect);
  mask_.render(worker, rect, mask);
  for (int y = 0; y < rect.height(); ++y)
    kernels::keepInside(out.row(y), mask.row(y), widthOf(rect));
}

}  // namespace kestrel
