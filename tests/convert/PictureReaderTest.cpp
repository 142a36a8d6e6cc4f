#include "convert/pictures/PictureReader.h"

#include <gtest/gtest.h>
#include <kestrel/ImageContext.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMMediaSource.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tests/convert/ShownTimes.h"
#include "tests/support/Ffprobe.h"
#include "tests/support/Fixture.h"

extern "C" {
#include <libavutil/frame.h>
}

namespace kestrel::test {
using namespace kestrel;

namespace {

constexpr int kBits = 16;

/// A movie of pictures that carry their number as sixteen upright bars, the lowest bit at the left.
class NumberedMovie {
 public:
  explicit NumberedMovie(const std::string& name) {
    const auto source = LMMediaSource::mediaWithPath(fixture(name).string());
    source->open();
    auto streams = IndexSet{};
    const auto probed = ffprobeJson(fixture(name));
    for (const auto& stream : probed.at("streams"))
      if (stream.at("codec_type") == "video") streams.insert(stream.at("index").get<uint32_t>());
    movie_.setExportMovie(true);
    movie_.openMedias(source->createMediasWithStreams(streams));
    reader_.emplace(movie_);
  }

  /// The number of the picture at a time in seconds; -1 without one.
  int numberAt(double seconds) {
    const auto image = reader_->frameAt(std::llround(seconds * 1e6)).image;
    if (!image) return -1;
    const AVFrame& frame = *image->getFrame();
    const uint8_t* row = frame.data[0] + frame.height / 2 * frame.linesize[0];
    int number = 0;
    for (int bit = 0; bit < kBits; ++bit)
      if (row[frame.width / kBits * bit + frame.width / kBits / 2] > 127) number |= 1 << bit;
    return number;
  }

  /// When the picture of a time begins; seconds.
  double beginAt(double seconds) {
    return static_cast<double>(reader_->frameAt(std::llround(seconds * 1e6)).start) / 1e6;
  }

  LMFFMovie& movie() { return movie_; }
  PictureReader& reader() { return *reader_; }

