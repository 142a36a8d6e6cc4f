#pragma once

#include <kestrel/Export.h>

#include <limits>
#include <optional>

/// Plane geometry for pictures: doubles, in pixels, with the origin at the lower left and y
/// upwards.
///
/// All of these are plain values without a hidden state; nothing here fails or allocates.

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

/// A rectangle by its lower-left corner and its size.
///
/// A size that is not above 0 in both directions means an empty rectangle, wherever its origin is.
struct KESTREL_API Rect {
  Point origin;
  Size size;

  /// The rectangle that covers the whole plane: finite numbers far beyond any picture. Maps and
  /// `integral` leave what `isInfinite` as it is.
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

/// True when a side is so far out that no picture reaches there (beyond ±10¹⁵), so that the
/// rectangle has no size in numbers that could be used.
KESTREL_API bool isInfinite(const Rect& rect);

/// What both rectangles cover; all zeros when they have no area in common.
KESTREL_API Rect intersection(const Rect& a, const Rect& b);

/// The smallest rectangle that covers both; an empty one adds nothing.
KESTREL_API Rect unite(const Rect& a, const Rect& b);

/// The smallest rectangle on whole units that covers `rect`: the origin is rounded down, the far
/// edges up. An empty rectangle becomes all zeros, an infinite one stays.
KESTREL_API Rect integral(const Rect& rect);

/// A mapping of the plane: x' = a·x + c·y + tx, y' = b·x + d·y + ty.
///
/// The default is the identity.
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

  /// The named step first, then this transform: of a chain of these calls, the one named last acts
  /// on a point first.
  AffineTransform translated(double dx, double dy) const;
  AffineTransform scaled(double sx, double sy) const;
  AffineTransform rotated(double radians) const;

  /// This transform first, then `next`.
  AffineTransform concat(const AffineTransform& next) const;

  /// The transform that undoes this one; nothing when this one flattens the plane.
  std::optional<AffineTransform> invert() const;

  Point apply(const Point& point) const;
  /// The upright rectangle around the mapped corners; for an empty `rect` its size may be zero but
  /// is never negative. An infinite one stays.
  Rect apply(const Rect& rect) const;

  bool operator==(const AffineTransform&) const = default;
};

}  // namespace kestrel
