#include "support/copy/PacketTimes.h"

#include <algorithm>

extern "C" {
#include <libavutil/common.h>
}

namespace kestrel {

int64_t TimeShift::time(int64_t time) const {
  return time == AV_NOPTS_VALUE ? time : av_sat_add64(av_rescale_q(time, from_, to_), offset_);
}

int64_t TimeShift::inputTime(int64_t time) const {
  return av_rescale_q_rnd(time - offset_, to_, from_, AV_ROUND_UP);
}

void TimeShift::apply(AVPacket& packet) const {
  packet.pts = time(packet.pts);
  packet.dts = time(packet.dts);
  packet.duration = duration(packet.duration);
  packet.pos = -1;
}

void followOn(AVPacket& packet, const TimeShift& shift, int64_t written) {
  if (packet.dts == AV_NOPTS_VALUE || shift.time(packet.dts) >= written) return;
  packet.dts = shift.inputTime(written);
  if (packet.pts != AV_NOPTS_VALUE) packet.pts = std::max(packet.pts, packet.dts);
}

bool cutBefore(AVPacket& packet, int64_t begin) {
  if (packet.pts >= begin) return true;
  packet.duration -= begin - packet.pts;
  packet.pts = packet.dts = begin;
  return packet.duration > 0;
}

}  // namespace kestrel
