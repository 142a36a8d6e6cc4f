#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "platform/image/kernels/FilterKernels.h"
#include "platform/image/kernels/Kernels.h"
#include "platform/image/layers/Dither.h"
#include "platform/image/layers/OutputPass.h"
#include "platform/image/layers/PartedPicture.h"
#include "platform/image/layers/PlanesRaster.h"
#include "platform/image/layers/ResampleLayers.h"
#include "platform/image/recipe/Components.h"

namespace kestrel {

namespace {

/// The rows of r, g, b, 1 that make Y, Cb and Cr on the scale of the samples.
std::array<float, 12> matrixToPlanes(const YUVFormat& format) {
  const double levels = std::ldexp(1.0, format.bitDepth - 8);
  const double most = 256 * levels - 1;
  const double lumaScale = format.fullRange ? most : 219 * levels;
  const double chromaScale = format.fullRange ? most : 224 * levels;
  const double black = format.fullRange ? 0 : 16 * levels;
  std::array<float, 12> matrix{};
  if (format.matrix == YUVMatrix::kRgb) {
    matrix[1] = matrix[6] = matrix[8] = static_cast<float>(lumaScale);
    matrix[3] = matrix[7] = matrix[11] = static_cast<float>(black);
    return matrix;
  }
  matrix[3] = static_cast<float>(black);
  matrix[7] = matrix[11] = static_cast<float>(128 * levels);
  if (format.matrix == YUVMatrix::kYCgCo) {
    const double shares[3][3] = {{0.25, 0.5, 0.25}, {-0.25, 0.5, -0.25}, {0.5, 0, -0.5}};
    for (size_t row = 0; row < 3; ++row)
      for (size_t c = 0; c < 3; ++c)
        matrix[4 * row + c] =
            static_cast<float>(shares[row][c] * (row == 0 ? lumaScale : chromaScale));
    return matrix;
  }
  if (isCurved(format.matrix)) {
    matrix[0] = static_cast<float>(lumaScale);
    matrix[5] = matrix[10] = static_cast<float>(chromaScale);
    matrix[7] = matrix[11] = static_cast<float>(128 * levels - chromaScale / 2);
    return matrix;
  }
  const double luma[3] = {format.kr, 1 - format.kr - format.kb, format.kb};
  for (size_t c = 0; c < 3; ++c) {
    matrix[c] = static_cast<float>(luma[c] * lumaScale);
    matrix[4 + c] = static_cast<float>(((c == 2) - luma[c]) / (2 * (1 - format.kb)) * chromaScale);
    matrix[8 + c] = static_cast<float>(((c == 0) - luma[c]) / (2 * (1 - format.kr)) * chromaScale);
  }
  return matrix;
}

/// The rows of luma that a row of chroma is made of: from `first` on, each `step` below the one
/// before, and what each counts. Rows beyond the picture are those at its border.
struct RowMix {
  int first;
  int step;
  std::array<float, 5> weights;
  int count;
};

/// The opposite of how `PlanesRaster` gives rows of luma their chroma: of what it made of samples
/// come these samples.
RowMix mixOf(const YUVFormat& format, int row) {
  if (format.chromaShiftY == 1 && format.byFields) {
    const int field = row % 2;
    const int first = 2 * (row - field) + field;
    const auto place = static_cast<float>(fieldPlace(format, field));
    if (first + 2 >= format.height) return {first, 2, {1}, 1};
    return {first, 2, {1 - place, place}, 2};
  }
  if (format.chromaShiftY == 1 && format.chromaY != 0.5) {
    const int mine = 2 * row + (format.chromaY > 0.5 ? 1 : 0);
    return {mine - 2, 1, {-0.125f, 0.25f, 0.75f, 0.25f, -0.125f}, 5};
  }
  const int first = row << format.chromaShiftY;
  const int count = std::min(1 << format.chromaShiftY, format.height - first);
  const float share = 1.0f / static_cast<float>(count);
  return {first, 1, {share, share, share, share}, count};
}

/// How many rows beside its own count for a sample of chroma.
int rowReach(const YUVFormat& format) {
  return format.chromaShiftY == 1 && !format.byFields && format.chromaY != 0.5 ? 2 : 0;
}

/// Writes pieces that begin at whole chroma samples.
class PlanesPass final : public Pass {
 public:
  /// `part`, in pixels from the upper left one, begins and ends with whole chroma samples or with
  /// the picture.
  PlanesPass(const Layer* layer, const IntRect& picture, const IntRect& part,
             const YUVTarget& target, bool isFine)
      : layer_(layer),
        picture_(picture),
        target_(target),
        isFine_(isFine),
        tiling_(layer, part),
        matrix_(matrixToPlanes(target.format)) {}

