#include "platform/image/filters/Blur.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "platform/image/kernels/FilterKernels.h"

namespace kestrel::blur {

namespace {

/// Beyond this many sigmas there is nothing that could be seen.
constexpr double kReach = 3.5;

/// From here on pictures are reduced first.
constexpr double kLeastReducedSigma = 4;
constexpr double kSigmaOfSide = 2;

/// The steps in which a picture is reduced. Small ones come first, since a step reads each pixel of
/// what it is given several times.
struct Steps {
  explicit Steps(double sigma) {
    constexpr int kFirstSide = 4;
    constexpr int kMostSide = 8;
    if (sigma < kLeastReducedSigma) return;
    int rest = static_cast<int>(sigma / kSigmaOfSide);
    for (; rest >= kMostSide; rest /= kFirstSide) add(kFirstSide);
    add(rest);
  }

  void add(int side) {
    sides[static_cast<size_t>(count++)] = side;
    total *= side;
  }

  std::array<int, 8> sides{};
  int count = 0;
  int total = 1;
};

/// The sigma that is left for the cells.
double sigmaOfCells(double sigma, int side) {
  const double n = side;
  return std::sqrt(sigma * sigma - (n * n - 1) / 2) / n;
}

int reachOfWeights(double sigma) { return static_cast<int>(std::ceil(kReach * sigma)); }

int floorDivide(int value, int divisor) {
  const int quotient = value / divisor;
  return quotient * divisor > value ? quotient - 1 : quotient;
}

/// The quadratic B-spline over `side` pixels, which adds up to `sum`: value `index` of 3 × side -
/// 2, 0 beyond them. It counts in how many ways three numbers below `side` add up to `index`.
double splineAt(int index, int side, double sum) {
  const auto ways = [](double steps) { return steps < 0 ? 0 : (steps + 1) * (steps + 2) / 2; };
  const double n = side;
  const double count =
      ways(index) - 3 * ways(index - n) + 3 * ways(index - 2 * n) - ways(index - 3 * n);
  return sum * count / (n * n * n);
}

/// The pixels that cells are made of.
IntRect pixelsUnder(const IntRect& cells, int side) {
  return {cells.x0 * side - (side - 1), cells.y0 * side - (side - 1),
          (cells.x1 - 1) * side + 2 * side - 1, (cells.y1 - 1) * side + 2 * side - 1};
}

/// The cells that pixels lie in, and one more around them: what is needed to make the pixels of
/// them, and all that the pixels have a part in.
IntRect cellsAround(const IntRect& pixels, int side) {
  return {floorDivide(pixels.x0, side) - 1, floorDivide(pixels.y0, side) - 1,
          floorDivide(pixels.x1 - 1, side) + 2, floorDivide(pixels.y1 - 1, side) + 2};
}

/// Pixels that were computed before.
class PlaneLayer final : public Layer {
 public:
  PlaneLayer(Arena& arena, const IntRect& bounds) : Layer(bounds), all_(makeTile(arena, bounds)) {}

  Tile tile(const IntRect& rect) const {
    return all_.at(rect.x0 - bounds().x0, rect.y0 - bounds().y0);
  }

  void render(Worker& /*worker*/, const IntRect& rect, const Tile& out) const override {
    const Tile from = tile(rect);
    const size_t bytes = static_cast<size_t>(rect.width()) * 4 * sizeof(float);
    for (int y = 0; y < rect.height(); ++y) std::memcpy(out.row(y), from.row(y), bytes);
  }

 private:
  Tile all_;
};

class PlanePass final : public Pass {
 public:
  PlanePass(const Layer& layer, const PlaneLayer& plane)
      : layer_(layer), plane_(plane), tiling_(&layer, plane.bounds()) {}

  int tasks() const override { return tiling_.count(); }

  void run(Worker& worker, int task) const override {
    const IntRect piece = tiling_.piece(task);
    layer_.render(worker, piece, plane_.tile(piece));
  }

 private:
  const Layer& layer_;
  const PlaneLayer& plane_;
  Tiling tiling_;
};

const PlaneLayer* computeFirst(Planner& planner, const Layer& layer) {
  const auto* plane = planner.arena().make<PlaneLayer>(planner.arena(), layer.bounds());
  planner.addPass(planner.arena().make<PlanePass>(layer, *plane));
  return plane;
}

/// The blur itself.
class DirectLayer final : public Layer {
 public:
  DirectLayer(Arena& arena, const BorderedLayer& picture, const IntRect& bounds, double sigma)
      : Layer(bounds), picture_(picture), weights_(makeWeights(arena, sigma)) {}

