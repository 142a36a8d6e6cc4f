#include <gtest/gtest.h>

#include "tests/media/HandMade.h"

namespace kestrel::test {
namespace {

/// What a stream answers whose container tells these two rates.
float framerateOf(AVRational real, AVRational average) {
  HandMadeContainer container;
  AVStream* stream = container.addPictures(4, 4);
  stream->r_frame_rate = real;
  stream->avg_frame_rate = average;
  LMFFMediaStream over;
  over.setStream(stream);
  return over.framerate();
}

constexpr AVRational kUnknown{0, 0};

TEST(LMFFMediaStreamFramerate, TelevisionRatesHaveTheirCustomaryNames) {
  EXPECT_EQ(framerateOf({24000, 1001}, {25, 1}), 23.97F);
  EXPECT_EQ(framerateOf({30000, 1001}, {25, 1}), 29.97F);
}

TEST(LMFFMediaStreamFramerate, UsualRateIsTheWholePartOfTheQuotient) {
  EXPECT_EQ(framerateOf({25, 1}, {30, 1}), 25.0F);
  EXPECT_EQ(framerateOf({25, 2}, kUnknown), 12.0F);
  EXPECT_EQ(framerateOf({15000, 1001}, kUnknown), 14.0F);
  EXPECT_EQ(framerateOf({2997, 100}, kUnknown), 29.0F);
}

TEST(LMFFMediaStreamFramerate, OneAndFiftyAreUsual) {
  EXPECT_EQ(framerateOf({1, 1}, {25, 1}), 1.0F);
  EXPECT_EQ(framerateOf({50, 1}, {25, 1}), 50.0F);
  EXPECT_EQ(framerateOf({50999, 1000}, {25, 1}), 50.0F);
}

TEST(LMFFMediaStreamFramerate, TooFastARateFallsBackOnTheAverage) {
  EXPECT_EQ(framerateOf({60000, 1001}, {24, 1}), 24.0F);
  EXPECT_EQ(framerateOf({90000, 1}, {750000, 71393}), 10.0F);
  EXPECT_EQ(framerateOf({51, 1}, {30000, 1001}), 29.0F);
}

TEST(LMFFMediaStreamFramerate, SixtyPicturesEndAtThirty) {
  EXPECT_EQ(framerateOf({60000, 1001}, {60000, 1001}), 30.0F);
  EXPECT_EQ(framerateOf({60, 1}, {60, 1}), 30.0F);
}

TEST(LMFFMediaStreamFramerate, FiftyNineIsTooFastWithoutAnAverage) {
  EXPECT_EQ(framerateOf({60000, 1001}, kUnknown), 30.0F);
  EXPECT_EQ(framerateOf({60000, 1001}, {25, 0}), 30.0F);
  EXPECT_EQ(framerateOf({60000, 1001}, {0, 1}), 30.0F);
}

TEST(LMFFMediaStreamFramerate, LessThanOnePictureASecondFallsBackOnTheAverage) {
  EXPECT_EQ(framerateOf({1, 2}, {10, 1}), 10.0F);
  EXPECT_EQ(framerateOf({1, 2}, {1, 2}), 30.0F);
}

TEST(LMFFMediaStreamFramerate, InvalidRateFallsBackOnTheAverage) {
  EXPECT_EQ(framerateOf(kUnknown, {12, 1}), 12.0F);
  EXPECT_EQ(framerateOf({25, 0}, {12, 1}), 12.0F);
  EXPECT_EQ(framerateOf({-25, 1}, {12, 1}), 12.0F);
  EXPECT_EQ(framerateOf({25, -1}, {12, 1}), 12.0F);
}

TEST(LMFFMediaStreamFramerate, WithoutAnyRateThirty) {
  EXPECT_EQ(framerateOf(kUnknown, kUnknown), 30.0F);
  EXPECT_EQ(LMFFMediaStream().framerate(), 30.0F);
}

/// The rule as it stands, by brute force over small fractions.
TEST(LMFFMediaStreamFramerate, EveryFractionFollowsTheRule) {
  const auto quotient = [](AVRational r) { return r.num >= 1 && r.den >= 1 ? r.num / r.den : 0; };
  for (int num = -1; num <= 130; ++num) {
    for (int den = -1; den <= 3; ++den) {
      int expected = quotient({num, den});
      if (expected < 1 || expected > 50) expected = 20;
      ASSERT_EQ(framerateOf({num, den}, {20, 1}), static_cast<float>(expected))
          << num << '/' << den;
    }
  }
}

}  // namespace
}  // namespace kestrel::test
