#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>

namespace kestrel {

class Image;

/// When a subtitle is shown, in ticks of its stream. `AV_NOPTS_VALUE` as `start` means never.
struct SubtitleSpan {
  int64_t start = 0;
  int64_t duration = 0;

  /// True strictly between start and end.
  bool contains(int64_t time) const;
};

/// The replaced bitmap subtitles of a stream. Reading is ahead of display by what decoders hold
/// back, or with a still image by the whole input, so the next subtitle may have been read before
/// the picture of the current one is shown.
class SubtitleHistory {
 public:
  /// Adds a subtitle after all others, null for a time without any. Subtitles that start at the
  /// same time or later are dropped.
  void add(const SubtitleSpan& span, std::shared_ptr<const Image> image);

  /// Drops subtitles that have been replaced by another up to a time.
  void forgetBefore(int64_t time);

  /// The subtitle shown at a time; null if there is none. Only the last one that starts before that
  /// time can be shown.
  std::shared_ptr<const Image> at(int64_t time) const;

  void clear() { subtitles_.clear(); }

 private:
  struct Subtitle {
    SubtitleSpan span;
    std::shared_ptr<const Image> image;
  };

  std::deque<Subtitle> subtitles_;  // in ascending order of start
};

/// The text subtitles of a stream that may still be shown. Unlike bitmap subtitles, which replace
/// each other, several texts may be shown at the same time.
class SubtitleTexts {
 public:
  /// Keeps at most a thousand: drops the oldest beyond that.
  void add(const SubtitleSpan& span, std::string markup);

  /// Drops texts that end before a time.
  void forgetBefore(int64_t time);

  /// All texts shown at a time, the latest first, one per line; nullopt if there are none.
  /// Identical texts (layers for a border or shadow) appear once.
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
