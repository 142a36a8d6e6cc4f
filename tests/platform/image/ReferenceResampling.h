#pragma once

#include <kestrel/Geometry.h>
#include <kestrel/Scaler.h>

#include <utility>
#include <vector>

/// Where pixels of a recipe come from and with which weights, by the definitions and in doubles.
namespace kestrel::test::reference {

/// How much of the span from `from` to `to` lies between `low` and `high`.
double overlap(double low, double high, double from, double to);

/// A rectangle whose edges lie on whole pixels where they nearly do.
Rect snapped(const Rect& rect);

/// A map whose entries are 0 where they nearly are.
AffineTransform cleaned(AffineTransform t);

/// Whether a map keeps rows and columns rows and columns, or exchanges them.
bool isUpright(const AffineTransform& t);

/// The share of a pixel that lies in `rect`.
double share(const Rect& rect, int x, int y);

/// One direction of a resampling: which samples with which weights.
struct Axis {
  std::vector<std::pair<int, double>> taps;
};

/// The taps of an upright map.
Axis curveAxis(Resampling resampling, double center, double footprint, double low, double high);

/// The taps of an area or, with `isTurned`, of a map that turns. With `block` above 1 the samples
/// are means of that many.
Axis axis(double center, double span, double low, double high, int block, bool isTurned);

/// The map from `from` to `to` that `back`, which is upright, nearly is.
AffineTransform between(AffineTransform back, const Rect& from, const Rect& to);

}  // namespace kestrel::test::reference
