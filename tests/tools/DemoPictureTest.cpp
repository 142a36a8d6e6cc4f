#include "tools/drawing/DemoPicture.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <vector>

namespace {

using kestrel::BitmapContext;
using Color = std::array<uint8_t, 3>;

constexpr int kWidth = 1280;
constexpr int kHeight = 720;

/// The colour of a pixel, counted from the top left.
Color colorAt(const BitmapContext& surface, int x, int y) {
  const uint8_t* pixel = surface.data() + y * surface.bytesPerRow() + 4 * x;
  return {pixel[0], pixel[1], pixel[2]};
}

std::vector<uint8_t> pixels(int64_t frame) {
  BitmapContext surface(kWidth, kHeight);
  DemoPicture(kWidth, kHeight, 25).draw(surface, frame);
  return {surface.data(), surface.data() + kHeight * surface.bytesPerRow()};
}

TEST(DemoPicture, ShowsTheSevenBarsAtThreeQuarters) {
  BitmapContext surface(kWidth, kHeight);
  DemoPicture(kWidth, kHeight, 25).draw(surface, 7);
  constexpr uint8_t k = 191;  // three quarters of 255
  const std::array<Color, 7> bars{Color{k, k, k}, {k, k, 0}, {0, k, k}, {0, k, 0},
                                  {k, 0, k},      {k, 0, 0}, {0, 0, k}};
  for (int bar = 0; bar < 7; ++bar)
    EXPECT_EQ(colorAt(surface, kWidth * (2 * bar + 1) / 14, 20), bars[bar]) << "bar " << bar;
}

TEST(DemoPicture, FlashesOnTheFirstPictureOfEachSecond) {
  const DemoPicture picture(kWidth, kHeight, 25);
  BitmapContext surface(kWidth, kHeight);
  for (int64_t frame = 0; frame < 75; ++frame) {
    picture.draw(surface, frame);
    const Color dial = colorAt(surface, kWidth / 2 - 40, 300);
    EXPECT_EQ(dial[2] > 200, frame % 25 == 0) << "picture " << frame;
  }
}

TEST(DemoPicture, NoTwoPicturesAreTheSame) {
  EXPECT_NE(pixels(10), pixels(11));
  EXPECT_NE(pixels(10), pixels(35));    // the hand stands alike, the counter does not
  EXPECT_NE(pixels(10), pixels(1510));  // one minute later
}

TEST(DemoPicture, DoesNotDependOnTheOneBefore) {
  const DemoPicture picture(kWidth, kHeight, 25);
  BitmapContext surface(kWidth, kHeight);
  for (int64_t frame = 0; frame < 60; frame += 7) picture.draw(surface, frame);
  picture.draw(surface, 12);
  const auto alone = pixels(12);
  EXPECT_EQ(std::memcmp(surface.data(), alone.data(), alone.size()), 0);
}

TEST(DemoPicture, FitsOtherSizesToo) {
  for (const auto& [width, height] : {std::pair{64, 36}, {1, 1}, {720, 576}}) {
    BitmapContext surface(width, height);
    DemoPicture(width, height, 30).draw(surface, 59);
    EXPECT_EQ(colorAt(surface, 0, 0), (height > 1 ? Color{191, 191, 191} : colorAt(surface, 0, 0)));
  }
}

}  // namespace
