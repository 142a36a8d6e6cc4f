#pragma once

#include <kestrel/LMFFMediaStream.h>

#include <memory>
#include <vector>

#include "support/FFmpegOwners.h"
#include "support/FilterChain.h"

namespace kestrel {

/// Makes whole pictures of interlaced ones, one for one and at the same times. A picture comes out
/// when the next has gone in, for it takes both its neighbours.
class Deinterlacer {
 public:
  /// `timebase`: of the pictures' times.
  Deinterlacer(Deinterlacing mode, AVRational timebase) : mode_(mode), timebase_(timebase) {}

  /// Takes the next picture; answers what is finished. Where the filter can't be had, that is the
  /// picture itself.
  std::vector<FramePtr> push(FramePtr picture);

  /// The input has ended: answers what is left.
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