 private:
  LMFFMovie movie_;
  std::optional<PictureReader> reader_;
};

struct Clip {
  const char* name;
  double rate;
  int count;
};

class ClipsOfOneRate : public testing::TestWithParam<Clip> {};

TEST_P(ClipsOfOneRate, ShowThePictureOfEveryTimeInOrder) {
  const auto& [name, rate, count] = GetParam();
  NumberedMovie movie(name);
  for (int k = 0; k < count; k += 7) EXPECT_EQ(movie.numberAt((k + 0.5) / rate), k);
}

TEST_P(ClipsOfOneRate, ShowThePictureOfEveryTimeBackwards) {
  const auto& [name, rate, count] = GetParam();
  NumberedMovie movie(name);
  for (int k = count - 1; k >= 0; k -= 11) EXPECT_EQ(movie.numberAt((k + 0.5) / rate), k);
}

TEST_P(ClipsOfOneRate, ShowThePictureOfEveryTimeInAnyOrder) {
  const auto& [name, rate, count] = GetParam();
  NumberedMovie movie(name);
  std::mt19937 random(5);
  for (int i = 0; i < 40; ++i) {
    const int k = static_cast<int>(random() % static_cast<unsigned>(count));
    EXPECT_EQ(movie.numberAt((k + 0.5) / rate), k);
  }
}

TEST_P(ClipsOfOneRate, ATimeInRoundedMillisecondsMeansThePictureThatBeginsThere) {
  const auto& [name, rate, count] = GetParam();
  NumberedMovie movie(name);
  for (int k = 0; k < count; k += 13)
    EXPECT_EQ(movie.numberAt(std::floor(k / rate * 1000) / 1000), k);
}

INSTANTIATE_TEST_SUITE_P(PictureReader, ClipsOfOneRate,
                         testing::Values(Clip{"numbered25.mp4", 25, 125},
                                         Clip{"numbered25.mkv", 25, 125},
                                         Clip{"numbered25.ts", 25, 125},
                                         Clip{"numbered60.mp4", 60, 300},
                                         Clip{"numbered30000-1001.mp4", 30000 / 1001.0, 150},
                                         Clip{"numbered25-one-key.mp4", 25, 300}),
                         [](const auto& instance) {
                           std::string name = instance.param.name;
                           std::ranges::replace_if(
                               name, [](char c) { return !std::isalnum(c); }, '_');
                           return name;
                         });

TEST(PictureReader, OfPicturesAtAnyTimesTheOneShownLastCounts) {
  // Picture k begins at k / 50 s; many are missing.
  const auto packets = ffprobeJson(fixture("numbered-vfr.mp4"),
                                   {"-select_streams", "v", "-show_entries", "packet=pts_time"})
                           .at("packets");
  std::vector<int> numbers;
  for (const auto& packet : packets)
    numbers.push_back(
        static_cast<int>(std::lround(std::stod(packet.at("pts_time").get<std::string>()) * 50)));
  std::ranges::sort(numbers);
  ASSERT_GT(numbers.size(), 50u);
  NumberedMovie movie("numbered-vfr.mp4");
  for (int tick = 0; tick < 299; tick += 3) {
    // Shortly before a tick ends, where the next picture may begin.
    const int shown = *std::prev(std::ranges::upper_bound(numbers, tick));
    EXPECT_EQ(movie.numberAt((tick + 0.9) / 50), shown) << tick;
  }
}

class SlowClips : public testing::TestWithParam<const char*> {};

TEST_P(SlowClips, ShowAPictureUntilItEnds) {
  const auto begins = shownTimes(fixture(GetParam()));
  ASSERT_GE(begins.size(), 2U);
  NumberedMovie movie(GetParam());
  for (size_t i = 0; i + 1 < begins.size(); ++i) {
    const double length = begins[i + 1] - begins[i];
    for (const double time : {begins[i] + 0.9 * length, begins[i + 1] - 0.002})
      EXPECT_NEAR(movie.beginAt(time), begins[i], 0.001) << time;
  }
}

INSTANTIATE_TEST_SUITE_P(PictureReader, SlowClips,
                         testing::Values("slow2.mp4", "slow5.mkv", "slow0.2.mp4"),
                         [](const auto& instance) {
                           std::string name = instance.param;
                           std::ranges::replace_if(
                               name, [](char c) { return !std::isalnum(c); }, '_');
                           return name;
                         });

TEST(PictureReader, BehindTheEndTheLastPictureStays) {
  NumberedMovie movie("numbered25-one-key.mp4");
  EXPECT_EQ(movie.numberAt(100), 299);
  ASSERT_TRUE(movie.reader().end());
  EXPECT_NEAR(static_cast<double>(*movie.reader().end()), 12e6, 1000);
  EXPECT_EQ(movie.numberAt(3.02), 75);
}

TEST(PictureReader, BeforeTheFirstPictureTheFirstOneStands) {
  NumberedMovie movie("numbered-late-video.mkv");  // picture 25 comes first, at 1 s
  EXPECT_EQ(movie.numberAt(0), 25);
  EXPECT_EQ(movie.numberAt(1.5), 37);
  EXPECT_EQ(movie.numberAt(0.2), 25);
}

TEST(PictureReader, AskedTwiceAnswersTheSamePicture) {
  NumberedMovie movie("numbered25.mp4");
  const auto first = movie.reader().frameAt(1'005'000).image;
  EXPECT_EQ(movie.reader().frameAt(1'025'000).image, first);
}

TEST(PictureReader, LeavesTheDecoderAsItWas) {
  LMFFMovie movie;
  const auto source = LMMediaSource::mediaWithPath(fixture("numbered25-one-key.mp4").string());
  source->open();
  movie.openMedias(source->createMedias());
  PictureReader(movie).frameAt(8'000'000);
  // Every picture comes again.
  std::vector<int64_t> times;
  movie.videos().front()->seek(0);
  const auto stream = movie.videos().front()->videoStream();
  for (int k = 0; k < 50; ++k)
    times.push_back(movie.videos().front()->videoFrameAtTime(k * 40'000 + 20'000)->pts);
  for (size_t k = 1; k < times.size(); ++k) EXPECT_EQ(times[k] - times[k - 1], times[1] - times[0]);
}

TEST(PictureReader, WithoutPicturesThereIsNone) {
  LMFFMovie movie;
  PictureReader reader(movie);
  EXPECT_EQ(reader.frameAt(0).image, nullptr);
  EXPECT_EQ(reader.imageAt(0), nullptr);
}

TEST(PictureReader, AnImageHasTheSizeOfTheMoviesOutput) {
  NumberedMovie movie("numbered25.mp4");
  movie.movie().setOutputVideoSize({64, 20});
  const auto image = movie.reader().imageAt(1'000'000);
  ASSERT_TRUE(image);
  EXPECT_EQ(image->extent(), (Rect{{0, 0}, {64, 20}}));
}

}  // namespace
}  // namespace kestrel::test
