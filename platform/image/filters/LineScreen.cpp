#include "platform/image/filters/LineScreen.h"

#include <algorithm>
#include <cmath>

#include "platform/image/filters/BuiltinFilter.h"
#include "platform/image/filters/FilterNumbers.h"
#include "platform/image/filters/PlaceLayer.h"
#include "platform/image/kernels/FilterKernels.h"
#include "platform/image/plan/Planner.h"

namespace kestrel {

namespace {

constexpr Vector kDefaultCenter{150, 150};
constexpr double kDefaultWidth = 6;
constexpr double kDefaultSharpness = 0.7;

class LineScreenFilter final : public OneImageFilter<LineScreenFilter> {
 public:
  explicit LineScreenFilter(const std::string& name) : OneImageFilter(name) {
    setValue(kDefaultCenter, kCIInputCenterKey);
    setValue(0.0, kCIInputAngleKey);
    setValue(kDefaultWidth, kCIInputWidthKey);
    setValue(kDefaultSharpness, kCIInputSharpnessKey);
  }

  std::shared_ptr<const Image> apply(const std::shared_ptr<const Image>& input) const {
    const Vector center = scaledPlace(
        placeOf(vector(kCIInputCenterKey, kDefaultCenter), kDefaultCenter), pixelSize());
    const LineScreen screen{
        {center.x(), center.y()},
        number(kCIInputAngleKey, 0),
        std::clamp(number(kCIInputWidthKey, kDefaultWidth) * pixelSize(), 1e-3, kFarthestPlace),
        std::clamp(number(kCIInputSharpnessKey, kDefaultSharpness), 0.0, 1.0)};
    return Image::fromNode(std::make_shared<LineScreenNode>(input->node(), screen));
  }
};

class LineScreenLayer final : public PlaceLayer {
 public:
  LineScreenLayer(const Layer& input, const LineScreen& screen)
      : PlaceLayer(input),
        center_(screen.center),
        across_(-std::sin(screen.angle) / screen.width),
        up_(std::cos(screen.angle) / screen.width) {
    const double softness = screen.softness();
    row_.step = static_cast<float>(across_);
    row_.gain = static_cast<float>((1 + softness) / softness);
    row_.slope = static_cast<float>(1 / softness);
  }

 private:
  void apply(int x, int y, int index, float* pixels, size_t count) const override {
    const double u = (x + 0.5 - center_.x) * across_ + (y + 0.5 - center_.y) * up_;
    kernels::LineRow row = row_;
    row.index = static_cast<float>(index);
    row.phase = static_cast<float>(u - std::floor(u));
    kernels::screenPixels(pixels, count, row);
  }

  Point center_;
  double across_;
  double up_;
  kernels::LineRow row_{};
};

}  // namespace

double LineScreen::softness() const { return std::max(1 - sharpness, 2 / width); }

LineScreenNode::LineScreenNode(const NodePointer& picture, const LineScreen& lines)
    : FilterNode(picture, integral(picture->extent)), screen(lines) {}

const Layer* LineScreenNode::plan(Planner& planner, const IntRect& needed) const {
  const Layer* source = planner.plan(*input, needed);
  return source ? planner.arena().make<LineScreenLayer>(*source, screen) : nullptr;
}

std::shared_ptr<Filter> makeLineScreen(const std::string& name) {
  return std::make_shared<LineScreenFilter>(name);
}

}  // namespace kestrel
