#include "convert/feed/AudioFeed.h"

#include <gmock/gmock.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMMediaSource.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>
#include <vector>

#include "tests/convert/PlacedSound.h"
#include "tests/support/Fixture.h"

namespace kestrel::test {
namespace {

class AudioFeedTest : public testing::Test {
 protected:
  /// Sound and pictures have a reader each.
  void open(const std::filesystem::path& file, int64_t start = 0) {
    const auto source = LMMediaSource::mediaWithPath(file.string());
    source->open();
    show(source->createMedias(), start);
  }

  /// They share one.
  void openInOne(const std::filesystem::path& file) {
    const auto media = std::make_shared<LMFFMedia>();
    media->setSource(LMMediaSource::mediaWithPath(file.string()));
    show({media}, 0);
  }

  /// Two files, one over the other.
  void openBeside(const std::filesystem::path& first, const std::filesystem::path& second) {
    LMFFMovie::MediaList medias;
    for (const auto& file : {first, second}) {
      medias.push_back(std::make_shared<LMFFMedia>());
      medias.back()->setSource(LMMediaSource::mediaWithPath(file.string()));
    }
    show(medias, 0);
  }

  /// How many frames wait once so many more were read at once.
  int32_t waitingAfter(int32_t frames) {
    int32_t waiting = -1;
    movie_.decodeImage(
        [&] {
          Sound buffer(static_cast<size_t>(frames) * 2);
          EXPECT_EQ(feed_->read(buffer.data(), frames), frames);
          waiting = feed_->waitingFrames();
        },
        true);
    return waiting;
  }

  /// Reads to the end by requests of that many frames.
  Sound readAll(int32_t request = 4096) {
    Sound sound;
    movie_.decodeImage(
        [&] {
          Sound buffer(static_cast<size_t>(request) * 2);
          while (const int32_t count = feed_->read(buffer.data(), request))
            sound.insert(sound.end(), buffer.begin(), buffer.begin() + ptrdiff_t{2} * count);
        },
        true);
    return sound;
  }

  LMFFMovie movie_;
  std::optional<AudioFeed> feed_;  // of all sound in the movie

