#include "platform/image/filters/ColorInvert.h"

#include "platform/image/filters/BuiltinFilter.h"
#include "platform/image/recipe/ImageNode.h"

namespace kestrel {

namespace {

class ColorInvert final : public OneImageFilter<ColorInvert> {
 public:
  using OneImageFilter::OneImageFilter;

  std::shared_ptr<const Image> apply(const std::shared_ptr<const Image>& input) const {
    return colorMapped(input, {{{{-1, 0, 0, 1}, {0, -1, 0, 1}, {0, 0, -1, 1}}}});
  }
};

}  // namespace

std::shared_ptr<Filter> makeColorInvert(const std::string& name) {
  return std::make_shared<ColorInvert>(name);
}

}  // namespace kestrel
