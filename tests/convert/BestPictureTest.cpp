#include <gmock/gmock.h>
#include <kestrel/convert/BestPicture.h>
#include <kestrel/convert/Thumbnail.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tests/convert/Failures.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

/// A grey picture of the values that `luma` answers.
template <typename Luma>
std::shared_ptr<const BitmapImage> grey(int width, int height, const Luma& luma) {
  std::shared_ptr<uint8_t[]> pixels(new uint8_t[static_cast<size_t>(4 * width * height)]);
  uint8_t* to = pixels.get();
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x, to += 4) {
      to[0] = to[1] = to[2] = static_cast<uint8_t>(luma(x, y));
      to[3] = 255;
    }
  return BitmapImage::sharing(pixels, width, height, 4 * width);
}

TEST(PictureWorth, TellsLightByTheMean) {
  EXPECT_DOUBLE_EQ(worthOf(*grey(8, 8, [](int, int) { return 0; })).light, 0);
  EXPECT_NEAR(worthOf(*grey(8, 8, [](int, int) { return 16; })).light, 0.25, 1e-9);
  EXPECT_DOUBLE_EQ(worthOf(*grey(8, 8, [](int, int) { return 200; })).light, 1);
}

TEST(PictureWorth, TellsDetailByTheEntropy) {
  EXPECT_DOUBLE_EQ(worthOf(*grey(64, 4, [](int, int) { return 128; })).detail, 0);
  // Two values in equal shares are one bit, 64 bins all alike six.
  EXPECT_NEAR(worthOf(*grey(64, 4, [](int x, int) { return x % 2 * 128; })).detail, 1 / 6.0, 1e-9);
  EXPECT_NEAR(worthOf(*grey(64, 4, [](int x, int) { return x * 4; })).detail, 1, 1e-9);
}

TEST(PictureWorth, TellsSharpnessByWhatAveragingLoses) {
  // Of an even slope nothing is lost between the ends.
  EXPECT_NEAR(worthOf(*grey(100, 100, [](int x, int y) { return x + y; })).sharpness, 0, 0.05);
  // Each step of 0, 255, 0 … becomes one of 255 / 9: of the inner ones eight ninths are lost.
  const auto board = grey(200, 200, [](int x, int y) { return (x + y) % 2 * 255; });
  EXPECT_NEAR(worthOf(*board).sharpness, 8 / 9.0, 0.01);
  // The blurrier direction counts: along columns nothing changes.
  EXPECT_DOUBLE_EQ(worthOf(*grey(20, 20, [](int x, int) { return x % 2 * 255; })).sharpness, 0);
}

TEST(PictureWorth, TellsStillnessByTheDifference) {
  const auto dark = grey(8, 8, [](int, int) { return 40; });
  EXPECT_DOUBLE_EQ(stillnessBetween(*dark, *dark), 1);
  EXPECT_NEAR(stillnessBetween(*dark, *grey(8, 8, [](int, int) { return 56; })), 0.5, 1e-9);
  EXPECT_NEAR(stillnessBetween(*dark, *grey(8, 8, [](int, int) { return 88; })), 0.25, 1e-9);
}

constexpr int64_t kSecond = 1'000'000;

class BestPicture : public testing::Test {
 protected:
  static double bestOf(const char* clip, PictureSearch search) {
    Pictures pictures({.input = fixture(clip).string()});
    return static_cast<double>(bestPictureTime(pictures, search)) / kSecond;
  }
};

// Of each clip a second at a time is black, blurred or changing, and the rest is good.

TEST_F(BestPicture, IsNotInABlackLeadIn) {
  EXPECT_GT(bestOf("black-then-bars.mp4", {.from = 0, .to = 2 * kSecond, .candidates = 8}), 1.1);
  // Wherever it is wanted.
  EXPECT_GT(bestOf("black-then-bars.mp4",
                   {.from = 0, .to = 2 * kSecond, .wanted = kSecond / 2, .candidates = 8}),
            1);
}

TEST_F(BestPicture, IsNotBlurred) {
  const double best = bestOf("sharp-middle.mp4", {.from = 0, .to = 3 * kSecond, .candidates = 9});
  EXPECT_GT(best, 1);
  EXPECT_LT(best, 2);
}

TEST_F(BestPicture, IsNotWithinACrossFadeOrAtACut) {
  // Half a second of a picture, a second of fading into another, half a second of that.
  const double faded = bestOf("cross-fade.mp4", {.from = 0, .to = 2 * kSecond, .candidates = 9});
  EXPECT_TRUE(faded < 0.5 || faded > 1.5) << faded;
  const double cut =
      bestOf("black-then-bars.mp4",
             {.from = kSecond, .to = 2 * kSecond, .wanted = kSecond, .candidates = 4});
  EXPECT_GT(cut, 1.2);
}

TEST_F(BestPicture, IsTheOneThatIsWantedWhereAllAreAlike) {
  EXPECT_EQ(bestOf("still-bars.mp4",
                   {.from = 0, .to = 2 * kSecond, .wanted = 1'234'000, .candidates = 5}),
            1.234);
  EXPECT_EQ(bestOf("still-bars.mp4", {.from = 0, .to = 2 * kSecond, .candidates = 1}), 1);
}

TEST_F(BestPicture, LeavesTheSizeAsItIs) {
  Pictures pictures({.input = fixture("still-bars.mp4").string()});
  pictures.setOutputSize({1000, 40});
  bestPictureTime(pictures, {.from = 0, .to = kSecond, .candidates = 2});
  EXPECT_EQ(pictures.outputSize(), (Size{1000, 40}));
}

TEST_F(BestPicture, RefusesASearchOutOfRange) {
  Pictures pictures({.input = fixture("still-bars.mp4").string()});
  EXPECT_EQ(failureOf([&] { bestPictureTime(pictures, {.candidates = 0}); }).subject(),
            "candidates");
  EXPECT_EQ(failureOf([&] { bestPictureTime(pictures, {.from = 2, .to = 1}); }).subject(), "from");
}

TEST_F(BestPicture, GoesIntoTheThumbnail) {
  const TempDir folder;
  const auto meanOf = [&](bool best) {
    const std::string path = (folder / (best ? "best.png" : "first.png")).string();
    writeThumbnail(
        {.input = fixture("black-then-bars.mp4").string(), .output = path, .best = best});
    Pictures picture({.input = path});
    return worthOf(*picture.pictureAt(0)).light;
  };
  EXPECT_LT(meanOf(false), 0.3);  // at a tenth of the length it is black still
  EXPECT_EQ(meanOf(true), 1);
}

}  // namespace
}  // namespace kestrel::test
