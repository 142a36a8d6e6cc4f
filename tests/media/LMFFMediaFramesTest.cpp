#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <ostream>
#include <random>

#include "tests/media/Media.h"

namespace kestrel::test {
namespace {

/// A picture by its time, in the stream's time base, and by what it shows.
struct Picture {
  int64_t time = AV_NOPTS_VALUE;
  uint32_t sum = 0;

  bool operator==(const Picture&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Picture& picture) {
  return out << picture.time << " (" << std::hex << picture.sum << std::dec << ")";
}

Picture pictureOf(const AVFrame* frame) {
  return frame && frame->data[0] ? Picture{frame->pts, pictureSum(*frame)} : Picture{};
}

/// Reading pictures by time, from containers and codecs that place them differently.
class LMFFMediaFrames : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    const auto file = fixture(GetParam());
    media_ = videoMediaOf(file);
    ASSERT_TRUE(media_);
    expectPicturesOf(file);
    ASSERT_GT(pictures_.size(), 20u);
  }

  void expectPicturesOf(const std::filesystem::path& file) {
    const auto sums = pictureSumsOf(file);
    const auto times = timesOf(file, sums.size());
    ASSERT_EQ(times.size(), sums.size());
    for (size_t i = 0; i < sums.size(); ++i) pictures_.push_back({times[i], sums[i]});
    middles_ = middlesOf(*media_, times);
  }

  /// As ffprobe says. But where a container dates only the order of decoding, or nothing, ffprobe
  /// dates pictures late by the decoder's delay, or not at all: they are in truth one picture's
  /// length apart from 0 on.
  static std::vector<int64_t> timesOf(const std::filesystem::path& file, size_t count) {
    static const std::map<std::string, int64_t> kLengths{{"mpeg4-bframes.avi", 1},
                                                         {"bare.h264", 48000}};
    const auto length = kLengths.find(file.filename());
    if (length == kLengths.end()) return pictureTimesOf(file);
    std::vector<int64_t> times;
    for (size_t i = 0; i < count; ++i) times.push_back(static_cast<int64_t>(i) * length->second);
    return times;
  }

  Picture pictureAt(int64_t time) { return pictureOf(media_->videoFrameAtTime(time)); }

  size_t last() const { return pictures_.size() - 1; }

  std::shared_ptr<LMFFMedia> media_;
  std::vector<Picture> pictures_;
  std::vector<int64_t> middles_;  // of each picture's time on the media, microseconds
};

TEST_P(LMFFMediaFrames, EveryPictureIsFoundAtItsTime) {
  for (size_t picture = 0; picture < middles_.size(); ++picture)
    ASSERT_EQ(pictureAt(middles_[picture]), pictures_[picture]) << picture;
}

TEST_P(LMFFMediaFrames, NoPictureIsLostAtTheEnd) {
  std::vector<Picture> found;
  const auto stream = media_->videoStream();
  while (media_->forwardStream(stream))
    if (stream->hasFrame()) found.push_back(pictureOf(stream->frame()));
  EXPECT_EQ(found, pictures_);
}

TEST_P(LMFFMediaFrames, PictureAfterASeekIsTheOneOfThatTime) {
  std::mt19937 random(7);
  for (int i = 0; i < 60; ++i) {
    const size_t picture = random() % middles_.size();
    media_->seek(middles_[picture]);
    ASSERT_EQ(pictureAt(middles_[picture]), pictures_[picture]) << picture;
  }
}

TEST_P(LMFFMediaFrames, PicturesAfterASeekFollowWithoutAGap) {
  for (const size_t first : {last() / 3, last() * 2 / 3, last() - 2}) {
    media_->seek(middles_[first]);
    for (size_t picture = first; picture < middles_.size(); ++picture)
      ASSERT_EQ(pictureAt(middles_[picture]), pictures_[picture]) << "from " << first;
  }
}

TEST_P(LMFFMediaFrames, PictureAfterASeekIsTheSameWithAnyNumberOfProcessors) {
  for (const int count : {1, 2, 8, 16}) {
    const ForcedCpuCount forced(count);
    media_ = videoMediaOf(fixture(GetParam()));
    for (size_t picture = 0; picture < middles_.size(); picture += 3) {
      media_->seek(middles_[picture]);
      ASSERT_EQ(pictureAt(middles_[picture]), pictures_[picture])
          << "picture " << picture << ", " << count << " processors";
    }
  }
}

TEST_P(LMFFMediaFrames, PicturesInARowAreTheSameWithAnyNumberOfProcessors) {
  for (const int count : {1, 2, 8, 16}) {
    const ForcedCpuCount forced(count);
    media_ = videoMediaOf(fixture(GetParam()));
    for (size_t picture = 0; picture < middles_.size(); ++picture)
      ASSERT_EQ(pictureAt(middles_[picture]), pictures_[picture])
          << "picture " << picture << ", " << count << " processors";
  }
}

TEST_P(LMFFMediaFrames, ThumbnailIsThePictureOfItsTime) {
  for (const int count : {1, 2, 8, 16}) {
    const ForcedCpuCount forced(count);
    media_ = videoMediaOf(fixture(GetParam()));
    for (const size_t picture : {size_t{0}, size_t{1}, last() / 2, last()}) {
      Picture found;
      media_->thumbnailAtTime(middles_[picture],
                              [&found](AVFrame* frame) { found = pictureOf(frame); });
      EXPECT_EQ(found, pictures_[picture])
          << "picture " << picture << ", " << count << " processors";
    }
  }
}

TEST_P(LMFFMediaFrames, TimeBeforeTheFirstPictureAnswersTheFirst) {
  EXPECT_EQ(pictureAt(-kSecond), pictures_.front());
}

TEST_P(LMFFMediaFrames, LastPictureStandsAfterTheEnd) {
  media_->seek(middles_.back());
  EXPECT_EQ(pictureAt(middles_.back()), pictures_.back());
  EXPECT_EQ(pictureAt(middles_.back() + 10 * kSecond), pictures_.back());
  EXPECT_TRUE(media_->isAtEnd());
}

TEST_P(LMFFMediaFrames, SeekFromTheEndReadsEverythingAgain) {
  for (size_t picture = 0; picture < middles_.size(); ++picture) pictureAt(middles_[picture]);
  while (media_->forwardNextPacket()) {
  }
  media_->seek(middles_[2]);
  EXPECT_FALSE(media_->isAtEnd());
  for (size_t picture = 2; picture < middles_.size(); ++picture)
    ASSERT_EQ(pictureAt(middles_[picture]), pictures_[picture]);
}

std::string nameOf(const testing::TestParamInfo<const char*>& info) {
  std::string name = info.param;
  std::ranges::replace_if(
      name, [](char c) { return !std::isalnum(static_cast<uint8_t>(c)); }, '_');
  return name;
}

INSTANTIATE_TEST_SUITE_P(Fixtures, LMFFMediaFrames,
                         testing::Values("av25.mp4", "av25.ts", "av25.mpg", "video-only.mkv",
                                         "av-tracks.mkv", "av-vfr.mp4", "av60.mp4", "mjpeg.avi",
                                         "mpeg4-bframes.avi", "raw.avi", "raw-vfr.mkv",
                                         "sorenson.flv", "h264.flv", "bare.h264",
                                         "late-pictures.ts", "open-groups.ts", "slow2.mp4",
                                         "slow5.mkv", "slow0.2.mp4"),
                         nameOf);

}  // namespace
}  // namespace kestrel::test
