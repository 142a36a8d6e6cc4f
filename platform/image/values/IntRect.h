#pragma once

#include <kestrel/Geometry.h>

#include <algorithm>

namespace kestrel {

/// A rectangle of pixels: those from (x0, y0) up to but not including (x1, y1), y upwards.
struct IntRect {
  int x0 = 0;
  int y0 = 0;
  int x1 = 0;
  int y1 = 0;

  int width() const { return x1 - x0; }
  int height() const { return y1 - y0; }
  bool isEmpty() const { return x1 <= x0 || y1 <= y0; }

  bool contains(const IntRect& other) const {
    return other.x0 >= x0 && other.y0 >= y0 && other.x1 <= x1 && other.y1 <= y1;
  }

  IntRect intersect(const IntRect& other) const {
    const IntRect both{std::max(x0, other.x0), std::max(y0, other.y0), std::min(x1, other.x1),
                       std::min(y1, other.y1)};
    return both.isEmpty() ? IntRect{} : both;
  }

  /// Moved by (dx, dy).
  IntRect moved(int dx, int dy) const { return {x0 + dx, y0 + dy, x1 + dx, y1 + dy}; }

  /// Grown by `margin` on each side.
  IntRect grown(int margin) const { return {x0 - margin, y0 - margin, x1 + margin, y1 + margin}; }

  bool operator==(const IntRect&) const = default;
};

/// Farther out no pixel is computed; far enough from the ends of `int` that sums do not overflow.
inline constexpr int kFarthestPixel = 1 << 28;

/// The pixels that `rect` touches, as far as they are within reach.
inline IntRect pixelsOf(const Rect& rect) {
  if (isEmpty(rect)) return {};
  const auto within = [](double edge) {
    return static_cast<int>(std::clamp<double>(edge, -kFarthestPixel, kFarthestPixel));
  };
  const Rect whole = integral(rect);
  const IntRect pixels{within(whole.minX()), within(whole.minY()), within(whole.maxX()),
                       within(whole.maxY())};
  return pixels.isEmpty() ? IntRect{} : pixels;
}

inline Rect rectOf(const IntRect& pixels) {
  return {{static_cast<double>(pixels.x0), static_cast<double>(pixels.y0)},
          {static_cast<double>(pixels.width()), static_cast<double>(pixels.height())}};
}

}  // namespace kestrel
