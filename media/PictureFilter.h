#pragma once

#include <memory>
#include <vector>

#include "support/FFmpegOwners.h"
#include "support/FilterChain.h"

namespace kestrel {

/// Filters of libavfilter for the decoded pictures of a stream. Pictures of another size or format
/// begin anew.
class PictureFilter {
 public:
  /// `timebase` is that of the pictures' times.
  PictureFilter(std::vector<FilterChain::Filter> filters, AVRational timebase)
      : filters_(std::move(filters)), timebase_(timebase), finished_(timebase) {}

  /// Takes the next picture and returns those that are finished, their times in `timebase()`. If
  /// the filters are not available, returns the picture itself.
  std::vector<FramePtr> push(FramePtr picture);

  /// Call at the end of the input; returns the remaining pictures.
  std::vector<FramePtr> finish();

  /// Of the times of the pictures that came out last.
  AVRational timebase() const { return finished_; }

 private:
  bool fits(const AVFrame& picture) const;
  void build(const AVFrame& picture);
  std::vector<FramePtr> collect();

  const std::vector<FilterChain::Filter> filters_;
  const AVRational timebase_;
  AVRational finished_;
  std::unique_ptr<FilterChain> chain_;
  int width_ = 0;
  int height_ = 0;
  int format_ = -1;
};

}  // namespace kestrel
