#include "platform/image/filters/SharpenLuminance.h"

#include <algorithm>

#include "platform/image/Blur.h"
#include "platform/image/FilterKernels.h"
#include "platform/image/filters/BuiltinFilter.h"

namespace kestrel {

namespace {

constexpr double kDefaultSharpness = 0.4;
constexpr double kMostSharpness = 100;

class SharpenLuminance final : public OneImageFilter<SharpenLuminance> {
 public:
  explicit SharpenLuminance(const std::string& name) : OneImageFilter(name) {
    setValue(kDefaultSharpness, kCIInputSharpnessKey);
  }

  std::shared_ptr<const Image> apply(const std::shared_ptr<const Image>& input) const {
    const double sharpness =
        std::clamp(number(kCIInputSharpnessKey, kDefaultSharpness), 0.0, kMostSharpness);
    if (sharpness == 0) return input;
    return Image::fromNode(std::make_shared<SharpenLuminanceNode>(input->node(), sharpness));
  }
};

class SharpenLayer final : public Layer {
 public:
  SharpenLayer(const BorderedLayer& picture, const IntRect& bounds, const blur::Weights& weights,
               double sharpness)
      : Layer(bounds),
        picture_(picture),
        weights_(weights),
        sharpness_(static_cast<float>(sharpness)) {}

  void render(Worker& worker, const IntRect& rect, const Tile& out) const override {
    const ArenaScope scope(worker.memory);
    const IntRect used = rect.grown(weights_.reach);
    const Tile tile = makeTile(worker.memory, used);
    picture_.render(worker, used, tile);
    // Without alpha there is half as much to blur.
    const bool isOpaque = picture_.isOpaque(used);
    const auto take = isOpaque ? kernels::takeLuminance : kernels::takeLuminanceAndAlpha;
    const auto sharpen = isOpaque ? kernels::sharpenOpaque : kernels::sharpenPixels;
    const int channels = isOpaque ? 1 : 2;
    const ptrdiff_t stride = ptrdiff_t{channels} * used.width();
    const ptrdiff_t blurredStride = ptrdiff_t{channels} * rect.width();
    const auto values =
        worker.memory.array<float>(static_cast<size_t>(stride * used.height())).data();
    const auto blurred =
        worker.memory.array<float>(static_cast<size_t>(blurredStride * rect.height())).data();
    for (int y = 0; y < used.height(); ++y)
      take(tile.row(y), static_cast<size_t>(used.width()), values + y * stride);
    blur::blurTile(worker.memory, weights_, channels, values, stride, rect.width(), rect.height(),
                   blurred, blurredStride);
    const Tile middle = tile.at(weights_.reach, weights_.reach);
    const auto width = static_cast<size_t>(rect.width());
    for (int y = 0; y < rect.height(); ++y) {
      std::copy_n(middle.row(y), 4 * width, out.row(y));
      sharpen(out.row(y), blurred + y * blurredStride, width, sharpness_);
    }
  }

  bool isOpaque(const IntRect& rect) const override { return picture_.isOpaque(rect); }
  bool prefersBlocks() const override { return true; }

 private:
  BorderedLayer picture_;
  blur::Weights weights_;
  float sharpness_;
};

}  // namespace

SharpenLuminanceNode::SharpenLuminanceNode(NodePointer picture, double strength)
    : FilterNode(picture, integral(picture->extent)), sharpness(strength) {}

const Layer* SharpenLuminanceNode::plan(Planner& planner, const IntRect& needed) const {
  const Layer* source = planner.plan(*input, blur::reachOf(needed, kRadius));
  if (!source) return nullptr;
  const IntRect shown = needed.intersect(source->bounds());
  if (shown.isEmpty()) return nullptr;
  const BorderedLayer picture(*source, pixelsOf(extent), Border::kContinued);
  const blur::Weights weights = blur::makeWeights(planner.arena(), kRadius);
  return planner.arena().make<SharpenLayer>(picture, shown, weights, sharpness);
}

std::shared_ptr<Filter> makeSharpenLuminance(const std::string& name) {
  return std::make_shared<SharpenLuminance>(name);
}

}  // namespace kestrel
