#include "convert/feed/VideoFeed.h"

#include <gtest/gtest.h>
#include <kestrel/LMMediaSource.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <string>
#include <vector>

#include "convert/probe/Streams.h"
#include "tests/support/Fixture.h"
#include "tests/support/ForcedCpuCount.h"
#include "tests/support/Pictures.h"

namespace kestrel::test {
namespace {

constexpr double kMicrosecond = 1e-6;
constexpr int64_t kPreroll = 500000;

double valueOf(Rational rate) { return static_cast<double>(rate.num) / rate.den; }

/// What a feed is to give, tried at each time of the grid by itself: which of the pictures that
/// ffmpeg decodes is shown there.
std::vector<uint32_t> expectedPictures(const std::vector<TimedPicture>& pictures, double start,
                                       Rational rate) {
  const double tick = 1 / valueOf(rate);
  // Times are rounded to microseconds on the way: a picture that begins so shortly behind has
  // begun.
  const auto shownAt = [&](double time) {
    const TimedPicture* shown = &pictures.front();
    for (const TimedPicture& picture : pictures)
      if (picture.start < time + 1.5 * kMicrosecond) shown = &picture;
    return shown;
  };
  const TimedPicture& first = *shownAt(start + tick / 4);
  const auto leading = static_cast<int>(std::lround((std::max(first.start, start) - start) / tick));
  std::vector<uint32_t> sums(static_cast<size_t>(leading) + 1, first.sum);
  for (int i = 1;; ++i) {
    const double middle = first.start + (i + 0.5) * tick;
    if (middle > pictures.back().end - 1.5 * kMicrosecond) return sums;
    sums.push_back(shownAt(middle)->sum);
  }
}

/// What a feed gives.
std::vector<uint32_t> fedPictures(const std::filesystem::path& file, int64_t start, Rational rate) {
  const auto source = LMMediaSource::mediaWithPath(file.string());
  source->open();
  LMFFMovie movie;
  movie.setExportMovie(true);
  movie.openMedias(source->createMediasWithStreams(IndexSet{*mainVideo(*source->formatContext())}));
  movie.seek(std::max<int64_t>(start - kPreroll, 0));
  movie.flushOperation();
  std::vector<uint32_t> sums;
  movie.decodeImage(
      [&] {
        VideoFeed feed(movie, start, rate);
        while (const auto picture = feed.next()) sums.push_back(pictureSum(*picture->getFrame()));
      },
      true);
  return sums;
}

/// Constant rates, with pictures stored in another order than shown, in containers of coarse and of
/// fine times; pictures at any times; some that begin late or whose clock does; few a second.
class VideoFeedGrid : public testing::TestWithParam<const char*> {
 protected:
  const std::filesystem::path file_ = fixture(GetParam());
  const std::vector<TimedPicture> pictures_ = timedPicturesOf(file_);
};

TEST_P(VideoFeedGrid, ShowsThePictureOfEveryTime) {
  for (const int processors : {1, 2, 16}) {
    const ForcedCpuCount forced(processors);
    for (const Rational rate : {Rational{25, 1}, {10, 1}, {60, 1}, {24000, 1001}}) {
      SCOPED_TRACE(testing::Message() << processors << " processors, " << valueOf(rate));
      ASSERT_EQ(fedPictures(file_, 0, rate), expectedPictures(pictures_, 0, rate));
    }
  }
}

TEST_P(VideoFeedGrid, ShowsThemFromAStartOn) {
  const double length = pictures_.back().end;
  for (const int processors : {1, 16}) {
    const ForcedCpuCount forced(processors);
    for (const double share : {0.013, 0.37, 0.5, 0.83}) {
      const auto start = static_cast<int64_t>(length * share * 1e6);
      for (const Rational rate : {Rational{25, 1}, {30000, 1001}}) {
        SCOPED_TRACE(testing::Message()
                     << processors << " processors, " << valueOf(rate) << " from " << start);
        ASSERT_EQ(fedPictures(file_, start, rate),
                  expectedPictures(pictures_, static_cast<double>(start) / 1e6, rate));
      }
    }
  }
}

std::string nameOf(const testing::TestParamInfo<const char*>& info) {
  std::string name = info.param;
  std::ranges::replace_if(
      name, [](char c) { return !std::isalnum(c); }, '_');
  return name;
}

INSTANTIATE_TEST_SUITE_P(Clips, VideoFeedGrid,
                         testing::Values("numbered25.mp4", "numbered25.mkv", "numbered25.ts",
                                         "numbered60.mp4", "numbered24000-1001.mp4",
                                         "numbered25-one-key.mp4", "numbered-vfr.mp4",
                                         "raw-vfr.mkv", "numbered-late-video.mkv",
                                         "numbered25-from-60.mp4", "slow2.mp4", "slow5.ts"),
                         nameOf);

/// The feed of a fixture's pictures, on the movie's queue.
class VideoFeedTest : public testing::Test {
 protected:
  void open(const std::string& name, int64_t start, Rational rate) {
    const auto source = LMMediaSource::mediaWithPath(fixture(name).string());
    source->open();
    movie_.setExportMovie(true);
    movie_.openMedias(source->createMedias());
    movie_.seek(start);
    movie_.flushOperation();
    feed_.emplace(movie_, start, rate);
  }