  void render(Worker& worker, const IntRect& rect, const Tile& out) const override {
    const ArenaScope scope(worker.memory);
    const IntRect used = rect.grown(weights_.reach);
    const Tile tile = makeTile(worker.memory, used);
    picture_.render(worker, used, tile);
    const size_t count = weights_.values.size();
    const auto taps = static_cast<int>(count);
    const auto rows = worker.memory.array<const float*>(count);
    const auto columns = worker.memory.array<const float*>(count);
    const auto sums = worker.memory.array<float>(4 * static_cast<size_t>(used.width()));
    for (size_t t = 0; t < count; ++t) columns[t] = sums.data() + 4 * t;
    for (int y = 0; y < rect.height(); ++y) {
      for (int t = 0; t < taps; ++t) rows[static_cast<size_t>(t)] = tile.row(y + t);
      kernels::sumRows(rows.data(), weights_.values.data(), taps, sums.size(), sums.data());
      kernels::sumRows(columns.data(), weights_.values.data(), taps,
                       4 * static_cast<size_t>(rect.width()), out.row(y));
    }
  }

  bool isOpaque(const IntRect& rect) const override {
    return picture_.isOpaque(rect.grown(weights_.reach));
  }
  bool prefersBlocks() const override { return true; }

 private:
  BorderedLayer picture_;
  Weights weights_;
};

/// Cells of a picture.
class ReducedLayer final : public Layer {
 public:
  ReducedLayer(Arena& arena, const BorderedLayer& picture, int side, const IntRect& bounds)
      : Layer(bounds), picture_(picture), side_(side), weights_(weightsOf(arena, side)) {}

  void render(Worker& worker, const IntRect& rect, const Tile& out) const override {
    // What a group is made of stays in a core's own cache.
    constexpr int kGroupWidth = 256;
    constexpr int kGroupHeight = 64;
    const int width = std::max(kGroupWidth / side_, 1);
    const int height = std::max(kGroupHeight / side_, 1);
    for (int y = rect.y0; y < rect.y1; y += height) {
      for (int x = rect.x0; x < rect.x1; x += width) {
        const IntRect group = IntRect{x, y, x + width, y + height}.intersect(rect);
        renderGroup(worker, group, out.at(x - rect.x0, y - rect.y0));
      }
    }
  }
  bool prefersBlocks() const override { return true; }

 private:
  static std::span<const float> weightsOf(Arena& arena, int side) {
    const auto weights = arena.array<float>(3 * static_cast<size_t>(side) - 2);
    for (size_t i = 0; i < weights.size(); ++i)
      weights[i] = static_cast<float>(splineAt(static_cast<int>(i), side, 1));
    return weights;
  }

  void renderGroup(Worker& worker, const IntRect& cells, const Tile& out) const {
    const ArenaScope scope(worker.memory);
    const IntRect used = pixelsUnder(cells, side_);
    const Tile tile = makeTile(worker.memory, used);
    picture_.render(worker, used, tile);
    const auto values = static_cast<size_t>(used.width()) * 4;
    const auto taps = static_cast<int>(weights_.size());
    const auto rows = worker.memory.array<const float*>(weights_.size());
    const auto sums = worker.memory.array<float>(values);
    for (int y = 0; y < cells.height(); ++y) {
      for (int t = 0; t < taps; ++t) rows[static_cast<size_t>(t)] = tile.row(y * side_ + t);
      kernels::sumRows(rows.data(), weights_.data(), taps, values, sums.data());
      kernels::reduceRow(sums.data(), weights_.data(), taps, side_,
                         static_cast<size_t>(cells.width()), out.row(y));
    }
  }

  BorderedLayer picture_;
  int side_;
  std::span<const float> weights_;
};

/// Pixels of cells.
class ExpandedLayer final : public Layer {
 public:
  /// `cells` has those around `bounds`. The result is opaque where what lies within `reach` of it
  /// is in `picture`.
  ExpandedLayer(Arena& arena, const PlaneLayer& cells, int side, const IntRect& bounds,
                const BorderedLayer& picture, int reach)
      : Layer(bounds),
        cells_(cells),
        side_(side),
        weights_(weightsOf(arena, side)),
        picture_(picture),
        reach_(reach) {}

