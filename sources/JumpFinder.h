#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <vector>

#include "support/FFmpegOwners.h"

namespace kestrel {

/// Finds jumps of a broadcast's clock, and the offsets that make the time stamps after a jump
/// continue where those before it ended.
///
/// Takes the packets of all streams in file order and returns them in the same order with their
/// offsets. When a stream's time leaves its path, packets are held back, for two seconds at most,
/// to see what the other streams do: the clock has jumped if they follow or have no more packets. A
/// stream that pauses while another goes on, or a single damaged stamp, is not a jump.
///
/// Pictures continue without a gap. Sound that is a little longer than the pictures before the jump
/// is overlapped by what follows; if it is much longer, the pictures wait for its end.
class JumpFinder {
 public:
  /// Transport and program streams use a 90 kHz clock of 33 bits.
  static constexpr AVRational kTicks{1, 90000};

  struct Placed {
    PacketPtr packet;
    int64_t offset = 0;  ///< to be added to the packet's times, in ticks
  };

  void push(PacketPtr packet, const AVStream& stream);

  /// Signals that no packet follows: decides what is held back.
  void finish();

  /// The next packet with a known offset; nullopt if more packets must be pushed first.
  std::optional<Placed> pop();

  /// True if a jump has been found.
  bool hasJumped() const { return hasJumped_; }

  /// Removes the packets that have not been popped, undecided, in order.
  std::deque<PacketPtr> takeAll();

  /// Resets all state, for reading from another position.
  void reset();

 private:
  /// How far a stream has got, in ticks of the file.
  struct Path {
    bool isKnown() const { return next != AV_NOPTS_VALUE; }
    bool isLeftBy(int64_t time) const;
    void go(const AVPacket& packet, const AVStream& stream, int64_t time);

    int64_t begin = AV_NOPTS_VALUE;  // earliest presentation time
    int64_t end = AV_NOPTS_VALUE;    // end of the last presentation
    int64_t last = AV_NOPTS_VALUE;   // decoding time of the last packet
    int64_t next = AV_NOPTS_VALUE;   // expected decoding time of the next packet
    int64_t spacing = 0;             // longest step so far
    int64_t lead = 0;                // from decoding to presentation of the first packet
    int count = 0;
  };

  struct Track {
    bool isPictures = false;
    int64_t offset = 0;
    Path path;
    Path behind;             // after the possible jump
    int64_t stayed = 0;      // progress on the old path since another stream left its path
    bool isFollowed = true;  // takes part in the decision
  };

  struct Held {
    PacketPtr packet;
    int stream = 0;
    bool isBehind = false;
  };

  /// Where a stream that has left its path continues if the clock has not jumped.
  enum class Stay { kOnOldPath, kWhereItIs };

  Track& trackOf(const AVStream& stream);
  void follow(PacketPtr packet, const AVStream& stream, Track& track, int64_t time);
  bool hasOnlyPaused(const Track& track, int64_t time) const;
  bool belongsBehind(const Track& track, int64_t time) const;
  void hold(PacketPtr packet, const AVStream& stream, Track& track, int64_t time);
  void keep(PacketPtr packet, const AVStream& stream, bool isBehind);
  bool isAlive(const Track& track) const;
  bool isDecided() const;
  void accept();
  void reject(Stay stay);
  void release();
  int64_t offsetBehind() const;

  std::map<int, Track> tracks_;      // by stream index
  int64_t offset_ = 0;               // after the last jump
  int64_t newest_ = AV_NOPTS_VALUE;  // newest time after it
  std::optional<int> leaver_;        // the stream that may have jumped
  std::deque<Held> held_;
  std::deque<Placed> placed_;
  bool hasJumped_ = false;
};

}  // namespace kestrel
