#pragma once

#include <kestrel/Filter.h>

#include <memory>
#include <string>

#include "platform/image/recipe/ImageNode.h"

namespace kestrel {

/// The lines of a printing screen.
struct LineScreen {
  Point center;      ///< a line runs through it
  double angle;      ///< radians, against the clock
  double width;      ///< from a line to the next, in pixels, at least 0.001
  double sharpness;  ///< of the edges, 0 to 1

  /// How soft edges are: the share of half a line's distance over which they fade, at least a
  /// pixel.
  double softness() const;
};

/// White lines on black that are the thicker, the lighter the picture is there. The values are the
/// centre (default 150, 150), the angle (radians, 0: the lines are level), the width w from a line
/// to the next (pixels, 6) and the sharpness (0.7). With (x, y) the centre of the pixel seen from
/// the centre of the screen, L = 0.2126 r + 0.7152 g + 0.0722 b not multiplied by alpha:
///
///     u    = (y cos(angle) - x sin(angle)) / w     in lines
///     v    = 1 - |2 (u - ⌊u⌋) - 1|                 0 in the middle of a line, 1 between two
///     f    = max(1 - sharpness, 2 / w)             how soft edges are, never below a pixel
///     grey = (L (1 + f) - v) / f                   limited to 0 to 1
///
/// so that what is black stays black and what is white white. All channels become grey. Alpha and
/// extent stay.
std::shared_ptr<Filter> makeLineScreen(const std::string& name);

struct LineScreenNode final : FilterNode {
  LineScreenNode(const NodePointer& picture, const LineScreen& lines);

  const Layer* plan(Planner& planner, const IntRect& needed) const override;

  const LineScreen screen;
};

}  // namespace kestrel
