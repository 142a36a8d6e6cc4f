#include "platform/image/filters/Gloom.h"

#include "platform/image/filters/BuiltinFilter.h"
#include "platform/image/filters/Glow.h"

namespace kestrel {

namespace {

constexpr double kDefaultRadius = 10;
constexpr double kDefaultIntensity = 0.5;

class Gloom final : public OneImageFilter<Gloom> {
 public:
  explicit Gloom(const std::string& name) : OneImageFilter(name) {
    setValue(kDefaultRadius, kCIInputRadiusKey);
    setValue(kDefaultIntensity, kCIInputIntensityKey);
  }

  std::shared_ptr<const Image> apply(const std::shared_ptr<const Image>& input) const {
    return makeGlow(input, GlowNode::Kind::kGloom,
                    number(kCIInputRadiusKey, kDefaultRadius) * pixelSize(),
                    number(kCIInputIntensityKey, kDefaultIntensity));
  }
};

}  // namespace

std::shared_ptr<Filter> makeGloom(const std::string& name) { return std::make_shared<Gloom>(name); }

}  // namespace kestrel
