#pragma once

#include <kestrel/Filter.h>

#include <memory>
#include <string>

#include "platform/image/recipe/ImageNode.h"

namespace kestrel {

/// Exposure in stops (EV, default 0): how much more light there is. With x the light of a channel,
/// 0 to 1:
///
///     EV below 0:  x × 2^EV
///     EV above 0:  g x / (1 + (g - 1) x), with g = 2^(n EV)
///
/// The light of the first is that of sRGB (see `Light.h`), that of the second the 2.4th power of a
/// value, as displays of ITU-R BT.1886 have it: without sRGB's straight foot, on which shadows
/// would be multiplied by all of g, while three stops make at most 1.54 times as much of a value.
///
/// The second is more light on a film, on which what is bright is not cut off: response r to light
/// I by r = Iⁿ / (Iⁿ + σⁿ), the curve of Naka and Rushton (S-potentials from colour units in the
/// retina of fish, 1966) as Reinhard and Devlin use it for pictures (Dynamic range reduction
/// inspired by photoreceptor physiology, 2005). I that gave x, times 2^EV, gives the formula,
/// whatever σ is. n = 0.5: negatives have slopes of 0.5
/// to 0.7. White stays white. Extent and alpha
/// stay.
std::shared_ptr<Filter> makeExposureAdjust(const std::string& name);

struct ExposureNode final : FilterNode {
  static constexpr double kSlope = 0.5;
  static constexpr double kDisplayGamma = 2.4;

  ExposureNode(const NodePointer& picture, double ev);

  /// What becomes of a value from 0 to 1.
  double valueFor(double value) const;

  const Layer* plan(Planner& planner, const IntRect& needed) const override;

  const double stops;
};

}  // namespace kestrel
