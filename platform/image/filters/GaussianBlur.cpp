#include "platform/image/filters/GaussianBlur.h"

#include <algorithm>

#include "platform/image/filters/Blur.h"
#include "platform/image/filters/BuiltinFilter.h"

namespace kestrel {

namespace {

constexpr double kDefaultRadius = 10;

class GaussianBlur final : public OneImageFilter<GaussianBlur> {
 public:
  explicit GaussianBlur(const std::string& name) : OneImageFilter(name) {
    setValue(kDefaultRadius, kCIInputRadiusKey);
  }

  std::shared_ptr<const Image> apply(const std::shared_ptr<const Image>& input) const {
    const double radius =
        std::min(number(kCIInputRadiusKey, kDefaultRadius) * pixelSize(), blur::kMostSigma);
    if (radius < blur::kLeastSigma || isEmpty(input->extent())) return input;
    return Image::fromNode(std::make_shared<GaussianBlurNode>(input->node(), radius));
  }
};

}  // namespace

GaussianBlurNode::GaussianBlurNode(const NodePointer& picture, double standardDeviation)
    : FilterNode(picture, integral(picture->extent)), radius(standardDeviation) {}

const Layer* GaussianBlurNode::plan(Planner& planner, const IntRect& needed) const {
  const Layer* source = planner.plan(*input, blur::reachOf(needed, radius));
  if (!source) return nullptr;
  planner.noteGradients();
  const BorderedLayer picture(*source, pixelsOf(extent));
  return blur::makeLayer(planner, picture, needed, radius);
}

std::shared_ptr<Filter> makeGaussianBlur(const std::string& name) {
  return std::make_shared<GaussianBlur>(name);
}

}  // namespace kestrel
