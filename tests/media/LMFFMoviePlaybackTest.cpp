#include <gmock/gmock.h>
#include <kestrel/LMFFMovie.h>

#include <cmath>
#include <memory>
#include <set>

#include "tests/e2e/Kestrel.h"
#include "tests/media/Playback.h"
#include "tests/media/Sources.h"

namespace kestrel::test {
namespace {

using testing::Each;

constexpr double kTone = 440;
constexpr int64_t kRate = 44100;

float tone(int64_t frame) { return sineAt(kTone, frame); }

/// Seconds, of microseconds.
double seconds(int64_t time) { return lm_ff_time_to_double(time); }

LMFFMovie::MediaList toneOf(int64_t frames) {
  return std::make_shared<ComputedSound>(frames, tone)->createMedias();
}

/// Both channels of `sound` are the computed tone from a frame on.
void expectTone(const std::vector<float>& sound, int64_t first) {
  for (size_t i = 0; i < sound.size(); ++i)
    ASSERT_NEAR(sound[i], tone(first + static_cast<int64_t>(i / 2)), 1e-6) << i;
}

/// A file's sound as ffmpeg decodes it.
std::vector<float> decodedByFfmpeg(const std::filesystem::path& file) {
  const std::string bytes = ffmpeg(
      {"-i", file.string(), "-map", "0:a:0", "-f", "f32le", "-ac", "2", "-ar", "44100", "-"});
  std::vector<float> sound(bytes.size() / sizeof(float));
  std::memcpy(sound.data(), bytes.data(), sound.size() * sizeof(float));
  return sound;
}

// What is heard.

TEST(LMFFMoviePlayback, SineComesOutAsItWentIn) {
  PulledMovie movie(toneOf(2 * kRate));
  movie->play();
  expectTone(movie.pull(2 * kRate), 0);
  EXPECT_EQ(movie.graph().underruns(), 0);
}

class PlayedFile : public testing::TestWithParam<const char*> {};

TEST_P(PlayedFile, SoundsAsFfmpegDecodesIt) {
  const auto file = fixture(GetParam());
  const auto expected = decodedByFfmpeg(file);
  PulledMovie movie(sourceOf(file)->createMedias());
  movie->play();
  const auto played = movie.pull(static_cast<int64_t>(expected.size() / 2));
  ASSERT_GE(played.size(), expected.size());
  for (size_t i = 0; i < expected.size(); ++i) ASSERT_NEAR(played[i], expected[i], 1e-4) << i;
  EXPECT_THAT(movie.pull(4096), Each(0.0F));  // there is no more
}

// Without, with pictures beside it, and all of it to the last sample.
INSTANTIATE_TEST_SUITE_P(Files, PlayedFile,
                         testing::Values("audio-only.m4a", "av25.mp4", "pcm-stereo-44100-f32.wav",
                                         "numbered25.mkv"));

TEST(LMFFMoviePlayback, OneMediaWithSoundAndPicturesIsHeardWhole) {
  const auto file = fixture("numbered25.mkv");
  const auto expected = decodedByFfmpeg(file);
  PulledMovie movie({openedMedia(file)});
  movie->play();
  const auto played = movie.pull(static_cast<int64_t>(expected.size() / 2));
  for (size_t i = 0; i < expected.size(); ++i) ASSERT_NEAR(played[i], expected[i], 1e-4) << i;
}

TEST(LMFFMoviePlayback, MediasThatFollowEachOtherDoSo) {
  const auto first = toneOf(kRate).front();
  const auto second = toneOf(kRate).front();
  second->setMovie_position(kSecond);
  PulledMovie movie({first, second});
  movie->play();
  expectTone(movie.pull(kRate), 0);
  const auto sound = movie.pull(kRate);
  // The second begins with the block that its beginning lies in.
  const auto begin = static_cast<int64_t>(2 * (2048 - kRate % 2048));
  expectTone({sound.begin() + begin, sound.end()}, begin / 2);
}

TEST(LMFFMoviePlayback, TwoMoviesPlayAtOnce) {
  PulledMovie a(toneOf(kRate));
  PulledMovie b(
      std::make_shared<ComputedSound>(kRate, [](int64_t) { return 0.5F; })->createMedias());
  a->play();
  b->play();
  for (int i = 0; i < 20; ++i) {
    expectTone(a.pull(512), i * 512);
    EXPECT_THAT(b.pull(512), Each(0.5F));
  }
}

TEST(LMFFMoviePlayback, VolumeIsThatOfTheOutput) {
  PulledMovie movie(
      std::make_shared<ComputedSound>(kRate, [](int64_t) { return 0.5F; })->createMedias());
  movie->setPlayVolume(0.25);
  movie->play();
  EXPECT_THAT(movie.pull(1024), Each(0.125F));
}

// Pausing.

TEST(LMFFMoviePlayback, PauseAndResumeLoseAndRepeatNothing) {
  PulledMovie movie(toneOf(2 * kRate));
  std::vector<float> played;
  for (int i = 0; i < 20; ++i) {
    movie->play();
    EXPECT_TRUE(movie->isPlay());
    const auto sound = movie.pull(1000);
    played.insert(played.end(), sound.begin(), sound.end());
    movie->pause();
    EXPECT_FALSE(movie->isPlay());
    const int64_t time = movie->currentTime();
    EXPECT_THAT(movie.device().pull(100), Each(0.0F));
    EXPECT_EQ(movie->currentTime(), time);
  }
  expectTone(played, 0);
}

TEST(LMFFMoviePlayback, PausedAtAnotherRateTheClockGoesOnWhereItWas) {
  PulledMovie movie(toneOf(10 * kRate));
  movie->setRate(2);
  movie->play();
  movie.pull(kRate);
  movie->pause();
  const int64_t time = movie->currentTime();
  movie->play();
  EXPECT_EQ(movie->currentTime(), time);
  movie.pull(kRate);
  EXPECT_NEAR(seconds(movie->currentTime() - time), 2, 0.02);
}

// The clock.

/// Plays a pulse each second and compares the clock with what is heard.
class PlaybackClock : public testing::TestWithParam<std::tuple<int32_t, float>> {};

TEST_P(PlaybackClock, FollowsWhatIsHeard) {
  const auto [deviceRate, rate] = GetParam();
  PulledMovie movie(std::make_shared<ComputedSound>(30 * kRate,
                                                    [](int64_t frame) {
                                                      const int64_t offset = frame % kRate;
                                                      return offset < 400
                                                                 ? sineAt(1000, offset, 44100, 0.8)
                                                                 : 0.0F;
                                                    })
                        ->createMedias(),
                    {.sampleRate = deviceRate, .channels = 2});
  movie->setRate(rate);
  movie->play();
  movie.pull(kRate / 2);
  std::set<int64_t> heard;
  for (int i = 0; i < 4 * deviceRate / 128; ++i) {
    const int64_t before = movie->currentTime();
    const auto sound = movie.pull(128, 128);
    const int64_t after = movie->currentTime();
    ASSERT_GE(after, before);
    const auto loud = std::ranges::find_if(sound, [](float s) { return std::abs(s) > 0.3; });
    if (loud == sound.end()) continue;
    const int64_t second = std::lround(static_cast<double>(before) / kSecond);
    if (!heard.insert(second).second) continue;
    EXPECT_NEAR(seconds(before), static_cast<double>(second), 0.03);
  }
  EXPECT_GE(heard.size(), 1);
}

INSTANTIATE_TEST_SUITE_P(Rates, PlaybackClock,
                         testing::Combine(testing::Values(44100, 48000, 96000),
                                          testing::Values(0.25F, 0.5F, 1.0F, 1.5F, 2.0F, 4.0F)));

TEST(LMFFMoviePlayback, ClockIsExactAtRateOne) {
  PulledMovie movie(toneOf(2 * kRate));
  movie->play();
  EXPECT_EQ(movie->currentTime(), 0);
  for (int i = 1; i <= 50; ++i) {
    movie.pull(512);
    EXPECT_EQ(movie->currentTime(), i * 512 * kSecond / kRate);
  }
}

TEST(LMFFMoviePlayback, ClockDoesNotDrift) {
  PulledMovie movie(
      std::make_shared<ComputedSound>(600 * kRate, [](int64_t) { return 0.1F; })->createMedias());
  movie->play();
  movie.pull(60 * kRate);
  EXPECT_EQ(movie->currentTime(), 60 * kSecond);
  movie->setRate(1.5F);
  movie.pull(kRate);
  const int64_t begin = movie->currentTime();
  movie.pull(30 * kRate);
  EXPECT_NEAR(seconds(movie->currentTime() - begin), 45, 0.02);
}

TEST(LMFFMoviePlayback, DecodingDoesNotMoveTheClock) {
  PulledMovie movie(toneOf(2 * kRate));
  movie->play();
  movie.waitForSound();
  EXPECT_EQ(movie->currentTime(), 0);
  movie.pull(512);
  movie.waitForSound();
  EXPECT_EQ(movie->currentTime(), 512 * kSecond / kRate);
}

// Pitch.

class PlaybackPitch : public testing::TestWithParam<float> {};

TEST_P(PlaybackPitch, IsKept) {
  PulledMovie movie(toneOf(12 * kRate));
  movie->setRate(GetParam());
  movie->play();
  movie.pull(kRate / 2);
  const auto sound = movie.pull(2 * kRate);
  EXPECT_LT(centsBetween(pitchOf(channelOf(sound, 0)), kTone), 3);
  EXPECT_LT(centsBetween(pitchOf(channelOf(sound, 1)), kTone), 3);
}

INSTANTIATE_TEST_SUITE_P(Rates, PlaybackPitch, testing::Values(0.5F, 1.5F, 2.0F));

// Seeking.

TEST(LMFFMoviePlayback, SeekGoesOnFromItsPlaceAtOnce) {
  PulledMovie movie(toneOf(10 * kRate));
  movie->play();
  movie.pull(5000);
  for (const int64_t second : {5, 2, 9, 0}) {
    movie->seek(second * kSecond);
    EXPECT_EQ(movie->currentTime(), second * kSecond);
    movie->flushOperation();
    EXPECT_EQ(movie->currentTime(), second * kSecond);
    expectTone(movie.pull(3000), second * kRate);
    EXPECT_EQ(movie->currentTime(), second * kSecond + 3000 * kSecond / kRate);
  }
}

TEST(LMFFMoviePlayback, SeekAtAnotherRateIsExactToo) {
  PulledMovie movie(toneOf(20 * kRate));
  movie->setRate(2);
  movie->play();
  movie.pull(kRate);
  movie->seek(10 * kSecond);
  EXPECT_EQ(movie->currentTime(), 10 * kSecond);
  movie->flushOperation();
  EXPECT_EQ(movie->currentTime(), 10 * kSecond);
  expectTone(movie.pull(512), 10 * kRate);  // nothing of the old place is heard any more
}

TEST(LMFFMoviePlayback, SeekWhilePausedIsHeardWhenItGoesOn) {
  PulledMovie movie(toneOf(10 * kRate));
  movie->play();
  movie.pull(5000);
  movie->pause();
  movie->seek(7 * kSecond);
  movie->flushOperation();
  EXPECT_EQ(movie->currentTime(), 7 * kSecond);
  movie->play();
  expectTone(movie.pull(3000), 7 * kRate);
}

/// Counts how often it is read from another place than the next.
class CountingSound : public ComputedSound {
 public:
  CountingSound() : ComputedSound(60 * kRate, tone) {}
  int32_t read(uint8_t* buffer, int32_t size) override {
    if (read_offset() != expected_) ++jumps;
    const int32_t count = ComputedSound::read(buffer, size);
    expected_ = read_offset() + count;
    return count;
  }
  int32_t buffer_size() const override { return 4096; }
  std::atomic<int> jumps{0};

