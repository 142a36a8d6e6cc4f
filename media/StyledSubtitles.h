#pragma once

#include <kestrel/TextSubtitle.h>

#include <cstdint>
#include <memory>
#include <string_view>

#include "platform/text/SubtitleScript.h"

struct AVCodecContext;
struct AVFormatContext;

namespace kestrel {

/// The subtitles of a stream of text, drawn with their styles. For one thread at a time.
class StyledSubtitles {
 public:
  /// `container`: whose fonts they are drawn with; may be null.
  StyledSubtitles(const AVCodecContext& decoder, const AVFormatContext* container);

  /// Whether a codec's texts are always styled: it has a script of its own, or a place for each
  /// letter. Others are plain but for their codes.
  static bool areAlways(const AVCodecContext& decoder);

  /// Adds a line of dialogue as decoders answer it; times in milliseconds.
  void add(std::string_view line, int64_t start, int64_t duration) {
    script_.add(line, start, duration);
  }

  void clear() { script_.clear(); }

  /// The picture of a time in milliseconds, null where nothing shows. One that looks the same as
  /// the one before is the same object.
  std::shared_ptr<const Image> at(int64_t time, const SubtitleCanvas& canvas);

 private:
  SubtitleScript script_;
  bool hasOwnStyles_;
  Point origin_;
  std::shared_ptr<const Image> image_;
};

}  // namespace kestrel
