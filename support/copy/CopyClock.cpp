#include "support/copy/CopyClock.h"

#include <algorithm>

extern "C" {
#include <libavutil/common.h>
}

namespace kestrel {

bool CopyClock::stamp(AVPacket& packet, const TimeShift& shift) {
  if (type_ == AVMEDIA_TYPE_SUBTITLE) return stampText(packet, shift);
  const bool isVideo = type_ == AVMEDIA_TYPE_VIDEO;
  if (isVideo && (packet.flags & AV_PKT_FLAG_DISCARD) != 0) {
    stampHidden(packet, shift);
    return true;
  }
  shift.apply(packet);
  const int64_t decoded = packet.dts == AV_NOPTS_VALUE ? INT64_MIN : std::max(packet.dts, begin_);
  const bool isKept = isVideo || decoded >= time_;
  if (isKept) time_ = std::max(av_sat_add64(time_, 1), decoded);
  packet.dts = time_;
  if (packet.pts != AV_NOPTS_VALUE)
    packet.pts = std::max({packet.pts, packet.dts, isVideo ? 0 : begin_});
  if (isVideo && !hasStarted_) {
    hasStarted_ = true;
    packet.pts = 0;
    packet.dts = 0;
  }
  return isKept;
}

/// Stamps a packet that is decoded and not shown. It takes no part in counting and may lie before
/// 0.
void CopyClock::stampHidden(AVPacket& packet, const TimeShift& shift) {
  shift.apply(packet);
  // What is shown may then be decoded before time 0, too.
  if (!hasStarted_ && hidesFirst_) {
    begin_ = INT64_MIN;
    if (packet.dts != AV_NOPTS_VALUE) time_ = packet.dts;
  }
  hasStarted_ = true;
}

/// Stamps a subtitle, which may lie anywhere: nothing is counted, and what would be shown before 0
/// is cut off. Answers whether anything is left.
bool CopyClock::stampText(AVPacket& packet, const TimeShift& shift) {
  shift.apply(packet);
  if (packet.pts == AV_NOPTS_VALUE) packet.pts = packet.dts;
  if (packet.pts == AV_NOPTS_VALUE) return false;
  packet.dts = packet.pts;
  return cutBefore(packet, 0);
}

}  // namespace kestrel
