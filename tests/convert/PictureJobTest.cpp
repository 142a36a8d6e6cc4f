#include "convert/pictures/PictureJob.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tests/convert/Failures.h"
#include "tests/support/Ffprobe.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::EndsWith;

/// Of a movie of two seconds, 320 × 180.
class PictureJobTest : public testing::Test {
 protected:
  ThumbnailSettings settings(const std::string& output = "a.png") const {
    return {.input = fixture("video-only.mp4").string(), .output = (folder_ / output).string()};
  }

  /// The size that pictures get.
  Size sized(const PictureBox& asked, const PictureBox& usual = {}, const LookSettings& look = {}) {
    const ThumbnailSettings thumbnail = settings();
    PictureJob job(thumbnail, look, {});
    const Size size = job.setSize(asked, usual);
    const auto picture = job.pictures().pictureAt(0);
    EXPECT_EQ(picture->width(), size.width);
    EXPECT_EQ(picture->height(), size.height);
    return size;
  }

  const TempDir folder_;
};

TEST_F(PictureJobTest, BearsTheNameOfItsInput) {
  EXPECT_EQ(PictureJob(settings(), {}, {}).name(), "video-only.mp4");
}

TEST_F(PictureJobTest, IsAsLongAsTheMovie) {
  EXPECT_EQ(PictureJob(settings(), {}, {}).length(), 2000000);
}

TEST_F(PictureJobTest, TimesUpToTheEndAreTaken) {
  const PictureJob job(settings(), {}, {});
  for (const int64_t time : {0, 1000000, 2000000}) EXPECT_EQ(job.timeWithin(time), time);
  const Failure failure = failureOf([&] { job.timeWithin(2500000); });
  EXPECT_EQ(failure.kind(), Failure::Kind::kSettings);
  EXPECT_EQ(failure.subject(), "time");
  EXPECT_THAT(failure.what(), testing::AllOf(testing::HasSubstr("'0:02.500' lies behind the end"),
                                             EndsWith("which is at 0:02")));
}

// Of 320 × 180: 100 × 56.25, 1000 × 562.5, 1 × 0.56.
TEST_F(PictureJobTest, PicturesAreTheLargestOfTheirShapeThatFit) {
  EXPECT_EQ(sized({}), (Size{320, 180}));
  EXPECT_EQ(sized({.width = 100}), (Size{100, 56}));
  EXPECT_EQ(sized({.height = 90}), (Size{160, 90}));
  EXPECT_EQ(sized({.width = 100, .height = 100}), (Size{100, 56}));
  EXPECT_EQ(sized({.width = 1000, .height = 90}), (Size{160, 90}));
  EXPECT_EQ(sized({.width = 1000}), (Size{1000, 563}));
  EXPECT_EQ(sized({.width = 1}), (Size{1, 1}));
}

TEST_F(PictureJobTest, TheUsualSizeEnlargesNothing) {
  EXPECT_EQ(sized({}, {.width = 160, .height = 160}), (Size{160, 90}));
  EXPECT_EQ(sized({}, {.width = 1000}), (Size{320, 180}));
  EXPECT_EQ(sized({.width = 640}, {.width = 160}), (Size{640, 360}));
}

TEST_F(PictureJobTest, ABoxIsFilledWhereTheLookFitsPicturesIntoIt) {
  LookSettings look;
  look.zoom = Zoom::kFit;
  EXPECT_EQ(sized({.width = 100, .height = 100}, {}, look), (Size{100, 100}));
  EXPECT_EQ(sized({.width = 100}, {}, look), (Size{100, 56}));
}

TEST_F(PictureJobTest, ItsFileAppearsWhenItIsFinished) {
  const auto thumbnail = settings();
  OutputFile file = claimedPicture(thumbnail);
  PictureJob job(thumbnail, {}, {});
  job.setSize({.width = 64}, {});
  const auto picture = job.pictures().pictureAt(0);
  EXPECT_FALSE(std::filesystem::exists(thumbnail.output));
  EXPECT_TRUE(job.finish(file, *picture).isWhole());
  const auto written = ffprobeJson(thumbnail.output).at("streams").at(0);
  EXPECT_EQ(written.at("codec_name"), "png");
  EXPECT_EQ(written.at("width"), 64);
  EXPECT_EQ(written.at("height"), 36);
}

TEST_F(PictureJobTest, ATargetIsClaimedOnlyWhereAPictureCanBeWritten) {
  EXPECT_EQ(failureOf([&] { claimedPicture(settings("a.gif")); }).kind(), Failure::Kind::kSettings);
  EXPECT_EQ(failureOf([&] { claimedPicture(settings("none/a.png")); }).kind(),
            Failure::Kind::kOutput);
}

}  // namespace
}  // namespace kestrel::test
