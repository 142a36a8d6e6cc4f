#pragma once

#include <kestrel/Export.h>

#include <cstdint>

namespace kestrel {

/// What the sample values of a picture mean, in libavutil's numbers. The record as it is made
/// leaves everything open.
struct LMFFVideoColor {
  int32_t primaries = 2;  ///< `AVCOL_PRI_…`; 2: unspecified
  int32_t transfer = 2;   ///< `AVCOL_TRC_…`; 2: unspecified
  int32_t matrix = 2;     ///< `AVCOL_SPC_…`; 2: unspecified
  int32_t range = 0;      ///< `AVCOL_RANGE_…`; 0: unspecified

  bool operator==(const LMFFVideoColor&) const = default;
};

/// `color` with matrix and range told: what a picture of this pixel format (`AV_PIX_FMT_…`) and
/// height (pixels) that leaves them open is taken for. An open matrix is BT.709 from 720 lines up
/// and BT.601 below, RGB for RGB formats; an open range is limited, full for RGB, grey
/// and the formats that are full by name.
KESTREL_API LMFFVideoColor lm_resolved_video_color(const LMFFVideoColor& color, int pix_fmt,
                                                   int height);

}  // namespace kestrel
