#pragma once

#include <kestrel/convert/Events.h>

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

extern "C" {
#include <libavutil/rational.h>
}

struct AVPacket;

namespace kestrel {

class LMMediaSource;

/// One coded picture; times are ticks of its stream.
struct IndexedPicture {
  /// What may begin with it.
  enum class Entry {
    kNone,   ///< nothing: it needs others
    kClean,  ///< decoding: no picture behind it needs one before it
    kOpen,   ///< the same, but for pictures that are shown before it
  };

  int64_t shown = 0;
  int64_t duration = 0;
  Entry entry = Entry::kNone;
  bool isHidden = false;  ///< by the container
  int64_t decoded = 0;    ///< `AV_NOPTS_VALUE` where the container does not tell
};

/// The pictures of a stream, in the order of decoding.
struct PictureIndex {
  std::vector<IndexedPicture> pictures = {};
  AVRational timebase = {0, 1};
  std::vector<int64_t> shown = {};  ///< the times of those that are not hidden, rising

  /// Why pictures can't be told apart by their times, which is how they are known; "" where they
  /// can.
  std::string problem = {};

  /// Why what is encoded can't stand among what is copied: the stream changes; "" where it can.
  std::string change = {};

  std::set<uint32_t> pictureSets = {};  ///< of H.264: the numbers of all its picture parameter sets
  int64_t usualDuration = 1;            ///< of a picture

  /// Where decoding has to begin so that the picture that is shown at `time`, and all behind it,
  /// come out whole: that picture's time.
  int64_t entryBefore(int64_t time) const;

  /// When the picture that follows one is shown; none behind the last one: `INT64_MAX`.
  int64_t nextTime(int64_t time) const;
};

/// Reads a stream of an input from where that stands to its end.
PictureIndex indexPictures(LMMediaSource& source, uint32_t stream, const Events& events);

}  // namespace kestrel
