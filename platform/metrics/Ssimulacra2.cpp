#include <kestrel/BitmapImage.h>
#include <kestrel/Ssimulacra2.h>

#include <algorithm>
#include <cmath>
#include <new>
#include <span>
#include <stdexcept>
#include <thread>
#include <vector>

#include "platform/image/plan/WorkerPool.h"
#include "platform/metrics/FloatRows.h"
#include "platform/metrics/ScoreWeights.h"
#include "platform/metrics/kernels/MetricKernels.h"

namespace kestrel {

namespace {

using kernels::kBlurReach;
using kernels::kBlurRows;

/// A scale is entered when the one before has sides of at least as much.
constexpr int kLeastSide = 8;

/// Columns that are blurred down and measured at a time, so that they stay in the nearest cache.
constexpr size_t kColumns = 256;

/// Rows kept of what is blurred across.
constexpr int kRing = 2 * kBlurReach + 2 * kBlurRows;

/// A Gauss curve of a deviation of 1.5 as the sum of three cosines, which ends after 4 values on
/// each side; it adds up to 1 and has the variance 2.25 exactly. Source: D. Charalampidis,
/// Recursive Implementation of the Gaussian Filter Using Truncated Cosine Functions, IEEE
/// Transactions on Signal Processing 64 (2016), for a radius of 5.
constexpr kernels::BlurWeights kGauss = {0.26462110548819856F, 0.21292859201042222F,
                                         0.10933537277746030F, 0.03601111465836436F,
                                         0.00941436780965369F};

/// Which of a channel's errors at a scale have a weight. What has none is not worked out.
struct Needed {
  bool structure = false;
  bool edges = false;

  Needed(int channel, int scale, int scales) {
    const auto* weights = &kErrorWeights[firstWeight(channel, scale, scales)];
    structure = weights[kStructure] != 0 || weights[kStructure4] != 0;
    for (const ErrorNorm norm : {kMore, kLess, kMore4, kLess4}) edges = edges || weights[norm] != 0;
  }

  bool any() const { return structure || edges; }
};

/// Errors of the three channels, summed over a stretch of a picture.
using Errors = std::array<std::array<double, kErrorNorms>, 3>;

const std::array<float, 256>& srgbLight() {
  static const auto table = [] {
    std::array<float, 256> made{};
    for (size_t i = 0; i < made.size(); ++i) {
      const double value = static_cast<double>(i) / 255;
      made[i] = static_cast<float>(value <= 0.04045 ? value / 12.92
                                                    : std::pow((value + 0.055) / 1.055, 2.4));
    }
    return made;
  }();
  return table;
}

/// A picture in linear light at one scale.
struct Planes {
  std::array<FloatRows, 3> rgb;

  std::array<float*, 3> row(int y) { return {rgb[0].row(y), rgb[1].row(y), rgb[2].row(y)}; }
};

/// What comparing some rows of two pictures needs, row by row.
struct Workbench {
  /// One channel's rows. `compared` are those of the two pictures in XYB, the others are blurred
  /// across: of the original, of the difference, its square, the sum of squares.
  struct Channel {
    std::array<FloatRows, 2> compared;
    std::array<FloatRows, 4> across;
  };

  explicit Workbench(int width) : light(12, width), fresh(3, width), nothing(1, width) {
    for (Channel& channel : channels) {
      for (FloatRows& rows : channel.compared) rows = FloatRows(kRing, width);
      for (FloatRows& rows : channel.across) rows = FloatRows(kRing, width);
    }
    for (auto& quantity : down)
      for (auto& row : quantity) row = FloatRows(1, static_cast<int>(kColumns));
  }

  std::array<Channel, 3> channels;
  FloatRows light;    ///< rows of both pictures in linear light, where they are in no memory yet
  FloatRows fresh;    ///< a row of differences, of squares, of sums
  FloatRows nothing;  ///< what lies above and below a picture
  std::array<std::array<FloatRows, kBlurRows>, 4> down;
};

}  // namespace

struct Ssimulacra2::State {
  State(int pictureWidth, int pictureHeight, int wanted)
      : width(pictureWidth), height(pictureHeight), threads(wanted) {
    if (width < kLeastSide || height < kLeastSide)
      throw std::invalid_argument("pictures of less than 8 by 8 pixels have no score");
    const auto most = static_cast<int>(std::thread::hardware_concurrency());
    if (threads <= 0) threads = std::max(most, 1);
    threads = std::min(threads, WorkerPool::kMostThreads);
    int w = width;
    int h = height;
    for (int scale = 0; scale < kMostScales && w >= kLeastSide && h >= kLeastSide; ++scale) {
      if (scale > 0) {
        w = (w + 1) / 2;
        h = (h + 1) / 2;
      }
      sizes.push_back({w, h});
    }
    for (size_t scale = 1; scale < sizes.size(); ++scale)
      for (auto& picture : pictures)
        picture.push_back({{FloatRows(sizes[scale].height, sizes[scale].width),
                            FloatRows(sizes[scale].height, sizes[scale].width),
                            FloatRows(sizes[scale].height, sizes[scale].width)}});
    rowErrors.resize(static_cast<size_t>(height));
  }

