#include "platform/image/filters/ExposureAdjust.h"

#include <algorithm>
#include <cmath>

#include "platform/image/filters/BuiltinFilter.h"
#include "platform/image/filters/CurveLayer.h"
#include "platform/image/plan/Planner.h"
#include "platform/image/values/Light.h"

namespace kestrel {

namespace {

/// Beyond them there is nothing but black or white.
constexpr double kMostStops = 64;

class ExposureAdjust final : public OneImageFilter<ExposureAdjust> {
 public:
  explicit ExposureAdjust(const std::string& name) : OneImageFilter(name) {
    setValue(0.0, kCIInputEVKey);
  }

  std::shared_ptr<const Image> apply(const std::shared_ptr<const Image>& input) const {
    const double stops = std::clamp(number(kCIInputEVKey, 0), -kMostStops, kMostStops);
    if (stops == 0) return input;
    return Image::fromNode(std::make_shared<ExposureNode>(input->node(), stops));
  }
};

}  // namespace

ExposureNode::ExposureNode(const NodePointer& picture, double ev)
    : FilterNode(picture, integral(picture->extent)), stops(ev) {}

double ExposureNode::valueFor(double value) const {
  if (stops < 0) return valueOf(lightOf(value) * std::exp2(stops));
  const double light = std::pow(value, kDisplayGamma);
  const double gain = std::exp2(kSlope * stops);
  return std::pow(gain * light / (1 + (gain - 1) * light), 1 / kDisplayGamma);
}

const Layer* ExposureNode::plan(Planner& planner, const IntRect& needed) const {
  const Layer* source = planner.plan(*input, needed);
  if (!source) return nullptr;
  Arena& arena = planner.arena();
  return arena.make<CurveLayer>(*source,
                                makeCurve(arena, [this](double v) { return valueFor(v); }));
}

std::shared_ptr<Filter> makeExposureAdjust(const std::string& name) {
  return std::make_shared<ExposureAdjust>(name);
}

}  // namespace kestrel
