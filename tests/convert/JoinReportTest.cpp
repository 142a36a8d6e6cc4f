#include <gmock/gmock.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Join.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

class JoinReport : public testing::Test {
 protected:
  /// Joins av25.mp4, which lasts for two seconds, and another input, and keeps what is told.
  Report joinTo(const std::string& output, const JoinInput& other,
                JoinSettings::Reencode reencode = JoinSettings::Reencode::kAuto) {
    JoinSettings settings;
    settings.inputs = {{.path = fixture("av25.mp4").string(), .position = 0}, other};
    settings.output = (folder_ / output).string();
    settings.reencode = reencode;
    Events events;
    events.note = [this](const std::string& sentence) { notes_.push_back(sentence); };
    events.progress = [this](const Progress& progress) { times_.push_back(progress.time); };
    return join(settings, events);
  }

  /// The longest time in which progress is not told, seconds.
  double longestPause() const {
    double longest = 0;
    double before = 0;
    for (const double time : times_) {
      longest = std::max(longest, time - before);
      before = std::max(before, time);
    }
    return longest;
  }

  TempDir folder_;
  std::vector<std::string> notes_;
  std::vector<double> times_;  // seconds
};

TEST_F(JoinReport, ProgressGoesOnInALongGap) {
  const auto other = fixture("video-only.mp4").string();
  for (const auto reencode : {JoinSettings::Reencode::kAuto, JoinSettings::Reencode::kAlways}) {
    notes_.clear();
    times_.clear();
    const std::string name = "out" + std::to_string(static_cast<int>(reencode)) + ".mkv";
    const Report report = joinTo(name, {.path = other, .position = 30}, reencode);
    EXPECT_EQ(report.findings.size(), 0);
    ASSERT_FALSE(times_.empty());
    EXPECT_GT(*std::ranges::max_element(times_), 31.8);
    EXPECT_LE(longestPause(), 1.1);
  }
}

// What lies behind the place where the next input begins is not missed.
TEST_F(JoinReport, AnInputThatIsCutIsWholeUpToThere) {
  const Report report = joinTo("out.mkv", {.path = fixture("av25.mp4").string(), .position = 0.5},
                               JoinSettings::Reencode::kAlways);
  EXPECT_EQ(report.findings.size(), 0);
}

}  // namespace
}  // namespace kestrel::test
