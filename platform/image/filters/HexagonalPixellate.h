#pragma once

#include <kestrel/Filter.h>

#include <memory>
#include <string>

#include "platform/image/recipe/ImageNode.h"

namespace kestrel {

/// A mosaic of regular hexagons that stand on a corner. The values are the centre of one of them
/// (default 150, 150) and the scale s (pixels, 1 to 1024, default 8), the length of a side: a
/// hexagon is √3 s wide and 2 s high. Row j of the hexagons has its centres 1.5 s j above the
/// centre, hexagon i of it lies √3 s (i + h) to the right, where h is 0 for even rows and ½ for odd
/// ones.
///
/// A pixel belongs to the hexagon its centre lies in: with t = (y - center.y) / (1.5 s) between the
/// rows j = ⌊t⌋ and j + 1, it is hexagon i of row j where |(x - center.x) / (√3 s) - i - h| is at
/// most the share 1 - 1.5 (t - j), limited to 0 to ½, and one of row j + 1 elsewhere. With colours
/// multiplied by alpha, each pixel becomes the mean of all pixels of the input (its extent rounded
/// outwards to whole pixels) that belong to the same hexagon. The extent stays.
std::shared_ptr<Filter> makeHexagonalPixellate(const std::string& name);

struct HexagonalPixellateNode final : FilterNode {
  HexagonalPixellateNode(const NodePointer& picture, const Point& middle, double side);

  const Layer* plan(Planner& planner, const IntRect& needed) const override;

  const Point center;
  const double scale;
};

}  // namespace kestrel
