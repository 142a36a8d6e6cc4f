#pragma once

#include <kestrel/Filter.h>

#include <memory>
#include <string>

#include "platform/image/recipe/ImageNode.h"

namespace kestrel {

/// A blur whose radius (default 10) is the standard deviation in pixels. With colours multiplied by
/// alpha and R the radius, pixel (x, y) is
///
///     Σ over i, j of w(i) w(j) × input(x + i, y + j),  w(d) = exp(-d²/(2 R²)) / Σ exp(-k²/(2 R²))
///
/// Beyond the input (its extent rounded outwards to whole pixels) the pixels at its border repeat,
/// so that borders stay where and as they are; the extent stays. A radius above 1024 counts as
/// 1024, one below 0.2 changes nothing.
std::shared_ptr<Filter> makeGaussianBlur(const std::string& name);

struct GaussianBlurNode final : FilterNode {
  /// The radius is within the limits above.
  GaussianBlurNode(const NodePointer& picture, double standardDeviation);

  const Layer* plan(Planner& planner, const IntRect& needed) const override;

  const double radius;
};

}  // namespace kestrel
