#include "platform/image/layers/Raster.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "platform/image/kernels/Kernels.h"

namespace kestrel {

namespace {

constexpr int16_t kWhole[1] = {kernels::kWeightOne};

size_t lengthOf(int x0, int x1) { return static_cast<size_t>(x1 - x0); }

/// Splits `kWeightOne` evenly into weights, to the last unit.
void splitEvenly(std::span<int16_t> weights) {
  const int count = static_cast<int>(weights.size());
  for (int i = 0; i < count; ++i) {
    const auto upTo = [count](int n) {
      return static_cast<int>(int64_t{kernels::kWeightOne} * n / count);
    };
    weights[static_cast<size_t>(i)] =
        static_cast<int16_t>(std::min(upTo(i + 1) - upTo(i), kernels::kWeightOne));
  }
}

}  // namespace

void Raster::readRow(Worker& worker, int y, int x0, int x1, const float* matrix, float* out) const {
  const ArenaScope scope(worker.memory);
  const auto row = worker.memory.array<int16_t>(4 * lengthOf(x0, x1));
  blendRows(worker, y, kWhole, 1, x0, x1, row.data());
  kernels::widenRow(row.data(), lengthOf(x0, x1), matrix, out);
}

void BitmapRaster::fetchAhead(int y, int x0, int x1) const {
  if (y + kRowsAhead < bounds().y1) fetch(at(x0, y + kRowsAhead), at(x1, y + kRowsAhead));
}

void BitmapRaster::readRow(Worker& worker, int y, int x0, int x1, const float* matrix,
                           float* out) const {
  if (!isOpaque()) return Raster::readRow(worker, y, x0, x1, matrix, out);
  fetchAhead(y, x0, x1);
  kernels::widenOpaque(at(x0, y), lengthOf(x0, x1), matrix, out);
}

void BitmapRaster::blendRows(Worker& worker, int y, const int16_t* weights, int count, int x0,
                             int x1, int16_t* out) const {
  const ArenaScope scope(worker.memory);
  if (count == 1) fetchAhead(y, x0, x1);
  const auto rows = worker.memory.array<const uint8_t*>(static_cast<size_t>(count));
  for (int i = 0; i < count; ++i) rows[static_cast<size_t>(i)] = at(x0, y + i);
  const auto blend = isOpaque() ? kernels::blendOpaque : kernels::blendStraight;
  blend(rows.data(), weights, count, lengthOf(x0, x1), out);
}

void BitmapRaster::copyBytes(int y, int x0, int x1, uint8_t* out) const {
  // What is opaque as declared mostly says so in its bytes; then copying memory is fastest, and the
  // look at the row has brought it close.
  const size_t pixels = lengthOf(x0, x1);
  if (isOpaque() && !kernels::isOpaque(at(x0, y), pixels))
    return kernels::copyOpaque(at(x0, y), pixels, out);
  std::memcpy(out, at(x0, y), 4 * pixels);
}

void BufferRaster::blendRows(Worker& worker, int y, const int16_t* weights, int count, int x0,
                             int x1, int16_t* out) const {
  const ArenaScope scope(worker.memory);
  const auto rows = worker.memory.array<const int16_t*>(static_cast<size_t>(count));
  for (int i = 0; i < count; ++i) {
    rows[static_cast<size_t>(i)] =
        pixels_ + (y + i - bounds().y0) * stride_ + 4 * static_cast<ptrdiff_t>(x0 - bounds().x0);
  }
  kernels::blend16(rows.data(), weights, count, 4 * lengthOf(x0, x1), out);
}

ColorRaster::ColorRaster(const Color& color)
    : Raster({-kFarthestPixel, -kFarthestPixel, kFarthestPixel, kFarthestPixel}, color.alpha == 1) {
  const double one = kernels::kOne;
  color_[0] = static_cast<int16_t>(std::lround(color.red * color.alpha * one));
  color_[1] = static_cast<int16_t>(std::lround(color.green * color.alpha * one));
  color_[2] = static_cast<int16_t>(std::lround(color.blue * color.alpha * one));
  color_[3] = static_cast<int16_t>(std::lround(color.alpha * one));
}

void ColorRaster::blendRows(Worker& /*worker*/, int /*y*/, const int16_t* /*weights*/,
                            int /*count*/, int x0, int x1, int16_t* out) const {
  for (int x = x0; x < x1; ++x, out += 4) std::memcpy(out, color_, sizeof(color_));
}

TransposedRaster::TransposedRaster(const Raster& source)
    : Raster({source.bounds().y0, source.bounds().x0, source.bounds().y1, source.bounds().x1},
             source.isOpaque()),
      source_(source) {}

void TransposedRaster::blendRows(Worker& worker, int y, const int16_t* weights, int count, int x0,
                                 int x1, int16_t* out) const {
  const ArenaScope scope(worker.memory);
  local(worker, {x0, y, x1, y + count})->blendRows(worker, y, weights, count, x0, x1, out);
}

const Raster* TransposedRaster::local(Worker& worker, const IntRect& rect) const {
  const auto width = static_cast<size_t>(rect.width());
  const auto height = static_cast<size_t>(rect.height());
  int16_t* const turned = worker.memory.array<int16_t>(4 * width * height).data();
  const auto* raster =
      worker.memory.make<BufferRaster>(rect, turned, static_cast<ptrdiff_t>(4 * width), isOpaque());

  // Eight rows of the source at a time become eight columns, so that whole cache lines are written.
  constexpr int kRows = 8;
  const ArenaScope scope(worker.memory);
  uint64_t* const lines = worker.memory.array<uint64_t>(height * kRows).data();
  auto* const columns = reinterpret_cast<unsigned char*>(turned);
  for (int x = rect.x0; x < rect.x1; x += kRows) {
    const int count = std::min(kRows, rect.x1 - x);
    for (int i = 0; i < count; ++i) {
      source_.blendRows(worker, x + i, kWhole, 1, rect.y0, rect.y1,
                        reinterpret_cast<int16_t*>(lines + static_cast<size_t>(i) * height));
    }
    for (size_t y = 0; y < height; ++y) {
      unsigned char* to =
          columns + (y * width + static_cast<size_t>(x - rect.x0)) * sizeof(uint64_t);
      for (int i = 0; i < count; ++i, to += sizeof(uint64_t))
        std::memcpy(to, lines + static_cast<size_t>(i) * height + y, sizeof(uint64_t));
    }
  }
  return raster;
}

ReducedRaster::ReducedRaster(const Raster& source, const IntRect& clip, int across, int down)
    : Raster({0, 0, (clip.width() + across - 1) / across, (clip.height() + down - 1) / down},
             source.isOpaque()),
      source_(source),
      clip_(clip),
      across_(across),
      down_(down) {}

void ReducedRaster::blendRows(Worker& worker, int y, const int16_t* weights, int count, int x0,
                              int x1, int16_t* out) const {
  const ArenaScope scope(worker.memory);
  const IntRect blocks{x0, y, x1, y + count};
  const int left = clip_.x0 + x0 * across_;
  const int right = std::min(clip_.x0 + x1 * across_, clip_.x1);
  const auto length = lengthOf(left, right);
  const auto row = worker.memory.array<int16_t>(4 * length);
  const auto sums = worker.memory.array<float>(4 * lengthOf(x0, x1));
  std::fill(sums.begin(), sums.end(), 0.0f);
  for (int j = blocks.y0; j < blocks.y1; ++j) {
    const int bottom = clip_.y0 + j * down_;
    const int rows = std::min(down_, clip_.y1 - bottom);
    const auto shares = worker.memory.array<int16_t>(static_cast<size_t>(down_));
    splitEvenly(shares);
    // What a block lacks beyond the clip is the last row again.
    int last = shares[static_cast<size_t>(rows - 1)];
    for (int i = rows; i < down_; ++i) last += shares[static_cast<size_t>(i)];
    shares[static_cast<size_t>(rows - 1)] =
        static_cast<int16_t>(std::min(last, kernels::kWeightOne));
    source_.blendRows(worker, bottom, shares.data(), rows, left, right, row.data());
    const float share =
        static_cast<float>(weights[j - y]) / kernels::kWeightOne / static_cast<float>(across_);
    for (size_t i = 0; i < sums.size() / 4; ++i) {
      int total[4] = {};
      for (size_t k = 0; k < static_cast<size_t>(across_); ++k) {
        const size_t pixel = std::min(i * static_cast<size_t>(across_) + k, length - 1);
        for (size_t c = 0; c < 4; ++c) total[c] += row[4 * pixel + c];
      }
      for (size_t c = 0; c < 4; ++c) sums[4 * i + c] += share * static_cast<float>(total[c]);
    }
  }
  // Means of samples, which are not below 0.
  for (size_t i = 0; i < sums.size(); ++i)
    out[i] = static_cast<int16_t>(sums[i] + 0.5f);  // NOLINT(bugprone-incorrect-roundings)
}

void copyContinued(const Raster& source, Worker& worker, const IntRect& clip, const IntRect& rect,
                   int16_t* out, ptrdiff_t stride) {
  const int left = std::clamp(rect.x0, clip.x0, clip.x1 - 1);
  const int right = std::clamp(rect.x1, left + 1, clip.x1);
  const auto rowAt = [&](int y) { return out + (y - rect.y0) * stride; };
  const size_t rowBytes = static_cast<size_t>(rect.width()) * 4 * sizeof(int16_t);
  const int bottom = std::clamp(rect.y0, clip.y0, clip.y1 - 1);
  const int top = std::clamp(rect.y1, bottom + 1, clip.y1);
  const int firstRow = std::clamp(bottom, rect.y0, rect.y1 - 1);
  int lastRow = firstRow;
  for (int y = bottom; y < top; ++y) {
    lastRow = std::clamp(y, rect.y0, rect.y1 - 1);
    int16_t* const row = rowAt(lastRow);
    // The part inside may lie wholly beside the rectangle; then one pixel of it fills the row.
    const int at = std::clamp(left, rect.x0, rect.x1 - 1);
    const int end = std::min(at + right - left, rect.x1);
    source.blendRows(worker, y, kWhole, 1, left, left + end - at, row + 4 * (at - rect.x0));
    const auto repeat = [row, &rect](int from, int begin, int until) {
      for (int x = begin; x < until; ++x)
        std::memcpy(row + 4 * (x - rect.x0), row + 4 * (from - rect.x0), 4 * sizeof(int16_t));
    };
    repeat(at, rect.x0, at);
    repeat(end - 1, end, rect.x1);
  }
  for (int y = rect.y0; y < firstRow; ++y) std::memcpy(rowAt(y), rowAt(firstRow), rowBytes);
  for (int y = lastRow + 1; y < rect.y1; ++y) std::memcpy(rowAt(y), rowAt(lastRow), rowBytes);
}

}  // namespace kestrel
