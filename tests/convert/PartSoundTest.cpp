#include "convert/join/PartSound.h"

#include <gtest/gtest.h>
#include <kestrel/LMFFFormat.h>

#include <cmath>
#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/EditList.h"
#include "tests/support/Fixture.h"
#include "tests/support/Peer.h"
#include "tests/support/TempDir.h"

extern "C" {
#include <libavutil/samplefmt.h>
}

namespace kestrel::test {
namespace {

constexpr int kRate = 44100;
constexpr int64_t kStereo = 3;  // front left and right
const LMFFAudioFormat kFormat{AV_SAMPLE_FMT_DBL, kStereo, kRate};

/// What the chirps' formula says of a frame.
double chirp(int64_t frame, int channel) {
  const double t = static_cast<double>(frame) / kRate;
  return channel == 0 ? 0.5 * std::sin(900 * t * t) : 0.25 * std::cos(700 * t * t);
}

/// The frame of the chirp that samples begin with is `first`; answers how many do not follow it,
/// but for the rounding to 16 bits.
size_t strayFrames(const JoinedSound::Samples& samples, int64_t first) {
  constexpr double kRounding = 1.01 / 32768;
  size_t stray = 0;
  for (size_t i = 0; i < samples.size(); ++i)
    if (std::abs(samples[i] - chirp(first + static_cast<int64_t>(i / 2), i % 2 == 0 ? 0 : 1)) >
        kRounding)
      ++stray;
  return stray;
}

JoinPart partOf(const std::filesystem::path& file, double rate = 1) {
  JoinSettings settings;
  settings.inputs = {{.path = file.string(), .rate = rate}};
  settings.output = "out.mkv";
  return planJoin(settings, {}).parts.front();
}

JoinedSound::Samples allOf(PartSound& sound) {
  JoinedSound::Samples all;
  JoinedSound::Samples block(2000);
  while (const int32_t count = sound.read(block.data(), 1000))
    all.insert(all.end(), block.begin(), block.begin() + std::ptrdiff_t{2} * count);
  return all;
}

TEST(PartSound, IsReadToItsEnd) {
  PartSound sound(partOf(fixture("chirp.nut")), 0, kFormat, false);
  EXPECT_EQ(sound.begin(), 0);
  const auto all = allOf(sound);
  EXPECT_EQ(all.size(), 2 * 3 * kRate);
  EXPECT_EQ(strayFrames(all, 0), 0);
  EXPECT_EQ(sound.inputEnd().reached, 3000000);
  EXPECT_EQ(sound.inputEnd().refused, 0);
  EXPECT_FALSE(sound.inputEnd().error);
}

TEST(PartSound, TellsHowFarItWasRead) {
  PartSound sound(partOf(fixture("chirp.nut")), 0, kFormat, false);
  JoinedSound::Samples block(size_t{2} * kRate);
  int32_t count = 0;
  while (count < kRate) count += sound.read(block.data(), kRate - count);
  EXPECT_EQ(sound.inputEnd().reached, 1000000);
}

TEST(PartSound, SilenceBeforeItIsLeftOut) {
  PartSound sound(partOf(fixture("chirp-late.nut")), 1, kFormat, false);
  EXPECT_EQ(sound.begin(), 7 * kRate / 10);
  EXPECT_EQ(strayFrames(allOf(sound), 0), 0);
  EXPECT_EQ(sound.inputEnd().reached, 3700000);
}

TEST(PartSound, PlaysAtThePartsRate) {
  PartSound sound(partOf(fixture("chirp-late.nut"), 2), 1, kFormat, false);
  EXPECT_EQ(sound.begin(), 7 * kRate / 20);
  const auto frames = static_cast<double>(allOf(sound).size()) / 2;
  EXPECT_NEAR(frames, 1.5 * kRate, 0.05 * kRate);
  // The input's own time.
  EXPECT_EQ(sound.inputEnd().reached, 3700000);
}

/// The chirp in lossless packets of 4096 frames, of which an edit list hides the first 10000.
class HiddenSoundTest : public testing::Test {
 protected:
  HiddenSoundTest() {
    const RunResult made =
        runPeer({"ffmpeg", "-v", "error", "-nostdin", "-i", fixture("chirp.nut").string(), "-c:a",
                 "alac", "-frame_size", "4096", file_.string()});
    if (made.status != 0) throw std::runtime_error(made.err);
    setEdits(file_, {{2500, kShown}});
  }

  static constexpr uint32_t kShown = 10000;

  TempDir folder_;
  const std::filesystem::path file_ = folder_ / "chirp.m4a";
};

TEST_F(HiddenSoundTest, IsWhatLiesBeforeTheStart) {
  const auto hidden = hiddenSound({.path = file_.string()}, 0, kFormat, {});
  EXPECT_EQ(hidden.size(), 2 * kShown);
  EXPECT_EQ(strayFrames(hidden, 0), 0);
}

TEST_F(HiddenSoundTest, APartBeginsWithItWhereThatIsWanted) {
  PartSound sound(partOf(file_), 0, kFormat, true);
  EXPECT_EQ(sound.begin(), -int64_t{kShown});
  const auto all = allOf(sound);
  EXPECT_GT(all.size(), 2 * 2 * kRate);
  EXPECT_EQ(strayFrames(all, 0), 0);
}

TEST_F(HiddenSoundTest, AndElseWithWhatIsHeard) {
  PartSound sound(partOf(file_), 0, kFormat, false);
  EXPECT_EQ(sound.begin(), 0);
  EXPECT_EQ(strayFrames(allOf(sound), kShown), 0);
}

TEST(HiddenSound, MostFilesHaveNone) {
  EXPECT_TRUE(hiddenSound({.path = fixture("chirp.nut").string()}, 0, kFormat, {}).empty());
}

}  // namespace
}  // namespace kestrel::test
