#pragma once

#include <kestrel/Filter.h>

#include <memory>
#include <string>
#include <string_view>

#include "platform/image/recipe/ImageNode.h"

namespace kestrel {

/// Where shadows end: the slope of the curve at black (a number, 0 by default: they are cut off).
inline constexpr std::string_view kInputShadowSlopeKey = "inputShadowSlope";

/// Saturation (default 1), contrast (1) and brightness (0), in this order. With the luminance
/// L = 0.2126 r + 0.7152 g + 0.0722 b, for each channel c:
///
///     c = L + (c - L) × saturation
///     c = (c - 0.5) × contrast + 0.5 + brightness
///
/// With a slope s for shadows, where that line would bring them below black, its lower part is the
/// parabola a c² + s c that leaves black with the slope s and goes over into the line.
std::shared_ptr<Filter> makeColorControls(const std::string& name);

/// Contrast whose shadows have a parabola.
struct SoftContrastNode final : FilterNode {
  /// The line is `contrast` × value + `offset`, the offset below 0; `slope` is above 0 and below
  /// the contrast.
  SoftContrastNode(const NodePointer& picture, double contrast, double offset, double slope);

  /// What becomes of a value from 0 to 1.
  double valueFor(double value) const;

  const Layer* plan(Planner& planner, const IntRect& needed) const override;

  const double contrast;
  const double offset;
  const double slope;
};

}  // namespace kestrel
