#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "platform/image/kernels/Kernels.h"
#include "platform/image/layers/OutputPass.h"
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
  const double luma[3] = {format.kr, 1 - format.kr - format.kb, format.kb};
  std::array<float, 12> matrix{};
  for (size_t c = 0; c < 3; ++c) {
    matrix[c] = static_cast<float>(luma[c] * lumaScale);
    matrix[4 + c] = static_cast<float>(((c == 2) - luma[c]) / (2 * (1 - format.kb)) * chromaScale);
    matrix[8 + c] = static_cast<float>(((c == 0) - luma[c]) / (2 * (1 - format.kr)) * chromaScale);
  }
  matrix[3] = static_cast<float>(black);
  matrix[7] = matrix[11] = static_cast<float>(128 * levels);
  return matrix;
}

/// Writes pieces that begin at whole chroma samples.
class PlanesPass final : public Pass {
 public:
  PlanesPass(const Layer* layer, const IntRect& picture, const YUVTarget& target)
      : layer_(layer),
        picture_(picture),
        target_(target),
        tiling_(layer, {0, 0, picture.width(), picture.height()}),
        matrix_(matrixToPlanes(target.format)) {}

  int tasks() const override { return tiling_.count(); }
  void run(Worker& worker, int task) const override;

 private:
  void writeRow(int plane, int row, int x, const float* values, int count) const;
  /// `sums` are over `rows` rows, from the column left of the piece on.
  void writeChroma(Worker& worker, int plane, int row, const IntRect& piece, const float* sums,
                   int rows) const;

  const Layer* layer_;
  IntRect picture_;
  YUVTarget target_;
  Tiling tiling_;  ///< rows counted from the top
  std::array<float, 12> matrix_;
};

void PlanesPass::run(Worker& worker, int task) const {
  const ArenaScope scope(worker.memory);
  const YUVFormat& format = target_.format;
  const IntRect piece = tiling_.piece(task);
  // Chroma looks at the columns beside the piece, too.
  const int left = std::max(piece.x0 - 1, 0);
  const int right = std::min(piece.x1 + 1, format.width);
  const IntRect area{picture_.x0 + left, picture_.y1 - piece.y1, picture_.x0 + right,
                     picture_.y1 - piece.y0};
  const Tile tile = makeTile(worker.memory, area);
  renderAnywhere(layer_, worker, area, tile);

  // Chroma lines begin with the column left of the piece and end with two right of it; at the ends
  // of the picture the outermost column stands for those beyond.
  const auto width = static_cast<size_t>(area.width());
  const size_t lead = left == piece.x0 ? 1 : 0;
  const size_t length = width + 4;
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
    writeRow(0, row, piece.x0, luma + (piece.x0 - left), piece.width());
    const bool isLast = part == shared - 1 || row == piece.y1 - 1;
    for (int c = 0; c < 2; ++c) {
      if (!isFirst) kernels::addValues(sums[c] + lead, lines[c], width);
      if (!isLast) continue;
      if (lead > 0) sums[c][0] = sums[c][1];
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
      values[i] = scale * (shift == 0 ? at[1] : (at[0] + 2 * at[1] + at[2]) / 4);
    }
  }
  writeRow(plane, row, begin, values.data(), static_cast<int>(count));
}

void PlanesPass::writeRow(int plane, int row, int x, const float* values, int count) const {
  const auto& to = target_.planes[static_cast<size_t>(plane)];
  uint8_t* const bytes = to.data + row * to.bytesPerRow;
  const ptrdiff_t stride = to.sampleStride;
  const int bits = target_.format.bitDepth;
  if (bits == 8 && stride == 1)
    return kernels::packSamples(values, static_cast<size_t>(count), bytes + x);
  const auto most = static_cast<float>((1 << bits) - 1);
  for (int i = 0; i < count; ++i) {
    const auto sample = std::lround(std::clamp(values[i], 0.0f, most));
    const ptrdiff_t at = (x + i) * stride;
    if (bits == 8) {
      bytes[at] = static_cast<uint8_t>(sample);
    } else {
      const auto word = static_cast<uint16_t>(sample << target_.format.bitShift);
      std::memcpy(bytes + 2 * at, &word, sizeof(word));
    }
  }
}

/// A picture that is a part of planes of the same format: their samples as they are.
class PlanesCopyPass final : public Pass {
 public:
  /// The picture's upper left luma sample is (x, y) of `source`.
  PlanesCopyPass(const YUVPicture& source, int x, int y, const YUVTarget& target)
      : source_(source), x_(x), y_(y), target_(target) {}

  int tasks() const override { return 3; }

  void run(Worker& /*worker*/, int task) const override {
    const auto plane = static_cast<size_t>(task);
    const YUVFormat& format = target_.format;
    const int shiftX = task == 0 ? 0 : format.chromaShiftX;
    const int shiftY = task == 0 ? 0 : format.chromaShiftY;
    const auto sizeOf = [](int luma, int shift) { return (luma + (1 << shift) - 1) >> shift; };
    const int width = sizeOf(format.width, shiftX);
    const int height = sizeOf(format.height, shiftY);
    const auto& from = source_.planes[plane];
    const auto& to = target_.planes[plane];
    const ptrdiff_t bytes = format.bitDepth > 8 ? 2 : 1;
    const bool isPacked = from.sampleStride == 1 && to.sampleStride == 1;
    for (int row = 0; row < height; ++row) {
      const uint8_t* in = from.data + (row + (y_ >> shiftY)) * from.bytesPerRow +
                          (x_ >> shiftX) * bytes * from.sampleStride;
      uint8_t* out = to.data + row * to.bytesPerRow;
      if (isPacked) {
        std::memcpy(out, in, static_cast<size_t>(width * bytes));
        continue;
      }
      for (int i = 0; i < width;
           ++i, in += bytes * from.sampleStride, out += bytes * to.sampleStride)
        std::memcpy(out, in, static_cast<size_t>(bytes));
    }
  }

 private:
  const YUVPicture& source_;
  int x_;
  int y_;
  YUVTarget target_;
};

/// The copy that makes the whole picture; null where samples must be computed.
const Pass* planCopy(Arena& arena, const Layer* layer, const IntRect& picture,
                     const YUVTarget& target) {
  const CopyLayer* copy = layer ? layer->asPlainCopy() : nullptr;
  const YUVPicture* source = copy ? copy->source().planes() : nullptr;
  if (!source || !source->planes[1].data || !source->planes[2].data) return nullptr;
  if (!layer->bounds().contains(picture)) return nullptr;
  YUVFormat format = source->format;
  format.width = target.format.width;
  format.height = target.format.height;
  const int x = picture.x0 - copy->dx();
  const int y = source->format.height - (picture.y1 - copy->dy());
  const bool isAligned = x % (1 << format.chromaShiftX) == 0 && y % (1 << format.chromaShiftY) == 0;
  if (format != target.format || !isAligned) return nullptr;
  return arena.make<PlanesCopyPass>(*source, x, y, target);
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

const Pass* makePlanesPass(Arena& arena, const Layer* layer, const IntRect& picture,
                           const YUVTarget& target) {
  if (const Pass* copy = planCopy(arena, layer, picture, target)) return copy;
  return arena.make<PlanesPass>(layer, picture, target);
}

}  // namespace kestrel