  double score(const std::array<RowReader, 2>& readers);
  Errors compare(int scale, const std::array<RowReader, 2>& readers);
  void compareBand(Workbench& bench, int scale, const std::array<RowReader, 2>& readers, int first,
                   int end);
  void takeRow(Workbench& bench, int scale, const std::array<RowReader, 2>& readers, int y,
               bool isOurs);
  void measureRows(Workbench& bench, int scale, int y, int rows);

  Needed needed(int channel, int scale) const {
    return {channel, scale, static_cast<int>(sizes.size())};
  }

  struct Size {
    int width;
    int height;
  };

  const int width;
  const int height;
  int threads;
  std::vector<Size> sizes;
  std::array<std::vector<Planes>, 2> pictures;  ///< original and copy from the second scale on
  std::vector<Errors> rowErrors;
  std::vector<std::unique_ptr<Workbench>> benches;
};

double Ssimulacra2::State::score(const std::array<RowReader, 2>& readers) {
  const auto scales = static_cast<int>(sizes.size());
  double sum = 0;
  for (int scale = 0; scale < scales; ++scale) {
    const Errors errors = compare(scale, readers);
    const Size& size = sizes[static_cast<size_t>(scale)];
    const double pixels = static_cast<double>(size.width) * size.height;
    for (int c = 0; c < 3; ++c) {
      const double* weights = &kErrorWeights[firstWeight(c, scale, scales)];
      const auto& channel = errors[static_cast<size_t>(c)];
      for (const ErrorNorm norm : {kStructure, kMore, kLess})
        sum += weights[norm] * (channel[norm] / pixels);
      for (const ErrorNorm norm : {kStructure4, kMore4, kLess4})
        sum += weights[norm] * std::pow(channel[norm] / pixels, 0.25);
    }
  }
  return scoreOf(sum);
}

/// Compares the pictures at a scale, and makes them at the next one on the way. What rows differ by
/// is added up in their order, whichever thread compared them.
Errors Ssimulacra2::State::compare(int scale, const std::array<RowReader, 2>& readers) {
  const Size size = sizes[static_cast<size_t>(scale)];
  // A band begins with rows of the one above; that is worth while for large ones only.
  const int bands = std::clamp(size.height / (8 * kBlurReach), 1, threads);
  const int most = ((size.height + bands - 1) / bands + kBlurRows - 1) / kBlurRows * kBlurRows;
  while (benches.size() < static_cast<size_t>(bands))
    benches.push_back(std::make_unique<Workbench>(width));
  WorkerPool::shared().run(bands, bands, [&](int band, int worker) {
    const int first = std::min(band * most, size.height);
    compareBand(*benches[static_cast<size_t>(worker)], scale, readers, first,
                std::min(first + most, size.height));
  });
  Errors errors{};
  for (int y = 0; y < size.height; ++y)
    for (size_t c = 0; c < errors.size(); ++c)
      for (size_t i = 0; i < kErrorNorms; ++i)
        errors[c][i] += rowErrors[static_cast<size_t>(y)][c][i];
  return errors;
}

void Ssimulacra2::State::compareBand(Workbench& bench, int scale,
                                     const std::array<RowReader, 2>& readers, int first, int end) {
  const int rows = sizes[static_cast<size_t>(scale)].height;
  int next = std::max(first - kBlurReach, 0);
  for (int y = first; y < end; y += kBlurRows) {
    const int below = std::min(y + kBlurRows + kBlurReach, rows);
    for (; next < below; ++next) takeRow(bench, scale, readers, next, next >= first && next < end);
    measureRows(bench, scale, y, std::min(kBlurRows, end - y));
  }
}

/// Takes row `y` into the rings; of rows that are `isOurs` the next scale is made.
void Ssimulacra2::State::takeRow(Workbench& bench, int scale,
                                 const std::array<RowReader, 2>& readers, int y, bool isOurs) {
  const auto [w, h] = sizes[static_cast<size_t>(scale)];
  const auto count = static_cast<size_t>(w);
  for (size_t p = 0; p < 2; ++p) {
    std::array<float*, 3> light;
    std::array<float*, 3> above;
    if (scale == 0) {
      // Even and odd rows in turn, so that two are there to halve.
      const int turn = y % 2;
      for (int c = 0; c < 3; ++c) {
        const int plane = 2 * static_cast<int>(p) * 3 + c;
        light[static_cast<size_t>(c)] = bench.light.row(plane + 3 * turn);
        above[static_cast<size_t>(c)] = bench.light.row(plane);
      }
      readers[p](y, light);
      for (float* row : light) FloatRows::repeatLast(row, count);
    } else {
      Planes& planes = pictures[p][static_cast<size_t>(scale) - 1];
      light = planes.row(y);
      above = planes.row(y & ~1);
    }
    const bool isPair = y % 2 == 1 || y == h - 1;
    if (isOurs && isPair && static_cast<size_t>(scale) + 1 < sizes.size()) {
      Planes& half = pictures[p][static_cast<size_t>(scale)];
      for (size_t c = 0; c < 3; ++c) {
        float* const row = half.rgb[c].row(y / 2);
        kernels::halve(above[c], light[c], (count + 1) / 2, row);
        FloatRows::repeatLast(row, (count + 1) / 2);
      }
    }
    const int slot = y % kRing;
    auto& channels = bench.channels;
    const std::array<float*, 3> xyb = {channels[0].compared[p].row(slot),
                                       channels[1].compared[p].row(slot),
                                       channels[2].compared[p].row(slot)};
    kernels::toXyb(light.data(), count, xyb.data());
    for (float* row : xyb) FloatRows::clearBehind(row, count);
  }
  for (int c = 0; c < 3; ++c) {
    const Needed need = needed(c, scale);
    if (!need.any()) continue;
    Workbench::Channel& channel = bench.channels[static_cast<size_t>(c)];
    const int slot = y % kRing;
    const float* original = channel.compared[0].row(slot);
    kernels::compareRows(original, channel.compared[1].row(slot), count, bench.fresh.row(0),
                         need.structure ? bench.fresh.row(1) : nullptr,
                         need.structure ? bench.fresh.row(2) : nullptr);
    kernels::blurAcross(original, kGauss, count, channel.across[0].row(slot));
    for (int i = 0; i < (need.structure ? 3 : 1); ++i) {
      FloatRows::clearBehind(bench.fresh.row(i), count);
      kernels::blurAcross(bench.fresh.row(i), kGauss, count,
                          channel.across[static_cast<size_t>(i) + 1].row(slot));
    }
  }
}

/// Measures rows from `y` on, `kBlurRows` at most.
void Ssimulacra2::State::measureRows(Workbench& bench, int scale, int y, int rows) {
  const auto [w, h] = sizes[static_cast<size_t>(scale)];
  const auto count = static_cast<size_t>(w);
  for (int i = 0; i < rows; ++i) rowErrors[static_cast<size_t>(y) + static_cast<size_t>(i)] = {};
  for (int c = 0; c < 3; ++c) {
    const Needed need = needed(c, scale);
    if (!need.any()) continue;
    const size_t quantities = need.structure ? 4 : 2;
    Workbench::Channel& channel = bench.channels[static_cast<size_t>(c)];
    std::array<std::array<const float*, 2 * kBlurReach + kBlurRows>, 4> across;
    std::array<std::array<float*, kBlurRows>, 4> down;
    for (size_t q = 0; q < quantities; ++q) {
      for (int i = 0; i < static_cast<int>(across[q].size()); ++i) {
        const int row = y - kBlurReach + i;
        across[q][static_cast<size_t>(i)] =
            row < 0 || row >= h ? bench.nothing.row(0) : channel.across[q].row(row % kRing);
      }
      for (size_t i = 0; i < kBlurRows; ++i) down[q][i] = bench.down[q][i].row(0);
    }
    for (size_t x = 0; x < count; x += kColumns) {
      const size_t end = std::min(x + kColumns, count);
      for (size_t q = 0; q < quantities; ++q)
        kernels::blurDown(across[q].data(), kGauss, x, end, down[q].data());
      for (int i = 0; i < rows; ++i) {
        const auto at = static_cast<size_t>(i);
        auto& errors =
            rowErrors[static_cast<size_t>(y) + static_cast<size_t>(i)][static_cast<size_t>(c)];
        const int slot = (y + i) % kRing;
        if (need.structure) {
          const auto sums =
              kernels::structureSums(down[0][at], down[1][at], down[2][at], down[3][at], end - x);
          errors[kStructure] += sums.first;
          errors[kStructure4] += sums.fourth;
        }
        if (need.edges) {
          const auto sums = kernels::edgeSums(channel.compared[0].row(slot) + x,
                                              channel.compared[1].row(slot) + x, down[0][at],
                                              down[1][at], end - x);
          errors[kMore] += sums.more.first;
          errors[kMore4] += sums.more.fourth;
          errors[kLess] += sums.less.first;
          errors[kLess4] += sums.less.fourth;
        }
      }
    }
  }
}

Ssimulacra2::Ssimulacra2(int width, int height, int threads)
    : state_(std::make_unique<State>(width, height, threads)) {}

Ssimulacra2::~Ssimulacra2() = default;

int Ssimulacra2::width() const { return state_->width; }

int Ssimulacra2::height() const { return state_->height; }

double Ssimulacra2::score(const BitmapImage& original, const BitmapImage& distorted) {
  const auto readerOf = [this](const BitmapImage& picture) -> RowReader {
    if (picture.width() != width() || picture.height() != height())
      throw std::invalid_argument("the pictures have different sizes");
    return [&picture](int y, const std::array<float*, 3>& rgb) {
      kernels::lookUpPixels(picture.row(y), srgbLight().data(),
                            static_cast<size_t>(picture.width()), rgb.data());
    };
  };
  return score(readerOf(original), readerOf(distorted));
}

double Ssimulacra2::score(const RowReader& original, const RowReader& distorted) {
  return state_->score({original, distorted});
}

}  // namespace kestrel
