#pragma once

#include <kestrel/Export.h>

#include <limits>
#include <optional>

/// Plane geometry for pictures: doubles, in pixels, with the origin at the lower left and y
/// pointing up. All types are plain values; nothing here fails or allocates memory.

namespace kestrel {

struct Point {
  double x = 0;
  double y = 0;

  bool operator==(const Point&) const = default;
};

struct Size {
  double width = 0;
  double height = 0;

  bool operator==(const Size&) const = default;
};

/// A rectangle given by its lower-left corner and its size. It is empty unless both width and
/// height are above 0.
struct KESTREL_API Rect {
  Point origin;
  Size size;

  /// The rectangle that covers the whole plane: finite numbers far beyond any picture. Transforms
  /// and `integral` return infinite rectangles unchanged.
  static constexpr Rect infinite() {
    constexpr double kHalf = std::numeric_limits<double>::max() / 2;
    return {{-kHalf, -kHalf}, {2 * kHalf, 2 * kHalf}};
  }

  double minX() const { return origin.x; }
  double minY() const { return origin.y; }
  double maxX() const { return origin.x + size.width; }
  double maxY() const { return origin.y + size.height; }

  bool operator==(const Rect&) const = default;
};

/// True unless both width and height are above 0.
KESTREL_API bool isEmpty(const Rect& rect);

/// True if an edge lies beyond ±10¹⁵, where no picture reaches and sizes are no longer usable as
/// numbers.
KESTREL_API bool isInfinite(const Rect& rect);

/// The area that both rectangles cover; all zeros if they do not overlap.
KESTREL_API Rect intersection(const Rect& a, const Rect& b);

/// The smallest rectangle that covers both; empty ones are ignored.
KESTREL_API Rect unite(const Rect& a, const Rect& b);

/// The smallest rectangle with whole-number edges that covers `rect`: the origin is rounded down,
/// the far edges up. Empty becomes all zeros; infinite stays infinite.
KESTREL_API Rect integral(const Rect& rect);

/// A map of the plane: x' = a·x + c·y + tx, y' = b·x + d·y + ty. The default is the identity.
struct KESTREL_API AffineTransform {
  double a = 1;
  double b = 0;
  double c = 0;
  double d = 1;
  double tx = 0;
  double ty = 0;

  static AffineTransform translation(double dx, double dy);
  static AffineTransform scale(double sx, double sy);
  /// About the origin, counter-clockwise for a positive `radians`.
  static AffineTransform rotation(double radians);

  /// The given step first, then this transform: in a chain of calls, the last call is applied to a
  /// point first.
  AffineTransform translated(double dx, double dy) const;
  AffineTransform scaled(double sx, double sy) const;
  AffineTransform rotated(double radians) const;

  /// This transform first, then `next`.
  AffineTransform concat(const AffineTransform& next) const;

  /// The inverse; nullopt if this transform is not invertible.
  std::optional<AffineTransform> invert() const;

  Point apply(const Point& point) const;
  /// The bounding box of the mapped corners. For an empty `rect` its size may be 0, but is never
  /// negative. Infinite stays infinite.
  Rect apply(const Rect& rect) const;

  bool operator==(const AffineTransform&) const = default;
};

}  // namespace kestrel
