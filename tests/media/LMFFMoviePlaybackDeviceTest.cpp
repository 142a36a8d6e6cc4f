// What a movie's sound does on devices that are not the plainest.

#include <gmock/gmock.h>
#include <kestrel/LMFFMovie.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <limits>

#include "tests/media/Playback.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::Each;
using testing::FloatNear;

constexpr int64_t kRate = 44100;

float tone(int64_t frame) { return sineAt(440, frame); }

LMFFMovie::MediaList soundOf(int64_t frames, ComputedSound::Sample sample) {
  return std::make_shared<ComputedSound>(frames, std::move(sample))->createMedias();
}

TEST(LMFFMoviePlaybackDevice, NothingOfTheOldPlaceIsHeardAfterASeek) {
  for (const int32_t deviceRate : {22050, 44100, 48000, 96000}) {
    PulledMovie movie(
        soundOf(20 * kRate, [](int64_t frame) { return frame < 5 * kRate ? tone(frame) : 0.0F; }),
        {.sampleRate = deviceRate, .channels = 2});
    movie->play();
    movie.pull(kRate);
    movie->seek(10 * kSecond);
    movie->flushOperation();
    EXPECT_THAT(movie.pull(8192), Each(FloatNear(0, 1e-6F))) << deviceRate;
  }
}

TEST(LMFFMoviePlaybackDevice, RateAndVolumeWithoutSenseSilenceNothing) {
  PulledMovie movie(soundOf(10 * kRate, tone));
  movie->setRate(std::numeric_limits<float>::quiet_NaN());
  movie->play();
  movie->seek(kSecond);
  movie->flushOperation();
  EXPECT_EQ(movie.graph().bufferFrames(), 4 * 2048);  // as at rate 1
  movie->setPlayVolume(1e300);
  EXPECT_EQ(movie->playVolume(), std::numeric_limits<float>::max());
  for (const float sample : movie.device().pull(2048)) ASSERT_TRUE(std::isfinite(sample));
}

// Starting beside stopping.

/// Takes as long to stop as the test wants.
class SlowDevice : public PulledAudioDevice {
 public:
  void stop() override {
    isStopping.set_value();
    mayStop.get_future().wait();
    PulledAudioDevice::stop();
  }
  std::promise<void> isStopping;
  std::promise<void> mayStop;
};

TEST(LMFFMoviePlaybackDevice, PlayBesidePauseLeavesAMovieThatPlays) {
  const auto device = std::make_shared<SlowDevice>();
  LMFFMovie movie;
  movie.openMedias(soundOf(10 * kRate, tone));
  movie.audioOutputGraph()->graph().setDevice(device);
  movie.play();
  {
    const std::jthread pausing([&] { movie.pause(); });
    device->isStopping.get_future().wait();
    const std::jthread playing([&] { movie.play(); });
    // So that it has begun; what holds holds without it, too.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    device->mayStop.set_value();
  }
  EXPECT_TRUE(movie.isPlay());
  movie.seek(kSecond);
  movie.flushOperation();
  EXPECT_EQ(movie.audioOutputGraph()->bufferFrames(), 4 * 2048);  // a seek fills what plays
  device->isStopping = {};
  device->mayStop = {};
  device->mayStop.set_value();
}

// The system's devices.

/// The samples of a file that SDL's disk driver wrote, without those of value 0.
std::vector<float> written(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
  std::vector<float> sound(bytes.size() / sizeof(float));
  std::memcpy(sound.data(), bytes.data(), sound.size() * sizeof(float));
  std::erase(sound, 0.0F);
  return sound;
}

TEST(LMFFMoviePlaybackDevice, TwoMoviesPlayAtOnceEachThroughItsOwn) {
  const TempDir folder;
  setenv("SDL_AUDIODRIVER", "disk", 1);
  const float levels[] = {0.25F, 0.5F};
  const auto fileOf = [&](int i) { return folder.path() / (std::to_string(i) + ".raw"); };
  {
    LMFFMovie movies[2];
    for (int i = 0; i < 2; ++i) {
      movies[i].openMedias(soundOf(60 * kRate, [level = levels[i]](int64_t) { return level; }));
      setenv("SDL_DISKAUDIOFILE", fileOf(i).c_str(), 1);
      movies[i].play();
    }
    const auto lacksDevice = [](LMFFMovie& movie) {
      return movie.audioOutputGraph()->graph().lacksDevice();
    };
    if (lacksDevice(movies[0])) GTEST_SKIP() << "SDL is not installed";
    EXPECT_FALSE(lacksDevice(movies[1]));
    for (auto& movie : movies)
      while (movie.currentTime() < milliseconds(200)) std::this_thread::yield();
    for (auto& movie : movies) EXPECT_TRUE(movie.isPlay());
  }
  for (int i = 0; i < 2; ++i) {
    const auto sound = written(fileOf(i));
    EXPECT_GE(sound.size(), 2 * kRate / 10);
    EXPECT_THAT(sound, Each(levels[i]));
  }
}

}  // namespace
}  // namespace kestrel::test
