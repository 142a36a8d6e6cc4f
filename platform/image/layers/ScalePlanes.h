#pragma once

#include <kestrel/Geometry.h>
#include <kestrel/Scaler.h>
#include <kestrel/YUVPicture.h>

#include <vector>

#include "platform/image/layers/Arena.h"
#include "platform/image/layers/AxisTaps.h"
#include "platform/image/layers/Layer.h"

namespace kestrel {

/// A picture in planes as a layer shows it without any change of colour: upright or mirrored,
/// scaled or moved.
struct PlainPlanes {
  const YUVPicture* source;
  AffineTransform toSource;  ///< from the layer's plane to the source's; keeps the axes in place
  IntRect clip;              ///< the pixels of the source that are used
  Scaler scaler;
};

/// Where passes are made and what they refer to lies.
struct PassMaker {
  Arena& arena;
  TapsStore& taps;
  std::vector<const Pass*>& passes;
  int depth = 8;              ///< bits of the finest samples that the picture is made of
  bool hasGradients = false;  ///< that filters compute
};

/// True when samples of `source` may be mixed to samples of `target` as they are: they have the
/// same depth and mean the same.
bool meansTheSame(const YUVFormat& source, const YUVFormat& target);

/// Adds the pass that writes the planes of a layer to the part `part` of `target`, whose pixels are
/// those of `picture` in the layer's plane. `part` counts pixels from the target's upper left one,
/// lies within it, and begins and ends with whole samples of chroma or where the target does. Each
/// plane is scaled by itself, its samples where its siting puts them. Formats mean the same.
void addScalePass(const PassMaker& maker, const PlainPlanes& planes, const IntRect& picture,
                  const IntRect& part, const YUVTarget& target);

}  // namespace kestrel
