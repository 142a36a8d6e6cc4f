#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "media/SubtitleContent.h"

namespace kestrel {

/// When a subtitle is shown, in ticks of its stream. `AV_NOPTS_VALUE` as `start` means never.
struct SubtitleSpan {
  int64_t start = 0;
  int64_t duration = 0;

  /// True strictly between start and end.
  bool contains(int64_t time) const;

  /// True from the start on, before the end.
  bool shows(int64_t time) const;
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
  struct Text {
    SubtitleSpan span;
    std::string markup;
    std::vector<std::string> lines;  ///< of dialogue, as the decoder answered them
    bool isStyled = false;           ///< beyond what the markup tells

    /// Adds a line that is shown at the same time.
    void add(std::string line, const SubtitleStyles& styles);
  };

  /// Keeps at most a thousand: drops the oldest beyond that.
  void add(Text text);

  /// Drops texts that end before a time.
  void forgetBefore(int64_t time);

  /// All texts shown at a time, the latest first, one per line; nullopt if there are none.
  /// Identical texts (layers for a border or shadow) appear once.
  std::optional<std::string> at(int64_t time) const;

  /// The same where a text is shown from its start on.
  std::optional<std::string> shownAt(int64_t time) const;

  /// Whether one that is shown at a time, its start included, is styled.
  bool areStyledAt(int64_t time) const;

  /// Answers those that came since it was asked last.
  std::vector<Text> takeNew();

  void clear();

 private:
  std::optional<std::string> markupOf(
      const std::function<bool(const SubtitleSpan&)>& isShown) const;

  std::deque<Text> texts_;
  size_t taken_ = 0;  // of these, the first so many
};

}  // namespace kestrel