 private:
  void show(const LMFFMovie::MediaList& medias, int64_t start) {
    movie_.setExportMovie(true);
    movie_.openMedias(medias);
    movie_.seek(start);
    movie_.flushOperation();
    std::vector<AudioFeed::Input> inputs;
    for (const auto& media : movie_.audios())
      for (const auto& stream : media->audios()) inputs.push_back({media, stream});
    feed_.emplace(inputs);
  }
};

TEST_F(AudioFeedTest, GivesEverySampleAsItIs) {
  for (const char* name :
       {"pcm-stereo-44100-s16.wav", "pcm-stereo-44100-f32.wav", "chirp.nut", "chirp.mkv"})
    for (const int32_t request : {4096, 512, 100, 1}) {
      SCOPED_TRACE(testing::Message() << name << " by " << request);
      movie_.close();
      open(fixture(name));
      const Sound expected = decoded(fixture(name));
      ASSERT_EQ(firstDifference(readAll(request), expected), -1);
    }
}

TEST_F(AudioFeedTest, AHoleIsSilentAndWhatFollowsIsAtItsPlace) {
  const Sound expected = expectedSound(fixture("chirp-hole.nut"));
  // There is one: half a second and more.
  ASSERT_NE(std::search_n(expected.begin(), expected.end(), kRate, 0.0F), expected.end());
  open(fixture("chirp-hole.nut"));
  EXPECT_EQ(firstDifference(readAll(), expected), -1);
}

TEST_F(AudioFeedTest, SoundThatBeginsLaterIsPrecededBySilence) {
  const Sound expected = expectedSound(fixture("chirp-late.nut"));
  const auto first = std::ranges::find_if(expected, [](float sample) { return sample != 0; });
  ASSERT_GE(first - expected.begin(), 2 * 7 * kRate / 10);
  open(fixture("chirp-late.nut"));
  EXPECT_EQ(firstDifference(readAll(), expected), -1);
}

// As a conversion does it: the movie is half a second earlier, and that is dropped.
TEST_F(AudioFeedTest, FromAStartOnItIsExactToTheSample) {
  for (const char* name : {"chirp.nut", "chirp-hole.nut", "chirp-late.nut"}) {
    const Sound expected = expectedSound(fixture(name));
    for (const int64_t start : {100000, 500000, 780000, 1000000, 2350000}) {
      SCOPED_TRACE(testing::Message() << name << " from " << start);
      const int64_t preroll = std::min<int64_t>(start, 500000);
      movie_.close();
      open(fixture(name), start - preroll);
      const int64_t dropped = preroll * kRate / 1000000;
      movie_.decodeImage([&] { feed_->skip(dropped); }, true);
      const int64_t first = start * kRate / 1000000;
      const Sound rest(expected.begin() + 2 * first, expected.end());
      EXPECT_EQ(firstDifference(readAll(), rest), -1);
    }
  }
}

TEST_F(AudioFeedTest, AnotherRateKeepsTheLength) {
  for (const char* name :
       {"pcm-mono-8000-s16.wav", "pcm-stereo-48000-s24.wav", "pcm-stereo-96000-s24.wav",
        "pcm-stereo-192000-f64.wav", "pcm-5.1-48000-s16.wav"}) {
    SCOPED_TRACE(name);
    for (const int32_t request : {4096, 10}) {
      movie_.close();
      open(fixture(name));
      const Sound sound = readAll(request);
      EXPECT_EQ(sound.size(), size_t{2} * 2 * kRate);
      // The left channel begins with a tone: there is no stretch of silence in it.
      int64_t silent = 0;
      for (size_t i = 0; i < sound.size(); i += 2) silent += std::fabs(sound[i]) < 1e-4F;
      EXPECT_LT(silent, 200);
    }
  }
}

TEST_F(AudioFeedTest, TracksAreAddedWithoutALimit) {
  open(fixture("loud-tracks.mkv"));
  const Sound sound = readAll();
  Sound expected = decoded(fixture("loud-tracks.mkv"));
  for (float& sample : expected) sample *= 2;
  EXPECT_EQ(firstDifference(sound, expected), -1);
  EXPECT_GT(*std::ranges::max_element(sound), 1.5F);
}

TEST_F(AudioFeedTest, OnceNobodyWantsPicturesItReadsPastThem) {
  openInOne(fixture("chirp-late.nut"));
  feed_->readAlone();
  EXPECT_EQ(firstDifference(readAll(), expectedSound(fixture("chirp-late.nut"))), -1);
}

// Packets of 1024 frames.
TEST_F(AudioFeedTest, TellsHowMuchWaits) {
  open(fixture("chirp.nut"));
  EXPECT_EQ(waitingAfter(500), 524);
  EXPECT_EQ(waitingAfter(100), 424);
  EXPECT_EQ(waitingAfter(424), 0);
  EXPECT_EQ(waitingAfter(24), 1000);
}

// Beside them, packets of 512 frames: nothing waits of one, and still much of the other.
TEST_F(AudioFeedTest, TellsHowMuchWaitsOfTheStreamThatHasTheFewest) {
  openBeside(fixture("chirp.nut"), fixture("pcm-stereo-44100-f32.wav"));
  EXPECT_EQ(waitingAfter(500), 12);
  EXPECT_EQ(waitingAfter(12), 0);
  EXPECT_EQ(waitingAfter(12), 500);
}

TEST_F(AudioFeedTest, HasTheFormatOfItsStreams) {
  open(fixture("chirp.nut"));
  EXPECT_EQ(feed_->format().sample_rate, kRate);
  EXPECT_EQ(feed_->channels(), 2);
}

}  // namespace
}  // namespace kestrel::test
