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

using VideoColor = LMFFVideoColor;

/// BT.709 in limited range, as high-definition video is made.
inline constexpr VideoColor kBt709{.primaries = 1, .transfer = 1, .matrix = 1, .range = 1};

/// `color` with an unknown matrix and range filled in, for a picture of this pixel format
/// (`AV_PIX_FMT_…`) and height (pixels). An unknown matrix becomes BT.709 from 720 lines up and
/// BT.601 below, RGB for RGB formats; an unknown range becomes limited, or full for RGB, grey and
/// the formats whose names say so.
KESTREL_API LMFFVideoColor lm_resolved_video_color(const LMFFVideoColor& color, int pix_fmt,
                                                   int height);

inline VideoColor resolvedVideoColor(const VideoColor& color, int pix_fmt, int height) {
  return lm_resolved_video_color(color, pix_fmt, height);
}

}  // namespace kestrel
