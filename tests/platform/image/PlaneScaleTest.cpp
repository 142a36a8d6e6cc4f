// Planes brought to another size, each by itself.

#include <gtest/gtest.h>
#include <kestrel/FilterRegistry.h>
#include <kestrel/ImageContext.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>
#include <vector>

#include "platform/image/kernels/KernelTargets.h"
#include "platform/image/kernels/Kernels.h"
#include "platform/image/kernels/PlaneKernels.h"
// After the choice of targets.
#include <hwy/highway.h>

#include "tests/platform/image/TestPictures.h"
#include "tests/platform/image/TestPlanes.h"

namespace kestrel {
namespace {

using test::formatOf;
using test::Planes;

using ImagePointer = std::shared_ptr<const Image>;

/// Has the kernels use one instruction set until it goes away.
class OnlyTarget {
 public:
  explicit OnlyTarget(int64_t target) { hwy::GetChosenTarget().Update(target); }
  ~OnlyTarget() { hwy::GetChosenTarget().Update(hwy::SupportedTargets()); }
  OnlyTarget(const OnlyTarget&) = delete;
  OnlyTarget& operator=(const OnlyTarget&) = delete;
};

std::vector<int16_t> randomWeights(std::mt19937& random, int taps) {
  std::uniform_int_distribution<int> some(-1500, 4000);
  std::vector<int16_t> weights(static_cast<size_t>(taps));
  int sum = 0;
  for (int16_t& weight : weights) sum += weight = static_cast<int16_t>(some(random));
  weights[0] = static_cast<int16_t>(weights[0] + kernels::kWeightOne - sum);
  return weights;
}

TEST(PlaneKernelsTest, RowsOfBytesAreMixedAsPlainArithmeticHasIt) {
  std::mt19937 random(1);
  for (const int64_t target : hwy::SupportedAndGeneratedTargets()) {
    const OnlyTarget only(target);
    for (const int taps : {1, 2, 5, 6, 9}) {
      for (const size_t samples : {1, 7, 31, 64, 101}) {
        std::vector<std::vector<uint8_t>> rows(static_cast<size_t>(taps));
        std::vector<const uint8_t*> from;
        for (auto& row : rows) {
          row.resize(samples);
          for (uint8_t& sample : row) sample = static_cast<uint8_t>(random());
          from.push_back(row.data());
        }
        const auto weights = randomWeights(random, taps);
        std::vector<int16_t> out(samples);
        kernels::mixSamples8(from.data(), weights.data(), taps, samples, out.data());
        for (size_t i = 0; i < samples; ++i) {
          int sum = 0;
          for (size_t t = 0; t < rows.size(); ++t) sum += rows[t][i] * weights[t];
          // 64 of the mixed scale for 2^14 of weights, rounded.
          ASSERT_EQ(out[i], std::clamp((sum + 128) >> 8, INT16_MIN, INT16_MAX))
              << hwy::TargetName(target) << " " << taps << " taps, sample " << i;
        }
      }
    }
  }
}

TEST(PlaneKernelsTest, MixedRowsAreScaledAsPlainArithmeticHasIt) {
  std::mt19937 random(2);
  constexpr size_t kGroup = kernels::kRowGroup;
  for (const int64_t target : hwy::SupportedAndGeneratedTargets()) {
    const OnlyTarget only(target);
    for (const int pairs : {1, 3, 5, 6, 9}) {
      const size_t length = 62;
      const size_t samples = 37;
      std::vector<std::vector<int16_t>> rows(kGroup);
      std::vector<std::vector<float>> wide(kGroup);
      const int16_t* from[kGroup];
      const float* fromWide[kGroup];
      for (size_t r = 0; r < kGroup; ++r) {
        for (size_t i = 0; i < length; ++i) {
          rows[r].push_back(static_cast<int16_t>(static_cast<int>(random() % 18000) - 1000));
          wide[r].push_back(static_cast<float>(random() % 70000) - 2000);
        }
        from[r] = rows[r].data();
        fromWide[r] = wide[r].data();
      }
      std::vector<int32_t> first;
      std::vector<int16_t> weights;
      for (size_t i = 0; i < samples; ++i) {
        first.push_back(static_cast<int32_t>(random() % (length / 2 - pairs)) * 2);
        const auto own = randomWeights(random, 2 * pairs);
        weights.insert(weights.end(), own.begin(), own.end());
      }
      std::vector<std::vector<uint8_t>> out(kGroup, std::vector<uint8_t>(samples));
      std::vector<std::vector<uint16_t>> outWide(kGroup, std::vector<uint16_t>(samples));
      uint8_t* to[kGroup];
      uint16_t* toWide[kGroup];
      for (size_t r = 0; r < kGroup; ++r) {
        to[r] = out[r].data();
        toWide[r] = outWide[r].data();
      }
      const kernels::PlaneTaps taps{first.data(), weights.data(), pairs};
      std::vector<int32_t> scratch(kGroup * length / 2);
      kernels::scaleRows8(from, length, taps, samples, scratch.data(), to);
      std::vector<float> scratchWide(kGroup * length);
      kernels::scaleRows16(fromWide, length, taps, samples, {1023, 6, 2}, scratchWide.data(),
                           toWide);
      for (size_t r = 0; r < kGroup; ++r) {
        for (size_t i = 0; i < samples; ++i) {
          int64_t sum = 0;
          double exact = 0;
          for (size_t t = 0; t < 2 * static_cast<size_t>(pairs); ++t) {
            const int weight = weights[2 * static_cast<size_t>(pairs) * i + t];
            sum += rows[r][static_cast<size_t>(first[i]) + t] * weight;
            exact += static_cast<double>(wide[r][static_cast<size_t>(first[i]) + t]) * weight;
          }
          const int64_t rounded = (sum + (1 << 19)) >> 20;
          ASSERT_EQ(out[r][i], std::clamp<int64_t>(rounded, 0, 255))
              << hwy::TargetName(target) << " " << pairs << " pairs, row " << r << " " << i;
          exact = std::clamp(exact / kernels::kWeightOne / 64, 0.0, 1023.0);
          ASSERT_EQ(outWide[r][i] % 4, 0);
          ASSERT_NEAR(outWide[r][i] / 4, exact, 0.51) << hwy::TargetName(target);
        }
      }
    }
  }
}

double curve(Resampling resampling, double t) {
  const double d = std::abs(t);
  if (resampling == Resampling::kBilinear) return std::max(0.0, 1 - d);
  if (resampling == Resampling::kCatmullRom) {
    if (d < 1) return 1.5 * d * d * d - 2.5 * d * d + 1;
    return d < 2 ? -0.5 * d * d * d + 2.5 * d * d - 4 * d + 2 : 0;
  }
  if (resampling == Resampling::kMitchell) {
    if (d < 1) return (7 * d * d * d - 12 * d * d + 16.0 / 3) / 6;
    return d < 2 ? (-7.0 / 3 * d * d * d + 12 * d * d - 20 * d + 32.0 / 3) / 6 : 0;
  }
  if (d >= 3) return 0;
  const double p = std::numbers::pi * d;
  return d == 0 ? 1 : 3 * std::sin(p) * std::sin(p / 3) / (p * p);
}

/// A direction: sample i lies at `scale` × (i + ½) + `offset` in samples of the source.
struct Way {
  double scale;
  double offset;
};

double mixed(Planes& planes, size_t p, Resampling resampling, const Way& across, const Way& down,
             int x, int y) {
  const double u = across.scale * (x + 0.5) + across.offset;
  const double v = down.scale * (y + 0.5) + down.offset;
  const double spanU = std::max(1.0, std::abs(across.scale));
  const double spanV = std::max(1.0, std::abs(down.scale));
  // A direction that only moves by whole samples copies, whatever the curve.
  const auto weightOf = [&](const Way& way, double t) {
    const bool isCopy = way.scale == 1 && way.offset == std::floor(way.offset);
    return curve(isCopy ? Resampling::kLanczos3 : resampling, t);
  };
  double sum = 0;
  double all = 0;
  for (int l = static_cast<int>(v - 3 * spanV) - 2; l <= v + 3 * spanV + 2; ++l) {
    for (int k = static_cast<int>(u - 3 * spanU) - 2; k <= u + 3 * spanU + 2; ++k) {
      const double weight =
          weightOf(across, (k + 0.5 - u) / spanU) * weightOf(down, (l + 0.5 - v) / spanV);
      sum += weight * planes.get(p, std::clamp(k, 0, planes.width(p) - 1),
                                 std::clamp(l, 0, planes.height(p) - 1));
      all += weight;
    }
  }
  return sum / all;
}

struct Case {
  const char* name;
  YUVFormat from;
  YUVFormat to;
  bool isPairedFrom = false;
  bool isPairedTo = false;
};

const Case kCases[] = {
    {"smaller", formatOf(90, 62, 1, 1), formatOf(60, 40, 1, 1)},
    {"larger", formatOf(37, 25, 1, 1), formatOf(61, 71, 1, 1)},
    {"paired", formatOf(90, 62, 1, 1), formatOf(50, 38, 1, 1), true, true},
    {"fromPaired", formatOf(90, 62, 1, 1), formatOf(50, 38, 1, 1), true, false},
    {"halved", formatOf(64, 48, 1, 0), formatOf(64, 48, 1, 1)},
    {"whole", formatOf(48, 32, 1, 1), formatOf(64, 48, 0, 0)},
    {"ten", formatOf(90, 62, 1, 1, 10), formatOf(60, 40, 1, 1, 10)},
    {"tenHigh", formatOf(90, 62, 1, 1, 10, 6), formatOf(60, 40, 1, 1, 10, 6), true, true},
    {"sixteen", formatOf(53, 41, 0, 0, 16), formatOf(40, 60, 0, 0, 16)},
};

class PlaneScaleTest : public testing::TestWithParam<Case> {};

// Chroma lies with the left one of the luma samples that share it, half way between their rows: so
// the place of a sample in the other picture is worked out through luma.
TEST_P(PlaneScaleTest, EachPlaneIsScaledWhereItsSamplesLie) {
  const auto& [name, from, to, isPairedFrom, isPairedTo] = GetParam();
  Planes source(from, isPairedFrom);
  source.fillWithNoise(11);
  for (const auto resampling : {Resampling::kLanczos3, Resampling::kCatmullRom,
                                Resampling::kMitchell, Resampling::kBilinear}) {
    Planes target(to, isPairedTo);
    const ImagePointer image =
        Image::fromPlanes(source.picture())
            ->resampledBy({resampling})
            ->scaled(1.0 * to.width / from.width, 1.0 * to.height / from.height);
    ASSERT_TRUE(ImageContext().render(
        image, {{0, 0}, {static_cast<double>(to.width), static_cast<double>(to.height)}},
        target.target()));
    const double most = std::exp2(to.bitDepth) - 1;
    // 14 bits of weights, six below the samples of a byte.
    const double tolerance = to.bitDepth == 8 ? 0.6 : 0.5 + most / 8000;
    for (size_t p = 0; p < 3; ++p) {
      const int shiftFromX = p > 0 ? from.chromaShiftX : 0;
      const int shiftFromY = p > 0 ? from.chromaShiftY : 0;
      const int shiftToX = p > 0 ? to.chromaShiftX : 0;
      const int shiftToY = p > 0 ? to.chromaShiftY : 0;
      const double sx = 1.0 * from.width / to.width;
      const double sy = 1.0 * from.height / to.height;
      const auto placeX = [&](int i) {
        const double luma = ((i << shiftToX) + 0.5) * sx;
        return (luma - 0.5) / (1 << shiftFromX) + 0.5;
      };
      const auto placeY = [&](int i) {
        return (i + 0.5) * (1 << shiftToY) * sy / (1 << shiftFromY);
      };
      const Way across{placeX(1) - placeX(0), placeX(0) - (placeX(1) - placeX(0)) / 2};
      const Way down{placeY(1) - placeY(0), placeY(0) - (placeY(1) - placeY(0)) / 2};
      for (int y = 0; y < target.height(p); ++y) {
        for (int x = 0; x < target.width(p); ++x) {
          const double exact = mixed(source, p, resampling, across, down, x, y);
          ASSERT_NEAR(target.get(p, x, y), std::clamp(exact, 0.0, most), tolerance)
              << "curve " << static_cast<int>(resampling) << ", plane " << p << " at " << x << " "
              << y;
        }
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Cases, PlaneScaleTest, testing::ValuesIn(kCases),
                         [](const auto& item) { return std::string(item.param.name); });

std::vector<int> samplesOf(Planes& planes) {
  std::vector<int> all;
  for (size_t p = 0; p < 3; ++p) {
    for (int y = 0; y < planes.height(p); ++y) {
      for (int x = 0; x < planes.width(p); ++x) all.push_back(planes.get(p, x, y));
    }
  }
  return all;
}

std::vector<int> rendered(const ImagePointer& image, const YUVFormat& format, int threads = 0) {
  Planes target(format);
  ImageContext context;
  context.setThreads(threads);
  const Rect bounds{{0, 0}, {1.0 * format.width, 1.0 * format.height}};
  EXPECT_TRUE(context.render(image, bounds, target.target()));
  return samplesOf(target);
}

TEST(PlaneScaleLookTest, WhatChangesNothingChangesNoSample) {
  Planes source(formatOf(90, 62, 1, 1));
  source.fillWithNoise(3);
  const YUVFormat to = formatOf(60, 40, 1, 1);
  const ImagePointer image = Image::fromPlanes(source.picture());
  const auto plain = rendered(image->scaled(60.0 / 90, 40.0 / 62), to);
  // In several steps and by factors that are not exact.
  const auto steps =
      image->cropped({{0, 0}, {90, 62}})
          ->translated(-45, -31)
          ->scaled(1, 1)
          ->transformed(AffineTransform::rotation(0))
          ->scaled(static_cast<double>(60.0F / 90.0F), static_cast<double>(40.0F / 62.0F))
          ->translated(30, 20);
  EXPECT_EQ(rendered(steps, to), plain);
  const auto controls = FilterRegistry::filterWithName("CIColorControls");
  controls->setValue(steps, kCIInputImageKey);
  const auto over = FilterRegistry::filterWithName("CISourceOverCompositing");
  over->setValue(controls->outputImage(), kCIInputImageKey);
  over->setValue(Image::fromColor(Color::black()), kCIInputBackgroundImageKey);
  EXPECT_EQ(rendered(over->outputImage()->cropped({{0, 0}, {60, 40}}), to), plain);
  EXPECT_EQ(rendered(image->scaled(60.0 / 90, 40.0 / 62), to, 3), plain);
}

// Chroma of 4:2:0 lies with the left one of two columns. Of a mirrored picture that is the other
// one: sample k of 32 is what column 63 - 2 k shows, half way between two samples of the source.
TEST(PlaneScaleLookTest, MirroredChromaIsWhatItsColumnsShow) {
  const auto colour = [](int x) { return 128 + 60 * std::sin(0.2 * x); };
  Planes source(formatOf(64, 16, 1, 1));
  source.fill(0, [](int, int) { return 128; });
  for (size_t p = 1; p < 3; ++p)
    source.fill(p, [&](int x, int) { return static_cast<int>(std::lround(colour(2 * x))); });
  Planes mirrored(formatOf(64, 16, 1, 1));
  ASSERT_TRUE(
      ImageContext().render(Image::fromPlanes(source.picture())->scaled(-1, 1)->translated(64, 0),
                            {{0, 0}, {64, 16}}, mirrored.target()));
  for (int x = 4; x < 28; ++x) EXPECT_NEAR(mirrored.get(1, x, 4), colour(63 - 2 * x), 1) << x;
}

TEST(PlaneScaleLookTest, MirroredTwiceIsThePicture) {
  Planes source(formatOf(90, 62, 1, 1));
  source.fillWithNoise(3);
  const YUVFormat to = formatOf(60, 40, 1, 1);
  const ImagePointer image = Image::fromPlanes(source.picture());
  const auto plain = rendered(image->scaled(60.0 / 90, 40.0 / 62), to);
  EXPECT_EQ(rendered(image->scaled(-1, 1)->scaled(-60.0 / 90, 40.0 / 62), to), plain);
}

TEST(PlaneScaleLookTest, BelowAnEighthSamplesAreMeansOfTheirArea) {
  // Stripes of one column: a tenth of the width covers as many white as black ones.
  Planes stripes(formatOf(400, 20, 0, 0));
  stripes.fill(0, [](int x, int) { return x % 2 == 0 ? 40 : 200; });
  const auto small =
      rendered(Image::fromPlanes(stripes.picture())->scaled(0.1, 0.1), formatOf(40, 2, 0, 0));
  for (size_t i = 0; i < 80; ++i) EXPECT_EQ(small[i], 120);
}

TEST(PlaneScaleLookTest, ALimitedScalerLeavesNoRim) {
  // One edge, made larger: Lanczos overshoots it on both sides, unless it is limited.
  Planes edge(formatOf(32, 32, 0, 0));
  edge.fill(0, [](int x, int) { return x < 16 ? 60 : 180; });
  const ImagePointer image = Image::fromPlanes(edge.picture());
  const YUVFormat to = formatOf(80, 80, 0, 0);
  const auto rangeOf = [&](const Scaler& scaler) {
    const auto all = rendered(image->resampledBy(scaler)->scaled(2.5, 2.5), to);
    const auto [least, most] = std::minmax_element(all.begin(), all.begin() + 80 * 80);
    return std::pair(*least, *most);
  };
  const auto free = rangeOf({Resampling::kLanczos3});
  EXPECT_LT(free.first, 55);
  EXPECT_GT(free.second, 185);
  EXPECT_EQ(rangeOf({Resampling::kLanczos3, true}), std::pair(60, 180));
}

TEST(PlaneScaleLookTest, ALimitedScalerLeavesNoRimOnPixels) {
  const auto edge = test::makeBitmap(32, 32, [](int x, int) {
    return x < 16 ? test::Pixel{60, 60, 60, 255} : test::Pixel{180, 180, 180, 255};
  });
  const auto image = Image::fromBitmap(edge, Image::Alpha::kOpaque);
  const auto rangeOf = [&](const Scaler& scaler) {
    const auto bitmap = ImageContext().bitmapImage(image->resampledBy(scaler)->scaled(2.5, 2.5),
                                                   {{0, 0}, {80, 80}});
    std::pair<int, int> range{255, 0};
    for (int x = 0; x < 80; ++x) {
      const int value = test::pixelAt(*bitmap, x, 40)[1];
      range = {std::min(range.first, value), std::max(range.second, value)};
    }
    return range;
  };
  EXPECT_LT(rangeOf({Resampling::kLanczos3}).first, 55);
  EXPECT_EQ(rangeOf({Resampling::kLanczos3, true}), std::pair(60, 180));
}

}  // namespace
}  // namespace kestrel
