#pragma once

#include <kestrel/convert/Cut.h>
#include <kestrel/convert/MediaInfo.h>

#include <cstdint>
#include <memory>

#include "convert/cut/PictureIndex.h"

struct AVFormatContext;

namespace kestrel {

class LMMediaSource;

/// What is known of a cut's input.
struct CutJob {
  const CutSettings& settings;
  const Events& events;
  MediaInfo info = {};
  std::shared_ptr<AVFormatContext> outline = {};
  uint32_t video = 0;
  PictureIndex index = {};
  int64_t start = 0;  ///< of the input in its own time, microseconds

  /// Another reader of the input, at its beginning.
  std::shared_ptr<LMMediaSource> reader() const;
};

}  // namespace kestrel
