#include "platform/image/filters/HueAdjust.h"

#include <cmath>

#include "platform/image/filters/BuiltinFilter.h"
#include "platform/image/recipe/ImageNode.h"

namespace kestrel {

namespace {

class HueAdjust final : public OneImageFilter<HueAdjust> {
 public:
  explicit HueAdjust(const std::string& name) : OneImageFilter(name) {
    setValue(0.0, kCIInputAngleKey);
  }

  std::shared_ptr<const Image> apply(const std::shared_ptr<const Image>& input) const {
    const double angle = number(kCIInputAngleKey, 0);
    const double mean = (1 - std::cos(angle)) / 3;
    const double side = std::sin(angle) / std::sqrt(3.0);
    const double same = std::cos(angle) + mean;
    const ColorMatrix matrix{{{{same, mean - side, mean + side, 0},
                               {mean + side, same, mean - side, 0},
                               {mean - side, mean + side, same, 0}}}};
    return colorMapped(input, matrix);
  }
};

}  // namespace

std::shared_ptr<Filter> makeHueAdjust(const std::string& name) {
  return std::make_shared<HueAdjust>(name);
}

}  // namespace kestrel
