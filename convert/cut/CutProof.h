#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "convert/cut/CutJob.h"
#include "convert/cut/CutPlan.h"

namespace kestrel {

/// What came of comparing a cut's result with its input.
struct CutProof {
  std::string problem = {};  ///< what does not hold; "": all does
  bool isFaint = false;      ///< only that encoded pictures are not as like as they should be
  int64_t seams = 0;
  int64_t equalPictures = 0;
  int64_t alikePictures = 0;
  std::vector<std::optional<double>> likeness = {};  ///< of each stretch, the lowest
};

/// Encoded pictures that are less like those that they stand for are not good enough (SSIM).
inline constexpr double kLeastLikeness = 0.98;

/// Decodes what lies around each seam of a result, and all that was encoded. `shown`: when each
/// planned picture is shown, by the result's ticks.
CutProof proveCut(const CutJob& job, const PicturePlan& plan, const std::vector<int64_t>& shown,
                  const std::string& path);

}  // namespace kestrel
