#pragma once

#include <kestrel/Image.h>

#include <algorithm>
#include <optional>
#include <vector>

#include "platform/image/layers/Arena.h"
#include "platform/image/layers/Layer.h"
#include "platform/image/layers/Raster.h"
#include "platform/image/layers/ResampleLayers.h"
#include "platform/image/recipe/ImageNode.h"
#include "platform/image/values/ColorMatrix.h"
#include "platform/image/values/IntRect.h"

namespace kestrel {

/// Turns a recipe into layers: neighbouring transforms become one resampling, colour matrices one
/// matrix that the resampling applies, crops decide what is computed at all, and what an opaque
/// picture hides disappears.
///
/// A plan refers to nodes of the recipe and to memory of the arena; it is valid as long as both
/// are.
class Planner {
 public:
  Planner(Arena& arena, TapsStore& taps, std::vector<const Pass*>& passes)
      : arena_(arena), taps_(taps), passes_(passes) {}

  Arena& arena() { return arena_; }

  /// What computes the pixels of `needed`; null when the node leaves nothing there. The layer's
  /// bounds lie within `needed`.
  const Layer* plan(const ImageNode& node, const IntRect& needed);

  /// The pixels of `needed`, computed before the picture itself; null when there are none. The
  /// raster's bounds are those of the layer.
  const Raster* materialize(const ImageNode& node, const IntRect& needed);

  /// A layer that shows the same, for those who read it more than once: what takes work is computed
  /// before the picture itself.
  const Layer* computedOnce(const Layer* layer);

  /// Says that what is planned has samples of so many bits.
  void noteDepth(int bits) { depth_ = std::max(depth_, bits); }
  /// Bits of the finest samples that were planned, at least 8.
  int depth() const { return depth_; }

  /// Says that slow gradients are computed, which would show steps in planes of 8 bits.
  void noteGradients() { hasGradients_ = true; }
  bool hasGradients() const { return hasGradients_; }

  /// Appends work to be done before the picture itself, and after what was added before.
  void addPass(const Pass* pass) { passes_.push_back(pass); }

 private:
  /// A run of transforms, crops and colour matrices, and the node below it.
  struct Chain {
    const ImageNode* node;
    Rect clip = Rect::infinite();    ///< in the plane of the result
    Rect source = Rect::infinite();  ///< in the plane of the node
    AffineTransform map;             ///< from the node to the result
    bool isMapped = false;
    ColorMatrix color;
    std::optional<Scaler> scaler;
  };
  /// What a resampling needs to know beside its source.
  struct Sampling {
    Rect clip;            ///< the used part of the source, in its plane
    AffineTransform map;  ///< cleaned
    IntRect needed;       ///< pixels of the result
    KernelMatrix matrix;
    bool isPlain;  ///< no colour matrix but the source's own
    Scaler scaler;
  };

  static Chain follow(const ImageNode& node);
  const Layer* planSource(const Chain& chain, const IntRect& needed);
  const Layer* planColor(const Chain& chain, const IntRect& needed);
  const Layer* planShifted(const Chain& chain, const IntRect& needed);
  const Layer* planStep(const ImageNode& node, const IntRect& needed);
  const Layer* planOver(const SourceOverNode& node, const IntRect& needed);
  const Layer* planIn(const SourceInNode& node, const IntRect& needed);
  const Layer* sample(const Raster& raster, const Sampling& sampling);
  const Layer* turn(const Raster& raster, const Sampling& sampling);
  const Raster* rasterOf(const ImageNode& node, const Sampling& sampling);
  const Raster* buffered(const Layer& layer);
  const Layer* cropped(const Layer* layer, const Rect& rect);
  KernelMatrix kernelMatrix(const ColorMatrix& matrix);

  Arena& arena_;
  TapsStore& taps_;
  std::vector<const Pass*>& passes_;
  int depth_ = 8;
  bool hasGradients_ = false;
};

/// The colour matrix that brings Y, Cb and Cr as a raster holds them to red, green and blue.
ColorMatrix matrixOfPlanes(const YUVFormat& format);

}  // namespace kestrel
