#include "platform/image/plan/Planner.h"

#include <algorithm>
#include <cmath>
#include <tuple>
#include <utility>

#include "platform/image/kernels/Kernels.h"
#include "platform/image/layers/CompositeLayers.h"
#include "platform/image/layers/PlanesRaster.h"
#include "platform/image/recipe/Components.h"
#include "platform/image/recipe/Resampling.h"

namespace kestrel {

namespace {

template <typename Node>
const Node* as(const ImageNode* node) {
  return dynamic_cast<const Node*>(node);
}

double clamped(double value) { return std::clamp(value, 0.0, 1.0); }

Color mapped(const Color& color, const ColorMatrix& matrix) {
  const auto channel = [&](size_t i) {
    const auto& row = matrix.m[i];
    return clamped(row[0] * color.red + row[1] * color.green + row[2] * color.blue + row[3]);
  };
  return {channel(0), channel(1), channel(2), color.alpha};
}

/// `back`, which keeps axes and maps `from` nearly onto `to`, made to do so exactly: where edges
/// were put on whole pixels, what lies between goes along. Without bounds there is nothing to go
/// by.
AffineTransform betweenRects(const AffineTransform& back, const Rect& from, const Rect& to) {
  if (isInfinite(from) || isInfinite(to)) return back;
  const bool isTurned = back.a == 0;
  const double across = isTurned ? back.b : back.a;  // of x in the result
  const double down = isTurned ? back.c : back.d;
  const auto fitted = [](double factor, double low, double high, double toLow, double toHigh) {
    const double scale = std::copysign((toHigh - toLow) / (high - low), factor);
    return std::pair(scale, (factor < 0 ? toHigh : toLow) - scale * low);
  };
  AffineTransform result = back;
  std::tie(isTurned ? result.b : result.a, isTurned ? result.ty : result.tx) =
      fitted(across, from.minX(), from.maxX(), isTurned ? to.minY() : to.minX(),
             isTurned ? to.maxY() : to.maxX());
  std::tie(isTurned ? result.c : result.d, isTurned ? result.tx : result.ty) =
      fitted(down, from.minY(), from.maxY(), isTurned ? to.minX() : to.minY(),
             isTurned ? to.maxX() : to.maxY());
  return result;
}

/// How many pixels a block of a reduction takes.
int blockSide(double span) {
  if (span <= resampling::kWidestDirectSpan) return 1;
  return static_cast<int>(std::min<double>(std::ceil(span / 2), kFarthestPixel));
}

/// Moves the ends outwards to multiples of `side` from `origin`.
void widenToBlocks(int* begin, int* end, int origin, int side) {
  const auto blocks = [&](int at) { return static_cast<double>(at - origin) / side; };
  *begin = origin + static_cast<int>(std::floor(blocks(*begin))) * side;
  *end = origin + static_cast<int>(std::ceil(blocks(*end))) * side;
}

/// Computes a layer to pixels in 16 bits.
class BufferPass final : public Pass {
 public:
  BufferPass(const Layer& layer, int16_t* pixels)
      : layer_(layer), tiling_(&layer, layer.bounds()), pixels_(pixels) {}

  int tasks() const override { return tiling_.count(); }

  void run(Worker& worker, int task) const override {
    const ArenaScope scope(worker.memory);
    const IntRect piece = tiling_.piece(task);
    const Tile tile = makeTile(worker.memory, piece);
    layer_.render(worker, piece, tile);
    const IntRect& all = layer_.bounds();
    for (int y = piece.y0; y < piece.y1; ++y) {
      const ptrdiff_t at = ptrdiff_t{y - all.y0} * all.width() + (piece.x0 - all.x0);
      kernels::pack16(tile.row(y - piece.y0), static_cast<size_t>(piece.width()), pixels_ + 4 * at);
    }
  }

 private:
  const Layer& layer_;
  Tiling tiling_;
  int16_t* pixels_;
};

/// Colours of what a layer shows as components of a curved matrix.
class ComponentsLayer final : public Layer {
 public:
  ComponentsLayer(const Layer& input, YUVMatrix matrix, bool isPlain)
      : Layer(input.bounds()), input_(input), matrix_(matrix), isPlain_(isPlain) {}

  void render(Worker& worker, const IntRect& rect, const Tile& out) const override {
    input_.render(worker, rect, out);
    for (int y = 0; y < rect.height(); ++y)
      componentsToColors(matrix_, out.row(y), static_cast<size_t>(rect.width()));
  }
  bool isOpaque(const IntRect& rect) const override { return input_.isOpaque(rect); }
  bool prefersBlocks() const override { return input_.prefersBlocks(); }
  std::optional<PlainPlanes> plainPlanes() const override {
    return isPlain_ ? input_.plainPlanes() : std::nullopt;
  }