  int tasks() const override { return tiling_.count(); }
  void run(Worker& worker, int task) const override;

 private:
  /// Adds noise to the values where they are finer than samples.
  void writeRow(Worker& worker, int plane, int row, int x, std::span<float> values) const;
  /// `mixed` is over the rows that count, from `kReach` columns left of the piece on.
  void writeChroma(Worker& worker, int plane, int row, const IntRect& piece,
                   const float* mixed) const;

  /// So many columns beside its own count for a sample of chroma.
  static constexpr int kReach = 2;

  const Layer* layer_;
  IntRect picture_;
  YUVTarget target_;
  bool isFine_;    ///< finer than the target
  Tiling tiling_;  ///< rows counted from the top
  std::array<float, 12> matrix_;
};

void PlanesPass::run(Worker& worker, int task) const {
  const ArenaScope scope(worker.memory);
  const YUVFormat& format = target_.format;
  const IntRect piece = tiling_.piece(task);
  // Chroma looks at the columns and rows beside the piece, too.
  const int reach = rowReach(format);
  const int left = std::max(piece.x0 - kReach, 0);
  const int right = std::min(piece.x1 + kReach, format.width);
  const int top = std::max(piece.y0 - reach, 0);
  const int bottom = std::min(piece.y1 + reach, format.height);
  const IntRect area{picture_.x0 + left, picture_.y1 - bottom, picture_.x0 + right,
                     picture_.y1 - top};
  const Tile tile = makeTile(worker.memory, area);
  renderAnywhere(layer_, worker, area, tile);

  const auto width = static_cast<size_t>(area.width());
  float* const luma = worker.memory.array<float>(width).data();
  std::array<float*, 2> chroma;  // rows from `top` on
  for (float*& rows : chroma)
    rows = worker.memory.array<float>(width * static_cast<size_t>(bottom - top)).data();
  for (int row = top; row < bottom; ++row) {
    float* const pixels = tile.row(bottom - 1 - row);
    const size_t at = width * static_cast<size_t>(row - top);
    if (isCurved(format.matrix)) colorsToComponents(format.matrix, pixels, width);
    kernels::splitPlanes(pixels, width, matrix_.data(), luma, chroma[0] + at, chroma[1] + at);
    if (row < piece.y0 || row >= piece.y1) continue;
    writeRow(worker, 0, row, piece.x0,
             {luma + (piece.x0 - left), static_cast<size_t>(piece.width())});
  }

  // Chroma lines begin with the columns left of the piece and end with some right of it; at the
  // ends of the picture the outermost column stands for those beyond.
  const auto lead = static_cast<size_t>(kReach - (piece.x0 - left));
  const size_t length = lead + width + 2 * kReach + 2;
  float* const mixed = worker.memory.array<float>(length).data();
  const int shift = format.chromaShiftY;
  const int end = (piece.y1 + (1 << shift) - 1) >> shift;
  for (int row = piece.y0 >> shift; row < end; ++row) {
    const RowMix mix = mixOf(format, row);
    std::array<const float*, 5> rows{};
    for (size_t c = 0; c < chroma.size(); ++c) {
      for (int i = 0; i < mix.count; ++i) {
        const int from = std::clamp(mix.first + i * mix.step, top, bottom - 1);
        rows[static_cast<size_t>(i)] = chroma[c] + width * static_cast<size_t>(from - top);
      }
      kernels::sumRows(rows.data(), mix.weights.data(), mix.count, width, mixed + lead);
      std::fill_n(mixed, lead, mixed[lead]);
      std::fill(mixed + lead + width, mixed + length, mixed[lead + width - 1]);
      writeChroma(worker, static_cast<int>(c) + 1, row, piece, mixed);
    }
  }
}

void PlanesPass::writeChroma(Worker& worker, int plane, int row, const IntRect& piece,
                             const float* mixed) const {
  const ArenaScope scope(worker.memory);
  const YUVFormat& format = target_.format;
  const int shift = format.chromaShiftX;
  const int begin = piece.x0 >> shift;
  const auto count = static_cast<size_t>(((piece.x1 + (1 << shift) - 1) >> shift) - begin);
  const auto values = worker.memory.array<float>(count);
  if (shift == 1 && format.chromaX == 0) {
    kernels::halveRow(mixed, 1, count, values.data());
  } else {
    for (size_t i = 0; i < count; ++i) {
      const float* const at = mixed + (i << shift) + kReach;
      if (shift == 0)
        values[i] = at[0];
      else if (shift == 1)
        values[i] = (3 * (at[0] + at[1]) - at[-1] - at[2]) / 4;
      else
        values[i] = (at[-1] + 2 * at[0] + at[1]) / 4;
    }
  }
  writeRow(worker, plane, row, begin, values);
}

void PlanesPass::writeRow(Worker& worker, int plane, int row, int x,
                          std::span<float> values) const {
  if (isFine_) {
    const ArenaScope scope(worker.memory);
    const auto noise = worker.memory.array<float>(values.size());
    fillNoise(x, row, kDitherReach, noise);
    kernels::addValues(values.data(), noise.data(), noise.size());
  }
  const auto& to = target_.planes[static_cast<size_t>(plane)];
  uint8_t* const bytes = to.data + row * to.bytesPerRow;
  const ptrdiff_t stride = to.sampleStride;
  const int bits = target_.format.bitDepth;
  if (bits == 8 && stride == 1)
    return kernels::packSamples(values.data(), values.size(), bytes + x);
  const auto most = static_cast<float>((1 << bits) - 1);
  for (size_t i = 0; i < values.size(); ++i) {
    const auto sample = std::lround(std::clamp(values[i], 0.0f, most));
    const ptrdiff_t at = (x + static_cast<ptrdiff_t>(i)) * stride;
    if (bits == 8) {
      bytes[at] = static_cast<uint8_t>(sample);
    } else {
      const auto word = static_cast<uint16_t>(sample << target_.format.bitShift);
      std::memcpy(bytes + 2 * at, &word, sizeof(word));
    }
  }
}

}  // namespace

bool isWritable(const YUVTarget& target) {
  const YUVFormat& format = target.format;
  const auto isShift = [](int shift) { return shift >= 0 && shift <= 2; };
  return target.planes[0].data && target.planes[1].data && target.planes[2].data &&
         format.bitDepth >= 8 && format.bitDepth <= 16 && format.bitShift >= 0 &&
         format.bitDepth + format.bitShift <= 16 && isShift(format.chromaShiftX) &&
         isShift(format.chromaShiftY);
}

void addPlanesPasses(const PassMaker& maker, const Layer* layer, const IntRect& picture,
                     const YUVTarget& target) {
  const PartedPicture parted(layer, picture, target.format);
  for (const auto& [planes, part] : parted.plain())
    addScalePass(maker, planes, picture, part, target);
  const bool isFine =
      maker.depth > target.format.bitDepth || (maker.hasGradients && target.format.bitDepth == 8);
  for (const IntRect& part : parted.mixed())
    maker.passes.push_back(maker.arena.make<PlanesPass>(layer, picture, part, target, isFine));
}

}  // namespace kestrel
