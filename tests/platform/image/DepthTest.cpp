// Samples of more than 8 bits through recipes, and on their way to fewer.

#include <gtest/gtest.h>
#include <kestrel/FilterRegistry.h>
#include <kestrel/ImageContext.h>

#include <array>
#include <cmath>
#include <cstring>
#include <set>

#include "tests/platform/image/TestPlanes.h"

namespace kestrel {
namespace {

using test::formatOf;
using test::Planes;

constexpr int kSteps = 1024;
constexpr int kStepWidth = 4;

struct Kind {
  const char* name;
  YUVFormat format;
  bool isPaired = false;
};

YUVFormat rgbOf(int bits) {
  YUVFormat format = formatOf(kSteps * kStepWidth, 12, 0, 0, bits, 0, true);
  format.matrix = YUVMatrix::kRgb;
  return format;
}

const Kind kKinds[] = {
    {"yuv420p10", formatOf(kSteps* kStepWidth, 12, 1, 1, 10, 0, true)},
    {"p010", formatOf(kSteps* kStepWidth, 12, 1, 1, 10, 6, true), true},
    {"yuv422p10", formatOf(kSteps* kStepWidth, 12, 1, 0, 10, 0, true)},
    {"yuv444p12", formatOf(kSteps* kStepWidth, 12, 0, 0, 12)},
    {"yuv444p16", formatOf(kSteps* kStepWidth, 12, 0, 0, 16)},
    {"gbrp10", rgbOf(10)},
    {"gbrp12", rgbOf(12)},
    {"gbrp16", rgbOf(16)},
};

class DepthTest : public testing::TestWithParam<Kind> {};

/// A grey ramp of `kSteps` steps across.
Planes rampOf(const Kind& kind) {
  const YUVFormat& format = kind.format;
  Planes planes(format, kind.isPaired);
  const int low = format.fullRange ? 0 : 16 << (format.bitDepth - 8);
  const int high = format.fullRange ? (1 << format.bitDepth) - 1 : 235 << (format.bitDepth - 8);
  const auto ramp = [&](int x, int) {
    return low +
           static_cast<int>(std::lround(1.0 * (high - low) * (x / kStepWidth) / (kSteps - 1)));
  };
  planes.fill(0, ramp);
  for (const size_t p : {1, 2}) {
    if (format.matrix == YUVMatrix::kRgb)
      planes.fill(p, ramp);
    else
      planes.fill(p, [&](int, int) { return 1 << (format.bitDepth - 1); });
  }
  return planes;
}

TEST_P(DepthTest, ARampKeepsItsStepsThroughCropScalingAndColours) {
  Planes source = rampOf(GetParam());
  YUVFormat format = GetParam().format;
  format.width /= 2;
  format.height = 4;
  Planes target(format, GetParam().isPaired);
  const auto filter = FilterRegistry::filterWithName("CIColorControls");
  filter->setValue(Image::fromPlanes(source.picture())
                       ->cropped({{0, 2}, {1.0 * kSteps * kStepWidth, 8}})
                       ->translated(0, -2)
                       ->scaled(0.5, 0.5),
                   kCIInputImageKey);
  filter->setValue(0.7, kCIInputSaturationKey);
  const Rect bounds{{0, 0}, {1.0 * format.width, 4}};
  ASSERT_TRUE(ImageContext().render(filter->outputImage(), bounds, target.target()));
  std::set<int> values;
  for (int x = 0; x < format.width; ++x) values.insert(target.get(0, x, 1));
  EXPECT_GE(values.size(), 1020u);
  int before = target.get(0, 0, 1);
  const int spread = 1 << (format.bitDepth - 8);
  for (int x = 1; x < format.width; ++x) {
    EXPECT_GE(target.get(0, x, 1), before - spread) << x;
    before = target.get(0, x, 1);
  }
}

TEST_P(DepthTest, WhatChangesNothingIsACopy) {
  Planes source = rampOf(GetParam());
  source.fillWithNoise(5);
  Planes target(GetParam().format, GetParam().isPaired);
  const Rect bounds{{0, 0}, {1.0 * kSteps * kStepWidth, 12}};
  ASSERT_TRUE(ImageContext().render(Image::fromPlanes(source.picture())->cropped(bounds), bounds,
                                    target.target()));
  for (size_t p = 0; p < 3; ++p)
    for (int row = 0; row < source.height(p); ++row)
      for (int x = 0; x < source.width(p); ++x)
        ASSERT_EQ(target.get(p, x, row), source.get(p, x, row)) << p << ' ' << x << ' ' << row;
}

INSTANTIATE_TEST_SUITE_P(Kinds, DepthTest, testing::ValuesIn(kKinds),
                         [](const auto& kind) { return kind.param.name; });

TEST(DepthTest, SixteenBitsOfRgbKeepAllOfThemThroughColours) {
  YUVFormat format = formatOf(60, 20, 0, 0, 16, 0, true);
  format.matrix = YUVMatrix::kRgb;
  Planes source(format);
  source.fillWithNoise(11);
  // So little that nothing changes.
  const auto exposure = FilterRegistry::filterWithName("CIExposureAdjust");
  exposure->setValue(1e-9, kCIInputEVKey);
  exposure->setValue(Image::fromPlanes(source.picture()), kCIInputImageKey);
  Planes target(format);
  ASSERT_TRUE(ImageContext().render(exposure->outputImage(), {{0, 0}, {60, 20}}, target.target()));
  for (size_t p = 0; p < 3; ++p)
    for (int row = 0; row < 20; ++row)
      for (int x = 0; x < 60; ++x)
        ASSERT_NEAR(target.get(p, x, row), source.get(p, x, row), 1) << p << ' ' << x << ' ' << row;
}

/// A grey of 12 bits in 4:4:4, full range.
Planes greyOf(int sample) {
  Planes planes(formatOf(64, 64, 0, 0, 12, 0, true));
  planes.fill(0, [&](int, int) { return sample; });
  for (const size_t p : {1, 2}) planes.fill(p, [](int, int) { return 2048; });
  return planes;
}

// Between 8-bit samples lies what each of them is chosen for as often as it is near: 64 × 64 ranks
// are each there once.
TEST(DitherTest, TheMeanIsThatOfTheFineSample) {
  for (const int sample : {1000, 1004, 1007, 2000, 3333}) {
    Planes source = greyOf(sample);
    const auto picture =
        ImageContext().bitmapImage(Image::fromPlanes(source.picture()), {{0, 0}, {64, 64}});
    double sum = 0;
    std::set<int> values;
    for (int row = 0; row < 64; ++row) {
      for (int x = 0; x < 64; ++x) {
        sum += picture->row(row)[4 * x];
        values.insert(picture->row(row)[4 * x]);
      }
    }
    EXPECT_NEAR(sum / 4096, sample * 255 / 4095.0, 0.02) << sample;
    EXPECT_LE(values.size(), 2u);
  }
}

// 273 × 15 is 4095: sample 1365 is 85 of 255 exactly, black and white are themselves.
TEST(DitherTest, WhatIsASampleStaysIt) {
  for (const int sample : {0, 1365, 4095}) {
    Planes source = greyOf(sample);
    const auto picture =
        ImageContext().bitmapImage(Image::fromPlanes(source.picture()), {{0, 0}, {64, 64}});
    for (int row = 0; row < 64; ++row)
      for (int x = 0; x < 64; ++x) ASSERT_EQ(picture->row(row)[4 * x], sample * 255 / 4095);
  }
}

// Blue noise: sums over squares of 8 × 8 hardly differ, whereas those of white noise would by 4
// (the root of 64 × ¼).
TEST(DitherTest, TheNoiseHasNoCoarsePattern) {
  Planes source = greyOf(1004);  // 62.5 of 255
  const auto picture =
      ImageContext().bitmapImage(Image::fromPlanes(source.picture()), {{0, 0}, {64, 64}});
  double squares = 0;
  for (int block = 0; block < 64; ++block) {
    double sum = 0;
    for (int i = 0; i < 64; ++i)
      sum += picture->row(block / 8 * 8 + i / 8)[4 * (block % 8 * 8 + i % 8)] - 1004 * 255 / 4095.0;
    squares += sum * sum / 64;
  }
  EXPECT_LT(std::sqrt(squares), 1.5);
}

TEST(DitherTest, PicturesOf8BitsGetNone) {
  Planes source(formatOf(32, 32, 1, 1));
  source.fillWithNoise(3);
  Planes plain(formatOf(32, 32, 0, 0));
  const auto image = Image::fromPlanes(source.picture());
  ImageContext context;
  ASSERT_TRUE(
      context.render(image->scaled(-1, 1)->translated(32, 0)->scaled(-1, 1)->translated(32, 0),
                     {{0, 0}, {32, 32}}, plain.target()));
  for (int row = 0; row < 32; ++row)
    for (int x = 0; x < 32; ++x) ASSERT_EQ(plain.get(0, x, row), source.get(0, x, row));
}

// A blurred edge of 8 bits: the mean of 8 x 8 samples says more than a sample can.
TEST(DitherTest, GradientsThatFiltersMakeShowNoSteps) {
  Planes source(formatOf(256, 64, 1, 1));
  source.fill(0, [](int x, int) { return x < 128 ? 110 : 118; });
  for (size_t p = 1; p < 3; ++p) source.fill(p, [](int, int) { return 128; });
  const auto blur = FilterRegistry::filterWithName("CIGaussianBlur");
  blur->setValue(40.0, kCIInputRadiusKey);
  blur->setValue(Image::fromPlanes(source.picture()), kCIInputImageKey);
  Planes shown(formatOf(256, 64, 1, 1));
  ASSERT_TRUE(ImageContext().render(blur->outputImage(), {{0, 0}, {256, 64}}, shown.target()));
  for (int begin = 32; begin < 216; begin += 8) {
    double exact = 0;
    double mean = 0;
    for (int x = begin; x < begin + 8; ++x) {
      exact += (114 + 4 * std::erf((x + 0.5 - 128) / (40 * std::sqrt(2.0)))) / 8;
      for (int row = 24; row < 32; ++row) mean += shown.get(0, x, row) / 64.0;
    }
    EXPECT_NEAR(mean, exact, 0.15) << begin;
  }
}

TEST(DitherTest, IsTheSameForAnyThreads) {
  Planes source(formatOf(300, 200, 1, 1, 10));
  source.fillWithNoise(9);
  const auto image = Image::fromPlanes(source.picture())->scaled(1.1, 0.9);
  Planes one(formatOf(330, 180, 1, 1));
  ImageContext context;
  context.setThreads(1);
  ASSERT_TRUE(context.render(image, {{0, 0}, {330, 180}}, one.target()));
  for (const int threads : {2, 16}) {
    Planes other(formatOf(330, 180, 1, 1));
    context.setThreads(threads);
    ASSERT_TRUE(context.render(image, {{0, 0}, {330, 180}}, other.target()));
    for (size_t p = 0; p < 3; ++p)
      for (int row = 0; row < one.height(p); ++row)
        for (int x = 0; x < one.width(p); ++x) ASSERT_EQ(other.get(p, x, row), one.get(p, x, row));
  }
}

struct Primary {
  Color color;
  std::array<int, 3> samples;
};

/// What the components of a picture of one colour are, and the colour again.
void expectComponents(const YUVFormat& format, const std::vector<Primary>& primaries) {
  for (const auto& [color, samples] : primaries) {
    Planes planes(format);
    ASSERT_TRUE(ImageContext().render(Image::fromColor(color), {{0, 0}, {2, 2}}, planes.target()));
    for (size_t p = 0; p < 3; ++p) EXPECT_NEAR(planes.get(p, 0, 0), samples[p], 1) << p;
    const auto back =
        ImageContext().bitmapImage(Image::fromPlanes(planes.picture()), {{0, 0}, {2, 2}});
    EXPECT_NEAR(back->row(0)[0], 255 * color.red, 1);
    EXPECT_NEAR(back->row(0)[1], 255 * color.green, 1);
    EXPECT_NEAR(back->row(0)[2], 255 * color.blue, 1);
  }
}

// ITU-T H.273: Y = (R + 2 G + B) / 4, Cg = (2 G - R - B) / 4, Co = (R - B) / 2. In the limited
// range of 10 bits 64 + 876 Y and 512 + 896 C.
TEST(MatrixTest, YCgCoIsMixedAsItsStandardSays) {
  YUVFormat format = formatOf(2, 2, 0, 0, 10);
  format.matrix = YUVMatrix::kYCgCo;
  expectComponents(format, {{Color{1, 0, 0, 1}, {283, 288, 960}},
                            {Color{0, 1, 0, 1}, {502, 960, 512}},
                            {Color{0, 0, 1, 1}, {283, 288, 64}},
                            {Color{1, 1, 1, 1}, {940, 512, 512}},
                            {Color{0.2, 0.4, 0.8, 1}, {458, 467, 243}}});
}

// ITU-R BT.2020, table 4, worked out by hand in the limited range of 10 bits. Red has the luma
// 4.5 light or 1.0993 light^0.45 - 0.0993 of 0.2627: 0.5032; Cb = -0.5032 / 1.9404 and
// Cr = (1 - 0.5032) / 0.9936.
TEST(MatrixTest, ConstantLuminanceIsMixedOfLight) {
  YUVFormat format = formatOf(2, 2, 0, 0, 10);
  format.matrix = YUVMatrix::kConstantLuminance;
  expectComponents(format, {{Color{1, 0, 0, 1}, {505, 280, 960}},
                            {Color{1, 1, 1, 1}, {940, 512, 512}},
                            {Color{0, 0, 0, 1}, {64, 512, 512}},
                            {Color{0.5, 0.5, 0.5, 1}, {502, 512, 512}}});
}

// ITU-R BT.2100, table 7. Red of PQ at its brightest, 10000: cones 4121, 1667 and 242, in PQ
// 0.9058, 0.8076 and 0.5990: I 0.8567, Ct -0.1982, Cp 0.4575. In HLG 0.8352, 0.6565 and 0.2693:
// 0.7458, -0.2049 and 0.4416.
TEST(MatrixTest, IctcpIsMixedOfCones) {
  YUVFormat format = formatOf(2, 2, 0, 0, 10);
  format.matrix = YUVMatrix::kICtCpOfPq;
  expectComponents(format, {{Color{1, 0, 0, 1}, {814, 334, 922}},
                            {Color{1, 1, 1, 1}, {940, 512, 512}},
                            {Color{0.5, 0.5, 0.5, 1}, {502, 512, 512}}});
  format.matrix = YUVMatrix::kICtCpOfHlg;
  expectComponents(format, {{Color{1, 0, 0, 1}, {717, 328, 908}},
                            {Color{1, 1, 1, 1}, {940, 512, 512}},
                            {Color{0.5, 0.5, 0.5, 1}, {502, 512, 512}}});
}

TEST(MatrixTest, RgbIsGreenBlueAndRed) {
  YUVFormat format = formatOf(2, 2, 0, 0, 12, 0, true);
  format.matrix = YUVMatrix::kRgb;
  expectComponents(
      format, {{Color{1, 0, 0, 1}, {0, 0, 4095}}, {Color{0.2, 0.4, 0.8, 1}, {1638, 3276, 819}}});
}

}  // namespace
}  // namespace kestrel
