#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <vector>

#include "support/FFmpegOwners.h"

namespace kestrel {

/// Finds where the clock of a broadcast's stream jumps, and by how much the time stamps behind a
/// jump are to be moved so that they go on where those before it ended.
///
/// It takes the packets of all streams in the order of the file, and gives them back in the same
/// order, with what their times are to be moved by. Where a stream's time leaves its path, packets
/// are held back, for two seconds of it at most, to see what the others do: a clock has jumped when
/// they follow, or have nothing more to say. A stream that pauses while another goes on, or a
/// single damaged stamp, is no jump of the clock.
///
/// Pictures go on without a gap. Sound that lasts a little longer than the pictures before it is
/// overlapped by what follows; where it is longer by more, the pictures wait for its end.
class JumpFinder {
 public:
  /// What the times of transport and program streams count, 90,000 a second, in 33 bits.
  static constexpr AVRational kTicks{1, 90000};

  struct Placed {
    PacketPtr packet;
    int64_t offset = 0;  ///< to be added to the packet's times, in ticks
  };

  void push(PacketPtr packet, const AVStream& stream);

  /// Says that no packet follows: what is held back is decided upon.
  void finish();

  /// The next packet whose place is known; none while more have to be pushed.
  std::optional<Placed> pop();

  /// Whether a jump has been found.
  bool hasJumped() const { return hasJumped_; }

  /// Takes the packets out that have not been popped, undecided, in order.
  std::deque<PacketPtr> takeAll();

  /// Forgets everything: reading goes on elsewhere.
  void reset();

 private:
  /// Where a stream's time has got to, in ticks of the file.
  struct Path {
    bool isKnown() const { return next != AV_NOPTS_VALUE; }
    bool isLeftBy(int64_t time) const;
    void go(const AVPacket& packet, const AVStream& stream, int64_t time);

    int64_t begin = AV_NOPTS_VALUE;  // the earliest time at which something is shown
    int64_t end = AV_NOPTS_VALUE;    // where what is shown last ends
    int64_t last = AV_NOPTS_VALUE;   // the decoding time of the last packet
    int64_t next = AV_NOPTS_VALUE;   // the one that is expected now
    int64_t spacing = 0;             // the longest step so far
    int64_t lead = 0;                // how long before it is shown the first one is decoded
    int count = 0;
  };

  struct Track {
    bool isPictures = false;
    int64_t offset = 0;
    Path path;
    Path behind;             // behind the place where the clock may have jumped
    int64_t stayed = 0;      // how far it went on before it, since another has left its path
    bool isFollowed = true;  // takes part in the decision
  };

  struct Held {
    PacketPtr packet;
    int stream = 0;
    bool isBehind = false;
  };

  /// Where a stream goes on that has left its path while the clock has not jumped.
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

  std::map<int, Track> tracks_;      // by the stream's index
  int64_t offset_ = 0;               // behind the last jump
  int64_t newest_ = AV_NOPTS_VALUE;  // the newest time there
  std::optional<int> leaver_;        // the stream that may have jumped
  std::deque<Held> held_;
  std::deque<Placed> placed_;
  bool hasJumped_ = false;
};

}  // namespace kestrel
