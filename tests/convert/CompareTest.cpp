#include <gmock/gmock.h>
#include <kestrel/BitmapFile.h>
#include <kestrel/convert/Compare.h>
#include <kestrel/convert/Failure.h>

#include <cmath>
#include <string>

#include "convert/compare/FindOffset.h"
#include "convert/compare/ScoreStatistics.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/ForcedCpuCount.h"
#include "tests/support/Peer.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using std::filesystem::path;

class Compare : public testing::Test {
 protected:
  /// What ffmpeg makes of the original with some options.
  path made(const std::string& name, const std::vector<std::string>& options,
            const std::vector<std::string>& inputOptions = {}) {
    const path output = folder_ / name;
    std::vector<std::string> command = {"ffmpeg", "-v", "error", "-nostdin", "-y"};
    command.insert(command.end(), inputOptions.begin(), inputOptions.end());
    command.insert(command.end(), {"-i", original_, "-an"});
    command.insert(command.end(), options.begin(), options.end());
    command.push_back(output.string());
    const RunResult result = run(command);
    if (result.status != 0) throw std::runtime_error(result.err);
    return output;
  }

  Comparison compared(const path& copy, PictureMetric metric = PictureMetric::kSsimulacra2) const {
    return compare({.original = original_, .distorted = copy.string(), .metric = metric});
  }

  const std::string original_ = fixture("moving25.mp4").string();
  TempDir folder_;
};

const std::vector<std::string> kCoarse = {"-c:v", "libx264", "-preset", "ultrafast", "-crf", "38"};
const std::vector<std::string> kFine = {"-c:v", "libx264", "-preset", "ultrafast", "-crf", "12"};

std::vector<std::string> with(std::vector<std::string> options,
                              const std::vector<std::string>& more) {
  options.insert(options.end(), more.begin(), more.end());
  return options;
}

/// A number that ffmpeg's filter prints behind a name.
double told(const std::string& text, const std::string& name) {
  const size_t at = text.rfind(name);
  return at == std::string::npos ? NAN : std::stod(text.substr(at + name.size()));
}

TEST_F(Compare, PsnrAndSsimAreThoseThatFfmpegPrints) {
  const path copy = made("copy.mp4", kCoarse);
  for (const auto& [metric, filter] :
       {std::pair{PictureMetric::kPsnr, "psnr"}, {PictureMetric::kSsim, "ssim"}}) {
    const bool isPsnr = metric == PictureMetric::kPsnr;
    const Comparison comparison = compared(copy, metric);
    const std::string text = run({"ffmpeg", "-nostdin", "-hide_banner", "-i", copy.string(), "-i",
                                  original_, "-lavfi", filter, "-f", "null", "-"})
                                 .err;
    ASSERT_EQ(comparison.components.size(), 4U);
    const char* const names[] = {isPsnr ? " y:" : " Y:", isPsnr ? " u:" : " U:",
                                 isPsnr ? " v:" : " V:", isPsnr ? " average:" : " All:"};
    for (size_t i = 0; i < 4; ++i)
      EXPECT_NEAR(comparison.components[i].score, told(text, names[i]), 2e-6) << names[i];
    EXPECT_TRUE(comparison.report.isWhole());
  }
}

TEST_F(Compare, AMovieIsLikeItself) {
  const Comparison comparison = compared(original_);
  EXPECT_EQ(comparison.least, 100);
  EXPECT_EQ(comparison.offset, 0);
  EXPECT_EQ(static_cast<int64_t>(comparison.scores.size()), comparison.originalPictures);
  EXPECT_EQ(comparison.unpairedOriginals, 0);
  EXPECT_EQ(comparison.unpairedDistorted, 0);
  EXPECT_THAT(comparison.notes, testing::IsEmpty());
  EXPECT_TRUE(std::isinf(compared(original_, PictureMetric::kPsnr).least));
}

TEST_F(Compare, ScoresFollowTheQuality) {
  const double coarse = compared(made("coarse.mp4", kCoarse)).mean;
  const double fine = compared(made("fine.mp4", kFine)).mean;
  EXPECT_LT(coarse, 60);
  EXPECT_GT(fine, 80);
}

