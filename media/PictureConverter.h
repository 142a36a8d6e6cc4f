#pragma once

#include <kestrel/LMFFFormat.h>

#include <cstdint>
#include <memory>

#include "support/FFmpegOwners.h"
#include "support/FilterChain.h"

namespace kestrel {

/// Converts frames to another pixel format at the same size. The filters are created for the first
/// frame, because pictures that the image engine reads directly need none.
class PictureConverter {
 public:
  /// `pixelFormat` is that of the output.
  PictureConverter(const LMFFVideoFormat& from, int32_t pixelFormat)
      : from_(from), pixelFormat_(pixelFormat) {}

  const LMFFVideoFormat& from() const { return from_; }
  int32_t pixelFormat() const { return pixelFormat_; }

  /// False for invalid formats, and once the filters could not be created.
  bool isUsable() const;

  /// Null if the frame cannot be converted.
  FramePtr convert(const AVFrame& frame);

 private:
  std::unique_ptr<FilterChain> makeChain() const;

  LMFFVideoFormat from_;
  int32_t pixelFormat_;
  bool wasMade_ = false;
  std::unique_ptr<FilterChain> chain_;
};

}  // namespace kestrel