 private:
  int64_t expected_ = 0;
};

TEST(LMFFMoviePlayback, HundredSeeksInABurstPositionOnce) {
  const auto source = std::make_shared<CountingSound>();
  const auto media = std::make_shared<LMFFMedia>();
  media->setSource(source);
  PulledMovie movie({media});
  movie->play();
  movie.pull(5000);
  const auto jumpsOf = [&](int count, int64_t last) {
    movie->flushOperation();
    source->jumps = 0;
    {
      const HeldQueue held(movie.movie());
      // To and fro, and time and again to the place that it ends at.
      for (int i = 1; i < count; ++i) movie->seek(i % 3 == 0 ? last : i % 50 * kSecond);
      movie->seek(last);
      EXPECT_EQ(movie->currentTime(), last);
    }
    movie->flushOperation();
    return source->jumps.load();
  };
  const int forOne = jumpsOf(1, 20 * kSecond);
  EXPECT_GT(forOne, 0);
  EXPECT_EQ(jumpsOf(100, 30 * kSecond), forOne);
  expectTone(movie.pull(3000), 30 * kRate);
}

TEST(LMFFMoviePlayback, SoundThatASeekDropsDoesNotCount) {
  PulledMovie movie(toneOf(10 * kRate));
  movie->play();
  {
    const HeldQueue held(movie.movie());
    movie->decodeMoreAudioDataToAudioOutput();  // runs after the seek, before its work
    movie->seek(5 * kSecond);
    movie->decodeMoreAudioDataToAudioOutput();
  }
  movie->flushOperation();
  EXPECT_EQ(movie->currentTime(), 5 * kSecond);
  expectTone(movie.pull(2000), 5 * kRate);
}

// Underruns.

TEST(LMFFMoviePlayback, UnderrunIsSilentAndCountedAndDoesNotMoveTheClock) {
  PulledMovie movie(toneOf(10 * kRate));
  movie->play();
  movie.pull(5120);
  movie.waitForSound();
  {
    const HeldQueue held(movie.movie());
    const int32_t queued = movie.graph().bufferFrames();
    expectTone(movie.device().pull(queued), 5120);
    const int64_t time = movie->currentTime();
    EXPECT_EQ(time, (5120 + queued) * kSecond / kRate);
    EXPECT_THAT(movie.device().pull(4096), Each(0.0F));
    EXPECT_EQ(movie.graph().underruns(), 8);
    EXPECT_EQ(movie->currentTime(), time);
  }
  const int64_t time = movie->currentTime();
  expectTone(movie.pull(2000), (time * kRate + kSecond - 1) / kSecond);
  EXPECT_EQ(movie.graph().underruns(), 8);
}

// The end.

TEST(LMFFMoviePlayback, EndIsReachedAndSilenceFollows) {
  PulledMovie movie(toneOf(kRate + 77));
  movie->play();
  expectTone(movie.pull(kRate + 77), 0);
  EXPECT_GE(movie->currentTime(), movie->duration());
  EXPECT_THAT(movie.pull(5000), Each(0.0F));
  EXPECT_TRUE(movie->isPlay());
  movie->seek(0);
  movie->flushOperation();
  expectTone(movie.pull(2000), 0);
}

// Devices.

TEST(LMFFMoviePlayback, OpeningStartsNoDevice) {
  PulledMovie movie(toneOf(kRate));
  EXPECT_FALSE(movie.device().isOpen());
  movie->seek(1000);
  movie->flushOperation();
  EXPECT_FALSE(movie.device().isOpen());
  movie->play();
  EXPECT_TRUE(movie.device().isOpen());
}

TEST(LMFFMoviePlayback, MovieWithoutSoundPlaysWithoutADevice) {
  PulledMovie movie(sourceOf(fixture("raw.avi"))->createMedias());
  movie->play();
  EXPECT_TRUE(movie->isPlay());
  EXPECT_FALSE(movie.device().isOpen());
  while (movie->currentTime() < milliseconds(50)) std::this_thread::yield();
  movie->pause();
  const int64_t time = movie->currentTime();
  std::this_thread::sleep_for(std::chrono::milliseconds(60));
  EXPECT_LT(movie->currentTime() - time, milliseconds(50));  // a period may still be on its way
}

TEST(LMFFMoviePlayback, ExportedMoviePlaysNothing) {
  PulledMovie movie(toneOf(kRate));
  movie->setExportMovie(true);
  movie->play();
  EXPECT_THAT(movie.device().pull(2000), Each(0.0F));
  EXPECT_EQ(movie->currentTime(), 0);
  EXPECT_EQ(movie.graph().underruns(), 0);
}

// Threads.

/// A movie with the device that has a thread of its own.
struct ThreadedMovie {
  ThreadedMovie() {
    movie.openMedias(toneOf(60 * kRate));
    movie.audioOutputGraph()->graph().setDevice(makeNullAudioDevice());
  }
  LMFFMovie movie;
};

TEST(LMFFMoviePlaybackThreads, SeeksRatesAndPausesFromAllSides) {
  ThreadedMovie played;
  LMFFMovie& movie = played.movie;
  movie.play();
  std::vector<std::jthread> threads;
  threads.emplace_back([&] {
    for (int i = 0; i < 200; ++i) movie.seek(i % 60 * kSecond);
  });
  threads.emplace_back([&] {
    for (int i = 0; i < 200; ++i) {
      movie.setRate(0.25F + static_cast<float>(i % 16) / 4);
      movie.setPlayVolume(i % 5);
      movie.audioOutputGraph()->graph().takePeak(0);
    }
  });
  threads.emplace_back([&] {
    for (int i = 0; i < 20; ++i) {
      movie.pause();
      movie.play();
    }
  });
  for (int i = 0; i < 500; ++i) EXPECT_GE(movie.currentTime(), 0);
  threads.clear();
  movie.flushOperation();
  EXPECT_TRUE(movie.isPlay());
}

TEST(LMFFMoviePlaybackThreads, ClosedWhilePlaying) {
  for (int i = 0; i < 10; ++i) {
    ThreadedMovie played;
    played.movie.setRate(1.5F);
    played.movie.play();
    const int64_t goal = played.movie.currentTime() + i * 2000;
    while (played.movie.currentTime() < goal) std::this_thread::yield();
    played.movie.seek(i * kSecond);
    played.movie.close();
    EXPECT_FALSE(played.movie.isPlay());
    EXPECT_EQ(played.movie.audioOutputGraph(), nullptr);
  }
}

TEST(LMFFMoviePlaybackThreads, DestroyedWhilePlaying) {
  for (int i = 0; i < 10; ++i) {
    ThreadedMovie played;
    played.movie.play();
    played.movie.seek(kSecond);
  }
}

TEST(LMFFMoviePlaybackThreads, GraphOutlivesItsMovie) {
  std::shared_ptr<LMOutputAudioGraph> graph;
  {
    ThreadedMovie played;
    graph = played.movie.audioOutputGraph();
    played.movie.play();
  }
  EXPECT_FALSE(graph->isStart());
  graph->start();
  graph->stop();
}

}  // namespace
}  // namespace kestrel::test
