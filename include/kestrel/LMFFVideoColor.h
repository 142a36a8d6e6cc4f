#pragma once

#include <kestrel/Export.h>

#include <cstdint>

namespace kestrel {

/// The meaning of a picture's sample values, in libavutil's numbers. Everything is unspecified by
/// default.
struct LMFFVideoColor {
  int32_t primaries = 2;  ///< `AVCOL_PRI_…`; 2: unspecified
  int32_t transfer = 2;   ///< `AVCOL_TRC_…`; 2: unspecified
  int32_t matrix = 2;     ///< `AVCOL_SPC_…`; 2: unspecified
  int32_t range = 0;      ///< `AVCOL_RANGE_…`; 0: unspecified

  bool operator==(const LMFFVideoColor&) const = default;
};

using VideoColor = LMFFVideoColor;

/// BT.709 in limited range, usual for high-definition video.
inline constexpr VideoColor kBt709{.primaries = 1, .transfer = 1, .matrix = 1, .range = 1};

/// `color` with unspecified matrix and range filled in for a pixel format (`AV_PIX_FMT_…`) and a
/// height (pixels). The matrix becomes BT.709 from 720 lines up, BT.601 below, and RGB for RGB
/// formats; the range becomes limited, or full for RGB, grey and the full-range ("J") formats.
KESTREL_API LMFFVideoColor lm_resolved_video_color(const LMFFVideoColor& color, int pix_fmt,
                                                   int height);

inline VideoColor resolvedVideoColor(const VideoColor& color, int pix_fmt, int height) {
  return lm_resolved_video_color(color, pix_fmt, height);
}

}  // namespace kestrel
