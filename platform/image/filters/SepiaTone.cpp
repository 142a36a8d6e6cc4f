#include "platform/image/filters/SepiaTone.h"

#include "platform/image/filters/BuiltinFilter.h"
#include "platform/image/recipe/ImageNode.h"

namespace kestrel {

namespace {

constexpr double kSepia[3][3] = {
    {0.393, 0.769, 0.189}, {0.349, 0.686, 0.168}, {0.272, 0.534, 0.131}};

class SepiaTone final : public OneImageFilter<SepiaTone> {
 public:
  explicit SepiaTone(const std::string& name) : OneImageFilter(name) {
    setValue(1.0, kCIInputIntensityKey);
  }

  std::shared_ptr<const Image> apply(const std::shared_ptr<const Image>& input) const {
    const double intensity = number(kCIInputIntensityKey, 1);
    ColorMatrix matrix;
    for (size_t i = 0; i < 3; ++i) {
      for (size_t j = 0; j < 3; ++j)
        matrix.m[i][j] = (i == j ? 1 - intensity : 0) + intensity * kSepia[i][j];
    }
    return colorMapped(input, matrix);
  }
};

}  // namespace

std::shared_ptr<Filter> makeSepiaTone(const std::string& name) {
  return std::make_shared<SepiaTone>(name);
}

}  // namespace kestrel
