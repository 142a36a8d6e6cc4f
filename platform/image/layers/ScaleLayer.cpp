#include <algorithm>
#include <cmath>

#include "platform/image/layers/ResampleLayers.h"

namespace kestrel {

ScaleLayer::ScaleLayer(Arena& arena, const Raster& source, const AxisTaps& across,
                       const AxisTaps& down, const IntRect& bounds, KernelMatrix matrix,
                       const PlainPlanes* planes)
    : Layer(bounds),
      source_(source),
      across_(across),
      down_(down),
      matrix_(matrix),
      planes_(planes) {
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
    *low = taps.high;
    *high = taps.low;
    for (size_t i = taps.indexOf(begin); i < taps.indexOf(end); ++i) {
      *low = std::min(*low, taps.first[i]);
      *high = std::max(*high, taps.first[i] + taps.count[i]);
    }
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
    const size_t i = down_.indexOf(y);
    source->blendRows(worker, down_.first[i], down_.weightsOf(y), down_.count[i], used.x0, used.x1,
                      row.data());
    float* const to = out.row(y - rect.y0);
    if (down_.coreBegin.empty()) {
      kernels::resampleRow(row.data(), taps, pixels, matrix_, to);
      continue;
    }
    limitRow(worker, *source, y, used, row);
    kernels::resampleRow(row.data(), taps, pixels, nullptr, to);
    limitPixels(row.data(), taps.first, offset, pixels, to);
    if (matrix_) kernels::mapPixels(to, pixels, matrix_);
  }
}

/// Limits a mixed row to the range of the rows nearest to it.
void ScaleLayer::limitRow(Worker& worker, const Raster& source, int y, const IntRect& used,
                          std::span<int16_t> row) const {
  const ArenaScope scope(worker.memory);
  const size_t i = down_.indexOf(y);
  const size_t values = 4 * static_cast<size_t>(used.width());
  const auto one = worker.memory.array<int16_t>(values);
  const auto least = worker.memory.array<int16_t>(values);
  const auto most = worker.memory.array<int16_t>(values);
  constexpr int16_t kWhole[1] = {kernels::kWeightOne};
  for (int t = down_.coreBegin[i]; t < down_.coreEnd[i]; ++t) {
    source.blendRows(worker, down_.first[i] + t, kWhole, 1, used.x0, used.x1, one.data());
    const bool isFirst = t == down_.coreBegin[i];
    for (size_t v = 0; v < values; ++v) {
      least[v] = isFirst ? one[v] : std::min(least[v], one[v]);
      most[v] = isFirst ? one[v] : std::max(most[v], one[v]);
    }
  }
  for (size_t v = 0; v < values; ++v) row[v] = std::clamp(row[v], least[v], most[v]);
}

/// Limits pixels to the range of those of the row nearest to them; `first` says where theirs begin.
void ScaleLayer::limitPixels(const int16_t* row, const int32_t* first, size_t offset, size_t pixels,
                             float* out) const {
  for (size_t i = 0; i < pixels; ++i) {
    for (size_t c = 0; c < 4; ++c) {
      int16_t least = INT16_MAX;
      int16_t most = INT16_MIN;
      for (int t = across_.coreBegin[offset + i]; t < across_.coreEnd[offset + i]; ++t) {
        const int16_t value = row[4 * (first[i] + t) + static_cast<ptrdiff_t>(c)];
        least = std::min(least, value);
        most = std::max(most, value);
      }
      constexpr float kScale = 1.0F / kernels::kOne;
      float& value = out[4 * i + c];
      value =
          std::clamp(value, static_cast<float>(least) * kScale, static_cast<float>(most) * kScale);
    }
  }
}

std::optional<PlainPlanes> CopyLayer::plainPlanes() const {
  if (!isPlain_ || !source_.planes()) return std::nullopt;
  return PlainPlanes{source_.planes(), AffineTransform::translation(-dx_, -dy_), source_.bounds(),
                     scaler_};
}

CopyLayer::CopyLayer(const Raster& source, int dx, int dy, const IntRect& bounds,
                     KernelMatrix matrix, bool isPlain, const Scaler& scaler)
    : Layer(bounds),
      source_(source),
      dx_(dx),
      dy_(dy),
      matrix_(matrix),
      isPlain_(isPlain),
      scaler_(scaler) {}

void CopyLayer::render(Worker& worker, const IntRect& rect, const Tile& out) const {
  const ArenaScope scope(worker.memory);
  const IntRect used = rect.moved(-dx_, -dy_);
  const Raster* const source = source_.local(worker, used);
  for (int y = 0; y < rect.height(); ++y)
    source->readRow(worker, used.y0 + y, used.x0, used.x1, matrix_, out.row(y));
}

}  // namespace kestrel
