#include <algorithm>
#include <cmath>

#include "platform/image/layers/ResampleLayers.h"

namespace kestrel {

namespace {

/// Weights in units of `kWeightOne`, the parts that get lost in rounding given to the largest one.
/// Answers how many are left when those that came out as 0 at the end are dropped.
int quantize(std::span<const double> exact, int16_t* weights) {
  int sum = 0;
  size_t largest = 0;
  for (size_t i = 0; i < exact.size(); ++i) {
    weights[i] = static_cast<int16_t>(
        std::min<long>(std::lround(exact[i] * kernels::kWeightOne), kernels::kWeightOne - 1));
    sum += weights[i];
    if (weights[i] > weights[largest]) largest = i;
  }
  weights[largest] = static_cast<int16_t>(
      std::min(weights[largest] + kernels::kWeightOne - sum, kernels::kWeightOne - 1));
  size_t count = exact.size();
  while (count > 1 && weights[count - 1] == 0) --count;
  return static_cast<int>(count);
}

/// Below half a unit a weight is nothing.
constexpr double kLeastWeight = 0.5 / kernels::kWeightOne;

}  // namespace

AxisTaps makeAxisTaps(Arena& arena, double scale, double offset, int low, int high, int begin,
                      int end) {
  const double span = std::max(1.0, std::abs(scale));
  const auto most =
      static_cast<size_t>(std::min<double>(std::ceil(span) + 2, static_cast<double>(high) - low));
  const auto pixels = static_cast<size_t>(end - begin);
  const auto first = arena.array<int32_t>(pixels);
  const auto weights = arena.array<int16_t>(pixels * most);
  const auto count = arena.array<int16_t>(pixels);
  const auto exact = arena.array<double>(most);
  AxisTaps taps{begin, first, weights, count, 0};
  for (size_t i = 0; i < pixels; ++i) {
    const double center = scale * (begin + static_cast<double>(i) + 0.5) + offset;
    const double from = center - span / 2;
    const double to = center + span / 2;
    const auto share = [&](double k) {
      return std::max(0.0, std::min(k + 1, to) - std::max(k, from)) / span;
    };
    double k = std::floor(from);
    if (share(k) < kLeastWeight) ++k;
    const auto start = static_cast<int>(std::clamp<double>(k, low, high - 1));
    size_t used = 1;
    exact[0] = 0;
    for (; k < to; ++k) {
      const double sample = std::clamp<double>(k, low, high - 1);
      const auto index = static_cast<size_t>(sample - start);
      if (index >= most) break;
      if (index == used) exact[used++] = 0;
      exact[index] += share(k);
    }
    first[i] = start;
    int16_t* const out = weights.data() + i * most;
    std::fill_n(out, most, int16_t{0});
    count[i] = static_cast<int16_t>(quantize(exact.first(used), out));
    taps.most = std::max<int>(taps.most, count[i]);
  }
  // Entries stay `most` apart as they were made; the widest of them decides how many are used.
  if (static_cast<size_t>(taps.most) < most) {
    for (size_t i = 1; i < pixels; ++i) {
      std::copy_n(weights.data() + i * most, taps.most,
                  weights.data() + i * static_cast<size_t>(taps.most));
    }
  }
  return taps;
}

ScaleLayer::ScaleLayer(Arena& arena, const Raster& source, const AxisTaps& across,
                       const AxisTaps& down, const IntRect& bounds, KernelMatrix matrix)
    : Layer(bounds), source_(source), across_(across), down_(down), matrix_(matrix) {
  const size_t pixels = across.first.size();
  const int pairs = (across.most + 1) / 2;
  constexpr size_t kSpare = 4;
  const size_t stride = 8 * (pixels + kSpare);
  const auto weights = arena.array<int16_t>(stride * static_cast<size_t>(pairs));
  std::fill(weights.begin(), weights.end(), int16_t{0});
  for (size_t i = 0; i < pixels; ++i) {
    for (int t = 0; t < across.most; ++t) {
      const auto pair = static_cast<size_t>(t / 2);
      for (size_t c = 0; c < 4; ++c) {
        weights[pair * stride + 8 * i + 2 * c + static_cast<size_t>(t % 2)] =
            across.weights[i * static_cast<size_t>(across.most) + static_cast<size_t>(t)];
      }
    }
  }
  rowTaps_ = {across.first.data(), weights.data(), stride, pairs, source.isOpaque()};
}

void ScaleLayer::render(Worker& worker, const IntRect& rect, const Tile& out) const {
  const ArenaScope scope(worker.memory);
  const auto samplesOf = [](const AxisTaps& taps, int begin, int end, int* low, int* high) {
    const auto at = [&taps](int i) { return static_cast<size_t>(i - taps.begin); };
    const size_t ends[] = {at(begin), at(end - 1)};
    *low = std::min(taps.first[ends[0]], taps.first[ends[1]]);
    *high = std::max(taps.first[ends[0]] + taps.count[ends[0]],
                     taps.first[ends[1]] + taps.count[ends[1]]);
  };
  IntRect used;
  samplesOf(across_, rect.x0, rect.x1, &used.x0, &used.x1);
  samplesOf(down_, rect.y0, rect.y1, &used.y0, &used.y1);
  const Raster* const source = source_.local(worker, used);

  // Taps count samples from the raster's origin, the row begins with the first that is used. What
  // the last taps read beyond it has weight 0.
  const auto length = static_cast<size_t>(used.width());
  const size_t spare = 2 * static_cast<size_t>(rowTaps_.pairs);
  const auto row = worker.memory.array<int16_t>(4 * (length + spare));
  std::fill(row.end() - static_cast<ptrdiff_t>(4 * spare), row.end(), int16_t{0});
  const auto pixels = static_cast<size_t>(rect.width());
  const auto offset = static_cast<size_t>(rect.x0 - across_.begin);
  const auto first = worker.memory.array<int32_t>(pixels);
  for (size_t i = 0; i < pixels; ++i) first[i] = across_.first[offset + i] - used.x0;
  kernels::RowTaps taps = rowTaps_;
  taps.first = first.data();
  taps.weights += 8 * offset;

  for (int y = rect.y0; y < rect.y1; ++y) {
    const auto i = static_cast<size_t>(y - down_.begin);
    source->blendRows(worker, down_.first[i],
                      down_.weights.data() + i * static_cast<size_t>(down_.most), down_.count[i],
                      used.x0, used.x1, row.data());
    kernels::resampleRow(row.data(), taps, pixels, matrix_, out.row(y - rect.y0));
  }
}

CopyLayer::CopyLayer(const Raster& source, int dx, int dy, const IntRect& bounds,
                     KernelMatrix matrix, bool isPlain)
    : Layer(bounds), source_(source), dx_(dx), dy_(dy), matrix_(matrix), isPlain_(isPlain) {}

void CopyLayer::render(Worker& worker, const IntRect& rect, const Tile& out) const {
  const ArenaScope scope(worker.memory);
  const IntRect used = rect.moved(-dx_, -dy_);
  const Raster* const source = source_.local(worker, used);
  for (int y = 0; y < rect.height(); ++y)
    source->readRow(worker, used.y0 + y, used.x0, used.x1, matrix_, out.row(y));
}

}  // namespace kestrel
