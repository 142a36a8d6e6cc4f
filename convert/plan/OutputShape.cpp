#include "convert/plan/OutputShape.h"

#include <algorithm>
#include <cmath>
#include <functional>

namespace kestrel {

namespace {

constexpr double kSquareTolerance = 0.01;  // pixels this close to square are square

/// A rung of a ladder that differs from the source by rounding alone is the source's own size.
constexpr int kRounding = 2;

Shape shapeOf(const Look& look) {
  const kestrel::Size size = look.size();
  const double width = std::max(std::round(size.width), 1.0);
  const double height = std::max(std::round(size.height), 1.0);
  return {static_cast<int>(width), static_cast<int>(height), look.pixelAspect() * width / height};
}

int even(double size) { return std::max(2, static_cast<int>(std::lround(size / 2)) * 2); }

/// The frame of 16:9 with so many lines, upright or on its side as the picture is, filled as far as
/// the picture's shape goes.
Shape withLines(int lines, double aspect) {
  constexpr double kFrame = 16.0 / 9;
  const double longer = lines * kFrame;
  const double width =
      aspect >= 1 ? std::min(longer, lines * aspect) : std::min<double>(lines, longer * aspect);
  return {even(width), even(width / aspect), aspect};
}

/// The size of pictures as they are seen, in square pixels that are not larger than their own.
Size sizeSeen(const Shape& source) {
  return {std::max<double>(source.width, source.height * source.aspect),
          std::max<double>(source.height, source.width / source.aspect)};
}

/// Whether a picture of a size is larger than the source, or just as large, as it is seen.
bool enlarges(const Shape& shape, const Shape& source) {
  const Size seen = sizeSeen(source);
  const bool isLarger = shape.width > seen.width || shape.height > seen.height;
  return isLarger || (shape.width >= seen.width && shape.height >= seen.height);
}

/// Whether it has the source's size, but for rounding.
bool keeps(const Shape& shape, const Shape& source) {
  const Size seen = sizeSeen(source);
  return std::abs(shape.width - seen.width) <= kRounding &&
         std::abs(shape.height - seen.height) <= kRounding;
}

/// The size that pictures have by themselves, with even sides unless the encoder takes odd ones.
Shape ownShape(const Shape& source, bool keepsOdd) {
  const int mask = keepsOdd ? ~0 : ~1;
  return {std::max(source.width & mask, keepsOdd ? 1 : 2),
          std::max(source.height & mask, keepsOdd ? 1 : 2), source.aspect};
}

/// With the display aspect to signal.
Shape signalled(Shape shape, const ConversionSettings& settings) {
  if (settings.aspect) shape.aspect = *settings.aspect;
  const double pixel = shape.aspect * shape.height / shape.width;
  if (std::abs(pixel - 1) < kSquareTolerance) shape.aspect = 0;
  return shape;
}

/// The output's size and the display aspect to signal; 0 for square pixels.
Shape outputShape(const ConversionSettings& settings, const Look& look, bool keepsOdd) {
  const Shape source = shapeOf(look);
  const Shape own = ownShape(source, keepsOdd);
  Shape shape = own;
  if (settings.width && settings.height) {
    shape.width = even(*settings.width);
    shape.height = even(*settings.height);
    if (look.isFitted()) shape.aspect = static_cast<double>(shape.width) / shape.height;
  } else if (settings.width) {
    shape.width = even(*settings.width);
    shape.height = even(*settings.width / source.aspect);
  } else if (settings.height) {
    shape.height = even(*settings.height);
    shape.width = even(*settings.height * source.aspect);
  } else if (settings.lines) {
    shape = withLines(*settings.lines, source.aspect);
  } else if (settings.scale) {
    shape.width = even(source.width * *settings.scale);
    shape.height = even(source.height * *settings.scale);
  }
  if (settings.onlyShrinks && enlarges(shape, source)) shape = own;
  return signalled(shape, settings);
}

}  // namespace

Ladder outputLadder(const ConversionSettings& settings, const Look& look, bool keepsOdd) {
  if (settings.ladder.empty()) return {{outputShape(settings, look, keepsOdd)}, {}};
  const Shape source = shapeOf(look);
  const Shape own = ownShape(source, keepsOdd);
  std::vector<int> heights = settings.ladder;
  std::ranges::sort(heights, std::greater());
  Ladder ladder;
  for (const int lines : heights) {
    const Shape wanted = withLines(lines, source.aspect);
    const bool isOwn = keeps(wanted, source);
    if (!isOwn && enlarges(wanted, source)) {
      ladder.tooLarge.push_back(lines);
      continue;
    }
    // Heights that differ by one line may come to the same even one.
    const Shape shape = signalled(isOwn ? own : wanted, settings);
    if (ladder.shapes.empty() || shape != ladder.shapes.back()) ladder.shapes.push_back(shape);
  }
  if (ladder.shapes.empty()) ladder.shapes.push_back(signalled(own, settings));
  return ladder;
}

}  // namespace kestrel
