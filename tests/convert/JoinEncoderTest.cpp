#include "convert/join/JoinEncoder.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/Ffprobe.h"
#include "tests/support/Fixture.h"
#include "tests/support/Pictures.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

/// Joins of a clip of two seconds with itself, 25 pictures a second, without loss.
class JoinEncoderTest : public testing::Test {
 protected:
  /// What it shows in which order, by the checksums of its pictures; the second part begins at
  /// `position` seconds, or behind the first. Plays it at `rate` times its speed.
  std::vector<uint32_t> joined(std::optional<double> position = {}, double rate = 1) {
    JoinSettings settings;
    settings.inputs = {{clip_}, {clip_}};
    if (position) settings.inputs[1].position = *position;
    settings.inputs[1].rate = rate;
    settings.output = (folder_ / "out.mkv").string();
    settings.format.videoCodec = "ffv1";
    settings.format.audioCodec = "pcm_s16le";
    plan_ = planJoin(settings, {});
    Events events;
    events.progress = [this](const Progress& progress) { times_.push_back(progress.time); };
    losses_ = encodeJoin(settings, plan_.parts, formatOfJoin(settings, plan_.parts.front(), true),
                         4, settings.output, events);
    return pictureSumsOf(settings.output);
  }

  /// So many pictures of the clip from one on.
  std::vector<uint32_t> clip(size_t first, size_t count) const {
    return {all_.begin() + static_cast<std::ptrdiff_t>(first),
            all_.begin() + static_cast<std::ptrdiff_t>(first + count)};
  }

  double soundLength() const {
    const auto probed = ffprobeJson(folder_ / "out.mkv", {"-show_packets", "-select_streams", "a"});
    double seconds = 0;
    for (const auto& packet : probed.at("packets"))
      seconds += std::stod(packet.at("size").get<std::string>()) / (44100.0 * 2 * 2);
    return seconds;
  }

  const TempDir folder_;
  const std::string clip_ = fixture("av25.mp4").string();
  const std::vector<uint32_t> all_ = pictureSumsOf(clip_);
  JoinPlan plan_;
  std::vector<std::string> losses_;
  std::vector<double> times_;
};

TEST_F(JoinEncoderTest, PicturesAndSoundFollowEachOther) {
  const auto shown = joined();
  auto expected = all_;
  expected.insert(expected.end(), all_.begin(), all_.end());
  EXPECT_EQ(shown, expected);
  EXPECT_NEAR(soundLength(), 4, 0.05);
  EXPECT_THAT(losses_, ElementsAre("24 bits become 16"));  // AAC is decoded to floats
  for (const JoinPart& part : plan_.parts) EXPECT_EQ(part.wanted, std::nullopt);
}

TEST_F(JoinEncoderTest, ProgressRisesToTheWhole) {
  joined();
  ASSERT_THAT(times_, SizeIs(100));
  for (size_t i = 0; i < times_.size(); ++i)
    EXPECT_NEAR(times_[i], 0.04 * static_cast<double>(i + 1), 1e-6);
}

// A second of nothing: 25 times the same picture, black, and silence.
TEST_F(JoinEncoderTest, WhereNothingPlaysItIsBlackAndSilent) {
  const auto shown = joined(3);
  ASSERT_THAT(shown, SizeIs(125));
  EXPECT_EQ(std::vector<uint32_t>(shown.begin(), shown.begin() + 50), all_);
  for (size_t i = 50; i < 75; ++i) EXPECT_EQ(shown[i], shown[50]);
  EXPECT_NE(shown[50], shown[49]);
  EXPECT_EQ(std::vector<uint32_t>(shown.begin() + 75, shown.end()), all_);
  EXPECT_NEAR(soundLength(), 5, 0.05);
}

TEST_F(JoinEncoderTest, ThePartThatBeginsTakesOver) {
  auto expected = clip(0, 25);
  const auto shown = joined(1);
  expected.insert(expected.end(), all_.begin(), all_.end());
  EXPECT_EQ(shown, expected);
  ASSERT_TRUE(plan_.parts[0].wanted);
  EXPECT_NEAR(static_cast<double>(*plan_.parts[0].wanted), 1e6, 1e5);
}

// At twice the speed every second picture is seen, and half as much is heard.
TEST_F(JoinEncoderTest, APartMayPlayFaster) {
  const auto shown = joined({}, 2);
  ASSERT_THAT(shown, SizeIs(75));
  for (size_t i = 0; i < 25; ++i) {
    const auto found = std::ranges::find(all_, shown[50 + i]);
    EXPECT_NEAR(static_cast<double>(found - all_.begin()), 2.0 * static_cast<double>(i), 1);
  }
  EXPECT_NEAR(soundLength(), 3, 0.05);
}

}  // namespace
}  // namespace kestrel::test
