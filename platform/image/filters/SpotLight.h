#pragma once

#include <kestrel/Filter.h>

#include <memory>
#include <string>

#include "platform/image/recipe/ImageNode.h"

namespace kestrel {

inline constexpr std::string_view kInputLightPositionKey = "inputLightPosition";
inline constexpr std::string_view kInputLightPointsAtKey = "inputLightPointsAt";
inline constexpr std::string_view kInputConcentrationKey = "inputConcentration";

/// A lamp over a dark picture.
struct SpotLight {
  double position[3];    ///< x and y in the picture's plane, z the height over it, at least 1
  double pointsAt[3];    ///< a point in the middle of the beam
  double brightness;     ///< 0 to 100
  double concentration;  ///< 0.01 to 100; the smaller, the tighter the cone
  Color color;

  /// The cosine of the angle between the axis of the cone and its edge.
  double edge() const;
};

/// Lights the picture by one lamp. The values are the position P (default 400, 600, 150), the point
/// it shines at (200, 200, 0), the brightness b (3), the concentration k (0.1) and the colour of
/// the light (white). With d from P to the centre of the pixel, at height 0, and e from P to the
/// point, straight down where both are the same:
///
///     cosine = d · e / (|d| |e|)                  of the angle off the axis
///     edge   = 1 / √(1 + 0.14 k)                  that of the cone: its area grows with k
///     s      = (cosine - edge) / (1 - edge)       limited to 0 to 1
///     light  = s² (3 - 2 s) × b / (1 + k)         a wider beam is weaker
///
/// the light of each channel (see `Light.h`) becomes itself × light × colour, at most 1. Outside of
/// the cone it is dark. Alpha and extent stay. Edge by a cubic: the smooth step of Ebert et al.,
/// Texturing and Modeling (1994).
std::shared_ptr<Filter> makeSpotLight(const std::string& name);

struct SpotLightNode final : FilterNode {
  SpotLightNode(const NodePointer& picture, const SpotLight& lamp);

  const Layer* plan(Planner& planner, const IntRect& needed) const override;

  const SpotLight light;
};

}  // namespace kestrel
