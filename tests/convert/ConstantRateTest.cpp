#include "convert/plan/ConstantRate.h"

#include <gtest/gtest.h>

#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace kestrel::test {
namespace {

/// Times of `count` pictures, `step` microseconds apart.
std::vector<int64_t> evenTimes(int count, int64_t step) {
  std::vector<int64_t> times;
  for (int i = 0; i < count; ++i) times.push_back(i * step);
  return times;
}

/// Two pictures at almost the same time, and nothing for 82 ms.
std::vector<int64_t> pairs(int count) {
  std::vector<int64_t> times;
  for (int i = 0; i < count; ++i) {
    times.push_back(i * 82000);
    times.push_back(i * 82000 + 1000);
  }
  return times;
}

PictureRates ratesOf(const char* encoder, const char* container = "matroska") {
  return {*avcodec_find_encoder_by_name(encoder), *av_guess_format(container, nullptr, nullptr)};
}

TEST(ConstantRate, PicturesBetweenTheMiddlesOfTicksAreLost) {
  EXPECT_EQ(picturesLostAt(evenTimes(50, 40000), {25, 1}), 0U);
  EXPECT_EQ(picturesLostAt(evenTimes(50, 40000), {50, 1}), 0U);
  EXPECT_EQ(picturesLostAt(evenTimes(51, 20000), {25, 1}), 25U);
  EXPECT_EQ(picturesLostAt(pairs(10), {25, 1}), 10U);
  EXPECT_EQ(picturesLostAt({}, {25, 1}), 0U);
}

TEST(ConstantRate, TimesInWholeMillisecondsLoseNone) {
  std::vector<int64_t> times;
  for (int64_t i = 0; i < 300; ++i) times.push_back((i * 1001000 / 30 + 500) / 1000 * 1000);
  EXPECT_EQ(picturesLostAt(times, {30000, 1001}), 0U);
}

// 20 pictures in 0.82 seconds are 24.4 a second: 24 would fall behind.
TEST(ConstantRate, TheLowestAtWhichEveryPictureHasATick) {
  EXPECT_EQ(rateForAll(pairs(200), {15, 1}, {}, ratesOf("mpeg4")), (Rational{25, 1}));
  EXPECT_EQ(rateForAll(pairs(200), {15, 1}, Rational{20, 1}, ratesOf("mpeg4")), std::nullopt);
  EXPECT_EQ(rateForAll(evenTimes(200, 1000), {25, 1}, {}, ratesOf("mpeg4")), std::nullopt);
  EXPECT_EQ(rateForAll(evenTimes(200, 71429), {14, 1}, {}, ratesOf("mpeg4")), (Rational{14, 1}));
  // MPEG-2 does not know 14.
  EXPECT_EQ(rateForAll(evenTimes(200, 71429), {14, 1}, {}, ratesOf("mpeg2video")),
            (Rational{15, 1}));
  // MPEG-1 begins with 24000/1001.
  EXPECT_EQ(rateForAll(evenTimes(200, 100000), {10, 1}, {}, ratesOf("mpeg1video", "mpeg")),
            (Rational{24000, 1001}));
}

TEST(ConstantRate, GapsTellHowFastPicturesCome) {
  EXPECT_FALSE(comeFasterThan(evenTimes(10, 40000), {25, 1}));
  EXPECT_TRUE(comeFasterThan(evenTimes(10, 40000), {24, 1}));
  EXPECT_FALSE(comeFasterThan({{0, 39000, 80000}}, {25, 1}));  // rounded
  EXPECT_FALSE(comeFasterThan({}, {25, 1}));
}

}  // namespace
}  // namespace kestrel::test
