#include "platform/image/filters/ColorControls.h"

#include <algorithm>

#include "platform/image/filters/BuiltinFilter.h"
#include "platform/image/filters/CurveLayer.h"
#include "platform/image/plan/Planner.h"

namespace kestrel {

namespace {

ColorMatrix matrixOf(double saturation, double contrast, double offset) {
  ColorMatrix matrix;
  for (size_t i = 0; i < 3; ++i) {
    for (size_t j = 0; j < 3; ++j)
      matrix.m[i][j] = contrast * ((1 - saturation) * kLuminance[j] + (i == j ? saturation : 0));
    matrix.m[i][3] = offset;
  }
  return matrix;
}

class ColorControls final : public OneImageFilter<ColorControls> {
 public:
  explicit ColorControls(const std::string& name) : OneImageFilter(name) {
    setValue(1.0, kCIInputSaturationKey);
    setValue(0.0, kCIInputBrightnessKey);
    setValue(1.0, kCIInputContrastKey);
  }

  std::shared_ptr<const Image> apply(const std::shared_ptr<const Image>& input) const {
    const double saturation = number(kCIInputSaturationKey, 1);
    const double contrast = number(kCIInputContrastKey, 1);
    const double offset = 0.5 + number(kCIInputBrightnessKey, 0) - 0.5 * contrast;
    const double slope = number(kInputShadowSlopeKey, 0);
    if (slope <= 0 || slope >= contrast || offset >= 0)
      return colorMapped(input, matrixOf(saturation, contrast, offset));
    const auto saturated = colorMapped(input, matrixOf(saturation, 1, 0));
    return Image::fromNode(
        std::make_shared<SoftContrastNode>(saturated->node(), contrast, offset, slope));
  }
};

}  // namespace

SoftContrastNode::SoftContrastNode(const NodePointer& picture, double steepness, double shift,
                                   double least)
    : FilterNode(picture, integral(picture->extent)),
      contrast(steepness),
      offset(shift),
      slope(least) {}

double SoftContrastNode::valueFor(double value) const {
  // Where the parabola touches the line both have one slope and one value.
  const double touch = -2 * offset / (contrast - slope);
  const double bend = (contrast - slope) / (2 * touch);
  const double line = contrast * value + offset;
  return std::clamp(value < touch ? (bend * value + slope) * value : line, 0.0, 1.0);
}

const Layer* SoftContrastNode::plan(Planner& planner, const IntRect& needed) const {
  const Layer* source = planner.plan(*input, needed);
  if (!source) return nullptr;
  Arena& arena = planner.arena();
  return arena.make<CurveLayer>(*source,
                                makeCurve(arena, [this](double v) { return valueFor(v); }));
}

std::shared_ptr<Filter> makeColorControls(const std::string& name) {
  return std::make_shared<ColorControls>(name);
}

}  // namespace kestrel
