#pragma once

#include <cstdint>
#include <deque>

#include "support/FFmpegOwners.h"

namespace kestrel {

/// A track of subtitles on its way into a joined file. Its packets lie far apart and last for long:
/// each is held back until pictures or sound have come to its end, so that what lasts longer than
/// its input can be cut where the next one begins. A packet that does not tell how long it lasts
/// changes what is shown, and the one after it builds on that: it is never dropped, and keeps its
/// time unless that is before its input's pictures. Times are microseconds of the output unless
/// they are packets' own.
class SubtitleLane {
 public:
  /// Packets are stamped in the time base of the output's stream, which outlives the lane.
  explicit SubtitleLane(const AVStream& output) : output_(output) {}

  /// The next input begins at `begin`: its subtitles begin there at the earliest, and those that
  /// are still held end there. `likelyEnd` is where the input's pictures end as far as its
  /// container tells.
  void beginInput(int64_t begin, int64_t likelyEnd);

  /// Takes over a packet, which is blank afterwards.
  void hold(AVPacket& packet);

  /// The next packet that the rest, which has come to `reached`, leaves behind; null for none.
  PacketPtr take(int64_t reached);

 private:
  int64_t ticks(int64_t time) const;
  bool isGap(const AVPacket& packet) const;
  bool beginLater(AVPacket& packet, int64_t begin);
  static bool endEarlier(AVPacket& packet, int64_t end);
  bool renumber(AVPacket& packet);

  const AVStream& output_;
  std::deque<PacketPtr> held_;  // in the order of their times
  int64_t begin_ = INT64_MIN;   // of the current input, in ticks
  int64_t likelyEnd_ = INT64_MAX;
  int64_t moved_ = INT64_MIN;  // the last time that a packet was moved to, in ticks
  int64_t last_ = INT64_MIN;   // of the packets taken, in ticks
  // For the codec whose events have numbers, by which players know what they have already:
  int64_t numberOffset_ = 0;
  int64_t highest_ = -1;   // written
  int64_t ofOthers_ = -1;  // the highest of the inputs before
};

}  // namespace kestrel
