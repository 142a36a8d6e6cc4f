#include "platform/image/filters/Compositing.h"

#include "platform/image/filters/BuiltinFilter.h"
#include "platform/image/recipe/ImageNode.h"

namespace kestrel {

namespace {

template <typename Node>
class Compositing final : public BuiltinFilter<Compositing<Node>> {
 public:
  using BuiltinFilter<Compositing>::BuiltinFilter;

  std::shared_ptr<const Image> outputImage() const override {
    const auto input = this->image(kCIInputImageKey);
    const auto background = this->image(kCIInputBackgroundImageKey);
    if (!input || !background) return nullptr;
    return Image::fromNode(std::make_shared<Node>(input->node(), background->node()));
  }
};

}  // namespace

std::shared_ptr<Filter> makeSourceOver(const std::string& name) {
  return std::make_shared<Compositing<SourceOverNode>>(name);
}

std::shared_ptr<Filter> makeSourceIn(const std::string& name) {
  return std::make_shared<Compositing<SourceInNode>>(name);
}

}  // namespace kestrel
