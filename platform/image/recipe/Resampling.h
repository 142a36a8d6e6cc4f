#pragma once

#include <kestrel/Geometry.h>

/// How the engine resamples. The passes and, independently, the plain evaluator of the tests
/// compute what stands here.
///
/// A resampling takes pixels of a source, a clip rectangle in the source's plane and a map from
/// that plane to the result's. A run of transforms, crops and colour matrices is one resampling:
/// - The maps are multiplied. A crop above the first transform cuts the result. A crop between two
///   transforms cuts the source where the inner one keeps the axes (it is mapped back); where the
///   inner one does not, what lies below the crop is computed to pixels first.
/// - An entry of the map's linear part below 10⁻⁹ of the largest is 0, so that the sine of half a
/// turn
///   makes no skew.
///
/// With the clip intersected with the source's extent:
///
/// 1. The centre (x + ½, y + ½) of a result's pixel is mapped back to (u, v). In u the pixel
/// reaches
///    as far as the pixel's square does on the average of its two sides: `footprint` is the length
///    of (∂u/∂x, ∂u/∂y). The same in v.
/// 2. With span = max(1, footprint), the source pixel from k to k + 1 has the weight
///    |[k, k + 1] ∩ [u - span/2, u + span/2]| / span in u: where the picture grows that is linear
///    interpolation, where it shrinks the average of the area. The weight of a pixel is the product
///    of its weights in u and v. Pixels outside of the clip (rounded outwards to whole pixels) are
///    those at its border, repeated. Colours are multiplied by alpha.
/// 3. Coverage in u is |[u - footprint/2, u + footprint/2] ∩ [clip.minX, clip.maxX]| / footprint,
/// and
///    likewise in v; the pixel is multiplied by both. Where the map keeps the axes the clip is
///    mapped first and an edge within 1/1024 of a whole pixel is put there, so that what is meant
///    to end with a pixel does.
///
/// Where the map does not keep the axes and span exceeds 2 in u or v, step 2 takes instead of the
/// source its reduction: block i is the mean of the source pixels from i × n to i × n + n - 1,
/// counted from the clip's lower left pixel (from 0 without bounds), with n = ⌈span / 2⌉ (n differs
/// in u and v). Positions, spans and weights are then in units of blocks.
namespace kestrel::resampling {

/// How near to a whole pixel an edge counts as being there.
inline constexpr double kEdgeTolerance = 1.0 / 1024;

/// Entries of a map below this share of the largest are 0.
inline constexpr double kSkewTolerance = 1e-9;

/// Up to this span a map that turns samples its source directly.
inline constexpr double kWidestDirectSpan = 2;

/// `map` with the entries of its linear part that only stem from rounding put to 0.
AffineTransform cleaned(const AffineTransform& map);

/// Maps upright rectangles to upright rectangles.
bool keepsAxes(const AffineTransform& map);

/// Moves by whole pixels (as near as edges are told apart) and does nothing else.
bool isWholeShift(const AffineTransform& map);

/// `rect` with the edges that are nearly on whole pixels put there.
Rect snapped(const Rect& rect);

}  // namespace kestrel::resampling
