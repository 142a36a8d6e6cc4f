#include "platform/image/filters/ExposureAdjust.h"

#include <algorithm>
#include <cmath>

#include "platform/image/filters/BuiltinFilter.h"
#include "platform/image/recipe/ImageNode.h"

namespace kestrel {

namespace {

class ExposureAdjust final : public OneImageFilter<ExposureAdjust> {
 public:
  explicit ExposureAdjust(const std::string& name) : OneImageFilter(name) {
    setValue(0.0, kCIInputEVKey);
  }

  std::shared_ptr<const Image> apply(const std::shared_ptr<const Image>& input) const {
    // Beyond 64 stops every channel is 0 or clamped; the bound keeps the numbers finite.
    const double gain = std::exp2(std::clamp(number(kCIInputEVKey, 0), -64.0, 64.0));
    return colorMapped(input, {{{{gain, 0, 0, 0}, {0, gain, 0, 0}, {0, 0, gain, 0}}}});
  }
};

}  // namespace

std::shared_ptr<Filter> makeExposureAdjust(const std::string& name) {
  return std::make_shared<ExposureAdjust>(name);
}

}  // namespace kestrel
