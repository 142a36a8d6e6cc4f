#pragma once

#include <kestrel/LMFFImage.h>

#include <cstdint>
#include <memory>

#include "convert/look/Look.h"
#include "support/FilterChain.h"

struct AVFrame;

namespace kestrel {

/// Turns pictures by quarters, mirrors them, and lays transparent ones on black, all in their own
/// depth. Samples that pixels have for themselves do not change; those of colour that several share
/// are moved to where they lie within these.
class PictureTurner {
 public:
  /// `flattens`: transparent pictures are laid on black.
  PictureTurner(const Look::Turn& turn, bool flattens) : turn_(turn), flattens_(flattens) {}

  /// The picture that a frame becomes; the frame itself where it cannot be changed. For the same
  /// frame as before it is the same object.
  std::shared_ptr<LMFFImage> make(const std::shared_ptr<LMFFImage>& frame);

 private:
  void build(const AVFrame& frame);

  const Look::Turn turn_;
  const bool flattens_;
  std::unique_ptr<FilterChain> chain_;
  int width_ = 0;  // of the frames that the chain is made for
  int height_ = 0;
  int format_ = -1;
  std::shared_ptr<LMFFImage> frame_;  // the last one, and what it became
  std::shared_ptr<LMFFImage> picture_;
};

}  // namespace kestrel
