#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>

#include "sources/ClockMap.h"
#include "sources/PacketDamage.h"
#include "support/Guarded.h"

namespace kestrel {

/// What the readers of an input have found out about its clock.
struct SharedClock {
  struct Finding {
    bool isKnown = false;                 ///< a reader has looked
    std::shared_ptr<const ClockMap> map;  ///< null if the clock does not jump
  };
  Guarded<Finding> finding;
};

/// Reads and seeks a demuxer's packets, with times shifted where the input's clock jumps, so that
/// they increase throughout.
///
/// Broadcasts (transport and program streams) have such clocks. For an input that can be read
/// twice, a map of the offsets is made once for all readers; otherwise the reader decides as it
/// reads.
class DemuxerReader {
 public:
  /// Reads the input through and returns its map; null if interrupted.
  using ReadMap = std::function<std::shared_ptr<const ClockMap>()>;

  /// Starts to read `context`, which the caller keeps, from its beginning. Without `clock` nothing
  /// is shifted. An empty `readMap` means that the input cannot be read twice.
  void open(AVFormatContext* context, std::shared_ptr<SharedClock> clock, ReadMap readMap);
  void close();

  /// Samples positions throughout the input, unless another reader has done so, and reads it
  /// through if they do not fit a single clock.
  void look();

  /// Reads the next packet; returns 0 or an FFmpeg error code.
  int read(AVPacket& packet);

  /// Takes packets back that were read last, in their order: they are the next to be read, as they
  /// are.
  void putBack(std::deque<PacketPtr> packets);

  /// Moves to the last known position from which `time` (microseconds, on the packets' clock) can
  /// be decoded.
  int seekBackward(int64_t time);

  /// Moves to the first byte.
  int rewind();

  /// How many of the packets of a stream that were read came damaged.
  int64_t damaged(int stream) const { return damage_.of(stream); }

 private:
  /// The position of a stream in the map.
  struct Course {
    ClockMap::Stretch stretch;
    int64_t last = 0;  // time of the last packet as stored in the file
  };

  void forget();
  void watch();
  void learn();
  void ask();
  int demux(AVPacket& packet);
  void forgetFalseTime(AVPacket& packet);
  void move(AVPacket& packet, int64_t offset) const;
  void moveByMap(AVPacket& packet);
  int seekBytes(int64_t position);

  AVFormatContext* context_ = nullptr;
  std::shared_ptr<SharedClock> clock_;
  ReadMap readMap_;
  std::shared_ptr<const ClockMap> map_;
  bool isSteady_ = true;           // nothing is shifted or watched
  JumpFinder finder_;              // used without a map
  std::map<int, Course> courses_;  // by stream
  int64_t position_ = 0;           // the position of the last seek
  std::deque<PacketPtr> waiting_;  // packets held while a jump is uncertain
  std::deque<PacketPtr> givenBack_;
  bool tellsOrderAsTime_ = false;  // the demuxer may take decoding times for presentation times
  std::set<int> undated_;          // the streams for which it does
  PacketDamage damage_;            // since it was opened
  int ending_ = 0;                 // the end or error, returned after the waiting packets
};

}  // namespace kestrel
