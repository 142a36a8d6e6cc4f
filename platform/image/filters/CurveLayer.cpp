#include "platform/image/filters/CurveLayer.h"

#include <array>

#include "platform/image/values/Light.h"

namespace kestrel {

namespace {

using Points = std::array<float, kernels::kCurvePoints>;

template <typename Function>
Points pointsOf(const Function& at) {
  Points points{};
  for (size_t i = 0; i < points.size(); ++i)
    points[i] = static_cast<float>(at(static_cast<double>(i) / kernels::kCurveSteps));
  return points;
}

}  // namespace

const kernels::Curve& lightCurve() {
  static const Points points = pointsOf(lightOf);
  static const kernels::Curve curve{points.data(), false};
  return curve;
}

const kernels::Curve& valueCurve() {
  static const Points points = pointsOf([](double root) { return valueOf(root * root); });
  static const kernels::Curve curve{points.data(), true};
  return curve;
}

void CurveLayer::render(Worker& worker, const IntRect& rect, const Tile& out) const {
  input_.render(worker, rect, out);
  const bool isOpaque = input_.isOpaque(rect);
  for (int y = 0; y < rect.height(); ++y)
    kernels::mapCurve(out.row(y), static_cast<size_t>(rect.width()), curve_, isOpaque);
}

}  // namespace kestrel
