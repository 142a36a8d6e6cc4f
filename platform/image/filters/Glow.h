#pragma once

#include "platform/image/recipe/ImageNode.h"

namespace kestrel {

/// A picture whose light is mixed with a blurred copy of it. The blur is the one of
/// `GaussianBlur.h`, except that beyond the input (its extent rounded outwards to whole pixels) the
/// pixels at its border repeat, so that borders get neither darker nor lighter. Alpha and extent
/// are the input's.
struct GlowNode final : FilterNode {
  enum class Kind { kBloom, kGloom };

  /// The radius is that of a blur, 0 for none; the intensity is from 0 to 1.
  GlowNode(const NodePointer& picture, Kind way, double standardDeviation, double share);

  const Layer* plan(Planner& planner, const IntRect& needed) const override;

  const Kind kind;
  const double radius;
  const double intensity;
};

/// The output image of a glow; radius and intensity may be any numbers and are limited.
std::shared_ptr<const Image> makeGlow(const std::shared_ptr<const Image>& input,
                                      GlowNode::Kind kind, double radius, double intensity);

}  // namespace kestrel
