#pragma once

#include <kestrel/LMFFMediaStream.h>

#include <memory>
#include <vector>

#include "support/FFmpegOwners.h"
#include "support/FilterChain.h"

namespace kestrel {

/// Deinterlaces pictures, one for one and with unchanged times. A picture comes out when the next
/// one goes in, because the filter needs both neighbours.
class Deinterlacer {
 public:
  /// `timebase` is that of the pictures' times.
  Deinterlacer(Deinterlacing mode, AVRational timebase) : mode_(mode), timebase_(timebase) {}

  /// Takes the next picture and returns those that are finished. If the filter is not available,
  /// returns the picture itself.
  std::vector<FramePtr> push(FramePtr picture);

  /// Call at the end of the input; returns the remaining pictures.
  std::vector<FramePtr> finish();

 private:
  bool fits(const AVFrame& picture) const;
  void build(const AVFrame& picture);
  std::vector<FramePtr> collect();

  Deinterlacing mode_;
  AVRational timebase_;
  std::unique_ptr<FilterChain> chain_;
  int width_ = 0;
  int height_ = 0;
  int format_ = -1;
};

}  // namespace kestrel
