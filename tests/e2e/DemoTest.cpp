#include <gmock/gmock.h>

#include <chrono>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "tests/e2e/Decoded.h"
#include "tests/e2e/Kestrel.h"
#include "tests/support/FileBytes.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::IsEmpty;
using Names = std::set<std::string>;

/// Runs of `kestrel demo` in a folder, with another one for temporary files.
class Demo : public testing::Test {
 protected:
  RunOptions options() const {
    return {.workingDirectory = folder_.path(),
            .environment = {"TMPDIR=" + temporary_.path().string()}};
  }

  RunResult demo(const Arguments& arguments) const {
    return run(joined({kestrelBinary(), "demo"}, arguments), options());
  }

  const TempDir folder_;
  const TempDir temporary_;
};

/// When a tick begins after half a second without one, in seconds from the first sample.
std::vector<double> tickTimes(const std::vector<float>& sound) {
  std::vector<double> ticks;
  double lastLoud = -1;
  for (size_t i = 0; i < sound.size(); ++i) {
    if (std::abs(sound[i]) < 0.2f) continue;
    const double time = static_cast<double>(i) / 44100;
    if (time - lastLoud > 0.5) ticks.push_back(time);
    lastLoud = time;
  }
  return ticks;
}

/// Each second begins with a picture whose dial is lit and a tick.
void expectFlashesAndTicks(const std::filesystem::path& file) {
  // The dial fills the middle of a picture of five by five squares.
  const auto pictures = greyPictures(file, 5, 5);
  ASSERT_EQ(pictures.size(), 250u);
  std::vector<size_t> flashes;
  for (size_t i = 0; i < pictures.size(); ++i)
    if (static_cast<uint8_t>(pictures[i][7]) > 150) flashes.push_back(i);
  EXPECT_EQ(flashes, (std::vector<size_t>{0, 25, 50, 75, 100, 125, 150, 175, 200, 225}));

  const auto times = pictureTimes(file);
  const auto ticks = tickTimes(samples(file, 1));
  ASSERT_EQ(ticks.size(), flashes.size());
  for (size_t i = 0; i < ticks.size(); ++i)
    EXPECT_NEAR(soundStart(file) + ticks[i], times.at(flashes[i]), 0.01) << "tick " << i;
}

// One demo for all of this: it takes seconds to make.
TEST_F(Demo, PlaysEverywhereFlashesEachSecondAndReplacesAnotherOnlyByForce) {
  writeBytes(folder_ / "out.mp4", "precious");
  EXPECT_TRUE(endsWithSentence(demo({"out.mp4"}), 1, "'out.mp4' exists; --force replaces it"));
  EXPECT_EQ(readBytes(folder_ / "out.mp4"), "precious");

  const RunResult result = demo({"out.mp4", "--force"});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out + result.err, "");
  EXPECT_EQ(namesIn(folder_.path()), Names{"out.mp4"});
  EXPECT_THAT(namesIn(temporary_.path()), IsEmpty());

  const auto video = streamOf(folder_ / "out.mp4", "video");
  EXPECT_EQ(video["codec_name"], "h264");
  EXPECT_EQ(video["pix_fmt"], "yuv420p");
  EXPECT_EQ(video["width"], 1280);
  EXPECT_EQ(video["height"], 720);
  EXPECT_EQ(video["r_frame_rate"], "25/1");
  EXPECT_EQ(video["nb_frames"], "250");
  EXPECT_EQ(video["color_space"], "bt709");
  EXPECT_EQ(streamOf(folder_ / "out.mp4", "audio")["codec_name"], "aac");
  EXPECT_NEAR(static_cast<double>(sampleCount(folder_ / "out.mp4")), 441000, 1024);
  expectFlashesAndTicks(folder_ / "out.mp4");
}

TEST_F(Demo, ABadTargetIsRefusedAtOnce) {
  EXPECT_TRUE(endsWithSentence(demo({"missing/out.mp4"}), 1, "missing/out.mp4"));
  EXPECT_TRUE(endsWithSentence(demo({"."}), 1, "'.'"));
}

TEST_F(Demo, AnInterruptLeavesNothing) {
  Process process({kestrelBinary(), "demo", "out.mp4"}, options());
  while (namesIn(temporary_.path()).empty())
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  process.signal(SIGINT);
  EXPECT_TRUE(endsWithSentence(process.wait(), 130, "interrupted"));
  EXPECT_THAT(namesIn(folder_.path()), IsEmpty());
  EXPECT_THAT(namesIn(temporary_.path()), IsEmpty());
}

}  // namespace
}  // namespace kestrel::test
