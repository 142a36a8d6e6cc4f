#pragma once

#include <kestrel/LMFFFormat.h>
#include <kestrel/TextSubtitle.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "media/StyledSubtitles.h"
#include "media/SubtitleContent.h"
#include "media/SubtitleHistory.h"

struct AVCodecContext;
struct AVFormatContext;

namespace kestrel {

/// The texts of a stream of subtitles that may still be shown: as markup, or as a picture where
/// they have styles. For one thread at a time.
class StreamTexts {
 public:
  /// Where texts come from.
  struct Origin {
    const AVCodecContext& decoder;
    const AVFormatContext* container;  ///< whose fonts they are drawn with; may be null
  };

  /// Adds lines of dialogue as the decoder answered them, shown at the same time.
  void add(const std::vector<std::string>& lines, const SubtitleSpan& span,
           const AVCodecContext& decoder);

  /// What is shown strictly between start and end, as markup; nullopt if nothing is. Texts that end
  /// before are dropped. In ticks.
  std::optional<std::string> markupAt(int64_t time);

  /// What is shown at a time in microseconds, where spans are in a time base. Texts that end
  /// before are dropped.
  TextSubtitle at(int64_t time, Rational timebase, const Origin& origin,
                  const SubtitleCanvas& canvas);

  /// Drops all texts.
  void clear();

 private:
  SubtitleTexts texts_;
  std::optional<SubtitleStyles> styles_;  // of the decoder, once a text was there
  std::optional<StyledSubtitles> drawn_;  // once texts were to be drawn with their styles
};

}  // namespace kestrel
