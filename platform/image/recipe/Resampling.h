#pragma once

#include <kestrel/Geometry.h>
#include <kestrel/Scaler.h>

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
/// 2. Where the map keeps the axes, the source pixel from k to k + 1 has in u the weight
///    K((k + ½ - u) / span), with span = max(1, footprint) and K the curve of the scaler; the
///    weights of a pixel's sources are divided by their sum. A curve that is an area, and each one
///    where the footprint is above 8, has the weights |[k, k + 1] ∩ [u - span/2, u + span/2]|
///    instead. A direction that only moves, by whole pixels, copies. The weight of a pixel is the
///    product of its weights in u and v. Pixels outside of the clip (rounded outwards to whole
///    pixels) are those at its border, repeated. Colours are multiplied by alpha.
///    A limited scaler mixes rows first, then pixels of the row so made; each time the result is
///    limited to the range of the source pixels with |k + ½ - u| < span.
/// 3. Coverage in u is |[u - footprint/2, u + footprint/2] ∩ [clip.minX, clip.maxX]| / footprint,
/// and
///    likewise in v; the pixel is multiplied by both. Where the map keeps the axes the clip is
///    mapped first and an edge within 1/1024 of a whole pixel is put there, so that what is meant
///    to end with a pixel does; the map is then the one from the clip to there.
///
/// Where the map does not keep the axes, the source pixel from k to k + 1 has in step 2 the weight
/// T(k + ½ - u), with T the cubic of Mitchell and Netravali, which reaches two pixels to both
/// sides, with B = span - 1 and C = (2 - span) / 2. They are on the line B + 2 C = 1 that the two
/// recommend and go from Catmull and Rom's curve, where the picture does not shrink, to the
/// B-spline, where it shrinks to half its size. Where span exceeds 2 in u or v, step 2 takes
/// instead of the source its reduction: block i is the mean of the source pixels from i × n to
/// i × n + n - 1, counted from the clip's lower left pixel (from 0 without bounds), with
/// n = ⌈span / 2⌉ (n differs in u and v). Positions, spans and weights are then in units of blocks.
namespace kestrel::resampling {

/// How near to a whole pixel an edge counts as being there.
inline constexpr double kEdgeTolerance = 1.0 / 1024;

/// Entries of a map below this share of the largest are 0.
inline constexpr double kSkewTolerance = 1e-9;

/// Up to this span a map that turns samples its source directly.
inline constexpr double kWidestDirectSpan = 2;

/// Where a pixel covers more of the source's than this, it is the mean of their area.
inline constexpr double kWidestCurve = 8;

/// The curve at `t`, in pixels where the picture does not shrink. Its integral is 1; `kArea` has
/// none of its own and is answered as the triangle that it is where pictures grow.
double curveAt(Resampling resampling, double t);

/// From here on the curve is 0.
double radiusOf(Resampling resampling);

/// Whether a pixel of such a footprint is the mean of an area rather than weighed by the curve.
bool isAreaMean(Resampling resampling, double footprint);

/// `map` with the entries of its linear part that only stem from rounding put to 0.
AffineTransform cleaned(const AffineTransform& map);

/// Maps upright rectangles to upright rectangles.
bool keepsAxes(const AffineTransform& map);

/// Moves by whole pixels (as near as edges are told apart) and does nothing else.
bool isWholeShift(const AffineTransform& map);

/// `rect` with the edges that are nearly on whole pixels put there.
Rect snapped(const Rect& rect);

}  // namespace kestrel::resampling
