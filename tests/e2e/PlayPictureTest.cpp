#include <gmock/gmock.h>

#include <optional>
#include <regex>

#include "tests/e2e/Kestrel.h"
#include "tests/e2e/TerminalRun.h"
#include "tests/support/Fixture.h"

namespace kestrel::test {
namespace {

using testing::HasSubstr;
using testing::Not;

/// Plays the clip whose pictures carry their number (tests/e2e/NumberedClip.h) with `options`, on a
/// terminal that can show them unless `environment` says otherwise.
TerminalRun playPictures(const Arguments& options, const std::vector<std::string>& environment) {
  std::vector<std::string> variables{"SDL_AUDIODRIVER=dummy"};
  variables.insert(variables.end(), environment.begin(), environment.end());
  return TerminalRun(
      joined({kestrelBinary(), "play", fixture("numbered25.mp4").string(), "--picture"}, options),
      variables);
}

const std::vector<std::string> kCapable{"TERM=xterm-256color", "LC_ALL=C.UTF-8"};

/// What is on the terminal.
struct Shown {
  std::string state;
  double time = 0;
  int number = 0;  // of the picture
};

/// The number that a row of half blocks shows in 16 bars.
std::optional<int> numberOf(const std::string& row) {
  std::vector<int> columns;  // how bright
  int upper = 0;
  static const std::regex part("\x1b\\[38;2;([0-9]+);[0-9;]+m|▀");
  for (std::sregex_iterator i(row.begin(), row.end(), part), end; i != end; ++i) {
    if ((*i)[1].matched)
      upper = std::stoi((*i)[1]);
    else
      columns.push_back(upper);
  }
  if (columns.size() < 16) return std::nullopt;
  int number = 0;
  for (size_t bit = 0; bit < 16; ++bit)
    if (columns[columns.size() * (2 * bit + 1) / 32] > 127) number |= 1 << bit;
  return number;
}

/// The last line that was drawn, and the picture below it.
std::optional<Shown> lastShown(const std::string& output) {
  const std::string kEnd = "\x1b[J";
  const size_t end = output.rfind(kEnd);
  if (end == std::string::npos || end == 0) return std::nullopt;
  const size_t before = output.rfind(kEnd, end - 1);
  const size_t begin = before == std::string::npos ? 0 : before;
  const std::string text = output.substr(begin, end - begin);
  static const std::regex line("(playing|paused) +0:([0-9]+\\.[0-9])[^\n]*\n([^\n]*)");
  std::smatch match;
  if (!std::regex_search(text, match, line)) return std::nullopt;
  const auto number = numberOf(match[3]);
  if (!number) return std::nullopt;
  return Shown{match[1], std::stod(match[2]), *number};
}

/// Whether the movie is paused and the picture is the one of its time, which is cut to tenths.
bool isPausedInSync(const std::string& output) {
  const auto shown = lastShown(output);
  return shown && shown->state == "paused" && shown->number > shown->time * 25 - 1.01 &&
         shown->number < (shown->time + 0.1) * 25 + 0.01;
}

TEST(PlayPicture, IsThatOfTheTime) {
  TerminalRun program = playPictures({"--rate", "0.25", "--start", "1"}, kCapable);
  const auto waitForPicture = [&](int number) {
    program.waitUntil([number](const std::string& output) {
      const auto shown = lastShown(output);
      return shown && shown->state == "playing" && shown->number >= number;
    });
  };
  waitForPicture(27);
  program.type(" ");
  program.waitUntil(isPausedInSync);
  program.type("\x1b[H");  // to the start
  program.waitUntil([](const std::string& output) {
    const auto shown = lastShown(output);
    return shown && shown->time == 0 && shown->number == 0;
  });
  program.type(" ");
  waitForPicture(10);
  program.type(" ");
  program.waitUntil(isPausedInSync);
  program.type("q");
  EXPECT_EQ(program.wait(), 0);
  EXPECT_TRUE(isSame(program.settings(), program.firstSettings()));
}

TEST(PlayPicture, NeedsATerminalWithColorsAndBlocks) {
  const std::vector<std::vector<std::string>> environments{
      {"TERM=dumb", "LC_ALL=C.UTF-8"},
      {"TERM=vt100", "LC_ALL=C.UTF-8"},
      {"TERM=", "LC_ALL=C.UTF-8"},
      {"TERM=xterm-256color", "LC_ALL=C"},
      {"TERM=xterm-256color", "LC_ALL=", "LC_CTYPE=", "LANG=de_DE"}};
  for (const auto& environment : environments) {
    TerminalRun program = playPictures({}, environment);
    EXPECT_EQ(program.wait(), 2);
    EXPECT_THAT(program.output(), HasSubstr("--picture"));
    EXPECT_THAT(program.output(), Not(HasSubstr("▀")));
  }
}

TEST(PlayPicture, IsShownWhereNothingIsSaidOfCharacters) {
  for (const char* const language : {"LANG=", "LANG=de_DE.utf8"}) {
    TerminalRun program = playPictures({}, {"TERM=xterm", "LC_ALL=", "LC_CTYPE=", language});
    program.waitFor("▀");
    program.type("q");
    EXPECT_EQ(program.wait(), 0);
  }
}

}  // namespace
}  // namespace kestrel::test
