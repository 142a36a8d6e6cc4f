#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>

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

/// The text subtitles of a stream that may still be shown. Unlike bitmap ones, which replace each
/// other, several may be shown at the same time.
class SubtitleTexts {
 public:
  /// Of more than a thousand that nobody asks for, the oldest are forgotten.
  void add(const SubtitleSpan& span, std::string markup);

  /// Forgets those that end before a time.
  void forgetBefore(int64_t time);

  /// All that are shown at a time, the latest above, each text once: layers that repeat a text for
  /// its border or shadow are one. Absent when there is none.
  std::optional<std::string> at(int64_t time) const;

  void clear() { texts_.clear(); }

 private:
  struct Text {
    SubtitleSpan span;
    std::string markup;
  };

  std::deque<Text> texts_;
};

}  // namespace kestrel
