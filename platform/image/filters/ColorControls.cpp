#include "platform/image/filters/ColorControls.h"

#include "platform/image/filters/BuiltinFilter.h"
#include "platform/image/recipe/ImageNode.h"

namespace kestrel {

namespace {

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
    ColorMatrix matrix;
    for (size_t i = 0; i < 3; ++i) {
      for (size_t j = 0; j < 3; ++j)
        matrix.m[i][j] = contrast * ((1 - saturation) * kLuminance[j] + (i == j ? saturation : 0));
      matrix.m[i][3] = offset;
    }
    return colorMapped(input, matrix);
  }
};

}  // namespace

std::shared_ptr<Filter> makeColorControls(const std::string& name) {
  return std::make_shared<ColorControls>(name);
}

}  // namespace kestrel