 private:
  const Layer& input_;
  YUVMatrix matrix_;
  bool isPlain_;
};

}  // namespace

Planner::Chain Planner::follow(const ImageNode& node) {
  Chain chain{&node, Rect::infinite(), Rect::infinite(), {}, false, {}, {}};
  for (;;) {
    if (const auto* crop = as<CropNode>(chain.node)) {
      Rect& clip = chain.isMapped ? chain.source : chain.clip;
      clip = intersection(clip, crop->rect);
      chain.node = crop->input.get();
    } else if (const auto* scaler = as<ScalerNode>(chain.node)) {
      if (!chain.scaler) chain.scaler = scaler->scaler;
      chain.node = scaler->input.get();
    } else if (const auto* color = as<ColorMatrixNode>(chain.node)) {
      chain.color = color->matrix.then(chain.color);
      chain.node = color->input.get();
    } else if (const auto* transform = as<TransformNode>(chain.node)) {
      const AffineTransform inner = resampling::cleaned(transform->transform);
      if (!isInfinite(chain.source)) {
        const auto back = inner.invert();
        if (!resampling::keepsAxes(inner) || !back) return chain;
        chain.source = back->apply(chain.source);
      }
      chain.map = chain.isMapped ? inner.concat(chain.map) : inner;
      chain.isMapped = true;
      chain.node = transform->input.get();
    } else {
      return chain;
    }
  }
}

const Layer* Planner::plan(const ImageNode& node, const IntRect& needed) {
  Chain chain = follow(node);
  chain.map = resampling::cleaned(chain.map);
  chain.clip = resampling::snapped(chain.clip);
  chain.source = intersection(chain.source, chain.node->extent);
  if (isEmpty(chain.source)) return nullptr;
  const IntRect wanted =
      needed.intersect(pixelsOf(chain.clip))
          .intersect(pixelsOf(resampling::snapped(chain.map.apply(chain.source))));
  if (wanted.isEmpty()) return nullptr;
  const Layer* layer = planSource(chain, wanted);
  return layer ? cropped(layer, chain.clip) : nullptr;
}

const Layer* Planner::planSource(const Chain& chain, const IntRect& needed) {
  if (as<ColorNode>(chain.node) && (isInfinite(chain.source) || resampling::keepsAxes(chain.map)))
    return planColor(chain, needed);
  const bool isRaster = as<PlanesNode>(chain.node) || as<BitmapNode>(chain.node);
  if (!isRaster && resampling::isWholeShift(chain.map)) return planShifted(chain, needed);

  ColorMatrix color = chain.color;
  const auto* const planes = as<PlanesNode>(chain.node);
  const bool isOfComponents = planes && isCurved(planes->picture.format.matrix);
  if (planes) {
    noteDepth(planes->picture.format.bitDepth);
    if (isOfComponents) color = {};
    color = matrixOfPlanes(planes->picture.format).then(color);
  }
  const Sampling sampling{chain.source,
                          chain.map,
                          needed,
                          kernelMatrix(color),
                          chain.color.isIdentity(),
                          chain.scaler.value_or(Scaler{})};
  const Raster* raster = rasterOf(*chain.node, sampling);
  const Layer* layer = raster ? sample(*raster, sampling) : nullptr;
  if (!layer || !isOfComponents) return layer;
  layer =
      arena_.make<ComponentsLayer>(*layer, planes->picture.format.matrix, chain.color.isIdentity());
  const KernelMatrix matrix = kernelMatrix(chain.color);
  return matrix ? arena_.make<MatrixLayer>(*layer, matrix) : layer;
}

const Layer* Planner::planColor(const Chain& chain, const IntRect& needed) {
  const Color color = mapped(as<ColorNode>(chain.node)->color, chain.color);
  return cropped(arena_.make<ColorLayer>(color, needed),
                 resampling::snapped(chain.map.apply(chain.source)));
}

const Layer* Planner::planShifted(const Chain& chain, const IntRect& needed) {
  const int dx = static_cast<int>(std::lround(chain.map.tx));
  const int dy = static_cast<int>(std::lround(chain.map.ty));
  const Layer* layer = planStep(*chain.node, needed.moved(-dx, -dy));
  if (!layer) return nullptr;
  if (const KernelMatrix matrix = kernelMatrix(chain.color))
    layer = arena_.make<MatrixLayer>(*layer, matrix);
  if (dx != 0 || dy != 0) layer = arena_.make<ShiftLayer>(*layer, dx, dy);
  return cropped(layer, resampling::snapped(chain.map.apply(chain.source)));
}

const Layer* Planner::planStep(const ImageNode& node, const IntRect& needed) {
  if (const auto* over = as<SourceOverNode>(&node)) return planOver(*over, needed);
  if (const auto* in = as<SourceInNode>(&node)) return planIn(*in, needed);
  if (const auto* filter = as<FilterNode>(&node)) return filter->plan(*this, needed);
  return plan(node, needed);
}

const Layer* Planner::planOver(const SourceOverNode& node, const IntRect& needed) {
  const Layer* front = plan(*node.input, needed);
  if (front && front->bounds().contains(needed) && front->isOpaque(needed)) return front;
  const Layer* behind = plan(*node.background, needed);
  if (!front || !behind) return front ? front : behind;
  const IntRect& a = front->bounds();
  const IntRect& b = behind->bounds();
  const IntRect both{std::min(a.x0, b.x0), std::min(a.y0, b.y0), std::max(a.x1, b.x1),
                     std::max(a.y1, b.y1)};
  return arena_.make<OverLayer>(*front, *behind, both);
}

const Layer* Planner::planIn(const SourceInNode& node, const IntRect& needed) {
  const Layer* mask = plan(*node.background, needed);
  if (!mask) return nullptr;
  const Layer* front = plan(*node.input, mask->bounds());
  if (!front) return nullptr;
  const IntRect& shared = front->bounds();
  if (mask->isOpaque(shared)) return front;
  return arena_.make<InLayer>(*front, *mask, shared);
}

const Layer* Planner::cropped(const Layer* layer, const Rect& rect) {
  const IntRect pixels = pixelsOf(rect).intersect(layer->bounds());
  if (pixels.isEmpty()) return nullptr;
  if (isInfinite(rect) || rect.minX() - std::floor(rect.minX()) == 0) {
    const bool isWhole = isInfinite(rect) || (rect.minY() == std::floor(rect.minY()) &&
                                              rect.maxX() == std::floor(rect.maxX()) &&
                                              rect.maxY() == std::floor(rect.maxY()));
    if (isWhole && pixels == layer->bounds()) return layer;
  }
  return arena_.make<CropLayer>(*layer, rect);
}

KernelMatrix Planner::kernelMatrix(const ColorMatrix& matrix) {
  if (matrix.isIdentity()) return nullptr;
  const auto values = arena_.array<float>(16);
  for (size_t from = 0; from < 4; ++from) {
    for (size_t to = 0; to < 3; ++to)
      values[4 * from + to] = static_cast<float>(matrix.m[to][from]);
    values[4 * from + 3] = from == 3 ? 1 : 0;
  }
  return values.data();
}

const Layer* Planner::sample(const Raster& raster, const Sampling& sampling) {
  const AffineTransform& map = sampling.map;
  const auto back = map.invert();
  if (!back) return nullptr;
  if (!resampling::keepsAxes(map)) return turn(raster, sampling);
  const Rect covered = resampling::snapped(map.apply(sampling.clip));
  const IntRect bounds = sampling.needed.intersect(pixelsOf(covered));
  const IntRect pixels = pixelsOf(sampling.clip).intersect(raster.bounds());
  if (bounds.isEmpty() || pixels.isEmpty()) return nullptr;
  if (resampling::isWholeShift(map)) {
    const auto* copy = arena_.make<CopyLayer>(raster, static_cast<int>(std::lround(map.tx)),
                                              static_cast<int>(std::lround(map.ty)), bounds,
                                              sampling.matrix, sampling.isPlain, sampling.scaler);
    return cropped(copy, covered);
  }
  const AffineTransform exact = betweenRects(*back, covered, sampling.clip);
  const bool isQuarterTurn = map.a == 0;
  const Raster* source = isQuarterTurn ? arena_.make<TransposedRaster>(raster) : &raster;
  const IntRect used = isQuarterTurn ? IntRect{pixels.y0, pixels.x0, pixels.y1, pixels.x1} : pixels;
  const AxisTaps& across =
      taps_.tapsOf({sampling.scaler, isQuarterTurn ? exact.b : exact.a,
                    isQuarterTurn ? exact.ty : exact.tx, used.x0, used.x1, bounds.x0, bounds.x1});
  const AxisTaps& down =
      taps_.tapsOf({sampling.scaler, isQuarterTurn ? exact.c : exact.d,
                    isQuarterTurn ? exact.tx : exact.ty, used.y0, used.y1, bounds.y0, bounds.y1});
  const bool isPlanes = sampling.isPlain && !isQuarterTurn && raster.planes();
  const PlainPlanes* planes =
      isPlanes
          ? arena_.make<PlainPlanes>(PlainPlanes{raster.planes(), exact, pixels, sampling.scaler})
          : nullptr;
  const auto* scaled =
      arena_.make<ScaleLayer>(arena_, *source, across, down, bounds, sampling.matrix, planes);
  return cropped(scaled, covered);
}

const Layer* Planner::turn(const Raster& raster, const Sampling& sampling) {
  const AffineTransform toClip = *sampling.map.invert();
  const IntRect pixels = pixelsOf(sampling.clip).intersect(raster.bounds());
  if (pixels.isEmpty()) return nullptr;
  const double spanU = std::max(1.0, std::hypot(toClip.a, toClip.c));
  const double spanV = std::max(1.0, std::hypot(toClip.b, toClip.d));
  const TurnLayer::Border border{sampling.clip, toClip};
  const int n = blockSide(spanU);
  const int m = blockSide(spanV);
  if (n == 1 && m == 1) {
    return arena_.make<TurnLayer>(TurnLayer::Source{raster, pixels, toClip, spanU, spanV}, border,
                                  sampling.needed, sampling.matrix);
  }
  const auto* reduced = arena_.make<ReducedRaster>(raster, pixels, n, m);
  const AffineTransform toBlocks =
      toClip.concat({1.0 / n, 0, 0, 1.0 / m, -static_cast<double>(pixels.x0) / n,
                     -static_cast<double>(pixels.y0) / m});
  const TurnLayer::Source source{*reduced, reduced->bounds(), toBlocks, std::max(1.0, spanU / n),
                                 std::max(1.0, spanV / m)};
  return arena_.make<TurnLayer>(source, border, sampling.needed, sampling.matrix);
}

const Raster* Planner::rasterOf(const ImageNode& node, const Sampling& sampling) {
  if (const auto* bitmap = as<BitmapNode>(&node))
    return arena_.make<BitmapRaster>(*bitmap->bitmap, bitmap->isOpaque);
  if (const auto* planes = as<PlanesNode>(&node)) return arena_.make<PlanesRaster>(planes->picture);
  if (const auto* color = as<ColorNode>(&node)) return arena_.make<ColorRaster>(color->color);

  // The pixels of the source that the needed ones are made of.
  const auto back = sampling.map.invert();
  if (!back) return nullptr;
  const Rect clip = integral(sampling.clip);
  const double footprintU = std::hypot(back->a, back->c);
  const double footprintV = std::hypot(back->b, back->d);
  const Rect used = back->apply(rectOf(sampling.needed));
  const auto reachOf = [&](double footprint) {
    const double radius = std::max(2.0, resampling::radiusOf(sampling.scaler.resampling));
    return std::ceil(radius * std::max(1.0, footprint)) + 1;
  };
  const double reachU = reachOf(footprintU);
  const double reachV = reachOf(footprintV);
  const Rect reach{{used.minX() - reachU, used.minY() - reachV},
                   {used.size.width + 2 * reachU, used.size.height + 2 * reachV}};
  IntRect pixels = pixelsOf(intersection(clip, reach));
  if (pixels.isEmpty()) return nullptr;
  if (!resampling::keepsAxes(sampling.map)) {
    const IntRect all = pixelsOf(clip);
    const IntRect corner = isInfinite(clip) ? IntRect{} : all;
    widenToBlocks(&pixels.x0, &pixels.x1, corner.x0, blockSide(footprintU));
    widenToBlocks(&pixels.y0, &pixels.y1, corner.y0, blockSide(footprintV));
    pixels = pixels.intersect(all);
  }
  return materialize(node, pixels);
}

const Raster* Planner::materialize(const ImageNode& node, const IntRect& needed) {
  const Layer* layer = planStep(node, needed);
  if (!layer) return nullptr;
  if (layer->bounds() != needed) layer = arena_.make<PaddedLayer>(*layer, needed);
  return buffered(*layer);
}

const Layer* Planner::computedOnce(const Layer* layer) {
  if (layer->asPlainCopy()) return layer;
  return arena_.make<CopyLayer>(*buffered(*layer), 0, 0, layer->bounds(), nullptr);
}

const Raster* Planner::buffered(const Layer& layer) {
  const IntRect& bounds = layer.bounds();
  const auto stride = static_cast<size_t>(bounds.width()) * 4;
  const auto pixels = arena_.array<int16_t>(stride * static_cast<size_t>(bounds.height()));
  addPass(arena_.make<BufferPass>(layer, pixels.data()));
  return arena_.make<BufferRaster>(bounds, pixels.data(), static_cast<ptrdiff_t>(stride),
                                   layer.isOpaque(bounds));
}

}  // namespace kestrel