TEST_F(Compare, AnOffsetIsFound) {
  struct Row {
    const char* name;
    std::vector<std::string> input, options;
    double offset;
  };
  for (const Row& row : {Row{"trimmed.mp4", {"-ss", "1.2"}, {}, -1.2},
                         Row{"later.mp4", {}, {"-vf", "tpad=start_duration=0.8"}, 0.8},
                         Row{"same.mp4", {}, {}, 0}}) {
    const Comparison comparison = compared(made(row.name, with(kFine, row.options), row.input));
    EXPECT_NEAR(comparison.offset, row.offset, 0.001) << row.name;
    EXPECT_GT(comparison.percentile5, 75) << row.name;
    EXPECT_THAT(comparison.notes, testing::SizeIs(row.offset == 0 ? 0 : 1)) << row.name;
  }
}

TEST_F(Compare, AnOffsetThatIsGivenIsNotLookedFor) {
  const Comparison comparison = compare(
      {.original = original_, .distorted = made("copy.mp4", kFine).string(), .offset = 0.4});
  EXPECT_EQ(comparison.offset, 0.4);
  EXPECT_LT(comparison.mean, 60);
  EXPECT_EQ(comparison.unpairedOriginals, 10);
  EXPECT_EQ(comparison.scores.front().distortedTime - comparison.scores.front().time, 400'000);
}

// Each of the copy's pictures meets the one that it was made of; the others meet none.
TEST_F(Compare, RatesMayDiffer) {
  const path copy = made("half.mp4", with(kFine, {"-vf", "framestep=2"}));
  const Comparison comparison = compared(copy);
  EXPECT_EQ(comparison.distortedPictures, (comparison.originalPictures + 1) / 2);
  EXPECT_EQ(static_cast<int64_t>(comparison.scores.size()), comparison.distortedPictures);
  EXPECT_EQ(comparison.unpairedOriginals,
            comparison.originalPictures - comparison.distortedPictures);
  EXPECT_GT(comparison.least, 70);
  EXPECT_THAT(comparison.notes, testing::ElementsAre(testing::HasSubstr("12.5")));
}

TEST_F(Compare, SizesMayDiffer) {
  const path copy = made("small.mp4", with(kFine, {"-vf", "scale=160:-2"}));
  const Comparison comparison = compared(copy);
  EXPECT_LT(comparison.mean, compared(made("whole.mp4", kFine)).mean);
  EXPECT_THAT(comparison.notes, testing::ElementsAre(testing::HasSubstr("scaled from 160x90")));
  EXPECT_EQ(compared(copy, PictureMetric::kPsnr).components.size(), 4U);
}

TEST_F(Compare, MissingPicturesAreCounted) {
  const path copy =
      made("gap.mp4", with(kFine, {"-vf", "select='not(between(n,20,24))'", "-vsync", "vfr"}));
  const Comparison comparison = compared(copy);
  EXPECT_EQ(comparison.unpairedOriginals, 5);
  EXPECT_EQ(comparison.unpairedDistorted, 0);
  EXPECT_GT(comparison.least, 70);
}

TEST_F(Compare, TheWorstSpanIsToldAndShown) {
  // Noise for a tenth of the time.
  const path copy =
      made("noise.mp4", with(kFine, {"-vf", "noise=alls=60:allf=t:enable='between(t,0.99,1.15)'"}));
  const path plot = folder_ / "plot.svg";
  const path worst = folder_ / "worst.png";
  const Comparison comparison = compare({.original = original_,
                                         .distorted = copy.string(),
                                         .plot = plot.string(),
                                         .worst = worst.string()});
  ASSERT_THAT(comparison.worst, testing::Not(testing::IsEmpty()));
  EXPECT_NEAR(static_cast<double>(comparison.worst.front().start), 1e6, 0.13e6);
  EXPECT_LE(comparison.worst.front().end, 1'200'000);
  EXPECT_EQ(comparison.worst.front().least, comparison.least);
  const std::string svg = readBytes(plot);
  EXPECT_TRUE(svg.starts_with("<svg ") && svg.ends_with("</svg>\n"));
  const std::string bytes = readBytes(worst);
  const auto picture =
      bitmapImageWithData({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
  ASSERT_TRUE(picture);
  EXPECT_GT(picture->width(), 3 * 192);
}

TEST_F(Compare, APlotIsAPictureToo) {
  const path plot = folder_ / "plot.png";
  compare({.original = original_, .distorted = original_, .every = 10, .plot = plot.string()});
  const std::string bytes = readBytes(plot);
  const auto picture =
      bitmapImageWithData({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
  ASSERT_TRUE(picture);
  EXPECT_EQ(picture->width(), 1200);
}

TEST_F(Compare, DoesNotDependOnThreads) {
  const path copy = made("copy.mp4", kCoarse);
  std::vector<double> means;
  for (const int cores : {1, 2, 16}) {
    const ForcedCpuCount forced(cores);
    means.push_back(compared(copy).mean);
  }
  EXPECT_THAT(means, testing::Each(means.front()));
}

TEST_F(Compare, EverySoManiethPairIsEnough) {
  const Comparison all = compared(original_);
  const Comparison some = compare({.original = original_, .distorted = original_, .every = 7});
  EXPECT_EQ(some.scores.size(), (all.scores.size() + 6) / 7);
  EXPECT_EQ(some.scores[1].time, all.scores[7].time);
}

TEST_F(Compare, WhatMakesNoSenseIsRefused) {
  const auto refused = [&](CompareSettings settings) {
    settings.original = settings.distorted = original_;
    EXPECT_THROW(compare(settings), Failure);
  };
  refused({.every = 0});
  refused({.offset = NAN});
  refused({.plot = (folder_ / "plot.txt").string()});
  refused({.worst = (folder_ / "worst.svg").string()});
  refused({.plot = (folder_ / "a.png").string(), .worst = (folder_ / "a.png").string()});
  refused({.plot = (folder_ / "plot.svg").string() + "/"});
  EXPECT_THROW(compare({.original = original_, .distorted = (folder_ / "none.mp4").string()}),
               Failure);
  // No picture at the same time.
  refused({.offset = 5000});
  EXPECT_THAT(namesIn(folder_.path()), testing::IsEmpty());
}

TEST_F(Compare, AnInterruptEndsIt) {
  Events events;
  int told = 0;
  events.progress = [&](const Progress&) { ++told; };
  events.interrupt = [&] { return told > 3; };
  const Comparison comparison =
      compare({.original = original_, .distorted = original_, .offset = 0}, events);
  EXPECT_EQ(comparison.report.outcome, Report::Outcome::kInterrupted);
}

std::vector<Signature> signatures(int first, int count, int64_t begin) {
  std::vector<Signature> made;
  for (int i = 0; i < count; ++i) {
    std::vector<uint8_t> luma;
    for (int p = 0; p < 64; ++p)
      luma.push_back(static_cast<uint8_t>((first + i) * 7 + p * (first + i) % 13));
    made.push_back({begin + i * 40'000, luma});
  }
  return made;
}

TEST(OffsetBetween, IsWhereTheBeginningOfOneLiesInTheOther) {
  EXPECT_EQ(offsetBetween(signatures(0, 200, 0), signatures(0, 200, 0)), 0);
  EXPECT_EQ(offsetBetween(signatures(0, 200, 0), signatures(50, 150, 0)), -2'000'000);
  EXPECT_EQ(offsetBetween(signatures(50, 150, 0), signatures(0, 200, 0)), 2'000'000);
  EXPECT_EQ(offsetBetween(signatures(3, 1, 0), signatures(3, 1, 0)), 0);
  EXPECT_EQ(offsetBetween({}, signatures(3, 1, 0)), 0);
}

// Worked out by hand.
TEST(ScoreStatistics, AreWorkedOutFromTheScores) {
  Comparison comparison;
  for (int i = 0; i < 21; ++i)
    comparison.scores.push_back({i * 1'000'000, i * 1'000'000, 80.0 - i % 2 * 40});
  comparison.scores[7].score = -10;
  comparison.scores[8].score = 20;
  summarise(comparison);
  // Ten of 80, nine of 40, -10 and 20.
  EXPECT_DOUBLE_EQ(comparison.mean, (800 + 360 - 10 + 20) / 21.0);
  EXPECT_NEAR(comparison.harmonicMean, 21 / (10 / 80.0 + 9 / 40.0 + 1 + 1 / 20.0), 1e-9);
  EXPECT_DOUBLE_EQ(comparison.percentile5, 20);
  EXPECT_EQ(comparison.least, -10);
  ASSERT_EQ(comparison.worst.size(), 2U);
  EXPECT_EQ(comparison.worst[0].start, 7'000'000);
  EXPECT_EQ(comparison.worst[1].mean, 20);
}

}  // namespace
}  // namespace kestrel::test
