#pragma once

#include <cstdint>
#include <deque>

#include "support/FFmpegOwners.h"

namespace kestrel {

/// A subtitle track on its way into a joined file. Subtitle packets are rare and last long: each is
/// held until pictures or sound have reached its end, so that it can be cut where the next input
/// begins. A packet without a duration changes what is shown, and the next one depends on it: it is
/// never dropped, and keeps its time unless that is before its input's pictures. Times are
/// microseconds in the output, except those in packets.
class SubtitleLane {
 public:
  /// Packets are stamped in the time base of `output`, which outlives the lane.
  explicit SubtitleLane(const AVStream& output) : output_(output) {}

  /// The next input begins at `begin`: its subtitles begin no earlier, and those that are held end
  /// there. `likelyEnd` is the end of the input's pictures according to its container.
  void beginInput(int64_t begin, int64_t likelyEnd);

  /// Takes over a packet and leaves it blank.
  void hold(AVPacket& packet);

  /// The next packet that ends by `reached`, the progress of the other streams; null if there is
  /// none. A packet held for 5 s is returned before its end, cut at `likelyEnd`.
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
  int64_t moved_ = INT64_MIN;  // the last time to which a packet was moved, in ticks
  int64_t last_ = INT64_MIN;   // time of the last packet taken, in ticks
  // For the codec with event numbers, by which players recognise repeated events:
  int64_t numberOffset_ = 0;
  int64_t highest_ = -1;   // written
  int64_t ofOthers_ = -1;  // the highest of the previous inputs
};

}  // namespace kestrel