  LMFFMovie movie_;
  std::optional<VideoFeed> feed_;
};

TEST_F(VideoFeedTest, ARepeatedPictureIsTheSameObject) {
  open("numbered25.mp4", 0, {50, 1});
  const auto first = feed_->next();
  EXPECT_EQ(feed_->next(), first);
  EXPECT_NE(feed_->next(), first);
}

TEST_F(VideoFeedTest, PicturesStayValidAsLongAsTheyAreHeld) {
  open("numbered25.mp4", 0, {25, 1});
  std::vector<std::shared_ptr<LMFFImage>> held;
  while (auto picture = feed_->next()) held.push_back(std::move(picture));
  std::vector<uint32_t> sums;
  for (const auto& picture : held) sums.push_back(pictureSum(*picture->getFrame()));
  EXPECT_EQ(sums, pictureSumsOf(fixture("numbered25.mp4")));
}

TEST_F(VideoFeedTest, TellsWhereTheNextTickBegins) {
  open("numbered25.mp4", 1000000, {30000, 1001});
  EXPECT_EQ(feed_->tickDuration(), 33367);
  EXPECT_EQ(feed_->time(), 0);
  feed_->next();
  feed_->next();
  feed_->next();
  EXPECT_EQ(feed_->time(), 100100);
}

// A picture that is shown is an object of its own; what becomes none is left out.
TEST_F(VideoFeedTest, CountsThePicturesThatAreLeftOut) {
  for (const char* name : {"numbered25.mp4", "numbered-vfr.mp4", "raw-vfr.mkv"})
    for (const Rational rate : {Rational{25, 1}, {10, 1}, {7, 1}}) {
      const auto pictures = timedPicturesOf(fixture(name));
      open(name, 0, rate);
      std::set<std::shared_ptr<LMFFImage>> shown;
      while (auto picture = feed_->next()) shown.insert(std::move(picture));
      const PictureTally tally = feed_->tally();
      EXPECT_EQ(tally.all, static_cast<int64_t>(pictures.size())) << name;
      EXPECT_EQ(tally.all - tally.leftOut, static_cast<int64_t>(shown.size())) << name;
      movie_.close();
    }
}

// A song's picture: one for as long as the sound lasts, which is four seconds.
TEST_F(VideoFeedTest, OnePictureAloneLastsAsLongAsTheSound) {
  open("still-with-sound.mkv", 0, {10, 1});
  const auto first = feed_->next();
  int count = 1;
  while (const auto next = feed_->next()) {
    ASSERT_EQ(next, first);
    ++count;
  }
  EXPECT_EQ(count, 40);
}

// Pictures of one second beside sound of four.
TEST_F(VideoFeedTest, SeveralEndWhereTheyEnd) {
  open("sound-longer.mkv", 0, {50, 1});
  std::vector<uint32_t> sums;
  while (const auto picture = feed_->next()) sums.push_back(pictureSum(*picture->getFrame()));
  EXPECT_EQ(sums, expectedPictures(timedPicturesOf(fixture("sound-longer.mkv")), 0, {50, 1}));
}

TEST_F(VideoFeedTest, WithoutPicturesThereIsNone) {
  open("audio-only.m4a", 0, {25, 1});
  EXPECT_EQ(feed_->next(), nullptr);
}

}  // namespace
}  // namespace kestrel::test
