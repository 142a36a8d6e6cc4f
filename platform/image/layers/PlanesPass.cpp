#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "platform/image/kernels/Kernels.h"
#include "platform/image/layers/Dither.h"
#include "platform/image/layers/OutputPass.h"
#include "platform/image/layers/PartedPicture.h"
#include "platform/image/layers/ResampleLayers.h"

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
  const double luma[3] = {format.kr, 1 - format.kr - format.kb, format.kb};
  for (size_t c = 0; c < 3; ++c) {
    matrix[c] = static_cast<float>(luma[c] * lumaScale);
    matrix[4 + c] = static_cast<float>(((c == 2) - luma[c]) / (2 * (1 - format.kb)) * chromaScale);
    matrix[8 + c] = static_cast<float>(((c == 0) - luma[c]) / (2 * (1 - format.kr)) * chromaScale);
  }
  return matrix;
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
  /// `sums` are over `rows` rows, from `kReach` columns left of the piece on.
  void writeChroma(Worker& worker, int plane, int row, const IntRect& piece, const float* sums,
                   int rows) const;

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
  // Chroma looks at the columns beside the piece, too.
  const int left = std::max(piece.x0 - kReach, 0);
  const int right = std::min(piece.x1 + kReach, format.width);
  const IntRect area{picture_.x0 + left, picture_.y1 - piece.y1, picture_.x0 + right,
                     picture_.y1 - piece.y0};
  const Tile tile = makeTile(worker.memory, area);
  renderAnywhere(layer_, worker, area, tile);

  // Chroma lines begin with the columns left of the piece and end with some right of it; at the
  // ends of the picture the outermost column stands for those beyond.
  const auto width = static_cast<size_t>(area.width());
  const auto lead = static_cast<size_t>(kReach - (piece.x0 - left));
  const size_t length = lead + width + 2 * kReach + 2;
  float* const luma = worker.memory.array<float>(width).data();
  float* lines[2];
  float* sums[2];
  for (int c = 0; c < 2; ++c) {
    lines[c] = worker.memory.array<float>(width).data();
    sums[c] = worker.memory.array<float>(length).data();
  }
  const int shared = 1 << format.chromaShiftY;
  for (int row = piece.y0; row < piece.y1; ++row) {
    const int part = row % shared;
    const bool isFirst = part == 0;
    kernels::splitPlanes(tile.row(piece.y1 - 1 - row), width, matrix_.data(), luma,
                         isFirst ? sums[0] + lead : lines[0], isFirst ? sums[1] + lead : lines[1]);
    writeRow(worker, 0, row, piece.x0,
             {luma + (piece.x0 - left), static_cast<size_t>(piece.width())});
    const bool isLast = part == shared - 1 || row == piece.y1 - 1;
    for (int c = 0; c < 2; ++c) {
      if (!isFirst) kernels::addValues(sums[c] + lead, lines[c], width);
      if (!isLast) continue;
      std::fill_n(sums[c], lead, sums[c][lead]);
      std::fill(sums[c] + lead + width, sums[c] + length, sums[c][lead + width - 1]);
      writeChroma(worker, c + 1, row >> format.chromaShiftY, piece, sums[c], part + 1);
    }
  }
}

void PlanesPass::writeChroma(Worker& worker, int plane, int row, const IntRect& piece,
                             const float* sums, int rows) const {
  const ArenaScope scope(worker.memory);
  const int shift = target_.format.chromaShiftX;
  const int begin = piece.x0 >> shift;
  const auto count = static_cast<size_t>(((piece.x1 + (1 << shift) - 1) >> shift) - begin);
  const auto values = worker.memory.array<float>(count);
  const float scale = 1.0f / static_cast<float>(rows);
  if (shift == 1) {
    kernels::halveRow(sums, scale, count, values.data());
  } else {
    for (size_t i = 0; i < count; ++i) {
      const float* const at = sums + (i << shift);
      const float here = at[kReach];
      values[i] = scale * (shift == 0 ? here : (at[kReach - 1] + 2 * here + at[kReach + 1]) / 4);
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
  const bool isFine = maker.depth > target.format.bitDepth;
  for (const IntRect& part : parted.mixed())
    maker.passes.push_back(maker.arena.make<PlanesPass>(layer, picture, part, target, isFine));
}

}  // namespace kestrel
