#include "platform/image/filters/SpotLight.h"

#include <algorithm>
#include <cmath>

#include "platform/image/filters/BuiltinFilter.h"
#include "platform/image/filters/CurveLayer.h"
#include "platform/image/filters/FilterNumbers.h"
#include "platform/image/filters/PlaceLayer.h"
#include "platform/image/kernels/FilterKernels.h"
#include "platform/image/plan/Planner.h"

namespace kestrel {

namespace {

constexpr Vector kDefaultPosition{400, 600, 150};
constexpr Vector kDefaultPointsAt{200, 200, 0};
constexpr double kDefaultBrightness = 3;
constexpr double kDefaultConcentration = 0.1;

class SpotLightFilter final : public OneImageFilter<SpotLightFilter> {
 public:
  explicit SpotLightFilter(const std::string& name) : OneImageFilter(name) {
    setValue(kDefaultPosition, kInputLightPositionKey);
    setValue(kDefaultPointsAt, kInputLightPointsAtKey);
    setValue(kDefaultBrightness, kCIInputBrightnessKey);
    setValue(kDefaultConcentration, kInputConcentrationKey);
    setValue(Color::white(), kCIInputColorKey);
  }

  std::shared_ptr<const Image> apply(const std::shared_ptr<const Image>& input) const {
    const auto place = [this](std::string_view key, const Vector& fallback) {
      return scaledPlace(placeOf(vector(key, fallback), fallback), pixelSize());
    };
    const Vector from = place(kInputLightPositionKey, kDefaultPosition);
    const Vector to = place(kInputLightPointsAtKey, kDefaultPointsAt);
    const Color color = this->color(kCIInputColorKey, Color::white());
    // What is not a number counts as 0.
    const auto part = [](double value) { return value > 0 ? std::min(value, 1.0) : 0; };
    const SpotLight light{
        {from.x(), from.y(), std::max(from.z(), 1.0)},
        {to.x(), to.y(), to.z()},
        std::clamp(number(kCIInputBrightnessKey, kDefaultBrightness), 0.0, 100.0),
        std::clamp(number(kInputConcentrationKey, kDefaultConcentration), 0.01, 100.0),
        {part(color.red), part(color.green), part(color.blue), 1}};
    return Image::fromNode(std::make_shared<SpotLightNode>(input->node(), light));
  }
};

class SpotLightLayer final : public PlaceLayer {
 public:
  SpotLightLayer(const Layer& input, const SpotLight& light) : PlaceLayer(input), light_(light) {
    for (size_t i = 0; i < 3; ++i) axis_[i] = light.pointsAt[i] - light.position[i];
    const double length = std::hypot(axis_[0], axis_[1], axis_[2]);
    if (length == 0) axis_[2] = -1;
    for (double& component : axis_) component /= length == 0 ? 1 : length;
    row_.axis = static_cast<float>(axis_[0]);
    row_.edge = static_cast<float>(light.edge());
    row_.scale = static_cast<float>(1 / (1 - light.edge()));
    const double strength = light.brightness / (1 + light.concentration);
    row_.color[0] = static_cast<float>(strength * light.color.red);
    row_.color[1] = static_cast<float>(strength * light.color.green);
    row_.color[2] = static_cast<float>(strength * light.color.blue);
  }

 private:
  void apply(int x, int y, int index, float* pixels, size_t count) const override {
    const double dy = y + 0.5 - light_.position[1];
    const double dz = -light_.position[2];
    kernels::LightRow row = row_;
    row.index = static_cast<float>(index);
    row.dx = static_cast<float>(x + 0.5 - light_.position[0]);
    row.along = static_cast<float>(dy * axis_[1] + dz * axis_[2]);
    row.across = static_cast<float>(dy * dy + dz * dz);
    kernels::mapCurve(pixels, count, lightCurve(), false);
    kernels::lightPixels(pixels, count, row);
    kernels::mapCurve(pixels, count, valueCurve(), false);
  }

  SpotLight light_;
  double axis_[3];
  kernels::LightRow row_{};
};

}  // namespace

double SpotLight::edge() const { return 1 / std::sqrt(1 + 0.14 * concentration); }

SpotLightNode::SpotLightNode(const NodePointer& picture, const SpotLight& lamp)
    : FilterNode(picture, integral(picture->extent)), light(lamp) {}

const Layer* SpotLightNode::plan(Planner& planner, const IntRect& needed) const {
  const Layer* source = planner.plan(*input, needed);
  planner.noteGradients();
  return source ? planner.arena().make<SpotLightLayer>(*source, light) : nullptr;
}

std::shared_ptr<Filter> makeSpotLight(const std::string& name) {
  return std::make_shared<SpotLightFilter>(name);
}

}  // namespace kestrel
