#pragma once

#include <kestrel/convert/ConversionPlan.h>

#include <vector>

#include "convert/look/Look.h"

namespace kestrel {

/// How large pictures are, in pixels, and the shape in which they are seen.
struct Shape {
  int width = 0;
  int height = 0;
  double aspect = 0;  ///< display width / height; 0: pixels are square

  bool operator==(const Shape&) const = default;
};

/// The sizes that pictures get.
struct Ladder {
  std::vector<Shape> shapes = {};  ///< the largest first; one where no ladder is asked for
  std::vector<int> tooLarge = {};  ///< heights of the ladder that the source does not have
};

/// What settings make of pictures with a look; `keepsOdd`: the encoder takes odd sides.
Ladder outputLadder(const ConversionSettings& settings, const Look& look, bool keepsOdd);

}  // namespace kestrel
