#include <gmock/gmock.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>

#include "tests/audio/Sound.h"
#include "tests/dvd/Disc.h"
#include "tests/e2e/Kestrel.h"
#include "tests/e2e/TerminalRun.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::HasSubstr;
using testing::Not;

/// A device that plays nothing and keeps time.
const std::vector<std::string> kDummy{"SDL_AUDIODRIVER=dummy"};

Arguments playCommand(const std::filesystem::path& input, const Arguments& options = {}) {
  return joined({kestrelBinary(), "play", input.string()}, options);
}

RunResult play(const std::filesystem::path& input, const Arguments& options = {},
               const std::vector<std::string>& environment = kDummy) {
  return run(playCommand(input, options), {.environment = environment});
}

// What is heard.

/// What SDL's disk driver wrote, without the periods of nothing but silence, which come before the
/// first sound and whenever the machine was too busy to supply any.
std::vector<float> captured(const std::filesystem::path& file) {
  constexpr size_t kPeriod = 2 * 512;
  std::ifstream stream(file, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
  std::vector<float> sound(bytes.size() / sizeof(float));
  std::memcpy(sound.data(), bytes.data(), sound.size() * sizeof(float));
  std::vector<float> heard;
  for (size_t i = 0; i + kPeriod <= sound.size(); i += kPeriod) {
    const auto begin = sound.begin() + static_cast<ptrdiff_t>(i);
    const auto end = begin + static_cast<ptrdiff_t>(kPeriod);
    if (std::any_of(begin, end, [](float sample) { return sample != 0; }))
      heard.insert(heard.end(), begin, end);
  }
  return heard;
}

TEST(Play, DevicesGetsWhatTheFileHolds) {
  const TempDir folder;
  const auto file = folder.path() / "played.raw";
  const RunResult result = play(fixture("pcm-stereo-44100-f32.wav"), {"--no-input"},
                                {"SDL_AUDIODRIVER=disk", "SDL_DISKAUDIOFILE=" + file.string()});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out + result.err, "");
  const auto sound = captured(file);
  ASSERT_GE(sound.size(), 2 * 88000);  // the period in which the end lies may not have been played
  for (size_t i = 0; i < 2 * 88000; ++i) {
    const double frequency = 440 * static_cast<double>(i % 2 + 1);
    ASSERT_NEAR(sound[i], sineAt(frequency, static_cast<int64_t>(i / 2)), 1e-6) << i;
  }
}

TEST(Play, BeginsWhereItIsToldTo) {
  const TempDir folder;
  const auto file = folder.path() / "played.raw";
  const RunResult result =
      play(fixture("pcm-stereo-44100-f32.wav"), {"--no-input", "--start", "1.5", "--volume", "0.5"},
           {"SDL_AUDIODRIVER=disk", "SDL_DISKAUDIOFILE=" + file.string()});
  EXPECT_EQ(result.status, 0) << result.err;
  const auto sound = captured(file);
  ASSERT_GE(sound.size(), 2 * 20000);
  for (size_t i = 0; i < 2 * 20000; i += 2)
    ASSERT_NEAR(sound[i], 0.5 * sineAt(440, 66150 + static_cast<int64_t>(i / 2)), 1e-6) << i;
}

// Without a terminal.

