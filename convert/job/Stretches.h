#pragma once

#include <kestrel/convert/ConversionPlan.h>

#include <cstdint>
#include <vector>

#include "convert/feed/PictureStretch.h"
#include "convert/probe/PictureTimes.h"

namespace kestrel {

/// What of a conversion's pictures a stretch is planned by.
struct StretchPlan {
  const ConversionPlan& plan;
  int64_t start = 0;  ///< of the conversion, on the movie's time line, microseconds
  std::vector<TimedPicture> pictures = {};  ///< of the whole input, on the same
  int64_t length = 0;                       ///< of a stretch, about, microseconds
};

/// Divides pictures into stretches about as long as is wanted, which begin with key pictures of the
/// source where some are near: these lie at cuts, and nothing before them has to be decoded. One
/// stretch alone where nobody knows when the pictures come.
std::vector<PictureStretch> planStretches(const StretchPlan& wanted);

/// When a conversion begins: pictures alone begin with the first of them.
int64_t startOf(const ConversionPlan& plan, const MediaInfo& info,
                const std::vector<TimedPicture>& pictures);

}  // namespace kestrel
