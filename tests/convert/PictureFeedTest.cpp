#include "convert/feed/PictureFeed.h"

#include <gmock/gmock.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMMediaSource.h>

#include <cmath>
#include <string>
#include <vector>

#include "tests/convert/ShownTimes.h"
#include "tests/support/Fixture.h"
#include "tests/support/ForcedCpuCount.h"

namespace kestrel::test {
namespace {

using Timed = PictureFeed::Timed;

class PictureFeedTest : public testing::Test {
 protected:
  std::vector<Timed> read(const std::string& name, Rational rate, int64_t start = 0,
                          std::optional<int64_t> end = {}, bool repeats = false) {
    const auto source = LMMediaSource::mediaWithPath(fixture(name).string());
    source->open();
    LMFFMovie movie;
    movie.setExportMovie(true);
    movie.openMedias(source->createMedias());
    movie.seek(start);
    movie.flushOperation();
    std::vector<Timed> pictures;
    movie.decodeImage(
        [&] {
          PictureFeed feed(movie, start, end, rate, repeats);
          while (auto timed = feed.next()) {
            pictures.push_back(std::move(*timed));
            EXPECT_EQ(
                feed.time(),
                std::llround(static_cast<double>(pictures.back().time + pictures.back().duration) *
                             1e6 * pictureTick(rate).num / pictureTick(rate).den));
          }
        },
        true);
    return pictures;
  }
};

TEST(PictureTick, IsAWholePartOfAPictureBelowATenthOfAMillisecond) {
  for (const Rational rate : {Rational{25, 1}, {30000, 1001}, {24000, 1001}, {60, 1}, {1, 5}}) {
    const Rational tick = pictureTick(rate);
    EXPECT_EQ(tick.num, 1);
    EXPECT_GE(tick.den, 10000);
    EXPECT_EQ(tick.den % rate.num, 0);
  }
}

TEST_F(PictureFeedTest, EveryPictureComesOnceAtItsOwnTime) {
  for (const int processors : {1, 2, 16}) {
    const ForcedCpuCount forced(processors);
    const auto times = shownTimes(fixture("numbered-vfr.mp4"));
    const auto pictures = read("numbered-vfr.mp4", {25, 1});
    ASSERT_EQ(pictures.size(), times.size());
    for (size_t i = 0; i < times.size(); ++i)
      EXPECT_NEAR(static_cast<double>(pictures[i].time) / 10000, times[i] - times[0], 0.0012) << i;
    for (size_t i = 0; i + 1 < pictures.size(); ++i)
      EXPECT_EQ(pictures[i].time + pictures[i].duration, pictures[i + 1].time);
  }
}

TEST_F(PictureFeedTest, WhatComesRegularlyHasOneDuration) {
  // A picture of 30000/1001 a second lasts 1001 ticks of 1/30000 s; Matroska rounds to
  // milliseconds.
  for (const auto& [name, rate, duration] :
       {std::tuple<const char*, Rational, int64_t>{"numbered25.mkv", {25, 1}, 400},
        {"numbered24000-1001.mp4", {24000, 1001}, 1001}})
    for (const Timed& timed : read(name, rate)) EXPECT_EQ(timed.duration, duration) << name;
}

TEST_F(PictureFeedTest, ASpanIsCutAtBothEnds) {
  const auto pictures = read("numbered25.mp4", {25, 1}, 1000000, 2010000);
  ASSERT_EQ(pictures.size(), 25U);
  EXPECT_EQ(pictures.front().time, 0);
  EXPECT_EQ(pictures.back().time, 24 * 400);
}

TEST_F(PictureFeedTest, ASpanBeginsWithThePictureShownThere) {
  for (const auto& [name, rate] : {std::pair<const char*, Rational>{"slow2.mp4", {2, 1}},
                                   {"slow5.mkv", {5, 1}},
                                   {"slow0.2.mp4", {1, 5}}}) {
    const auto times = shownTimes(fixture(name));
    ASSERT_GE(times.size(), 2U);
    const double rest = (times[1] - times[0]) / 10;  // of the first picture
    const auto pictures = read(name, rate, std::llround((times[1] - rest) * 1e6));
    ASSERT_GE(pictures.size(), 2U) << name;
    const Rational tick = pictureTick(rate);
    EXPECT_NEAR(static_cast<double>(pictures[1].time) * tick.num / tick.den, rest, 0.0012) << name;
  }
}

TEST_F(PictureFeedTest, OneThatLastsLongComesAgainWhereThatIsAskedFor) {
  const auto once = read("slow0.2.mp4", {25, 1});
  const auto repeated = read("slow0.2.mp4", {25, 1}, 0, {}, true);
  ASSERT_GE(once.size(), 2U);
  EXPECT_EQ(once[1].time, 5 * 10000);
  ASSERT_GE(repeated.size(), 125U);
  for (size_t i = 0; i < 125; ++i) {
    EXPECT_EQ(repeated[i].time, static_cast<int64_t>(i) * 400);
    EXPECT_EQ(repeated[i].image, repeated[0].image);
  }
  EXPECT_NE(repeated[125].image, repeated[0].image);
}

}  // namespace
}  // namespace kestrel::test
