// HDR pictures in SDR, and graphics over HDR.

#include <kestrel/ToneMapping.h>

#include <gtest/gtest.h>
#include <kestrel/ImageContext.h>

#include <cmath>

#include "tests/platform/image/HdrModel.h"
#include "tests/platform/image/HdrStills.h"

namespace kestrel {
namespace {

using test::Colour;
using test::formatOf;
using test::Planes;

constexpr HdrLight kPq{.transfer = HdrLight::Transfer::kPq};
constexpr HdrLight kHlg{.transfer = HdrLight::Transfer::kHlg};

/// What a grey of 16 bits, 0 to 1, becomes in SDR, 0 to 255.
int sdrOfGrey(double sample, const HdrLight& light) {
  YUVFormat format = formatOf(1, 1, 0, 0, 16, 0, true);
  Planes planes(format);
  planes.set(0, 0, 0, static_cast<int>(std::lround(sample * 65535)));
  planes.set(1, 0, 0, 32768);
  planes.set(2, 0, 0, 32768);
  const auto picture = ImageContext().bitmapImage(
      toneMapped(Image::fromPlanes(planes.picture()), light), {{0, 0}, {1, 1}});
  EXPECT_NEAR(picture->row(0)[0], picture->row(0)[1], 1);
  EXPECT_NEAR(picture->row(0)[2], picture->row(0)[1], 1);
  return picture->row(0)[1];
}

// The pairs 1, 4, 7, 17, 20 and 25 of the paper's table of test data.
TEST(ToneMappingTest, TheModelsDifferenceIsTheOneThatIsPublished) {
  struct Pair {
    Colour a, b;
    double difference;
  };
  for (const Pair& pair : {Pair{{50, 2.6772, -79.7751}, {50, 0, -82.7485}, 2.0425},
                           {{50, -1.3802, -84.2814}, {50, 0, -82.7485}, 1.0000},
                           {{50, 0, 0}, {50, -1, 2}, 2.3669},
                           {{50, 2.5, 0}, {73, 25, -18}, 27.1492},
                           {{50, 2.5, 0}, {58, 24, 15}, 19.4535},
                           {{60.2574, -34.0099, 36.2677}, {60.4626, -34.1751, 39.4387}, 1.2644}})
    EXPECT_NEAR(test::ciede2000(pair.a, pair.b), pair.difference, 1e-4);
}

// Worked out by hand: on a display of 400, signals 0.3, 0.5 and 0.75 of HLG are 10.7, 30.7 and 101
// candelas per square metre, below the knee, which lies at 144: 255 (10.7 / 203)^(1 / 2.4). 0.75
// shows as 0.75 of SDR, for which HLG was made. The brightest light is white.
TEST(ToneMappingTest, GreysOfHlgHaveTheLightOfTheirDisplay) {
  EXPECT_EQ(sdrOfGrey(0, kHlg), 0);
  EXPECT_NEAR(sdrOfGrey(0.3, kHlg), 75, 1);
  EXPECT_NEAR(sdrOfGrey(0.5, kHlg), 116, 1);
  EXPECT_NEAR(sdrOfGrey(0.75, kHlg), 191, 1);
  EXPECT_EQ(sdrOfGrey(1, kHlg), 255);
}

// BT.2408 has PQ of 0.508 for 100 candelas per square metre and 0.581 for 203.
TEST(ToneMappingTest, GreysOfPqAreCompressedBelowTheirPeak) {
  EXPECT_NEAR(test::pqSample(100), 0.508, 5e-4);
  EXPECT_NEAR(test::pqSample(203), 0.581, 5e-4);
  EXPECT_EQ(sdrOfGrey(0, kPq), 0);
  EXPECT_NEAR(sdrOfGrey(test::pqSample(50.7), kPq), 143, 1);
  EXPECT_NEAR(sdrOfGrey(test::pqSample(203), kPq), 230, 1);
  EXPECT_EQ(sdrOfGrey(test::pqSample(1000), kPq), 255);
  EXPECT_EQ(sdrOfGrey(1, kPq), 255);
  // Nothing to compress where the pictures are no brighter than graphics.
  HdrLight dim = kPq;
  dim.peak = 100;
  EXPECT_EQ(sdrOfGrey(test::pqSample(203), dim), 255);
  EXPECT_NEAR(sdrOfGrey(test::pqSample(100), dim), 255 * std::pow(100 / 203.0, 1 / 2.4), 1);
  // A brighter peak leaves less to what is below it.
  HdrLight bright = kPq;
  bright.peak = 4000;
  EXPECT_LT(sdrOfGrey(test::pqSample(203), bright), 230);
  EXPECT_EQ(sdrOfGrey(test::pqSample(4000), bright), 255);
}

TEST(ToneMappingTest, StillsAreThoseOfTheModel) {
  for (auto& still : test::hdrStills()) {
    SCOPED_TRACE(still.name);
    const auto [mean, worst] = test::differenceFromModel(still);
    EXPECT_LE(mean, 1.0);
    EXPECT_LE(worst, 3.0);
    RecordProperty(still.name, std::to_string(mean) + " " + std::to_string(worst));
  }
}

TEST(ToneMappingTest, APictureIsTheSameForAnyThreadsAndAsAPartOfAnother) {
  auto stills = test::hdrStills();
  auto& still = stills.back();
  const auto image = toneMapped(Image::fromPlanes(still.planes.picture()), still.light)
                         ->scaled(5.3, 5.1)
                         ->translated(-7, 0);
  const Rect all{{0, 0}, {300, 200}};
  ImageContext context;
  context.setThreads(1);
  const auto one = context.bitmapImage(image, all);
  for (const int threads : {2, 16}) {
    context.setThreads(threads);
    const auto other = context.bitmapImage(image, all);
    for (int row = 0; row < 200; ++row)
      ASSERT_EQ(std::memcmp(one->row(row), other->row(row), 1200), 0) << threads << ' ' << row;
  }
  const auto part = context.bitmapImage(image, {{100, 40}, {90, 70}});
  for (int row = 0; row < 70; ++row)
    ASSERT_EQ(std::memcmp(one->row(200 - 110 + row) + 400, part->row(row), 360), 0) << row;
}

TEST(ToneMappingTest, TransparentPicturesKeepTheirAlpha) {
  const auto grey = Image::fromColor({0.5, 0.5, 0.5, 0.5});
  const auto picture = ImageContext().bitmapImage(toneMapped(grey, kHlg), {{0, 0}, {1, 1}});
  EXPECT_NEAR(picture->row(0)[0], 116, 2);
  EXPECT_EQ(picture->row(0)[3], 128);
}

// BT.2408: 58 % of PQ and 75 % of HLG.
TEST(ToneMappingTest, WhiteGraphicsLieAtTheLightThatIsRecommended) {
  const auto lumaOf = [](const Color& color, const HdrLight& light) {
    YUVFormat format = formatOf(2, 2, 1, 1, 10);
    format.kr = 0.2627;
    format.kb = 0.0593;
    Planes planes(format);
    ImageContext().render(onHdr(Image::fromColor(color), light), {{0, 0}, {2, 2}}, planes.target());
    EXPECT_NEAR(planes.get(1, 0, 0), 512, 1);
    EXPECT_NEAR(planes.get(2, 0, 0), 512, 1);
    return planes.get(0, 0, 0);
  };
  EXPECT_NEAR(lumaOf(Color::white(), kPq), 64 + 876 * 0.581, 1);
  EXPECT_NEAR(lumaOf(Color::white(), kHlg), 64 + 876 * 0.75, 1);
  EXPECT_EQ(lumaOf(Color::black(), kPq), 64);
  EXPECT_EQ(lumaOf(Color::black(), kHlg), 64);
  // Half of SDR's range is 0.5^2.4 of the light.
  EXPECT_NEAR(lumaOf({0.5, 0.5, 0.5, 1}, kPq), 64 + 876 * test::pqSample(203 * std::pow(0.5, 2.4)),
              2);
}

TEST(ToneMappingTest, NothingComesOfNothing) {
  EXPECT_EQ(toneMapped(nullptr, kPq), nullptr);
  EXPECT_EQ(onHdr(nullptr, kPq), nullptr);
}

}  // namespace
}  // namespace kestrel
