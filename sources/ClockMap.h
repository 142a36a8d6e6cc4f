#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "sources/JumpFinder.h"

namespace kestrel {

/// Time offsets for a file with a jumping clock, determined by reading it through: by how much the
/// time stamps of its packets are shifted, by position in the file, so that times increase
/// throughout. All readers of the file shift alike.
///
/// Times are shifted ones, in ticks of `JumpFinder::kTicks`.
class ClockMap {
 public:
  /// Takes the file's packets in the order in which the finder returns them.
  void add(const AVPacket& packet, const AVStream& stream, int64_t offset);

  /// True if any time is shifted.
  bool hasJumps() const { return hasJumps_; }

  /// A range of a stream's packets with the same offset.
  struct Stretch {
    int64_t position = 0;  ///< byte position in the file where it begins
    int64_t offset = 0;    ///< added to its times
    int64_t begin = 0;     ///< the first packet's decoding time as stored in the file
  };

  /// The stretch at a byte position and the one after it, if any. Packets without a position of
  /// their own (all but the first in a container packet) are told apart by their times.
  Stretch stretchAt(int stream, int64_t position) const;
  std::optional<Stretch> stretchAfter(int stream, int64_t position) const;

  /// The last byte position from which a time can be decoded; nullopt: the beginning.
  std::optional<int64_t> placeBefore(int64_t time) const;

  struct Span {
    bool isEmpty() const { return end < begin; }

    int64_t begin = INT64_MAX;
    int64_t end = INT64_MIN;
  };

  /// The time range of a stream's packets, or of all pictures and sound.
  Span spanOf(int stream) const;
  Span span() const { return span_; }

  /// Corrects the durations of the container and its streams, which the demuxer estimates by
  /// assuming a single clock.
  void describe(AVFormatContext& context) const;

 private:
  struct Entry {
    int64_t time = 0;
    int64_t position = 0;
  };

  void addEntry(const AVPacket& packet, const AVStream& stream, int64_t time);

  struct Course {
    std::map<int64_t, Stretch> stretches;  // by position
    int64_t offset = 0;                    // of the last stretch
    int64_t position = -1;                 // the last position known
  };

  std::map<int, Course> courses_;  // by stream
  std::map<int, Span> spans_;
  Span span_;
  std::optional<int> indexed_;  // the stream whose packets are indexed
  std::vector<Entry> entries_;  // in ascending order
  bool hasPictures_ = false;
  bool hasJumps_ = false;
};

}  // namespace kestrel
