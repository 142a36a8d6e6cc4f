#pragma once

#include <kestrel/Fragment.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "support/FFmpegOwners.h"

namespace kestrel {

/// Where fragments begin: at the picture, or the packet of sound, that lies nearest to each
/// multiple of a length. What encodes pictures and what cuts packets ask the same.
class FragmentGrid {
 public:
  explicit FragmentGrid(int64_t length) : length_(length) {}

  /// Whether a piece, by its start and how long it lasts (microseconds), is due to begin a
  /// fragment. It is the next one's turn then.
  bool begins(int64_t start, int64_t duration) {
    const int64_t middle = start + duration / 2;
    if (next_ && middle < *next_) return false;
    next_ = (middle / length_ + 1) * length_;
    return true;
  }

 private:
  int64_t length_;
  std::optional<int64_t> next_ = {};  // the first one is always due
};

/// Writes the one stream of an MPEG-4 container in fragments of one movie fragment box each, and
/// hands these out. The container writes to this object's memory for as long as that lives.
///
/// A packet waits for its successor, which tells how long it lasts.
class FragmentWriter {
 public:
  /// `length`: of a fragment, microseconds, above 0.
  FragmentWriter(int64_t length, FragmentTaker take);
  ~FragmentWriter();
  FragmentWriter(const FragmentWriter&) = delete;
  FragmentWriter& operator=(const FragmentWriter&) = delete;

  /// Has the container write here; what the libraries answer.
  int open(AVFormatContext& container);

  /// The muxer's options that make such fragments.
  static std::map<std::string, std::string> options();

  // Between header and trailer; what the libraries answer.

  /// Takes over a packet, stamped in the stream's time base.
  int write(AVPacket& packet);

  /// Writes what waits.
  int finish();

 private:
  bool isDue(const AVPacket& packet);
  int64_t startOf(const AVPacket& packet) const;
  int64_t endOf(const AVPacket& packet) const;
  int writeHeld();
  int flush(int64_t end);
  int takeBytes(int64_t end);

  FragmentGrid grid_;
  const FragmentTaker take_;
  AVFormatContext* container_ = nullptr;
  IOContextPtr memory_;
  std::vector<uint8_t> bytes_;  // written and not yet handed out
  PacketPtr held_;
  int64_t start_ = 0;  // of the fragment, microseconds
  int64_t end_ = 0;    // of what has been written, microseconds
  bool hasHead_ = false;
};

}  // namespace kestrel
