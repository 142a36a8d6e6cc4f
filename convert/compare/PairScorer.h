#pragma once

#include <kestrel/convert/Compare.h>
#include <kestrel/convert/MediaInfo.h>

#include <memory>
#include <vector>

#include "convert/compare/PicturePairs.h"

namespace kestrel {

/// Scores pairs of pictures by one metric.
class PairScorer {
 public:
  virtual ~PairScorer() = default;

  virtual double score(const PicturePairs::Pair& pair) = 0;

  /// What single components came to over all pairs so far, and all together.
  virtual std::vector<ComponentScore> components() const { return {}; }
};

/// How the pictures of two movies are turned upright.
struct PairOrientation {
  Orientation original = {};
  Orientation copy = {};
};

/// The scorer for a metric. The copy's pictures come out in the original's size afterwards. By
/// SSIMULACRA 2, pairs of HDR pictures are compared in their light, all others as sRGB.
std::unique_ptr<PairScorer> makeScorer(PictureMetric metric, Pictures& original, Pictures& copy,
                                       const PairOrientation& orientation = {});

}  // namespace kestrel
