#pragma once

#include <kestrel/LMFFFormat.h>

#include <cstdint>
#include <memory>

#include "support/FFmpegOwners.h"
#include "support/FilterChain.h"

namespace kestrel {

/// Makes frames of one format into frames of another pixel format and the same size. Its filters
/// are made for the first frame: pictures that the image engine reads as they are need none.
class PictureConverter {
 public:
  /// `pixelFormat`: what comes out.
  PictureConverter(const LMFFVideoFormat& from, int32_t pixelFormat)
      : from_(from), pixelFormat_(pixelFormat) {}

  const LMFFVideoFormat& from() const { return from_; }
  int32_t pixelFormat() const { return pixelFormat_; }

  /// False for formats that are none, and once the filters were refused.
  bool isUsable() const;

  /// Null for a frame that is refused.
  FramePtr convert(const AVFrame& frame);

 private:
  std::unique_ptr<FilterChain> makeChain() const;

  LMFFVideoFormat from_;
  int32_t pixelFormat_;
  bool wasMade_ = false;
  std::unique_ptr<FilterChain> chain_;
};

}  // namespace kestrel
