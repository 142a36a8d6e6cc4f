#pragma once

#include <cstdint>
#include <deque>
#include <memory>

namespace kestrel {

class Image;

/// When a subtitle is shown, in ticks of its stream. `start` may be `AV_NOPTS_VALUE`: never.
struct SubtitleSpan {
  int64_t start = 0;
  int64_t duration = 0;

  /// True strictly between start and end.
  bool contains(int64_t time) const;
};

/// The bitmap subtitles of a stream that newer ones have replaced. Reading is ahead of showing, by
/// what decoders hold back and, with a still, by all of the input: a picture may be shown when the
/// subtitle after its own has been read already.
class SubtitleHistory {
 public:
  /// Adds one that follows on all others, null for a time without any; those that do not begin
  /// before it are forgotten.
  void add(const SubtitleSpan& span, std::shared_ptr<const Image> image);

  /// Forgets those that were replaced by another up to a time.
  void forgetBefore(int64_t time);

  /// The one shown at a time, null when there is none: of those that begin before it only the last
  /// can be.
  std::shared_ptr<const Image> at(int64_t time) const;

  void clear() { subtitles_.clear(); }

 private:
  struct Subtitle {
    SubtitleSpan span;
    std::shared_ptr<const Image> image;
  };

  std::deque<Subtitle> subtitles_;  // in rising order of their starts
};

}  // namespace kestrel
