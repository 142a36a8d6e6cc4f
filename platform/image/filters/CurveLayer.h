#pragma once

#include <cmath>

#include "platform/image/kernels/FilterKernels.h"
#include "platform/image/layers/Arena.h"
#include "platform/image/layers/Layer.h"

namespace kestrel {

/// From values to light and back (`platform/image/values/Light.h`), for `kernels::mapCurve`.
const kernels::Curve& lightCurve();
const kernels::Curve& valueCurve();

/// Points of the function `at`, which takes 0 to 1.
template <typename Function>
kernels::Curve makeCurve(Arena& arena, const Function& at) {
  const auto points = arena.array<float>(kernels::kCurvePoints);
  for (size_t i = 0; i < points.size(); ++i)
    points[i] = static_cast<float>(at(static_cast<double>(i) / kernels::kCurveSteps));
  return {points.data(), false};
}

/// Another layer with each colour looked up in a curve.
class CurveLayer final : public Layer {
 public:
  CurveLayer(const Layer& input, const kernels::Curve& curve)
      : Layer(input.bounds()), input_(input), curve_(curve) {}

  void render(Worker& worker, const IntRect& rect, const Tile& out) const override;
  bool isOpaque(const IntRect& rect) const override { return input_.isOpaque(rect); }
  bool prefersBlocks() const override { return input_.prefersBlocks(); }

 private:
  const Layer& input_;
  kernels::Curve curve_;
};

}  // namespace kestrel