  void render(Worker& worker, const IntRect& rect, const Tile& out) const override {
    const ArenaScope scope(worker.memory);
    const IntRect used = cellsAround(rect, side_);
    const auto values = static_cast<size_t>(used.width()) * 4;
    const auto row = worker.memory.array<float>(values);
    for (int y = rect.y0; y < rect.y1; ++y) {
      const int cell = floorDivide(y, side_);
      const int phase = y - cell * side_;
      const Tile from = cells_.tile({used.x0, cell - 1, used.x1, cell + 2});
      const float* const rows[] = {from.row(0), from.row(1), from.row(2)};
      const float weights[] = {weight(0, phase), weight(1, phase), weight(2, phase)};
      kernels::sumRows(rows, weights, 3, values, row.data());
      kernels::expandRow(row.data(), weights_.data(), side_, rect.x0 - (used.x0 + 1) * side_,
                         static_cast<size_t>(rect.width()), out.row(y - rect.y0));
    }
  }

  bool isOpaque(const IntRect& rect) const override {
    return picture_.isOpaque(rect.grown(reach_));
  }

 private:
  /// In the order that `kernels::expandRow` takes.
  static std::span<const float> weightsOf(Arena& arena, int side) {
    const auto weights = arena.array<float>(12 * static_cast<size_t>(side));
    auto at = weights.begin();
    for (int cell = 0; cell < 3; ++cell) {
      for (int phase = 0; phase < side; ++phase, at += 4) {
        const int index = phase + (2 - cell) * side - 1;
        std::fill_n(at, 4, static_cast<float>(splineAt(index, side, side)));
      }
    }
    return weights;
  }

  float weight(int cell, int phase) const {
    return weights_[4 * static_cast<size_t>(cell * side_ + phase)];
  }

  const PlaneLayer& cells_;
  int side_;
  std::span<const float> weights_;
  BorderedLayer picture_;
  int reach_;
};

}  // namespace

Weights makeWeights(Arena& arena, double sigma) {
  const int reach = reachOfWeights(sigma);
  const auto values = arena.array<float>(2 * static_cast<size_t>(reach) + 1);
  const auto exact = [sigma](int d) { return std::exp(-d * d / (2 * sigma * sigma)); };
  double sum = 0;
  for (int d = -reach; d <= reach; ++d) sum += exact(d);
  for (int i = 0; i <= 2 * reach; ++i)
    values[static_cast<size_t>(i)] = static_cast<float>(exact(i - reach) / sum);
  return {values, reach};
}

IntRect reachOf(const IntRect& needed, double sigma) {
  const Steps steps(sigma);
  if (steps.count == 0) return needed.grown(reachOfWeights(sigma));
  IntRect rect =
      cellsAround(needed, steps.total).grown(reachOfWeights(sigmaOfCells(sigma, steps.total)));
  for (int i = steps.count - 1; i >= 0; --i)
    rect = pixelsUnder(rect, steps.sides[static_cast<size_t>(i)]);
  return rect;
}

const Layer* makeLayer(Planner& planner, const BorderedLayer& picture, const IntRect& needed,
                       double sigma) {
  Arena& arena = planner.arena();
  const Steps steps(sigma);
  if (steps.count == 0) return arena.make<DirectLayer>(arena, picture, needed, sigma);

  const double rest = sigmaOfCells(sigma, steps.total);
  const IntRect wanted = cellsAround(needed, steps.total);
  std::array<IntRect, std::tuple_size_v<decltype(steps.sides)>> used;
  IntRect rect = wanted.grown(reachOfWeights(rest));
  for (int i = steps.count - 1; i >= 0; --i) {
    used[static_cast<size_t>(i)] = rect;
    rect = pixelsUnder(rect, steps.sides[static_cast<size_t>(i)]);
  }
  BorderedLayer cells = picture;
  for (int i = 0; i < steps.count; ++i) {
    const int side = steps.sides[static_cast<size_t>(i)];
    // Beyond the cells around a picture there is nothing, and one farther out what there is
    // repeats.
    const IntRect all = cellsAround(cells.picture(), side).grown(1);
    const auto* reduced =
        arena.make<ReducedLayer>(arena, cells, side, all.intersect(used[static_cast<size_t>(i)]));
    cells = BorderedLayer(*computeFirst(planner, *reduced), all);
  }
  const auto* blurred = arena.make<DirectLayer>(arena, cells, wanted, rest);
  return arena.make<ExpandedLayer>(arena, *computeFirst(planner, *blurred), steps.total, needed,
                                   picture, reachOf(needed, sigma).width() - needed.width());
}

}  // namespace kestrel::blur
