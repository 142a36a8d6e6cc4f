#pragma once

#include <kestrel/Filter.h>

#include <memory>
#include <string>

#include "platform/image/recipe/ImageNode.h"

namespace kestrel {

/// Sharpness s (0 to 100, default 0.4) of what is light and dark; hues stay. With colours
/// multiplied by alpha, a the alpha of the pixel, L = 0.2126 r + 0.7152 g + 0.0722 b, and M and A
/// the luminance and the alpha blurred by 1.69 pixels, each channel c becomes
///
///     c + s (L - a M / A), limited to 0 to a
///
/// where the blur is the one of `GaussianBlur.h`, except that beyond the input (its extent rounded
/// outwards to whole pixels) the pixels at its border repeat. Alpha and extent stay.
std::shared_ptr<Filter> makeSharpenLuminance(const std::string& name);

struct SharpenLuminanceNode final : FilterNode {
  SharpenLuminanceNode(const NodePointer& picture, double strength, double standardDeviation);

  const Layer* plan(Planner& planner, const IntRect& needed) const override;

  const double sharpness;
  const double radius;
};

}  // namespace kestrel
