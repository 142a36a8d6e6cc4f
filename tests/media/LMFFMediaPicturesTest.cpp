#include <kestrel/BitmapImage.h>
#include <kestrel/ImageContext.h>
#include <kestrel/LMFFEffectVideoStream.h>
#include <kestrel/LMFFImage.h>
#include <kestrel/LMFFMovie.h>

#include <algorithm>
#include <map>

#include "tests/media/Media.h"

namespace kestrel::test {
namespace {

using Picture = LMFFMedia::Picture;

uint32_t sumOf(const AVFrame* frame) { return frame && frame->data[0] ? pictureSum(*frame) : 0; }

/// The picture of a time, from clips whose pictures are seconds apart: what a decoder keeps back
/// for its threads lasts long here. What is right says ffmpeg.
class PictureAtTime : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    file_ = fixture(GetParam());
    sums_ = pictureSumsOf(file_);
    ASSERT_GE(sums_.size(), 30u);
    const auto media = videoMediaOf(file_);
    ASSERT_TRUE(media);
    middles_ = middlesOf(*media, timesOf(sums_.size()));
    ASSERT_EQ(middles_.size(), sums_.size());
  }

  /// AVI dates the order of decoding alone; there the pictures are one tick apart from 0 on.
  std::vector<int64_t> timesOf(size_t count) const {
    if (file_.extension() != ".avi") return pictureTimesOf(file_);
    std::vector<int64_t> times;
    for (size_t i = 0; i < count; ++i) times.push_back(static_cast<int64_t>(i));
    return times;
  }

  /// Calls a function for several numbers of processors, of which decoders make as many threads.
  template <typename Function>
  static void onEveryMachine(const Function& function) {
    for (const int count : {1, 2, 8, 16}) {
      SCOPED_TRACE(testing::Message() << count << " processors");
      const ForcedCpuCount forced(count);
      ASSERT_NO_FATAL_FAILURE(function());
    }
  }

  /// Some pictures in no order, forth and back, the last one among them.
  std::vector<size_t> mixed() const {
    const size_t count = sums_.size();
    return {count / 2, 3, count - 1, 0, count - 2, count / 3, 1, count * 3 / 4};
  }

  std::filesystem::path file_;
  std::vector<uint32_t> sums_;
  std::vector<int64_t> middles_;  // of each picture's time on the media, microseconds
};

TEST_P(PictureAtTime, EveryPictureInARow) {
  onEveryMachine([this] {
    const auto media = videoMediaOf(file_);
    for (size_t i = 0; i < sums_.size(); ++i) {
      const Picture picture = media->pictureAtTime(middles_[i]);
      ASSERT_EQ(sumOf(picture.frame), sums_[i]) << i;
      ASSERT_LE(picture.start, middles_[i]);
      ASSERT_GT(picture.end, middles_[i]);
    }
  });
}

TEST_P(PictureAtTime, FarAhead) {
  onEveryMachine([this] {
    const size_t last = sums_.size() - 1;
    ASSERT_EQ(sumOf(videoMediaOf(file_)->pictureAtTime(middles_[last]).frame), sums_[last]);
  });
}

TEST_P(PictureAtTime, AfterASeek) {
  onEveryMachine([this] {
    const auto media = videoMediaOf(file_);
    for (const size_t i : mixed()) {
      media->seek(middles_[i]);
      ASSERT_EQ(sumOf(media->pictureAtTime(middles_[i]).frame), sums_[i]) << i;
    }
  });
}

TEST_P(PictureAtTime, BoundedStepsFindItAfterASeekToo) {
  onEveryMachine([this] {
    const auto media = videoMediaOf(file_);
    for (const size_t i : mixed()) {
      media->seek(middles_[i]);
      ASSERT_EQ(sumOf(media->videoFrameAtTime(middles_[i])), sums_[i]) << i;
    }
  });
}

// Pictures and sound in one media: the sound that is read on the way is kept.
TEST_P(PictureAtTime, BesideSound) {
  onEveryMachine([this] {
    const auto media = openedMedia(file_);
    for (const size_t i : mixed()) {
      media->seek(middles_[i]);
      ASSERT_EQ(sumOf(media->pictureAtTime(middles_[i]).frame), sums_[i]) << i;
    }
  });
}

TEST_P(PictureAtTime, OfAMovieAfterASeek) {
  onEveryMachine([this] {
    LMFFMovie movie;
    movie.openMedias(sourceOf(file_)->createMedias());
    for (const size_t i : mixed()) {
      movie.seek(middles_[i]);
      uint32_t found = 0;
      movie.decodeImageAtTime(middles_[i], true,
                              [&](const auto& image) { found = sumOf(image->getFrame()); });
      ASSERT_EQ(found, sums_[i]) << i;
    }
  });
}

TEST_P(PictureAtTime, Thumbnail) {
  onEveryMachine([this] {
    const auto media = videoMediaOf(file_);
    for (const size_t i : mixed()) {
      uint32_t found = 0;
      media->thumbnailAtTime(middles_[i], [&](AVFrame* frame) { found = sumOf(frame); });
      ASSERT_EQ(found, sums_[i]) << i;
    }
  });
}

/// A movie's thumbnail, all its pixels.
std::vector<uint8_t> thumbnailBytes(LMFFMovie& movie, int64_t time) {
  const auto bitmap = movie.thumbnailAtTime(time, {128, 72});
  std::vector<uint8_t> bytes;
  for (int y = 0; bitmap && y < bitmap->height(); ++y)
    bytes.insert(bytes.end(), bitmap->row(y), bitmap->row(y) + ptrdiff_t{4} * bitmap->width());
  return bytes;
}

