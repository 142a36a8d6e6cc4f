#include "platform/image/filters/Bloom.h"

#include "platform/image/filters/BuiltinFilter.h"
#include "platform/image/filters/Glow.h"

namespace kestrel {

namespace {

constexpr double kDefaultRadius = 10;
constexpr double kDefaultIntensity = 0.5;

class Bloom final : public OneImageFilter<Bloom> {
 public:
  explicit Bloom(const std::string& name) : OneImageFilter(name) {
    setValue(kDefaultRadius, kCIInputRadiusKey);
    setValue(kDefaultIntensity, kCIInputIntensityKey);
  }

  std::shared_ptr<const Image> apply(const std::shared_ptr<const Image>& input) const {
    return makeGlow(input, GlowNode::Kind::kBloom,
                    number(kCIInputRadiusKey, kDefaultRadius) * pixelSize(),
                    number(kCIInputIntensityKey, kDefaultIntensity));
  }
};

}  // namespace

std::shared_ptr<Filter> makeBloom(const std::string& name) { return std::make_shared<Bloom>(name); }

}  // namespace kestrel
