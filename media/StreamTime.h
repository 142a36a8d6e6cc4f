#pragma once

#include <kestrel/LMFFMediaStream.h>

#include <cstdint>

#include "support/FFmpegCompat.h"

namespace kestrel {

/// Converts microseconds to ticks of a stream, rounding to nearest.
inline int64_t toStream(int64_t time, const LMFFMediaStream& stream) {
  return av_rescale_q(time, kMicroseconds, toAV(stream.timebase()));
}

/// What the times of a decoded picture count.
inline AVRational ticksOf(const AVFrame& picture, const LMFFMediaStream& stream) {
  return picture.time_base.num > 0 ? picture.time_base : toAV(stream.timebase());
}

/// The end of a frame in the ticks of its start.
inline int64_t frameEnd(const AVFrame& frame) { return frame.pts + frameDuration(frame); }

}  // namespace kestrel
