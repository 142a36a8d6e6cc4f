#include "platform/image/filters/HexagonalPixellate.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <span>

#include "platform/image/filters/BuiltinFilter.h"
#include "platform/image/filters/FilterNumbers.h"
#include "platform/image/kernels/FilterKernels.h"
#include "platform/image/plan/Planner.h"

namespace kestrel {

namespace {

constexpr Vector kDefaultCenter{150, 150};
constexpr double kDefaultScale = 8;
constexpr double kLeastScale = 1;
/// Work stays bounded even in a picture without bounds.
constexpr double kMostScale = 1024;

class HexagonalPixellate final : public OneImageFilter<HexagonalPixellate> {
 public:
  explicit HexagonalPixellate(const std::string& name) : OneImageFilter(name) {
    setValue(kDefaultCenter, kCIInputCenterKey);
    setValue(kDefaultScale, kCIInputScaleKey);
  }

  std::shared_ptr<const Image> apply(const std::shared_ptr<const Image>& input) const {
    const Vector center = scaledPlace(
        placeOf(vector(kCIInputCenterKey, kDefaultCenter), kDefaultCenter), pixelSize());
    const double scale =
        std::clamp(number(kCIInputScaleKey, kDefaultScale) * pixelSize(), kLeastScale, kMostScale);
    return Image::fromNode(std::make_shared<HexagonalPixellateNode>(
        input->node(), Point{center.x(), center.y()}, scale));
  }
};

int floorOf(double value) { return static_cast<int>(std::floor(value)); }

/// The first pixel whose centre is not left of `edge`. Hexagons are small and edges many: this
/// costs a fraction of `std::ceil` where there is no instruction for that.
int pixelFrom(double edge) {
  const double least = edge - 0.5;
  const int whole = static_cast<int>(least);
  return whole + (whole < least ? 1 : 0);
}

/// Which pixels belong to which hexagon.
class Hexagons {
 public:
  Hexagons(const Point& center, double scale)
      : center_(center), scale_(scale), width_(std::numbers::sqrt3 * scale), rise_(1.5 * scale) {}

  /// Hexagons by their columns (x) and rows (y): all that pixels of `pixels` belong to.
  IntRect under(const IntRect& pixels) const {
    const auto column = [this](int x) { return floorOf((x - center_.x) / width_); };
    const auto row = [this](int y) { return floorOf((y + 0.5 - center_.y) / rise_); };
    return {column(pixels.x0) - 2, row(pixels.y0), column(pixels.x1) + 3, row(pixels.y1 - 1) + 2};
  }

  /// Rows of pixels in which hexagons of the rows from `begin` to `end` have any.
  IntRect pixelRows(int begin, int end) const {
    return {0, floorOf(center_.y + begin * rise_ - scale_), 0,
            floorOf(center_.y + (end - 1) * rise_ + scale_) + 1};
  }

  /// `pixels` with all the pixels of the hexagons that they belong to.
  IntRect completed(const IntRect& pixels) const {
    const int wide = floorOf(width_) + 1;
    const int high = floorOf(2 * scale_) + 1;
    return {pixels.x0 - wide, pixels.y0 - high, pixels.x1 + wide, pixels.y1 + high};
  }

  /// Calls `run(begin, end, column, row)` for the hexagons that have pixels of row `y` from `x0` to
  /// `x1`, from left to right.
  template <typename Run>
  void forRuns(int y, int x0, int x1, const Run& run) const {
    const double t = (y + 0.5 - center_.y) / rise_;
    const int row = floorOf(t);
    const double offset = row % 2 == 0 ? 0 : 0.5;
    const double share = std::clamp(1 - 1.5 * (t - row), 0.0, 0.5);
    // The hexagon of the row above that lies to the left of hexagon `column`.
    const int shift = row % 2 == 0 ? -1 : 0;
    int x = x0;
    const auto advance = [&](int end, int column, int of) {
      const int until = std::min(end, x1);
      if (until <= x) return;
      run(x, until, column, of);
      x = until;
    };
    int column = floorOf((x0 - center_.x) / width_) - 1;
    while (x < x1) {  // NOLINT(bugprone-infinite-loop): advance() moves x
      const double place = column + offset;
      if (share < 0.5)
        advance(pixelFrom(center_.x + width_ * (place - share)), column + shift, row + 1);
      if (share > 0) advance(pixelFrom(center_.x + width_ * (place + share)), column, row);
      ++column;
    }
  }

 private:
  Point center_;
  double scale_;
  double width_;
  double rise_;  ///< from a row to the next
};

/// A colour for each hexagon of some columns and rows.
struct Mosaic {
  size_t at(int column, int row) const {
    return 4 * (static_cast<size_t>(row - cells.y0) * static_cast<size_t>(cells.width()) +
                static_cast<size_t>(column - cells.x0));
  }

  Hexagons hexagons;
  IntRect cells;
  std::span<float> colors;
};

/// Computes the means.
class MosaicPass final : public Pass {
 public:
  /// What of the picture counts lies in `pixels`.
  MosaicPass(const Layer& input, const IntRect& pixels, const Mosaic& mosaic)
      : input_(input),
        pixels_(pixels),
        mosaic_(mosaic),
        rows_(std::max(1, kBandHeight / mosaic.hexagons.pixelRows(0, 1).height())) {}

