#include "platform/image/filters/ColorMonochrome.h"

#include "platform/image/filters/BuiltinFilter.h"
#include "platform/image/recipe/ImageNode.h"

namespace kestrel {

namespace {

constexpr Color kDefaultColor{0.6, 0.45, 0.3, 1};

class ColorMonochrome final : public OneImageFilter<ColorMonochrome> {
 public:
  explicit ColorMonochrome(const std::string& name) : OneImageFilter(name) {
    setValue(kDefaultColor, kCIInputColorKey);
    setValue(1.0, kCIInputIntensityKey);
  }

  std::shared_ptr<const Image> apply(const std::shared_ptr<const Image>& input) const {
    const double intensity = number(kCIInputIntensityKey, 1);
    const Color shade = color(kCIInputColorKey, kDefaultColor);
    const double channels[] = {shade.red, shade.green, shade.blue};
    ColorMatrix matrix;
    for (size_t i = 0; i < 3; ++i) {
      for (size_t j = 0; j < 3; ++j)
        matrix.m[i][j] = (i == j ? 1 - intensity : 0) + intensity * channels[i] * kLuminance[j];
    }
    return colorMapped(input, matrix);
  }
};

}  // namespace

std::shared_ptr<Filter> makeColorMonochrome(const std::string& name) {
  return std::make_shared<ColorMonochrome>(name);
}

}  // namespace kestrel
