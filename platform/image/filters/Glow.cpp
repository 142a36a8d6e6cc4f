#include "platform/image/filters/Glow.h"

#include <algorithm>

#include "platform/image/filters/Blur.h"
#include "platform/image/filters/CurveLayer.h"
#include "platform/image/kernels/FilterKernels.h"

namespace kestrel {

namespace {

class GlowLayer final : public Layer {
 public:
  /// Both are light and cover the bounds.
  GlowLayer(const Layer& picture, const Layer& blurred, const IntRect& bounds, const GlowNode& node)
      : Layer(bounds),
        picture_(picture),
        blurred_(blurred),
        mix_(node.kind == GlowNode::Kind::kBloom ? kernels::bloomPixels : kernels::gloomPixels),
        intensity_(static_cast<float>(node.intensity)) {}

  void render(Worker& worker, const IntRect& rect, const Tile& out) const override {
    const ArenaScope scope(worker.memory);
    const Tile glow = makeTile(worker.memory, rect);
    blurred_.render(worker, rect, glow);
    picture_.render(worker, rect, out);
    for (int y = 0; y < rect.height(); ++y)
      mix_(out.row(y), glow.row(y), static_cast<size_t>(rect.width()), intensity_);
    const bool isOpaque = picture_.isOpaque(rect);
    for (int y = 0; y < rect.height(); ++y)
      kernels::mapCurve(out.row(y), static_cast<size_t>(rect.width()), valueCurve(), isOpaque);
  }

  bool isOpaque(const IntRect& rect) const override { return picture_.isOpaque(rect); }
  bool prefersBlocks() const override {
    return picture_.prefersBlocks() || blurred_.prefersBlocks();
  }

 private:
  const Layer& picture_;
  const Layer& blurred_;
  void (*mix_)(float* pixels, const float* blurred, size_t count, float intensity);
  float intensity_;
};

}  // namespace

GlowNode::GlowNode(const NodePointer& picture, Kind way, double standardDeviation, double share)
    : FilterNode(picture, integral(picture->extent)),
      kind(way),
      radius(standardDeviation),
      intensity(share) {}

const Layer* GlowNode::plan(Planner& planner, const IntRect& needed) const {
  const Layer* source = planner.plan(*input, radius > 0 ? blur::reachOf(needed, radius) : needed);
  if (!source) return nullptr;
  const IntRect shown = needed.intersect(source->bounds());
  if (shown.isEmpty()) return nullptr;
  planner.noteGradients();
  // The picture is read twice.
  source = planner.computedOnce(source);
  source = planner.arena().make<CurveLayer>(*source, lightCurve());
  const BorderedLayer picture(*source, pixelsOf(extent));
  const Layer* blurred = radius > 0 ? blur::makeLayer(planner, picture, shown, radius) : source;
  return planner.arena().make<GlowLayer>(*source, *blurred, shown, *this);
}

std::shared_ptr<const Image> makeGlow(const std::shared_ptr<const Image>& input,
                                      GlowNode::Kind kind, double radius, double intensity) {
  const double share = std::clamp(intensity, 0.0, 1.0);
  if (share == 0) return input;
  const double sigma = radius < blur::kLeastSigma ? 0 : std::min(radius, blur::kMostSigma);
  return Image::fromNode(std::make_shared<GlowNode>(input->node(), kind, sigma, share));
}

}  // namespace kestrel
