#include "tools/terminal/ProgressDisplay.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace {

using nlohmann::json;

/// Half a minute of a minute of 25 pictures a second, done in ten seconds.
const ProgressState kHalf{.time = 30, .duration = 60, .frames = 750, .elapsed = 10};

TEST(ProgressJson, TellsAllNumbers) {
  EXPECT_EQ(json::parse(progressJson(kHalf)), (json{{"time", 30.0},
                                                    {"duration", 60.0},
                                                    {"percent", 50.0},
                                                    {"frames", 750},
                                                    {"fps", 75.0},
                                                    {"speed", 3.0},
                                                    {"eta", 10.0}}));
}

TEST(ProgressJson, HasNullForWhatIsUnknown) {
  const auto line = json::parse(progressJson({.time = 30, .frames = 750, .elapsed = 10}));
  EXPECT_EQ(line["duration"], nullptr);
  EXPECT_EQ(line["percent"], nullptr);
  EXPECT_EQ(line["eta"], nullptr);
  EXPECT_EQ(line["speed"], 3.0);
}

TEST(ProgressJson, SaysOnlyAtTheEndThatItIsDone) {
  ProgressState state = kHalf;
  EXPECT_FALSE(json::parse(progressJson(state)).contains("done"));
  state.isDone = true;
  const auto line = json::parse(progressJson(state));
  EXPECT_EQ(line["done"], true);
  EXPECT_EQ(line["percent"], 100.0);
  EXPECT_EQ(line["eta"], 0.0);
}

TEST(ProgressJson, IsOneLineOfNumbersFromTheFirstMomentOn) {
  const std::string line = progressJson({.duration = 60});
  EXPECT_EQ(line.find('\n'), std::string::npos);
  EXPECT_EQ(json::parse(line)["speed"], 0.0);
  EXPECT_EQ(json::parse(line)["eta"], nullptr);
}

TEST(ProgressJson, NeverExceedsAHundredPercent) {
  const ProgressState state{.time = 70, .duration = 60, .frames = 1750, .elapsed = 10};
  const auto line = json::parse(progressJson(state));
  EXPECT_EQ(line["percent"], 100.0);
  EXPECT_EQ(line["eta"], 0.0);
}

TEST(ProgressBar, ShowsPercentRateSpeedAndTimeLeft) {
  EXPECT_EQ(progressBar(kHalf, 80), " 50 %  [" + std::string(20, '#') + std::string(20, '-') +
                                        "]    75 fps  3.00x  0:10 left");
}

TEST(ProgressBar, ShowsTheTimeWhereThereIsNoEnd) {
  EXPECT_EQ(progressBar({.time = 75.4, .frames = 750, .elapsed = 10}, 80), "1:15    75 fps  7.54x");
}

TEST(ProgressBar, StaysWithinTheTerminal) {
  for (int columns = 0; columns < 120; ++columns)
    EXPECT_LE(progressBar(kHalf, columns).size(), columns > 0 ? columns - 1u : 0u);
}

/// What a `ProgressDisplay` writes to standard error.
template <class Work>
std::string shown(ProgressDisplay::Style style, Work work) {
  testing::internal::CaptureStderr();
  {
    ProgressDisplay progress(style);
    work(progress);
  }
  return testing::internal::GetCapturedStderr();
}

TEST(ProgressDisplay, WritesALineOfJsonForWhatIsDoneAndOneForTheEnd) {
  const std::string text = shown(ProgressDisplay::Style::kJson, [](ProgressDisplay& progress) {
    progress.update({30, 60, 750});
    progress.update({31, 60, 775});  // too soon after the one before to be shown
    progress.finish();
  });
  const size_t end = text.find('\n');
  EXPECT_EQ(json::parse(text.substr(0, end))["frames"], 750);
  const auto last = json::parse(text.substr(end + 1));
  EXPECT_EQ(last["frames"], 775);
  EXPECT_EQ(last["done"], true);
}

TEST(ProgressDisplay, IsNotDoneWhenItGoesUnfinished) {
  const std::string text = shown(ProgressDisplay::Style::kJson, [](ProgressDisplay& progress) {
    progress.update({30, 60, 750});
  });
  EXPECT_FALSE(json::parse(text).contains("done"));
}

TEST(ProgressDisplay, ShowsNoBarBesidesATerminal) {
  EXPECT_EQ(shown(ProgressDisplay::Style::kBar,
                  [](ProgressDisplay& progress) {
                    progress.update({30, 60, 750});
                    progress.finish();
                  }),
            "");
}

TEST(ProgressDisplay, KeepsQuietWhereAsked) {
  EXPECT_EQ(shown(ProgressDisplay::Style::kNone,
                  [](ProgressDisplay& progress) {
                    progress.update({30, 60, 750});
                    progress.finish();
                  }),
            "");
}

}  // namespace
