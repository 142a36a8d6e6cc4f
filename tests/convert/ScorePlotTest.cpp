#include "convert/compare/ScorePlot.h"

#include <gmock/gmock.h>

#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "tests/convert/Failures.h"
#include "tests/support/FileBytes.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr int64_t kSecond = 1'000'000;

Comparison comparisonOf(PictureMetric metric, const std::vector<std::pair<int, double>>& scores) {
  Comparison comparison;
  comparison.metric = metric;
  comparison.least = scores.front().second;
  for (const auto& [second, score] : scores) {
    comparison.scores.push_back({.time = second * kSecond, .score = score});
    comparison.least = std::min(comparison.least, score);
  }
  return comparison;
}

std::string svgOf(const Comparison& comparison) {
  const TempDir folder;
  OutputFile file((folder / "plot.svg").string(), false);
  writeScorePlot(comparison, file);
  file.commit();
  return readBytes(folder / "plot.svg");
}

TEST(ScorePlot, IsAPictureUnlessItsNameSaysSvg) {
  EXPECT_TRUE(isSvg("a.svg"));
  EXPECT_FALSE(isSvg("a.png"));
  EXPECT_EQ(failureOf([] { isSvg("a.txt"); }).kind(), Failure::Kind::kSettings);
}

// The plot is 1112 x 336 pixels, its lower left corner at 64, 380. Scores from 60 to 90 in steps of
// 10; 60 at the first column, 90 at the last.
TEST(ScorePlot, ScoresLieWhereTheirTimeAndHeightSay) {
  Comparison comparison = comparisonOf(PictureMetric::kSsimulacra2, {{0, 60}, {5, 75}, {10, 90}});
  comparison.mean = 75;
  comparison.percentile5 = 60;
  const std::string svg = svgOf(comparison);
  EXPECT_THAT(svg, HasSubstr("SSIMULACRA 2: mean 75.00, 5th percentile 60.00, least 60.00, 3 "
                             "pictures</text>"));
  EXPECT_THAT(svg, HasSubstr("M64.5 380.0L619.5 212.0L1175.5 44.0"));
  for (const char* mark : {">60<", ">70<", ">80<", ">90<", ">0.0 s<", ">5.0 s<", ">10.0 s<"})
    EXPECT_THAT(svg, HasSubstr(mark));
  EXPECT_THAT(svg, Not(HasSubstr(">100<")));
}

// Two scores of one column: the range from one to the other, and their mean.
TEST(ScorePlot, AColumnShowsRangeAndMean) {
  Comparison comparison =
      comparisonOf(PictureMetric::kSsimulacra2, {{0, 50}, {0, 70}, {10'000, 50}});
  const std::string svg = svgOf(comparison);
  EXPECT_THAT(svg, HasSubstr("M64.5 43.5V380.5"));
  EXPECT_THAT(svg, HasSubstr("M64.5 212.0L"));
}

TEST(ScorePlot, EqualPicturesHaveAHundredDecibels) {
  constexpr double kInfinite = std::numeric_limits<double>::infinity();
  const std::string svg =
      svgOf(comparisonOf(PictureMetric::kPsnr, {{0, 40}, {1, kInfinite}, {2, 40}}));
  EXPECT_THAT(svg, HasSubstr("PSNR, dB"));
  EXPECT_THAT(svg, HasSubstr(">100<"));
  EXPECT_THAT(svg, Not(HasSubstr("inf ")));
}

TEST(ScorePlot, ASinglePictureIsDrawnToo) {
  EXPECT_THAT(svgOf(comparisonOf(PictureMetric::kSsim, {{3, 0.9}})), HasSubstr("</svg>"));
}

}  // namespace
}  // namespace kestrel::test