  int tasks() const override { return (mosaic_.cells.height() + rows_ - 1) / rows_; }

  void run(Worker& worker, int task) const override {
    const ArenaScope scope(worker.memory);
    IntRect cells = mosaic_.cells;
    cells.y0 += task * rows_;
    cells.y1 = std::min(cells.y0 + rows_, cells.y1);
    IntRect band = mosaic_.hexagons.pixelRows(cells.y0, cells.y1);
    band.x0 = pixels_.x0;
    band.x1 = pixels_.x1;
    band = band.intersect(pixels_);

    const size_t begin = mosaic_.at(cells.x0, cells.y0);
    const size_t end = mosaic_.at(cells.x0, cells.y1);
    Sums sums{cells, begin, worker.memory.array<double>(end - begin),
              worker.memory.array<int64_t>((end - begin) / 4)};
    std::fill(sums.colors.begin(), sums.colors.end(), 0.0);
    std::fill(sums.counts.begin(), sums.counts.end(), int64_t{0});
    const int height = std::max(1, kStripPixels / std::max(1, band.width()));
    for (int y = band.y0; y < band.y1; y += height)
      addStrip(worker, {band.x0, y, band.x1, std::min(y + height, band.y1)}, sums);
    for (size_t i = 0; i < sums.colors.size(); ++i) {
      const int64_t count = std::max<int64_t>(sums.counts[i / 4], 1);
      mosaic_.colors[begin + i] = static_cast<float>(sums.colors[i] / static_cast<double>(count));
    }
  }

 private:
  static constexpr int kBandHeight = 96;
  static constexpr int kStripPixels = 16 << 10;

  struct Sums {
    IntRect cells;
    size_t begin;  ///< the place of the first in the mosaic
    std::span<double> colors;
    std::span<int64_t> counts;
  };

  void addStrip(Worker& worker, const IntRect& strip, const Sums& sums) const {
    const ArenaScope scope(worker.memory);
    const Tile tile = makeTile(worker.memory, strip);
    renderAnywhere(&input_, worker, strip, tile);
    const auto runs = worker.memory.array<kernels::PixelRun<double>>(
        2 * static_cast<size_t>(mosaic_.cells.width()));
    for (int y = strip.y0; y < strip.y1; ++y) {
      size_t count = 0;
      mosaic_.hexagons.forRuns(y, strip.x0, strip.x1, [&](int x0, int x1, int column, int row) {
        if (row < sums.cells.y0 || row >= sums.cells.y1) return;
        const size_t at = mosaic_.at(column, row) - sums.begin;
        runs[count++] = {x0 - strip.x0, x1 - strip.x0, &sums.colors[at]};
        sums.counts[at / 4] += x1 - x0;
      });
      kernels::addRuns(tile.row(y - strip.y0), runs.data(), count);
    }
  }

  const Layer& input_;
  IntRect pixels_;
  Mosaic mosaic_;
  int rows_;
};

class MosaicLayer final : public Layer {
 public:
  MosaicLayer(const Mosaic& mosaic, const IntRect& bounds, bool isOpaque)
      : Layer(bounds), mosaic_(mosaic), isOpaque_(isOpaque) {}

  void render(Worker& worker, const IntRect& rect, const Tile& out) const override {
    const ArenaScope scope(worker.memory);
    const auto runs = worker.memory.array<kernels::PixelRun<const float>>(
        2 * static_cast<size_t>(mosaic_.cells.width()));
    for (int y = rect.y0; y < rect.y1; ++y) {
      size_t count = 0;
      mosaic_.hexagons.forRuns(y, rect.x0, rect.x1, [&](int x0, int x1, int column, int row) {
        runs[count++] = {x0 - rect.x0, x1 - rect.x0, &mosaic_.colors[mosaic_.at(column, row)]};
      });
      kernels::fillRuns(runs.data(), count, out.row(y - rect.y0));
    }
  }

  bool isOpaque(const IntRect& /*rect*/) const override { return isOpaque_; }

 private:
  Mosaic mosaic_;
  bool isOpaque_;
};

}  // namespace

HexagonalPixellateNode::HexagonalPixellateNode(const NodePointer& picture, const Point& middle,
                                               double side)
    : FilterNode(picture, integral(picture->extent)), center(middle), scale(side) {}

const Layer* HexagonalPixellateNode::plan(Planner& planner, const IntRect& needed) const {
  const Hexagons hexagons(center, scale);
  const IntRect used = hexagons.completed(needed).intersect(pixelsOf(extent));
  const Layer* source = planner.plan(*input, used);
  if (!source) return nullptr;
  const IntRect cells = hexagons.under(used);
  Arena& arena = planner.arena();
  const auto colors = arena.array<float>(4 * static_cast<size_t>(cells.width()) *
                                         static_cast<size_t>(cells.height()));
  const Mosaic mosaic{hexagons, cells, colors};
  planner.addPass(arena.make<MosaicPass>(*source, used, mosaic));
  const bool isOpaque = source->bounds().contains(used) && source->isOpaque(used);
  return arena.make<MosaicLayer>(mosaic, needed.intersect(used), isOpaque);
}

std::shared_ptr<Filter> makeHexagonalPixellate(const std::string& name) {
  return std::make_shared<HexagonalPixellate>(name);
}

}  // namespace kestrel
