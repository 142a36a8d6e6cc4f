#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "sources/JumpFinder.h"

namespace kestrel {

/// What reading a file with a jumping clock through has told: by what the times of its packets are
/// to be moved, by their place in the file, so that they rise from its beginning to its end. All
/// readers of the file move them alike.
///
/// Times are ticks of `JumpFinder::kTicks`, moved ones.
class ClockMap {
 public:
  /// Takes the file's packets in order, as the finder gives them back.
  void add(const AVPacket& packet, const AVStream& stream, int64_t offset);

  /// Whether anything is moved.
  bool hasJumps() const { return hasJumps_; }

  /// A stretch of a stream whose packets are moved alike.
  struct Stretch {
    int64_t position = 0;  ///< the byte of the file from which on its packets lie
    int64_t offset = 0;    ///< what they are moved by
    int64_t begin = 0;     ///< the decoding time of the first, as it lies in the file
  };

  /// The stretch that a byte of the file belongs to, and the one that follows it, if any. Packets
  /// without a place of their own, such as all but the first in one packet of the container, are
  /// told apart by their times.
  Stretch stretchAt(int stream, int64_t position) const;
  std::optional<Stretch> stretchAfter(int stream, int64_t position) const;

  /// The last place, in bytes, from which a time may be decoded; none where that is the beginning.
  std::optional<int64_t> placeBefore(int64_t time) const;

  struct Span {
    bool isEmpty() const { return end < begin; }

    int64_t begin = INT64_MAX;
    int64_t end = INT64_MIN;
  };

  /// From when to when a stream's packets last, or those of all pictures and sound.
  Span spanOf(int stream) const;
  Span span() const { return span_; }

  /// Makes a demuxer of the file say how long it and its streams are, which it has guessed by one
  /// clock.
  void describe(AVFormatContext& context) const;

 private:
  struct Entry {
    int64_t time = 0;
    int64_t position = 0;
  };

  void addEntry(const AVPacket& packet, const AVStream& stream, int64_t time);

  struct Course {
    std::map<int64_t, Stretch> stretches;  // by their place
    int64_t offset = 0;                    // of the last
    int64_t position = -1;                 // the last place told
  };

  std::map<int, Course> courses_;  // by stream
  std::map<int, Span> spans_;
  Span span_;
  std::optional<int> indexed_;  // the stream whose packets are entered
  std::vector<Entry> entries_;  // in rising order
  bool hasPictures_ = false;
  bool hasJumps_ = false;
};

}  // namespace kestrel
