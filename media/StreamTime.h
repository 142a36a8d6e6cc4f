#pragma once

#include <kestrel/LMFFMediaStream.h>

#include <cstdint>

#include "support/FFmpegCompat.h"

namespace kestrel {

/// Microseconds in ticks of a stream's clock, to the nearest.
inline int64_t toStream(int64_t time, const LMFFMediaStream& stream) {
  return av_rescale_q(time, kMicroseconds, toAV(stream.timebase()));
}

/// Where a frame's span ends, in ticks of its stream.
inline int64_t frameEnd(const AVFrame& frame) { return frame.pts + frameDuration(frame); }

}  // namespace kestrel
