#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>

#include "sources/ClockMap.h"
#include "support/Guarded.h"

namespace kestrel {

/// What the readers of one input have found out together about its clock.
struct SharedClock {
  struct Finding {
    bool isKnown = false;                 ///< somebody has looked
    std::shared_ptr<const ClockMap> map;  ///< null where the clock does not jump
  };
  Guarded<Finding> finding;
};

/// Reads one demuxer's packets, their times moved where the input's clock jumps, so that times rise
/// from the beginning to the end; and seeks in those times.
///
/// Broadcasts (transport and program streams) have such clocks. How much is moved is decided once
/// for all readers of an input that can be read twice: by its map. Of what comes only once, one
/// reader decides as it reads.
class DemuxerReader {
 public:
  /// Reads the input through and answers its map; null where that was interrupted.
  using ReadMap = std::function<std::shared_ptr<const ClockMap>()>;

  /// Reads `context`, which stays the caller's, from its beginning. Without a `clock` nothing is
  /// moved; an empty `readMap` stands for an input that cannot be read twice.
  void open(AVFormatContext* context, std::shared_ptr<SharedClock> clock, ReadMap readMap);
  void close();

  /// Looks at places all over the input, unless another reader has, and has it read through where
  /// they do not tell one clock.
  void look();

  /// The next packet; 0 or a library's code.
  int read(AVPacket& packet);

  /// Moves to a place from which `time` (microseconds, as packets carry it) may be decoded: the
  /// last one before it that the input knows.
  int seekBackward(int64_t time);

  /// Moves to the first byte.
  int rewind();

 private:
  /// Where a stream's packets have got to in the map.
  struct Course {
    ClockMap::Stretch stretch;
    int64_t last = 0;  // the time of the last packet, as it lies in the file
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
  bool isSteady_ = true;           // nothing is moved and nothing is watched
  JumpFinder finder_;              // watches where there is no map
  std::map<int, Course> courses_;  // by stream
  int64_t position_ = 0;           // the place that was sought last
  std::deque<PacketPtr> waiting_;  // packets that came while a jump was in doubt
  bool tellsOrderAsTime_ = false;  // the demuxer may take the order of decoding for that of display
  std::set<int> undated_;          // the streams where it does
  int ending_ = 0;                 // what ended the input while packets wait
};

}  // namespace kestrel
