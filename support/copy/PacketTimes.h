#pragma once

#include <cstdint>

#include "support/FFmpegOwners.h"

namespace kestrel {

/// How the times of copied packets change on their way from one stream to another: they are moved
/// by an offset and counted in other ticks. `AV_NOPTS_VALUE` stays, times that would be out of
/// range are the first or the last that there is.
class TimeShift {
 public:
  /// `offset`: microseconds.
  TimeShift(AVRational from, AVRational to, int64_t offset)
      : from_(from), to_(to), offset_(av_rescale_q(offset, kMicroseconds, to)) {}

  int64_t time(int64_t time) const;
  int64_t duration(int64_t duration) const { return av_rescale_q(duration, from_, to_); }

  /// The first time of the input's that is no earlier than `time` in the output.
  int64_t inputTime(int64_t time) const;

  /// Stamps a packet for the output, in which it lies nowhere yet.
  void apply(AVPacket& packet) const;

 private:
  AVRational from_;
  AVRational to_;
  int64_t offset_;  // in ticks of `to_`
};

/// Makes a sound packet of an input, not moved yet, follow on what has been `written` to the
/// output. Where time stamps lie closer together than ticks of the output, or begin before it,
/// several packets fall on one tick, and all but one of them would be dropped.
void followOn(AVPacket& packet, const TimeShift& shift, int64_t written);

/// Cuts off what of a packet would show before `begin`; false where nothing is left of it.
bool cutBefore(AVPacket& packet, int64_t begin);

}  // namespace kestrel
