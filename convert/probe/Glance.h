#pragma once

#include <cstdint>
#include <vector>

#include "platform/codec/CodecOwners.h"

namespace kestrel {

class LMMediaSource;

/// Decodes few pictures of a stream at little cost: only those that others refer to, and without
/// smoothing the borders of their blocks. The source belongs to it meanwhile.
class Glance {
 public:
  Glance(LMMediaSource& source, uint32_t video);

  /// Up to `count` pictures in order, from the last key picture at or before a time on the packets'
  /// clock, microseconds. None where nothing can be sought or decoded.
  std::vector<FramePtr> from(int64_t time, size_t count);

 private:
  LMMediaSource& source_;
  uint32_t video_;
  CodecContextPtr decoder_;
};

}  // namespace kestrel
