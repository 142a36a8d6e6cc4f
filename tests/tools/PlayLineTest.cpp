#include "tools/terminal/PlayLine.h"

#include <gtest/gtest.h>

namespace {

PlayState someState() {
  return {.time = 12.34, .duration = 83.5, .rate = 1.5, .volume = 0.8, .peaks = {1, 0.0625F}};
}

TEST(PlayLine, ShowsTimeLengthRateVolumeAndLevels) {
  // 0.0625 is -24 dB: half of a meter that begins at -48.
  EXPECT_EQ(playLine(someState(), 200),
            "playing  0:12.3 / 1:23.5  1.50x  vol  80 %  [####################] "
            "[##########----------]");
}

TEST(PlayLine, SaysWhatIsDifferent) {
  PlayState state = someState();
  state.isPaused = true;
  state.isMuted = true;
  state.duration.reset();
  EXPECT_TRUE(playLine(state, 200).starts_with("paused   0:12.3  1.50x  muted  "));
  state.time = -1;
  EXPECT_TRUE(playLine(state, 200).starts_with("paused   0:00.0  "));
  state.time = 3600;
  EXPECT_TRUE(playLine(state, 200).starts_with("paused   1:00:00.0  "));
}

TEST(PlayLine, FitsTheTerminal) {
  for (int columns = 0; columns < 120; ++columns) {
    const std::string line = playLine(someState(), columns);
    EXPECT_LT(line.size(), std::max(columns, 1)) << columns;
    EXPECT_TRUE(playLine(someState(), 200).starts_with(line.substr(0, 42))) << columns;
  }
}

TEST(PlayLine, MeterIsInDecibels) {
  EXPECT_EQ(meterMarks(0, 48), 0);
  EXPECT_EQ(meterMarks(1e-5F, 48), 0);
  EXPECT_EQ(meterMarks(0.5F, 48), 42);  // -6.02 dB
  EXPECT_EQ(meterMarks(1, 48), 48);
  EXPECT_EQ(meterMarks(7, 48), 48);
}

}  // namespace