TEST(Play, EndsByItself) {
  for (const char* const name : {"av25.mp4", "tone.mp3"}) {
    const RunResult result = play(fixture(name), {"--rate", "4"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out + result.err, "");
  }
}

TEST(Play, PicturesAloneTakeTheirTime) {
  const RunResult result = play(fixture("raw.avi"), {"--start", "1.8"}, {"SDL_AUDIODRIVER=none"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out + result.err, "");  // no device is missed
}

TEST(Play, WithoutADeviceItSaysSoAndPlaysOn) {
  const RunResult result = play(fixture("tone.mp3"), {"--start", "1.8"}, {"SDL_AUDIODRIVER=none"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "kestrel: there is no audio device: playing without being heard\n");
}

TEST(Play, InputWithoutALengthEndsToo) {
  const RunResult result = play(fixture("av-live.mkv"), {"--rate", "4"});
  EXPECT_EQ(result.status, 0) << result.err;
}

TEST(Play, SoundThatEndsBeforeThePicturesIsWhole) {
  // The first says how long its sound is, the second does not.
  for (const char* const name : {"sound-shorter.mkv", "sound-shorter.flv"}) {
    const RunResult result = play(fixture(name), {"--rate", "4"});
    EXPECT_EQ(result.status, 0) << name;
    EXPECT_EQ(result.err, "") << name;
  }
}

TEST(Play, SaysThatAnInputEndedEarly) {
  const TempDir folder;
  const auto file = folder / "cut.mkv";
  const auto whole = fixture("sound-longer.mkv");
  std::filesystem::copy_file(whole, file);
  std::filesystem::resize_file(file, std::filesystem::file_size(whole) / 2);
  EXPECT_TRUE(endsWithSentence(play(file, {"--rate", "4"}), 3, "ended early"));
}

TEST(Play, RefusesWhatHasNoSense) {
  const auto file = fixture("tone.mp3");
  EXPECT_TRUE(endsWithSentence(play(file, {"--rate", "5"}), 2, "--rate"));
  EXPECT_TRUE(endsWithSentence(play(file, {"--rate", "nan"}), 2, "--rate"));
  EXPECT_TRUE(endsWithSentence(play(file, {"--rate", "fast"}), 2, "--rate"));
  for (const char* const volume : {"-1", "1001", "1e300", "inf", "nan"})
    EXPECT_TRUE(endsWithSentence(play(file, {"--volume", volume}), 2, "--volume"));
  EXPECT_TRUE(endsWithSentence(play(file, {"--start", "soon"}), 2, "--start"));
  EXPECT_TRUE(endsWithSentence(play(file, {"--start", "9:00"}), 2, "tone.mp3"));
  EXPECT_TRUE(endsWithSentence(play(file, {"--audio-tracks", "3"}), 2, "track 3"));
  EXPECT_TRUE(endsWithSentence(play(file, {"--picture"}), 1, "no pictures"));
  EXPECT_TRUE(endsWithSentence(play(fixture("av25.mp4"), {"--picture"}), 2, "--picture"));
  EXPECT_TRUE(endsWithSentence(play(discImage("pal"), {"--title", "9"}), 2, "title 9"));
  EXPECT_TRUE(endsWithSentence(play("absent.mp3"), 1, "absent.mp3"));
}

TEST(Play, EndsAtOnceWhenInterrupted) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
    TerminalRun program(playCommand(fixture("minutes.wav"), {"--no-input"}), kDummy);
    program.waitFor("playing");
    program.signal(number);
    EXPECT_EQ(program.wait(), 130);
  }
}

// On a terminal.

class PlayOnTerminal : public testing::Test {
 protected:
  explicit PlayOnTerminal(const Arguments& options = {})
      : program_(playCommand(fixture("minutes.wav"), options), kDummy) {
    program_.waitFor("playing  0:0");
  }

  /// Types, and waits for what is shown then.
  std::string press(const std::string& key, const std::string& pattern) {
    program_.type(key);
    return program_.waitFor(pattern);
  }

  void expectRestored() {
    EXPECT_TRUE(isSame(program_.settings(), program_.firstSettings()));
    EXPECT_GT(program_.output().rfind("\x1b[?25h"), program_.output().rfind("\x1b[?25l"));
  }

  TerminalRun program_;
};

TEST_F(PlayOnTerminal, KeysDoWhatTheyAreKnownFor) {
  press(" ", "paused");
  // Away from the start first: a line that stays the same is not drawn again.
  press("\x1b[C", "paused   0:0[5-9]|paused   0:[1-9]");
  press("\x1b[H", "paused   0:00.0");
  press("\x1b[C", "paused   0:05.0");
  press("\x1b[A", "paused   1:05.0");
  press("\x1b[D", "paused   1:00.0");
  press("\x1b[B", "paused   0:00.0");
  press("]", "1.10x");
  press("}", "2.20x");
  press("{", "1.10x");
  press("[", "1.00x");
  press("]]", "1.21x");
  press("\x7f", "1.00x");
  press("}}}}", "4.00x");
  press("{{{{{{", "0.25x");
  press("99", "vol  96 %");
  press("0", "vol  98 %");
  press(std::string(30, '0'), "vol 130 %");
  press("m", "muted");
  press("m", "vol 130 %");
  press("p", "playing");
  program_.type("q");
  EXPECT_EQ(program_.wait(), 0);
  expectRestored();
}

TEST_F(PlayOnTerminal, ShowsTheLevelAndThatTimePasses) {
  program_.waitFor("\\[#+-*\\] \\[#");
  program_.waitFor("0:00\\.[3-9]|0:0[1-9]");
  EXPECT_THAT(program_.output(), HasSubstr(" / 3:20.0"));
  program_.type("q");
  EXPECT_EQ(program_.wait(), 0);
}

TEST_F(PlayOnTerminal, TakesTheTerminalOnlyForItself) {
  EXPECT_EQ(program_.settings().c_lflag & (ECHO | ICANON), 0U);
  program_.signal(SIGINT);
  EXPECT_EQ(program_.wait(), 130);
  expectRestored();
  EXPECT_THAT(program_.output(), HasSubstr("kestrel: interrupted"));
}

TEST_F(PlayOnTerminal, CtrlCInterrupts) {
  program_.type("\x03");
  EXPECT_EQ(program_.wait(), 130);
  expectRestored();
}

TEST_F(PlayOnTerminal, CtrlBackslashInterruptsToo) {
  program_.type("\x1c");
  EXPECT_EQ(program_.wait(), 130);
  expectRestored();
}

TEST_F(PlayOnTerminal, TwoSignalsLeaveTheTerminalAsItWas) {
  program_.signal(SIGTERM);
  program_.signal(SIGINT);
  EXPECT_EQ(program_.wait(), 130);
  expectRestored();
}

/// Only what a shell has started can be stopped and go on: `script` says how, after that has been
/// stopped.
class PlayInShell : public testing::Test {
 protected:
  void begin(const std::string& script) {
    program_.emplace(
        Arguments{"/bin/bash", "-c", "set -m; was=$(stty -g); \"$0\" play \"$1\"; " + script,
                  kestrelBinary(), fixture("minutes.wav").string()},
        kDummy);
    program_->waitFor("playing  0:0");
  }

  void expectRestored() {
    EXPECT_TRUE(isSame(program_->settings(), program_->firstSettings()));
    EXPECT_GT(program_->output().rfind("\x1b[?25h"), program_->output().rfind("\x1b[?25l"));
  }

  /// It is in front again, and its keys do something.
  void expectKeysUntilItQuits() {
    program_->waitFor("\x1b\\[\\?25l");
    program_->waitFor("playing");
    EXPECT_EQ(program_->settings().c_lflag & (ECHO | ICANON), 0U);
    program_->type(" ");
    program_->waitFor("paused");
    program_->type("q");
    program_->waitFor("status=0");
    EXPECT_EQ(program_->wait(), 0);
    expectRestored();
  }

  std::optional<TerminalRun> program_;
};

TEST_F(PlayInShell, StoppedByItsKeyItGivesTheTerminalBackForTheTime) {
  begin("echo halted; read; fg; echo status=$?");
  program_->type("\x1a");
  program_->waitFor("halted");
  expectRestored();
  program_->type("\n");
  expectKeysUntilItQuits();
}

TEST_F(PlayInShell, StoppedByASignalToo) {
  begin("echo halted; read; fg; echo status=$?");
  program_->signalForeground(SIGTSTP);
  program_->waitFor("halted");
  expectRestored();
  program_->type("\n");
  expectKeysUntilItQuits();
}

TEST_F(PlayInShell, StoppedWithoutNoticeItTakesTheTerminalAnew) {
  begin("stty $was; echo halted; read; fg; echo status=$?");
  program_->signalForeground(SIGSTOP);
  program_->waitFor("halted");
  program_->type("\n");
  expectKeysUntilItQuits();
}

TEST_F(PlayInShell, InTheBackgroundItLeavesTheTerminalAlone) {
  begin("bg; echo behind; sleep 1; echo shell; fg; echo status=$?");
  program_->type("\x1a");
  program_->waitFor("behind");
  expectRestored();
  const std::string shown = program_->waitFor("([\\s\\S]*)shell");
  EXPECT_THAT(shown, Not(HasSubstr("playing")));
  expectKeysUntilItQuits();
}

TEST(PlayDisc, PlaysTheTitleThatIsNamed) {
  for (const auto& [title, length] :
       {std::pair{"1", "0:08.0"}, std::pair{"main", "0:08.0"}, std::pair{"4", "0:02.0"}}) {
    TerminalRun program(playCommand(discImage("pal"), {"--title", title}), kDummy);
    program.waitFor(std::string("playing  0:0[0-9.]+ / ") + length);
    program.type("q");
    EXPECT_EQ(program.wait(), 0);
  }
}

struct PlayWithoutKeys : PlayOnTerminal {
  PlayWithoutKeys() : PlayOnTerminal({"--no-input"}) {}
};

TEST_F(PlayWithoutKeys, LeavesTheTerminalsInputAlone) {
  EXPECT_TRUE(isSame(program_.settings(), program_.firstSettings()));
  program_.signal(SIGTERM);
  EXPECT_EQ(program_.wait(), 130);
  expectRestored();
}

}  // namespace
}  // namespace kestrel::test
