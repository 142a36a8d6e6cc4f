#include <kestrel/Geometry.h>

#include <algorithm>
#include <cmath>

namespace kestrel {

bool isEmpty(const Rect& rect) { return !(rect.size.width > 0 && rect.size.height > 0); }

bool isInfinite(const Rect& rect) {
  constexpr double kFar = 1e15;
  return !(rect.minX() > -kFar && rect.minY() > -kFar && rect.maxX() < kFar && rect.maxY() < kFar);
}

Rect intersection(const Rect& a, const Rect& b) {
  const Point low{std::max(a.minX(), b.minX()), std::max(a.minY(), b.minY())};
  const Point high{std::min(a.maxX(), b.maxX()), std::min(a.maxY(), b.maxY())};
  const Rect both{low, {high.x - low.x, high.y - low.y}};
  return isEmpty(both) ? Rect{} : both;
}

Rect unite(const Rect& a, const Rect& b) {
  if (isEmpty(a)) return isEmpty(b) ? Rect{} : b;
  if (isEmpty(b)) return a;
  if (isInfinite(a) || isInfinite(b)) return Rect::infinite();
  const Point low{std::min(a.minX(), b.minX()), std::min(a.minY(), b.minY())};
  const Point high{std::max(a.maxX(), b.maxX()), std::max(a.maxY(), b.maxY())};
  return {low, {high.x - low.x, high.y - low.y}};
}

Rect integral(const Rect& rect) {
  if (isEmpty(rect)) return {};
  if (isInfinite(rect)) return rect;
  const double left = std::floor(rect.minX());
  const double bottom = std::floor(rect.minY());
  return {{left, bottom}, {std::ceil(rect.maxX()) - left, std::ceil(rect.maxY()) - bottom}};
}

AffineTransform AffineTransform::translation(double dx, double dy) { return {1, 0, 0, 1, dx, dy}; }

AffineTransform AffineTransform::scale(double sx, double sy) { return {sx, 0, 0, sy, 0, 0}; }

AffineTransform AffineTransform::rotation(double radians) {
  const double sine = std::sin(radians);
  const double cosine = std::cos(radians);
  return {cosine, sine, -sine, cosine, 0, 0};
}

AffineTransform AffineTransform::translated(double dx, double dy) const {
  return translation(dx, dy).concat(*this);
}

AffineTransform AffineTransform::scaled(double sx, double sy) const {
  return scale(sx, sy).concat(*this);
}

AffineTransform AffineTransform::rotated(double radians) const {
  return rotation(radians).concat(*this);
}

AffineTransform AffineTransform::concat(const AffineTransform& next) const {
  return {next.a * a + next.c * b,
          next.b * a + next.d * b,
          next.a * c + next.c * d,
          next.b * c + next.d * d,
          next.a * tx + next.c * ty + next.tx,
          next.b * tx + next.d * ty + next.ty};
}

std::optional<AffineTransform> AffineTransform::invert() const {
  const double determinant = a * d - b * c;
  if (determinant == 0 || !std::isfinite(determinant)) return std::nullopt;
  return AffineTransform{d / determinant,
                         -b / determinant,
                         -c / determinant,
                         a / determinant,
                         (c * ty - d * tx) / determinant,
                         (b * tx - a * ty) / determinant};
}

Point AffineTransform::apply(const Point& point) const {
  return {a * point.x + c * point.y + tx, b * point.x + d * point.y + ty};
}

Rect AffineTransform::apply(const Rect& rect) const {
  if (isInfinite(rect)) return rect;
  const Point corners[] = {
      apply(Point{rect.minX(), rect.minY()}), apply(Point{rect.maxX(), rect.minY()}),
      apply(Point{rect.minX(), rect.maxY()}), apply(Point{rect.maxX(), rect.maxY()})};
  Point low = corners[0];
  Point high = corners[0];
  for (const Point& corner : corners) {
    low = {std::min(low.x, corner.x), std::min(low.y, corner.y)};
    high = {std::max(high.x, corner.x), std::max(high.y, corner.y)};
  }
  return {low, {high.x - low.x, high.y - low.y}};
}

}  // namespace kestrel
