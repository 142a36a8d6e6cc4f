#pragma once

#include <kestrel/YUVPicture.h>

#include <array>
#include <cstddef>
#include <memory_resource>
#include <vector>

#include "platform/image/layers/Layer.h"
#include "platform/image/layers/ScalePlanes.h"
#include "platform/image/values/IntRect.h"

namespace kestrel {

/// What of a picture is samples of planes as they are, copied or scaled plane by plane, and what
/// has to be mixed of colours.
///
/// Rectangles count pixels from the picture's upper left one and hold whole samples of chroma, or
/// end with the picture.
class PartedPicture {
 public:
  /// `layer`, which may be null, shows the pixels of `picture`, to be written in `format`.
  PartedPicture(const Layer* layer, const IntRect& picture, const YUVFormat& format);
  PartedPicture(const PartedPicture&) = delete;
  PartedPicture& operator=(const PartedPicture&) = delete;

  struct Plain {
    PlainPlanes planes;
    IntRect part;
  };
  /// To be written one after another: a later one may lie over others.
  const std::pmr::vector<Plain>& plain() const { return plain_; }
  /// To be written after those. They do not overlap.
  const std::pmr::vector<IntRect>& mixed() const { return mixed_; }

 private:
  void add(const Layer& layer);
  void addMixed(const IntRect& rect);
  /// Takes `rect` out of what is mixed.
  void remove(const IntRect& rect);
  IntRect partOf(const IntRect& bounds) const;
  IntRect grown(const IntRect& part) const;
  IntRect shrunk(const IntRect& part) const;

  IntRect picture_;
  YUVFormat format_;
  // Pictures have few parts: the first of them need no memory but the object's own.
  alignas(std::max_align_t) std::array<std::byte, 4096> buffer_;
  std::pmr::monotonic_buffer_resource memory_{buffer_.data(), buffer_.size()};
  std::pmr::vector<Plain> plain_{&memory_};
  std::pmr::vector<IntRect> mixed_{&memory_};
};

}  // namespace kestrel
