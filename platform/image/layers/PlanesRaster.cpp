#include "platform/image/layers/PlanesRaster.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "platform/image/kernels/Kernels.h"
#include "platform/image/recipe/Components.h"
#include "platform/image/values/ColorMatrix.h"

namespace kestrel {

namespace {

/// Half of 2^bits, at the scale of 8 bits.
constexpr int16_t kNeutralChroma = 128 << 6;

int chromaSize(int luma, int shift) { return (luma + (1 << shift) - 1) >> shift; }

/// Samples of chroma lie elsewhere than with the left ones of luma.
bool isAside(const YUVFormat& format) { return format.chromaShiftX > 0 && format.chromaX != 0; }

bool isJoinedAtOnce(const YUVPicture& picture) {
  const auto isPlain = [&](size_t plane) {
    return picture.planes[plane].data && picture.planes[plane].sampleStride == 1;
  };
  return picture.format.bitDepth == 8 && picture.format.chromaShiftX <= 1 &&
         !picture.format.byFields && !isAside(picture.format) && isPlain(0) && isPlain(1) &&
         isPlain(2);
}

}  // namespace

/// Rows of a plane from `first` on, counted downwards from the top one, and their weights.
struct PlanesRaster::Rows {
  int first;
  std::span<const int16_t> weights;
};

PlanesRaster::PlanesRaster(const YUVPicture& picture)
    : Raster({0, 0, picture.format.width, picture.format.height}, !picture.planes[3].data),
      picture_(picture),
      isJoined_(isJoinedAtOnce(picture)),
      chromaWidth_(chromaSize(picture.format.width, picture.format.chromaShiftX)),
      chromaHeight_(chromaSize(picture.format.height, picture.format.chromaShiftY)) {}

void PlanesRaster::blendRows(Worker& worker, int y, const int16_t* weights, int count, int x0,
                             int x1, int16_t* out) const {
  if (!isOpaque() && count > 1) return blendWithAlpha(worker, y, weights, count, x0, x1, out);
  const ArenaScope scope(worker.memory);
  const int top = bounds().y1 - y - count;
  if (count == 1 && isJoined_) {
    joinRow(worker, top, x0, x1, out);
  } else {
    const auto downwards = worker.memory.array<int16_t>(static_cast<size_t>(count));
    std::reverse_copy(weights, weights + count, downwards.begin());
    blendColors(worker, {top, downwards}, x0, x1, out);
  }
  if (isOpaque()) return;
  const auto pixels = static_cast<size_t>(x1 - x0);
  int16_t* const alpha = worker.memory.array<int16_t>(pixels).data();
  widenRow(3, top, x0, x1, alpha);
  // Alpha is of full range, whose largest sample is less than the scale's 255 above 8 bits.
  const int bits = picture_.format.bitDepth;
  const int most = bits > 8 ? ((1 << bits) - 1) << 14 >> bits : kernels::kOne;
  for (size_t i = 0; i < pixels; ++i, out += 4) {
    const int a = alpha[i] * kernels::kOne / most;
    for (int c = 0; c < 3; ++c)
      out[c] = static_cast<int16_t>((out[c] * a + kernels::kOne / 2) / kernels::kOne);
    out[3] = static_cast<int16_t>(a);
  }
}

void PlanesRaster::joinRow(Worker& worker, int row, int x0, int x1, int16_t* out) const {
  const YUVFormat& format = picture_.format;
  const ChromaMix mix = chromaOf(row);
  // One chroma sample beyond the last, for the interpolation.
  const int left = x0 >> format.chromaShiftX;
  const int right = ((x1 - 1) >> format.chromaShiftX) + 1 + format.chromaShiftX;
  const auto samplesOf = [&](size_t plane, int at) {
    const auto& source = picture_.planes[plane];
    const uint8_t* const samples = source.data + at * source.bytesPerRow + left;
    if (right <= chromaWidth_) return samples;
    uint8_t* const copy = worker.memory.array<uint8_t>(static_cast<size_t>(right - left)).data();
    std::memcpy(copy, samples, static_cast<size_t>(chromaWidth_ - left));
    copy[chromaWidth_ - left] = samples[chromaWidth_ - left - 1];
    return static_cast<const uint8_t*>(copy);
  };
  const auto& [rows, shares] = mix;
  const kernels::ChromaRows chroma{
      {samplesOf(1, rows[0]), samplesOf(1, rows[1]), samplesOf(1, rows[2])},
      {samplesOf(2, rows[0]), samplesOf(2, rows[1]), samplesOf(2, rows[2])},
      {shares[0] / 2, shares[1] / 2, shares[2] / 2}};
  const auto& luma = picture_.planes[0];
  const uint8_t* const samples = luma.data + row * luma.bytesPerRow + x0;
  if (row >= kRowsAhead) {
    const uint8_t* const ahead = samples - kRowsAhead * luma.bytesPerRow;
    fetch(ahead, ahead + (x1 - x0));
    for (const size_t plane : {1, 2}) {
      const auto& source = picture_.planes[plane];
      const uint8_t* const next =
          source.data + ((row - kRowsAhead) >> format.chromaShiftY) * source.bytesPerRow + left;
      fetch(next, next + (right - left));
    }
  }
  kernels::joinPlanes8(samples, chroma, x0 - (left << format.chromaShiftX), format.chromaShiftX,
                       static_cast<size_t>(x1 - x0), out);
}

void PlanesRaster::blendColors(Worker& worker, const Rows& luma, int x0, int x1,
                               int16_t* out) const {
  const auto pixels = static_cast<size_t>(x1 - x0);
  int16_t* const row = worker.memory.array<int16_t>(pixels).data();
  blendPlane(worker, 0, luma, x0, x1, row);

  // One chroma sample beyond the last, for the interpolation.
  const int shift = picture_.format.chromaShiftX;
  const bool isSpread = isAside(picture_.format);
  const int left = std::max((x0 >> shift) - (isSpread ? 1 : 0), 0);
  const int right = ((x1 - 1) >> shift) + 2;
  const bool isGrey = !picture_.planes[1].data || !picture_.planes[2].data;
  const Rows chroma = isGrey ? Rows{0, {}} : chromaRows(worker, luma);
  int16_t* components[2];
  for (int c = 0; c < 2; ++c) {
    const auto samples = worker.memory.array<int16_t>(static_cast<size_t>(right - left));
    components[c] = samples.data();
    if (isGrey)
      std::fill(samples.begin(), samples.end(), kNeutralChroma);
    else
      blendChroma(worker, c + 1, chroma, left, right, samples.data());
    if (!isSpread || isGrey) continue;
    components[c] = worker.memory.array<int16_t>(pixels + 1).data();
    spreadChroma(samples.data(), left, x0, x1, components[c]);
  }
  if (isSpread && !isGrey)
    return kernels::joinPlanes(row, components[0], components[1], 0, 0, pixels, out);
  kernels::joinPlanes(row, components[0], components[1], x0 - (left << shift), shift, pixels, out);
}

void PlanesRaster::blendWithAlpha(Worker& worker, int y, const int16_t* weights, int count, int x0,
                                  int x1, int16_t* out) const {
  const ArenaScope scope(worker.memory);
  const size_t values = 4 * static_cast<size_t>(x1 - x0);
  const auto rows = worker.memory.array<const int16_t*>(static_cast<size_t>(count));
  constexpr int16_t kWhole[1] = {kernels::kWeightOne};
  for (int i = 0; i < count; ++i) {
    int16_t* const row = worker.memory.array<int16_t>(values).data();
    blendRows(worker, y + i, kWhole, 1, x0, x1, row);
    rows[static_cast<size_t>(i)] = row;
  }
  kernels::blend16(rows.data(), weights, count, values, out);
}

PlanesRaster::ChromaMix PlanesRaster::chromaOf(int row) const {
  const auto limited = [this](int at) { return std::clamp(at, 0, chromaHeight_ - 1); };
  const int shift = picture_.format.chromaShiftY;
  const int at = row >> shift;
  if (shift == 1 && picture_.format.byFields) return chromaOfField(row);
  if (shift == 1 && picture_.format.chromaY != 0.5) {
    const bool isUpper = picture_.format.chromaY < 0.5;
    const bool isThere = (row % 2 == 0) == isUpper;
    const int mine = isThere ? 16 : 8;
    return isUpper ? ChromaMix{{at, at, limited(at + 1)}, {0, mine, 16 - mine}}
                   : ChromaMix{{limited(at - 1), at, at}, {16 - mine, mine, 0}};
  }
  if (shift == 1) {
    // A slope between the neighbours, so that the mean of two rows is what they share. A last row
    // that shares with none has all of it.
    const int slope = row % 2 == 0 ? 2 : -2;
    if (row == picture_.format.height - 1 && slope > 0) return {{at, at, at}, {0, 16, 0}};
    return {{limited(at - 1), at, limited(at + 1)}, {slope, 16, -slope}};
  }
  const int sixteenths = ((2 * row + 1) << 3 >> shift) - 8;
  const int first = sixteenths >> 4;
  return {{limited(first), limited(first), limited(first + 1)},
          {0, 16 - (sixteenths & 15), sixteenths & 15}};
}

/// A slope between the neighbours of the same field, by how far each of the two rows lies from what
/// they share: so the mean, weighted as `fieldPlace` says it, is that.
PlanesRaster::ChromaMix PlanesRaster::chromaOfField(int row) const {
  const int field = row % 2;
  const int line = row / 2;
  const int lines = (picture_.format.height - field + 1) / 2;
  const int samples = std::max((chromaHeight_ - field + 1) / 2, 1);
  const auto rowOf = [&](int sample) {
    return std::min(2 * std::clamp(sample, 0, samples - 1) + field, chromaHeight_ - 1);
  };
  const int at = rowOf(line / 2);
  const bool isFirst = line % 2 == 0;
  if (isFirst && line + 1 == lines) return {{at, at, at}, {0, 16, 0}};
  const double place = fieldPlace(picture_.format, field);
  const auto slope = static_cast<int>(std::lround(4 * (isFirst ? place : place - 1)));
  return {{rowOf(line / 2 - 1), at, rowOf(line / 2 + 1)}, {slope, 16, -slope}};
}

void PlanesRaster::spreadChroma(const int16_t* samples, int left, int x0, int x1,
                                int16_t* out) const {
  const YUVFormat& format = picture_.format;
  const double place = format.chromaX * ((1 << format.chromaShiftX) - 1);
  for (int x = x0; x <= x1; ++x) {
    // One beyond the last is read, though it counts nothing.
    const double at = std::ldexp(std::min(x, x1 - 1) - place, -format.chromaShiftX);
    const double from = std::max(at, 0.0) - left;
    const auto index = static_cast<size_t>(from);
    const double share = from - static_cast<double>(index);
    out[x - x0] = static_cast<int16_t>(
        std::lround(samples[index] + share * (samples[index + 1] - samples[index])));
  }
}

PlanesRaster::Rows PlanesRaster::chromaRows(Worker& worker, const Rows& luma) const {
  if (picture_.format.chromaShiftY == 0) return luma;
  const int count = static_cast<int>(luma.weights.size());
  int first = chromaHeight_;
  int last = 0;
  for (int i = 0; i < count; ++i) {
    const ChromaMix mix = chromaOf(luma.first + i);
    first = std::min(first, mix.rows[0]);
    last = std::max(last, mix.rows[2]);
  }
  const int mixed = last - first + 1;
  const auto rows = static_cast<size_t>(mixed);
  const auto shares = worker.memory.array<int>(rows);
  std::fill(shares.begin(), shares.end(), 0);
  for (int i = 0; i < count; ++i) {
    const ChromaMix mix = chromaOf(luma.first + i);
    const int weight = count == 1 ? kernels::kWeightOne : luma.weights[static_cast<size_t>(i)];
    for (size_t r = 0; r < mix.rows.size(); ++r)
      shares[static_cast<size_t>(mix.rows[r] - first)] += weight * mix.shares[r];
  }
  const auto weights = worker.memory.array<int16_t>(rows);
  for (size_t i = 0; i < rows; ++i) weights[i] = static_cast<int16_t>((shares[i] + 8) >> 4);
  return {first, weights};
}

void PlanesRaster::blendChroma(Worker& worker, int plane, const Rows& rows, int x0, int x1,
                               int16_t* out) const {
  const int end = std::min(x1, chromaWidth_);
  blendPlane(worker, plane, rows, x0, end, out);
  for (int x = end; x < x1; ++x) out[x - x0] = out[end - 1 - x0];
}

void PlanesRaster::blendPlane(Worker& worker, int plane, const Rows& rows, int x0, int x1,
                              int16_t* out) const {
  const auto& source = picture_.planes[static_cast<size_t>(plane)];
  const auto count = rows.weights.size();
  const auto values = static_cast<size_t>(x1 - x0);
  const ArenaScope scope(worker.memory);
  if (picture_.format.bitDepth == 8 && source.sampleStride == 1) {
    const auto bytes = worker.memory.array<const uint8_t*>(count);
    for (size_t i = 0; i < count; ++i)
      bytes[i] = source.data + (rows.first + static_cast<ptrdiff_t>(i)) * source.bytesPerRow + x0;
    return kernels::blend8(bytes.data(), rows.weights.data(), static_cast<int>(count), values, out);
  }
  const auto wide = worker.memory.array<const int16_t*>(count);
  for (size_t i = 0; i < count; ++i) {
    int16_t* const row = worker.memory.array<int16_t>(values).data();
    widenRow(plane, rows.first + static_cast<int>(i), x0, x1, row);
    wide[i] = row;
  }
  kernels::blend16(wide.data(), rows.weights.data(), static_cast<int>(count), values, out);
}

void PlanesRaster::widenRow(int plane, int row, int x0, int x1, int16_t* out) const {
  const auto& source = picture_.planes[static_cast<size_t>(plane)];
  const uint8_t* const bytes = source.data + row * source.bytesPerRow;
  const ptrdiff_t stride = source.sampleStride;
  const int bits = picture_.format.bitDepth;
  if (bits == 8) {
    for (int x = x0; x < x1; ++x) out[x - x0] = static_cast<int16_t>(bytes[x * stride] << 6);
    return;
  }
  const int most = (1 << bits) - 1;
  const int shift = picture_.format.bitShift;
  if (stride == 1 && bits <= 14) {
    const auto* const samples = reinterpret_cast<const uint16_t*>(bytes) + x0;
    return kernels::widenSamples(samples, shift, most, 14 - bits, static_cast<size_t>(x1 - x0),
                                 out);
  }
  for (int x = x0; x < x1; ++x) {
    uint16_t sample;
    std::memcpy(&sample, bytes + 2 * (x * stride), sizeof(sample));
    out[x - x0] = static_cast<int16_t>(std::min(sample >> shift, most) << 14 >> bits);
  }
}

double fieldPlace(const YUVFormat& format, int field) {
  return format.chromaY == 0.5 ? 0.25 + 0.5 * field : format.chromaY;
}

ColorMatrix matrixOfPlanes(const YUVFormat& format) {
  // What a raster holds for a sample, as a share of 1: the scale of 8 bits over 255.
  const double step = 1.0 / 255;
  const double levels = std::ldexp(1.0, format.bitDepth - 8);
  const double fullScale = 255 * levels / (255 * levels + levels - 1);
  const double black = format.fullRange ? 0 : 16 * step;
  const double lumaScale = format.fullRange ? fullScale : 255.0 / 219;
  const double chromaScale = format.fullRange ? fullScale : 255.0 / 224;
  const double neutral = 128 * step;
  ColorMatrix matrix;
  if (format.matrix == YUVMatrix::kRgb) {
    matrix.m = {{{0, 0, lumaScale, -lumaScale * black},
                 {lumaScale, 0, 0, -lumaScale * black},
                 {0, lumaScale, 0, -lumaScale * black}}};
    return matrix;
  }
  if (isCurved(format.matrix)) {
    const double half = 0.5 - chromaScale * neutral;
    matrix.m = {{{lumaScale, 0, 0, -lumaScale * black},
                 {0, chromaScale, 0, half},
                 {0, 0, chromaScale, half}}};
    return matrix;
  }
  const double kg = 1 - format.kr - format.kb;
  const double redOfCr = 2 * (1 - format.kr) * chromaScale;
  const double blueOfCb = 2 * (1 - format.kb) * chromaScale;
  const double greenOfCr = -redOfCr * format.kr / kg;
  const double greenOfCb = -blueOfCb * format.kb / kg;
  matrix.m = {{{lumaScale, 0, redOfCr, 0},
               {lumaScale, greenOfCb, greenOfCr, 0},
               {lumaScale, blueOfCb, 0, 0}}};
  if (format.matrix == YUVMatrix::kYCgCo) {
    const double part = chromaScale;
    matrix.m = {
        {{lumaScale, -part, part, 0}, {lumaScale, part, 0, 0}, {lumaScale, -part, -part, 0}}};
  }
  for (auto& row : matrix.m) row[3] = -row[0] * black - (row[1] + row[2]) * neutral;
  return matrix;
}

}  // namespace kestrel
