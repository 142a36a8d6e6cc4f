#pragma once

#include <cstddef>
#include <span>

#include "platform/image/layers/Arena.h"
#include "platform/image/layers/BorderedLayer.h"
#include "platform/image/layers/Layer.h"
#include "platform/image/plan/Planner.h"
#include "platform/image/values/IntRect.h"

/// Gaussian blur of the engine.
///
/// A pixel of the blurred picture is the sum over all pixels of the picture (multiplied by alpha)
/// of w(dx) w(dy) × pixel, where dx and dy are its distances in pixels and w(d) = exp(-d²/(2
/// sigma²)) / Σ exp(-k²/(2 sigma²)) over all whole k.
///
/// Up to a sigma of 4 that is what is computed, as far as 3½ sigma. Beyond, the picture is reduced
/// to cells of n × n pixels, the cells are blurred, and the result is brought back to pixels. Both
/// ways go by the quadratic B-spline of n (three boxes of n pixels, one after the other), whose
/// variance is the same for every place within a cell; the blur of the cells has the variance that
/// is missing to sigma². With sigma at least twice n no picture comes out more than 0.42 × 1/255
/// along each axis from the sum above, and cost depends on sigma hardly at all.
namespace kestrel::blur {

/// A larger sigma counts as this one: work stays bounded even in a picture without bounds.
inline constexpr double kMostSigma = 1024;

/// A smaller sigma leaves a picture as it is.
inline constexpr double kLeastSigma = 0.2;

/// The factors of a blur along a line, which add up to 1; `reach` to each side of the middle one.
struct Weights {
  std::span<const float> values;
  int reach;
};
Weights makeWeights(Arena& arena, double sigma);

/// The pixels that those of `needed` are made of, by the definition above or as it is computed.
IntRect reachOf(const IntRect& needed, double sigma);

/// A layer that covers `needed` with the blurred picture; `picture` must have what of
/// `reachOf(needed, sigma)` lies within it.
const Layer* makeLayer(Planner& planner, const BorderedLayer& picture, const IntRect& needed,
                       double sigma);

}  // namespace kestrel::blur
