#include "platform/image/filters/SharpenLuminance.h"

#include <algorithm>
#include <span>

#include "platform/image/filters/Blur.h"
#include "platform/image/filters/BuiltinFilter.h"
#include "platform/image/kernels/FilterKernels.h"

namespace kestrel {

namespace {

constexpr double kDefaultSharpness = 0.4;
constexpr double kMostSharpness = 100;
/// Of the blur, in the filter's pixels.
constexpr double kRadius = 1.69;

class SharpenLuminance final : public OneImageFilter<SharpenLuminance> {
 public:
  explicit SharpenLuminance(const std::string& name) : OneImageFilter(name) {
    setValue(kDefaultSharpness, kCIInputSharpnessKey);
  }

  std::shared_ptr<const Image> apply(const std::shared_ptr<const Image>& input) const {
    const double sharpness =
        std::clamp(number(kCIInputSharpnessKey, kDefaultSharpness), 0.0, kMostSharpness);
    if (sharpness == 0) return input;
    return Image::fromNode(std::make_shared<SharpenLuminanceNode>(
        input->node(), sharpness, std::min(kRadius * pixelSize(), blur::kMostSigma)));
  }
};

/// Rows of luminance, one after the other, and what of the latest of them differs from their blur.
class Lines {
 public:
  /// `width` pixels are sharpened. With two channels there is alpha beside the luminance.
  Lines(Arena& arena, const blur::Weights& weights, int width, int channels)
      : weights_(weights),
        width_(static_cast<size_t>(width)),
        channels_(static_cast<size_t>(channels)),
        taps_(weights.values.size()),
        values_(arena.array<float>(taps_ * usedValues())),
        across_(arena.array<float>(taps_ * shownValues())),
        blurred_(arena.array<float>(shownValues())),
        // Kernels load whole vectors.
        edges_(arena.array<float>(width_ + kSpare)),
        rows_(arena.array<const float*>(taps_ + 1)),
        factors_(arena.array<float>(taps_ + 1)) {}

  /// Takes the next row of pixels, which reaches as far as the blur to both sides.
  void add(const float* pixels) {
    const size_t slot = count_++ % taps_;
    float* const values = values_.data() + slot * usedValues();
    const auto take = channels_ == 1 ? kernels::takeLuminance : kernels::takeLuminanceAndAlpha;
    take(pixels, width_ + taps_ - 1, values);
    for (size_t t = 0; t < taps_; ++t) rows_[t] = values + channels_ * t;
    kernels::sumRows(rows_.data(), weights_.values.data(), static_cast<int>(taps_), shownValues(),
                     across_.data() + slot * shownValues());
  }

  /// What is to be added in the row in the middle of the latest.
  const float* edges(float sharpness) {
    const size_t middle = (count_ - taps_ / 2 - 1) % taps_;
    const float* const values = values_.data() + middle * usedValues() + channels_ * (taps_ / 2);
    const bool isOpaque = channels_ == 1;
    for (size_t t = 0; t < taps_; ++t) {
      rows_[t] = across_.data() + (count_ + t) % taps_ * shownValues();
      factors_[t] = weights_.values[t] * (isOpaque ? -sharpness : 1);
    }
    if (isOpaque) {
      rows_[taps_] = values;
      factors_[taps_] = sharpness;
      kernels::sumRows(rows_.data(), factors_.data(), static_cast<int>(taps_) + 1, width_,
                       edges_.data());
    } else {
      kernels::sumRows(rows_.data(), factors_.data(), static_cast<int>(taps_), shownValues(),
                       blurred_.data());
      kernels::takeEdges(values, blurred_.data(), width_, sharpness, edges_.data());
    }
    return edges_.data();
  }

 private:
  static constexpr size_t kSpare = 16;

  size_t usedValues() const { return channels_ * (width_ + taps_ - 1); }
  size_t shownValues() const { return channels_ * width_; }

  const blur::Weights& weights_;
  size_t width_;
  size_t channels_;
  size_t taps_;
  size_t count_ = 0;
  std::span<float> values_;  ///< of `taps_` rows, in turn
  std::span<float> across_;  ///< the same, blurred along the row
  std::span<float> blurred_;
  std::span<float> edges_;
  std::span<const float*> rows_;
  std::span<float> factors_;
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
    // Without alpha there is half as much to blur.
    const bool isOpaque = picture_.isOpaque(used);
    Lines lines(worker.memory, weights_, rect.width(), isOpaque ? 1 : 2);
    // From below upwards, a few rows at a time: only those are kept that the blur still takes.
    constexpr int kRows = 8;
    const int kept = (weights_.reach + kRows - 1) / kRows * kRows + kRows;
    const Tile tile = makeTile(worker.memory, {used.x0, 0, used.x1, kept});
    for (int i = 0; i < used.height(); ++i) {
      const int y = used.y0 + i;
      if (i % kRows == 0)
        picture_.render(worker, {used.x0, y, used.x1, std::min(y + kRows, used.y1)},
                        tile.at(0, i % kept));
      lines.add(tile.row(i % kept));
      const int ready = i - 2 * weights_.reach;
      if (ready < 0) continue;
      const Tile middle = tile.at(weights_.reach, (i - weights_.reach) % kept);
      kernels::addEdges(middle.pixels, lines.edges(sharpness_), static_cast<size_t>(rect.width()),
                        out.row(ready));
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

SharpenLuminanceNode::SharpenLuminanceNode(const NodePointer& picture, double strength,
                                           double standardDeviation)
    : FilterNode(picture, integral(picture->extent)),
      sharpness(strength),
      radius(standardDeviation) {}

const Layer* SharpenLuminanceNode::plan(Planner& planner, const IntRect& needed) const {
  const Layer* source = planner.plan(*input, blur::reachOf(needed, radius));
  if (!source) return nullptr;
  const IntRect shown = needed.intersect(source->bounds());
  if (shown.isEmpty()) return nullptr;
  const BorderedLayer picture(*source, pixelsOf(extent));
  const blur::Weights weights = blur::makeWeights(planner.arena(), radius);
  return planner.arena().make<SharpenLayer>(picture, shown, weights, sharpness);
}

std::shared_ptr<Filter> makeSharpenLuminance(const std::string& name) {
  return std::make_shared<SharpenLuminance>(name);
}

}  // namespace kestrel