// The one of a machine with one processor after the other is held against pictures that are read in
// a row, which the tests above hold against ffmpeg.
TEST_P(PictureAtTime, ThumbnailOfAMovie) {
  std::map<size_t, std::vector<uint8_t>> expected;
  {
    const ForcedCpuCount forced(1);
    LMFFMovie movie;
    movie.openMedias({videoMediaOf(file_)});
    movie.setOutputVideoSize({128, 72});
    const auto media = movie.medias().front();
    for (size_t i = 0; i < sums_.size(); ++i) {
      ASSERT_EQ(sumOf(media->pictureAtTime(middles_[i]).frame), sums_[i]) << i;
      movie.videoEffectStream()->writeFrame(media->currentPicture().frame);
      const auto image = movie.videoEffectStream()->currentEffectImage();
      const auto bitmap = ImageContext().bitmapImage(image, image->extent());
      auto& bytes = expected[i];
      for (int y = 0; y < bitmap->height(); ++y)
        bytes.insert(bytes.end(), bitmap->row(y), bitmap->row(y) + ptrdiff_t{4} * bitmap->width());
    }
  }
  onEveryMachine([&] {
    LMFFMovie movie;
    movie.openMedias(sourceOf(file_)->createMedias());
    movie.setOutputVideoSize({128, 72});
    for (const size_t i : mixed()) ASSERT_EQ(thumbnailBytes(movie, middles_[i]), expected[i]) << i;
  });
}

TEST_P(PictureAtTime, TheLastOneStandsBehindTheEnd) {
  onEveryMachine([this] {
    const auto media = videoMediaOf(file_);
    EXPECT_EQ(sumOf(media->pictureAtTime(middles_.back() + 1000 * kSecond).frame), sums_.back());
    EXPECT_TRUE(media->isAtEnd());
  });
}

std::string nameOf(const testing::TestParamInfo<const char*>& info) {
  std::string name = info.param;
  std::ranges::replace(name, '.', '_');
  return name;
}

INSTANTIATE_TEST_SUITE_P(SlowClips, PictureAtTime,
                         testing::Values("slow2.mp4", "slow5.mkv", "slow5.ts", "slow0.2.mp4",
                                         "slow0.2.ts", "slow2.avi"),
                         nameOf);

TEST(LMFFMediaPicture, GivesWayAtExactlyItsEnd) {
  const auto media = videoMediaOf(fixture("video-only.mp4"));
  for (const int64_t picture : {1, 2, 7, 30}) {
    EXPECT_EQ(media->pictureAtTime(milliseconds(40 * picture) - kSecond / 1000).frame->pts,
              512 * (picture - 1));
    EXPECT_EQ(media->pictureAtTime(milliseconds(40 * picture)).frame->pts, 512 * picture);
  }
}

// 1001 / 30000 s is no whole number of microseconds.
TEST(LMFFMediaPicture, TimeThatWasRoundedDownBelongsToThePictureThatBeginsThere) {
  const auto media = videoMediaOf(fixture("av30000-1001.mp4"));
  for (int64_t picture = 1; picture < 50; ++picture)
    EXPECT_EQ(media->pictureAtTime(picture * 1001000000 / 30000).frame->pts, 1001 * picture);
}

TEST(LMFFMediaPicture, SpanCountsFromTheMediasStart) {
  const auto media = videoMediaOf(fixture("av25.ts"));
  const Picture picture = media->pictureAtTime(milliseconds(420));
  ASSERT_TRUE(picture);
  EXPECT_EQ(picture.end - picture.start, milliseconds(40));
  EXPECT_LE(picture.start, milliseconds(420));
  EXPECT_GT(picture.end, milliseconds(420));
  const Picture again = media->currentPicture();
  EXPECT_EQ(again.frame, picture.frame);
  EXPECT_EQ(again.start, picture.start);
  EXPECT_EQ(again.end, picture.end);
}

TEST(LMFFMediaPicture, NoneWithoutPicturesOrWhereTheyAreCopied) {
  EXPECT_FALSE(audioMediaOf(fixture("audio-only.m4a"))->pictureAtTime(0));
  EXPECT_FALSE(LMFFMedia().pictureAtTime(0));
  LMFFMovie movie;
  movie.openMedias({videoMediaOf(fixture("video-only.mp4"))});
  movie.setCopy_video_stream(true);
  EXPECT_FALSE(movie.medias().front()->pictureAtTime(0));
  movie.setCopy_video_stream(false);
  movie.setDisableVideo(true);
  EXPECT_FALSE(movie.medias().front()->pictureAtTime(0));
  movie.setDisableVideo(false);
  EXPECT_TRUE(movie.medias().front()->pictureAtTime(0));
}

TEST(LMFFMediaPicture, NoneBeforeAnythingWasRead) {
  EXPECT_FALSE(videoMediaOf(fixture("video-only.mp4"))->currentPicture());
}

// The last picture, which nobody says how long it lasts, lasts as long as the one before it.
TEST(LMFFMediaPicture, WithoutADurationIsNotLost) {
  for (const char* name : {"untimed.ivf", "untimed.avi"}) {
    const auto sums = pictureSumsOf(fixture(name));
    ASSERT_EQ(sums.size(), 2u);
    for (const int count : {1, 2, 16}) {
      const ForcedCpuCount forced(count);
      const auto media = videoMediaOf(fixture(name));
      EXPECT_EQ(sumOf(media->pictureAtTime(milliseconds(480)).frame), sums[0]) << name;
      const Picture last = media->pictureAtTime(milliseconds(520));
      EXPECT_EQ(sumOf(last.frame), sums[1]) << name;
      EXPECT_EQ(last.start, milliseconds(500)) << name;
      EXPECT_EQ(last.end, kSecond) << name;
    }
  }
}

}  // namespace
}  // namespace kestrel::test
