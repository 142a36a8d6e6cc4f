#pragma once

#include <kestrel/YUVPicture.h>

#include <cstdint>

#include "platform/image/layers/Arena.h"
#include "platform/image/layers/Layer.h"
#include "platform/image/layers/ScalePlanes.h"

namespace kestrel {

/// The pass that writes the pixels of `picture` to `pixels`, the top row first, as R, G, B, A not
/// multiplied by alpha. A null layer is all transparent. Noise hides that depth is lost.
const Pass* makeRgbaPass(const PassMaker& maker, const Layer* layer, const IntRect& picture,
                         uint8_t* pixels, ptrdiff_t bytesPerRow);

/// True when `target` has its planes and a format that `makePlanesPass` writes.
bool isWritable(const YUVTarget& target);

/// Adds the passes that write the pixels of `picture`, over black, to planes. Where the layer shows
/// planes of the same meaning in their own colours, samples are copied or scaled plane by plane.
/// Elsewhere noise hides that depth is lost.
void addPlanesPasses(const PassMaker& maker, const Layer* layer, const IntRect& picture,
                     const YUVTarget& target);

}  // namespace kestrel
