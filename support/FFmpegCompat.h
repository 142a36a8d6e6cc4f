#pragma once

// The few places where library versions ask for different spellings of the same thing.

#include "support/FFmpegOwners.h"

namespace kestrel {

/// How long a decoded frame lasts, in its stream's time base.
inline int64_t frameDuration(const AVFrame& frame) {
#if LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(57, 30, 100)
  return frame.duration;
#else
  return frame.pkt_duration;
#endif
}

inline void setFrameDuration(AVFrame& frame, int64_t duration) {
#if LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(57, 30, 100)
  frame.duration = duration;
#else
  frame.pkt_duration = duration;
#endif
}

/// A layout's channel mask; 0 when its channels are not in native order.
inline int64_t layoutMask(const AVChannelLayout& layout) {
  return layout.order == AV_CHANNEL_ORDER_NATIVE ? static_cast<int64_t>(layout.u.mask) : 0;
}

}  // namespace kestrel
