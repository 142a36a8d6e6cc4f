#pragma once

#include <kestrel/LMFFMediaStream.h>

#include <cstdint>

#include "support/FFmpegCompat.h"

namespace kestrel {

/// Converts microseconds to ticks of a stream, rounding to nearest.
inline int64_t toStream(int64_t time, const LMFFMediaStream& stream) {
  return av_rescale_q(time, kMicroseconds, toAV(stream.timebase()));
}

/// The end of a frame in ticks of its stream.
inline int64_t frameEnd(const AVFrame& frame) { return frame.pts + frameDuration(frame); }

}  // namespace kestrel
