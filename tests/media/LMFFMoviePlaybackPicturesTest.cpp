// What is heard while pictures are decoded.

#include <gmock/gmock.h>
#include <kestrel/LMFFImage.h>
#include <kestrel/LMFFMovie.h>

#include "tests/media/Playback.h"
#include "tests/media/Sources.h"

namespace kestrel::test {
namespace {

using testing::Each;
using testing::Ge;
using testing::IsEmpty;
using testing::Not;

constexpr int64_t kRate = 44100;
constexpr int32_t kAhead = 4 * 2048;  // what waits to be played

/// Pictures of 3456 bytes each, at every reading of which something happens.
class SlowPictures : public MemorySource {
 public:
  SlowPictures() : MemorySource(bytesOf(fixture("raw.avi"))) {}
  int32_t read(uint8_t* buffer, int32_t size) override {
    if (onRead) onRead();
    return MemorySource::read(buffer, size);
  }
  int32_t buffer_size() const override { return 4096; }
  std::function<void()> onRead;
};

/// A movie of pictures and of sound beside them, in this order, that plays.
class LMFFMoviePlaybackPictures : public testing::Test {
 protected:
  LMFFMoviePlaybackPictures() {
    movie_->play();
    movie_.pull(512);
    movie_.waitForSound();
    movie_->flushOperation();
  }
  /// Lets the reading of pictures come to an end.
  ~LMFFMoviePlaybackPictures() override { pictures_->onRead = nullptr; }

  LMFFMovie::MediaList medias() {
    const auto media = std::make_shared<LMFFMedia>();
    media->setSource(pictures_);
    const auto tone = [](int64_t frame) { return sineAt(440, frame); };
    return {media, std::make_shared<ComputedSound>(60 * kRate, tone)->createMedias().front()};
  }

  /// From now on so much is played at each reading of pictures: time that passes meanwhile.
  void playAtEachReading(int32_t frames) {
    pictures_->onRead = [this, frames] {
      const auto sound = movie_.device().pull(frames);
      played_.insert(played_.end(), sound.begin(), sound.end());
    };
  }

  void expectTonePlayed(int64_t first) {
    EXPECT_THAT(played_, Not(IsEmpty()));
    for (size_t i = 0; i < played_.size(); ++i)
      ASSERT_NEAR(played_[i], sineAt(440, first + static_cast<int64_t>(i / 2)), 1e-6) << i;
  }

  std::shared_ptr<SlowPictures> pictures_ = std::make_shared<SlowPictures>();
  PulledMovie movie_{medias()};
  std::vector<float> played_;
};

TEST_F(LMFFMoviePlaybackPictures, SoundGoesOnWhileManyAreDecodedForOne) {
  playAtEachReading(2000);
  movie_->decodeImageAtTime(milliseconds(900), true, [](const std::shared_ptr<LMFFImage>&) {});
  EXPECT_GT(played_.size() / 2, kAhead + 512);  // more than had been decoded before
  expectTonePlayed(512);
  EXPECT_EQ(movie_.graph().underruns(), 0);
}

TEST_F(LMFFMoviePlaybackPictures, SoundIsThereBeforeTheyAreSought) {
  std::vector<int32_t> queued;
  pictures_->onRead = [&] { queued.push_back(movie_.graph().bufferFrames()); };
  movie_->seek(kSecond);
  movie_->flushOperation();
  EXPECT_THAT(queued, Not(IsEmpty()));
  EXPECT_THAT(queued, Each(Ge(kAhead)));
}

TEST_F(LMFFMoviePlaybackPictures, SoundOfTheNewPlaceIsHeardWhileTheyAreSought) {
  playAtEachReading(512);
  movie_->seek(kSecond);
  movie_->flushOperation();
  expectTonePlayed(kRate);
}

TEST_F(LMFFMoviePlaybackPictures, PausedMovieDecodesNoSoundBesideThem) {
  movie_->pause();
  int32_t most = 0;
  pictures_->onRead = [&] { most = std::max(most, movie_.graph().bufferFrames()); };
  movie_->seek(kSecond);
  movie_->flushOperation();
  EXPECT_EQ(most, 0);
}

}  // namespace
}  // namespace kestrel::test
