#include "platform/image/filters/SourceOver.h"

#include "platform/image/ImageNode.h"
#include "platform/image/filters/BuiltinFilter.h"

namespace kestrel {

namespace {

class SourceOver final : public BuiltinFilter<SourceOver> {
 public:
  using BuiltinFilter::BuiltinFilter;

  std::shared_ptr<const Image> outputImage() const override {
    const auto input = image(kCIInputImageKey);
    const auto background = image(kCIInputBackgroundImageKey);
    if (!input || !background) return nullptr;
    return Image::fromNode(std::make_shared<SourceOverNode>(input->node(), background->node()));
  }
};

}  // namespace

std::shared_ptr<Filter> makeSourceOver(const std::string& name) {
  return std::make_shared<SourceOver>(name);
}

}  // namespace kestrel
