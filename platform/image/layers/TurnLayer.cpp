#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

#include "platform/image/layers/ResampleLayers.h"

namespace kestrel {

namespace {

/// So much of a pixel may be missing for it to count as covered: single precision tells no more.
constexpr double kCoverTolerance = 1e-4;

/// The overlap of [p - width/2, p + width/2] and [low, high] as a share of `width`, for positions p
/// from `start` on, `step` apart.
kernels::CoverLine::Axis coverAxis(double start, double step, double width, double low,
                                   double high) {
  return {static_cast<float>((start + width / 2 - low) / width + kCoverTolerance),
          static_cast<float>((high - start + width / 2) / width + kCoverTolerance),
          static_cast<float>(step / width),
          static_cast<float>(std::min(1.0, (high - low) / width))};
}

/// A pixel is made of none that lie farther from its place.
constexpr int kMargin = 4;

/// Places are counted from the beginning of lines that lie the same whatever is asked for, so that
/// rounding is the same, too.
constexpr int kLineLength = static_cast<int>(kernels::kMaxAffinePixels);
int lineOf(int x) { return x & ~(kLineLength - 1); }

constexpr int16_t kWhole[1] = {kernels::kWeightOne};

/// Where a parallelogram meets the band from `low` to `high`; empty where it does not.
struct Range {
  double from = std::numeric_limits<double>::infinity();
  double to = -std::numeric_limits<double>::infinity();
};
Range rangeWithin(const std::array<Point, 4>& corners, double low, double high) {
  Range range;
  for (size_t i = 0; i < corners.size(); ++i) {
    Point a = corners[i];
    Point b = corners[(i + 1) % corners.size()];
    if (a.y > b.y) std::swap(a, b);
    if (b.y < low || a.y > high) continue;
    const double slope = b.y > a.y ? (b.x - a.x) / (b.y - a.y) : 0;
    if (b.y > high) b.x = a.x + (high - a.y) * slope;
    if (a.y < low) a.x += (low - a.y) * slope;
    range.from = std::min({range.from, a.x, b.x});
    range.to = std::max({range.to, a.x, b.x});
  }
  return range;
}

}  // namespace

TurnLayer::TurnLayer(const Source& source, const Border& border, const IntRect& bounds,
                     KernelMatrix matrix)
    : Layer(bounds),
      source_(source),
      border_(border),
      footprintU_(std::hypot(border.toClip.a, border.toClip.c)),
      footprintV_(std::hypot(border.toClip.b, border.toClip.d)),
      matrix_(matrix) {}

bool TurnLayer::isInside(const IntRect& rect) const {
  const Rect centers{{rect.x0 + 0.5, rect.y0 + 0.5}, {rect.width() - 1.0, rect.height() - 1.0}};
  const Rect reach = border_.toClip.apply(centers);
  return reach.minX() - footprintU_ / 2 >= border_.clip.minX() &&
         reach.maxX() + footprintU_ / 2 <= border_.clip.maxX() &&
         reach.minY() - footprintV_ / 2 >= border_.clip.minY() &&
         reach.maxY() + footprintV_ / 2 <= border_.clip.maxY();
}

bool TurnLayer::isOpaque(const IntRect& rect) const {
  return source_.raster.isOpaque() && isInside(rect);
}

void TurnLayer::render(Worker& worker, const IntRect& rect, const Tile& out) const {
  // The tile of the source that a block needs stays small whatever the caller asks for.
  constexpr int kHeight = 32;
  for (int y = rect.y0; y < rect.y1; y += kHeight) {
    for (int x = rect.x0; x < rect.x1;) {
      const int end = std::min(lineOf(x) + kLineLength, rect.x1);
      renderBlock(worker, {x, y, end, std::min(y + kHeight, rect.y1)},
                  out.at(x - rect.x0, y - rect.y0));
      x = end;
    }
  }
}

void TurnLayer::renderBlock(Worker& worker, const IntRect& rect, const Tile& out) const {
  const ArenaScope scope(worker.memory);
  const IntRect& clip = source_.clip;
  const AffineTransform& map = source_.toSource;

  // Positions count from pixel centre to pixel centre. One pixel beyond the clip everything is a
  // repetition of its border, so positions need go no farther.
  const Rect centers{{rect.x0 + 0.5, rect.y0 + 0.5}, {rect.width() - 1.0, rect.height() - 1.0}};
  const Rect reach = map.apply(centers);
  const auto limited = [](double position, int low, int high) {
    return std::clamp<double>(position - 0.5, low - 1, high);
  };
  const IntRect tile{
      static_cast<int>(std::floor(limited(reach.minX(), clip.x0, clip.x1))) - kMargin,
      static_cast<int>(std::floor(limited(reach.minY(), clip.y0, clip.y1))) - kMargin,
      static_cast<int>(std::ceil(limited(reach.maxX(), clip.x0, clip.x1))) + kMargin + 1,
      static_cast<int>(std::ceil(limited(reach.maxY(), clip.y0, clip.y1))) + kMargin + 1};
  const auto stride = static_cast<ptrdiff_t>(tile.width()) * 4;
  const auto pixels = worker.memory.array<int16_t>(static_cast<size_t>(stride) *
                                                   static_cast<size_t>(tile.height()));
  const Raster* const source = source_.raster.local(worker, tile.intersect(clip));
  if (clip.contains(tile))
    copyUsed(*source, worker, rect, tile, pixels.data(), stride);
  else
    copyContinued(*source, worker, clip, tile, pixels.data(), stride);

  const auto count = static_cast<size_t>(rect.width());
  const bool isWhole = isInside(rect);
  const auto covered = worker.memory.array<float>(count);
  kernels::AffineLine line{};
  line.tile = pixels.data();
  line.rowStride = tile.width();
  line.du = static_cast<float>(map.a);
  line.dv = static_cast<float>(map.b);
  line.index = static_cast<float>(rect.x0 - lineOf(rect.x0));
  // The clip may be far larger than the tile; rounding must not leave the tile either way.
  const IntRect within{std::max(clip.x0 - 1, tile.x0 + 2), std::max(clip.y0 - 1, tile.y0 + 2),
                       std::min(clip.x1, tile.x1 - kMargin), std::min(clip.y1, tile.y1 - kMargin)};
  line.spanU = static_cast<float>(source_.spanU);
  line.spanV = static_cast<float>(source_.spanV);
  line.isOpaque = source->isOpaque();
  for (int y = rect.y0; y < rect.y1; ++y) {
    // From the pixel of the source where the line begins, which may lie far outside of the tile.
    const Point start = map.apply(Point{lineOf(rect.x0) + 0.5, y + 0.5});
    const double column = std::floor(start.x - 0.5);
    const double lineRow = std::floor(start.y - 0.5);
    line.u = static_cast<float>(start.x - 0.5 - column);
    line.v = static_cast<float>(start.y - 0.5 - lineRow);
    line.minU = static_cast<float>(within.x0 - column);
    line.maxU = static_cast<float>(within.x1 - column);
    line.minV = static_cast<float>(within.y0 - lineRow);
    line.maxV = static_cast<float>(within.y1 - lineRow);
    line.origin = static_cast<int32_t>((lineRow - tile.y0) * tile.width() + column - tile.x0);
    float* const row = out.row(y - rect.y0);
    kernels::resampleLine(line, count, matrix_, row);
    if (isWhole || isInside({rect.x0, y, rect.x1, y + 1})) continue;
    coverRow(y, rect.x0, count, covered.data());
    kernels::scalePixels(row, count, covered.data());
  }
}

void TurnLayer::copyUsed(const Raster& source, Worker& worker, const IntRect& rect,
                         const IntRect& tile, int16_t* pixels, ptrdiff_t stride) const {
  const auto cornerAt = [&](double x, double y) {
    const Point at = source_.toSource.apply(Point{x, y});
    return Point{at.x - 0.5, at.y - 0.5};
  };
  const std::array<Point, 4> corners = {
      cornerAt(rect.x0 + 0.5, rect.y0 + 0.5), cornerAt(rect.x1 - 0.5, rect.y0 + 0.5),
      cornerAt(rect.x1 - 0.5, rect.y1 - 0.5), cornerAt(rect.x0 + 0.5, rect.y1 - 0.5)};
  constexpr int kBand = 8;
  for (int y = tile.y0; y < tile.y1; y += kBand) {
    const int end = std::min(y + kBand, tile.y1);
    const Range used = rangeWithin(corners, y - kMargin, end - 1 + kMargin);
    if (used.from > used.to) continue;
    const int left = std::max(static_cast<int>(std::floor(used.from)) - kMargin, tile.x0);
    const int right = std::min(static_cast<int>(std::ceil(used.to)) + kMargin + 1, tile.x1);
    for (int row = y; row < end; ++row)
      source.blendRows(worker, row, kWhole, 1, left, right,
                       pixels + (row - tile.y0) * stride + 4 * ptrdiff_t{left - tile.x0});
  }
}

void TurnLayer::coverRow(int y, int x0, size_t count, float* covered) const {
  const Point start = border_.toClip.apply(Point{lineOf(x0) + 0.5, y + 0.5});
  const kernels::CoverLine line{
      coverAxis(start.x, border_.toClip.a, footprintU_, border_.clip.minX(), border_.clip.maxX()),
      coverAxis(start.y, border_.toClip.b, footprintV_, border_.clip.minY(), border_.clip.maxY()),
      static_cast<float>(x0 - lineOf(x0))};
  kernels::coverLine(line, count, covered);
}

}  // namespace kestrel
