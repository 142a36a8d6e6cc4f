#include "platform/image/filters/SourceIn.h"

#include "platform/image/ImageNode.h"
#include "platform/image/filters/BuiltinFilter.h"

namespace kestrel {

namespace {

class SourceIn final : public BuiltinFilter<SourceIn> {
 public:
  using BuiltinFilter::BuiltinFilter;

  std::shared_ptr<const Image> outputImage() const override {
    const auto input = image(kCIInputImageKey);
    const auto background = image(kCIInputBackgroundImageKey);
    if (!input || !background) return nullptr;
    return Image::fromNode(std::make_shared<SourceInNode>(input->node(), background->node()));
  }
};

}  // namespace

std::shared_ptr<Filter> makeSourceIn(const std::string& name) {
  return std::make_shared<SourceIn>(name);
}

}  // namespace kestrel
