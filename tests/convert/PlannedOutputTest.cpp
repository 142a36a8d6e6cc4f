#include "convert/run/PlannedOutput.h"

#include <gtest/gtest.h>
#include <kestrel/LMFFMovieFileOutput.h>

#include <map>
#include <string>
#include <vector>

extern "C" {
#include <libavutil/pixfmt.h>
}

#include "tests/convert/Failures.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using Tags = std::map<std::string, std::string>;
using Chapter = LMFFMovieFileOutput::Chapter;

/// A container whose clock begins at 10 s, with two chapters: to 0.8 s and to 2 s after that.
class PlannedOutput : public testing::Test {
 protected:
  PlannedOutput() {
    input_.startTime = 10000000;
    input_.chapters = {{10000000, 10800000, {{"title", "Opening"}}},
                       {10800000, 12000000, {{"title", "Ending"}}}};
  }

  std::vector<Chapter> chapters(int64_t start, int64_t end) const {
    return chaptersOf(input_, start, end);
  }

  MediaInfo input_;
};

TEST_F(PlannedOutput, ChaptersCountFromTheInputsStart) {
  const auto found = chapters(0, 2000000);
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found[0].start_us, 0);
  EXPECT_EQ(found[0].end_us, 800000);
  EXPECT_EQ(found[0].tags, (Tags{{"title", "Opening"}}));
  EXPECT_EQ(found[1].start_us, 800000);
  EXPECT_EQ(found[1].end_us, 2000000);
  EXPECT_EQ(found[1].tags, (Tags{{"title", "Ending"}}));
}

TEST_F(PlannedOutput, ChaptersAreCutToTheSpanAndMoveWithItsStart) {
  const auto found = chapters(400000, 1600000);
  ASSERT_EQ(found.size(), 2U);
  EXPECT_EQ(found[0].start_us, 0);
  EXPECT_EQ(found[0].end_us, 400000);
  EXPECT_EQ(found[1].start_us, 400000);
  EXPECT_EQ(found[1].end_us, 1200000);
}

TEST_F(PlannedOutput, ChaptersOutsideTheSpanAreLeftOut) {
  const auto last = chapters(800000, 2000000);
  ASSERT_EQ(last.size(), 1U);
  EXPECT_EQ(last[0].tags, (Tags{{"title", "Ending"}}));
  const auto first = chapters(0, 800000);
  ASSERT_EQ(first.size(), 1U);
  EXPECT_EQ(first[0].tags, (Tags{{"title", "Opening"}}));
  EXPECT_TRUE(chapters(2000000, 3000000).empty());
}

TEST_F(PlannedOutput, ALanguageIsATag) {
  StreamInfo stream;
  EXPECT_EQ(languageTag(stream), Tags());
  stream.language = "fre";
  EXPECT_EQ(languageTag(stream), (Tags{{"language", "fre"}}));
}

TEST_F(PlannedOutput, IsSetUpAsThePlanSays) {
  ConversionPlan plan;
  plan.formatName = "matroska";
  plan.format.width = 64;
  plan.format.framerate = 25;
  plan.format.frameTime = 1;
  plan.videoEncoder = "libx265";
  plan.pixelFormat = "yuv422p10le";
  plan.keepsTimes = true;
  plan.color.matrix = 1;
  plan.videoOptions = {{"crf", "20"}};
  plan.muxerOptions = {{"live", "1"}};
  LMFFMovieFileOutput output;
  setUpOutput(output, plan, "a/path.mkv", [] { return true; });
  EXPECT_EQ(output.path(), "a/path.mkv");
  EXPECT_EQ(output.formatName(), "matroska");
  EXPECT_EQ(output.movieFormat().width, 64);
  EXPECT_EQ(output.videoEncoderName(), "libx265");
  EXPECT_EQ(output.videoPixelFormat(), AV_PIX_FMT_YUV422P10LE);
  EXPECT_EQ(output.videoTick(), (Rational{1, 10000}));  // of 25 pictures a second, 400 for each
  EXPECT_EQ(output.outputColor().matrix, 1);
  EXPECT_EQ(output.videoOptions(), (Tags{{"crf", "20"}}));
  EXPECT_EQ(output.muxerOptions(), (Tags{{"live", "1"}}));
  EXPECT_TRUE(output.interrupt()());
}

/// An output that has failed, for want of streams.
class FailedOutput : public testing::Test {
 protected:
  FailedOutput() {
    output_.setPath((folder_ / "a.mp4").string());
    EXPECT_FALSE(output_.startOutput());
  }

  const TempDir folder_;
  LMFFMovieFileOutput output_;
};

TEST_F(FailedOutput, IsAFailureThatNamesTheTarget) {
  const Failure failure = failureOf([&] { requireOutput(output_, "target.mp4"); });
  EXPECT_EQ(failure.kind(), Failure::Kind::kOutput);
  EXPECT_EQ(failure.subject(), "target.mp4");
  ASSERT_NE(output_.lastError().message, "");
  EXPECT_EQ(failure.what(), "cannot write 'target.mp4': " + output_.lastError().message);
}

TEST_F(FailedOutput, WhenInterruptedIsThat) {
  bool answer = false;
  output_.setInterrupt([&] { return answer; });
  EXPECT_EQ(failureOf([&] { requireOutput(output_, "a.mp4"); }).kind(), Failure::Kind::kOutput);
  answer = true;
  EXPECT_EQ(failureOf([&] { requireOutput(output_, "a.mp4"); }).kind(),
            Failure::Kind::kInterrupted);
}

TEST_F(PlannedOutput, WithoutAFailureIsFine) {
  LMFFMovieFileOutput output;
  output.setInterrupt([] { return true; });
  EXPECT_NO_THROW(requireOutput(output, "a.mp4"));
}

}  // namespace
}  // namespace kestrel::test
