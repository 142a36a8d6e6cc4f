#include <gmock/gmock.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Player.h>
#include <sys/stat.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "tests/support/Ffprobe.h"
#include "tests/support/Fixture.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// A device that plays nothing and keeps time, and the fastest tempo.
class PlayerTest : public testing::Test {
 protected:
  void SetUp() override { setenv("SDL_AUDIODRIVER", "dummy", 1); }

  /// Plays until the player says that it is at the end; false where it does not within a minute.
  static bool playToEnd(Player& player) {
    player.setRate(Player::kFastest);
    player.play();
    for (int i = 0; i < 3000 && !player.isAtEnd(); ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return player.isAtEnd();
  }

  /// Where a file's first stream of sound ends by its packets, microseconds after the file's start.
  static double soundEnd(const std::filesystem::path& file) {
    const auto probed = ffprobeJson(
        file, {"-select_streams", "a:0", "-show_frames", "-show_format", "-show_streams"});
    const auto& frame = probed.at("frames").back();
    const auto number = [](const auto& text) {
      return std::stod(text.template get<std::string>());
    };
    const double length = frame.at("nb_samples").template get<double>() /
                          number(probed.at("streams").at(0).at("sample_rate"));
    return 1e6 *
           (number(frame.at("pts_time")) + length - number(probed.at("format").at("start_time")));
  }

  const TempDir folder_;
};

TEST_F(PlayerTest, PlaysToTheEnd) {
  Player player({.input = fixture("av25.mp4").string()});
  EXPECT_NEAR(static_cast<double>(player.duration().value()), 2e6, 30000);
  EXPECT_EQ(player.time(), 0);
  EXPECT_FALSE(player.isAtEnd());
  ASSERT_TRUE(playToEnd(player));
  const Report report = player.report();
  EXPECT_TRUE(report.isWhole()) << testing::PrintToString(report.findings);
}

// Its bytes come once, and nothing says how many.
TEST_F(PlayerTest, EndsOnAPipe) {
  const auto pipe = folder_ / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  Process writer(
      {"sh", "-c", "cat \"$1\" > \"$2\"", "sh", fixture("av-live.mkv").string(), pipe.string()});
  Player player({.input = pipe.string()});
  EXPECT_EQ(player.duration(), std::nullopt);
  ASSERT_TRUE(playToEnd(player));
  const Report report = player.report();
  EXPECT_TRUE(report.isWhole()) << testing::PrintToString(report.findings);
  EXPECT_NEAR(static_cast<double>(report.reached), soundEnd(fixture("av-live.mkv")), 3000);
}

TEST_F(PlayerTest, ReachesTheEndOfWhatTheInputHolds) {
  for (const auto& [name, start] : {std::pair{"av25.mp4", 1500000},
                                    {"tone.mp3", 1500000},
                                    {"numbered25.mkv", 4500000},
                                    {"sound-shorter.mkv", 500000}}) {
    SCOPED_TRACE(name);
    const auto file = fixture(name);
    Player player({.input = file.string()});
    player.seek(start);
    ASSERT_TRUE(playToEnd(player));
    const Report report = player.report();
    EXPECT_TRUE(report.isWhole()) << testing::PrintToString(report.findings);
    EXPECT_LE(static_cast<double>(report.reached), soundEnd(file) + 3000);
  }
}

// Nobody draws them, and the clock goes on.
TEST_F(PlayerTest, PicturesAloneReachTheirEnd) {
  Player player({.input = fixture("video-only.mkv").string()});
  player.seek(100000);
  ASSERT_TRUE(playToEnd(player));
  const Report report = player.report();
  EXPECT_TRUE(report.isWhole()) << testing::PrintToString(report.findings);
  EXPECT_NEAR(static_cast<double>(report.reached), 2e6, 3000);
}

// Nothing of it is heard, from wherever one listens.
TEST_F(PlayerTest, TellsOfPacketsThatNoDecoderTakes) {
  for (const int64_t start : {0, 1000000}) {
    SCOPED_TRACE(start);
    Player player({.input = fixture("noise.mka").string()});
    if (start > 0) player.seek(start);
    ASSERT_TRUE(playToEnd(player));
    const Report report = player.report();
    EXPECT_THAT(report.findings, ElementsAre(HasSubstr("nothing could be decoded from '")));
    EXPECT_EQ(report.reached, 0);
    EXPECT_EQ(report.promised, 2000000);
  }
}

// What a seek passes over is not missed.
TEST_F(PlayerTest, ASeekDamagesNothing) {
  for (const char* name : {"av25.mp4", "tone.mp3", "numbered25-aac.mkv", "av25.ts"}) {
    SCOPED_TRACE(name);
    Player player({.input = fixture(name).string()});
    for (const int64_t time : {1300000, 300000, 1700000}) {
      player.seek(time);
      player.play();
      std::this_thread::sleep_for(std::chrono::milliseconds(60));
      player.pause();
    }
    EXPECT_THAT(player.report().findings, IsEmpty());
  }
}

TEST_F(PlayerTest, TellsWhatIsMissing) {
  const auto file = folder_ / "half.mkv";
  std::filesystem::copy_file(fixture("numbered25.mkv"), file);
  std::filesystem::resize_file(file, std::filesystem::file_size(file) / 2);
  Player player({.input = file.string()});
  ASSERT_TRUE(playToEnd(player));
  const Report report = player.report();
  EXPECT_EQ(report.outcome, Report::Outcome::kDoneInPart);
  EXPECT_THAT(report.findings, ElementsAre(HasSubstr("ended early")));
  EXPECT_NEAR(static_cast<double>(report.reached), 2.5e6, 300000);
  EXPECT_NEAR(static_cast<double>(report.promised.value()), 5e6, 50000);
}

TEST_F(PlayerTest, WhoStopsBeforeTheEndMissesNothing) {
  const auto file = folder_ / "half.mkv";
  std::filesystem::copy_file(fixture("numbered25.mkv"), file);
  std::filesystem::resize_file(file, std::filesystem::file_size(file) / 2);
  Player player({.input = file.string()});
  player.play();
  player.pause();
  EXPECT_THAT(player.report().findings, IsEmpty());
}

TEST_F(PlayerTest, TimesCountFromALateStart) {
  for (const char* name :
       {"numbered25-from-60.mkv", "numbered25-from-60.mp4", "numbered25-from-60.nut"}) {
    SCOPED_TRACE(name);
    Player player({.input = fixture(name).string()});
    EXPECT_NEAR(static_cast<double>(player.duration().value()), 5e6, 50000);
    EXPECT_EQ(player.time(), 0);
    player.seek(4500000);
    EXPECT_EQ(player.time(), 4500000);
    ASSERT_TRUE(playToEnd(player));
    EXPECT_TRUE(player.report().isWhole());
  }
}

TEST_F(PlayerTest, ASeekFromTheEndGoesOn) {
  Player player({.input = fixture("audio-only.m4a").string()});
  player.seek(1900000);
  ASSERT_TRUE(playToEnd(player));
  player.seek(1000000);
  EXPECT_FALSE(player.isAtEnd());
  EXPECT_TRUE(playToEnd(player));
}

TEST_F(PlayerTest, SeeksNoFurtherThanTheEnds) {
  Player player({.input = fixture("audio-only.m4a").string()});
  player.seek(-5);
  EXPECT_EQ(player.time(), 0);
  player.seek(1000000000);
  EXPECT_EQ(player.time(), player.duration());
}

TEST_F(PlayerTest, RateAndVolumeAreBroughtIntoTheirRange) {
  Player player({.input = fixture("audio-only.m4a").string()});
  player.setRate(100);
  EXPECT_EQ(player.rate(), Player::kFastest);
  player.setRate(0);
  EXPECT_EQ(player.rate(), Player::kSlowest);
  player.setVolume(2.5);
  EXPECT_EQ(player.movie().playVolume(), 2.5);
  player.setVolume(std::nan(""));
  EXPECT_EQ(player.movie().playVolume(), 2.5);
  player.setVolume(-1);
  EXPECT_EQ(player.movie().playVolume(), 0);
}

TEST_F(PlayerTest, PicturesHaveAShape) {
  EXPECT_EQ(Player({.input = fixture("audio-only.m4a").string()}).displayAspect(), 0);
  Player upright({.input = fixture("av-rotated.mp4").string(), .withPictures = true});
  EXPECT_NEAR(upright.displayAspect(), 9 / 16.0, 1e-9);
  Player wide({.input = fixture("wide-pixels.mp4").string(), .withPictures = true});
  EXPECT_NEAR(wide.displayAspect(), 16 / 9.0, 1e-9);
}

TEST_F(PlayerTest, RefusesWhatCannotBePlayed) {
  EXPECT_THROW(Player({.input = "missing.mp4"}), Failure);
  EXPECT_THROW(Player({.input = fixture("subtitles.srt").string()}), Failure);
  EXPECT_THROW(Player({.input = fixture("audio-only.m4a").string(), .withPictures = true}),
               Failure);
}

}  // namespace
}  // namespace kestrel::test
