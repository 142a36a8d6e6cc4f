#include "convert/target/QualitySearch.h"

#include <gmock/gmock.h>

#include "convert/target/Samples.h"
#include "convert/target/SceneZones.h"

namespace kestrel::test {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

constexpr QualitySearch::Scale kSteps{.best = 1, .worst = 51, .guess = 20, .scorePerStep = 2};

QualitySearch::Scale fractions() {
  auto scale = kSteps;
  scale.hasFractions = true;
  return scale;
}

/// Follows a search through an encoder whose scores are `score(crf)`.
template <typename Score>
QualitySearch searched(double target, const QualitySearch::Scale& scale, Score score) {
  QualitySearch search(target, scale);
  while (const auto crf = search.next()) search.add({*crf, score(*crf)});
  return search;
}

TEST(QualitySearchTest, GoesStraightBetweenTwoPoints) {
  QualitySearch search(80, fractions());
  EXPECT_EQ(search.next(), 20);
  search.add({20, 70});
  EXPECT_EQ(search.next(), 15);  // ten points at two a step
  search.add({15, 90});          // four a step
  EXPECT_EQ(search.next(), 17.5);
  search.add({17.5, 80.5});
  EXPECT_FALSE(search.next());
  EXPECT_NEAR(search.answer(), 17.5 + 0.5 / (10.5 / 2.5), 0.005);  // by the points around
}

TEST(QualitySearchTest, FindsTheNumberOfACurve) {
  // Three points a step at the fine end, one at the coarse one.
  const auto curve = [](double crf) { return 98 - 3 * crf + 0.04 * crf * crf; };
  for (const double target : {45.0, 60.0, 75.0, 88.0}) {
    const QualitySearch search = searched(target, fractions(), curve);
    EXPECT_NEAR(curve(search.answer()), target, 0.5) << target;
    EXPECT_LE(search.points().size(), 4U);
  }
}

TEST(QualitySearchTest, WholeStepsAreTriedOnce) {
  const QualitySearch search =
      searched(80.4, kSteps, [](double crf) { return crf <= 17 ? 85.0 : 75.0; });
  for (size_t i = 1; i < search.points().size(); ++i)
    EXPECT_GE(search.points()[i].crf - search.points()[i - 1].crf, 1);
  EXPECT_THAT(search.answer(), testing::AnyOf(17, 18));
}

TEST(QualitySearchTest, StaysWithinTheScale) {
  const QualitySearch above = searched(95, kSteps, [](double) { return 60.0; });
  EXPECT_EQ(above.answer(), 1);
  const QualitySearch below = searched(20, kSteps, [](double) { return 90.0; });
  EXPECT_EQ(below.answer(), 51);
}

TEST(QualitySearchTest, ASecondPointIsToBeHadWhereItIsNeeded) {
  QualitySearch search(80, fractions());
  search.add({20, 80});
  EXPECT_FALSE(search.next());
  EXPECT_EQ(search.next(2), 22);
  search.add({22, 76});
  EXPECT_FALSE(search.next(2));
}

constexpr int64_t kSecond = 1'000'000;

TEST(Samples, LieWithinTheirScenesTheLongOnesInSeveral) {
  const std::vector<Scene> scenes{{0, 2 * kSecond}, {2 * kSecond, 12 * kSecond}};
  const auto samples = placeSamples(scenes, 3, kSecond);
  ASSERT_THAT(samples, SizeIs(3));
  EXPECT_EQ(samples[0].start, kSecond / 2);
  EXPECT_EQ(samples[0].weight, 2);
  // A quarter and three quarters into ten seconds.
  EXPECT_EQ(samples[1].start, 4 * kSecond);
  EXPECT_EQ(samples[2].start, 9 * kSecond);
  EXPECT_EQ(samples[2].end, 10 * kSecond);
  EXPECT_EQ(samples[2].scene, 1U);
  EXPECT_EQ(samples[2].weight, 5);
}

TEST(Samples, AreNoLongerThanTheirScenesAndNoMoreThanWanted) {
  std::vector<Scene> scenes;
  for (int64_t i = 0; i < 100; ++i) scenes.push_back({i * kSecond / 2, (i + 1) * kSecond / 2});
  const auto samples = placeSamples(scenes, 10, kSecond);
  ASSERT_THAT(samples, SizeIs(10));
  for (const Sample& sample : samples) {
    EXPECT_EQ(sample.start, scenes[sample.scene].start);
    EXPECT_EQ(sample.end, scenes[sample.scene].end);
  }
  EXPECT_EQ(samples.front().scene, 5U);  // at a twentieth
  EXPECT_EQ(samples.back().scene, 95U);
}

TEST(Samples, ThePercentileGoesByWeight) {
  EXPECT_EQ(percentile5({{90, 96}, {50, 3}, {60, 1}}), 90);
  EXPECT_EQ(percentile5({{90, 94}, {50, 3}, {60, 3}}), 60);
  EXPECT_EQ(percentile5({{90, 94}, {50, 6}}), 50);
}

TEST(SceneZones, AreFactorsForSpansOfPictures) {
  ConversionPlan plan{.videoEncoder = "libx264"};
  plan.setRate({25, 1});
  // Six steps are a factor of two; what differs by nothing has no zone.
  setZones(
      plan, 20,
      std::vector<SceneCrf>{
          {0, 2 * kSecond, 20}, {2 * kSecond, 4 * kSecond, 14}, {4 * kSecond, 5 * kSecond, 26}},
      {});
  EXPECT_EQ(plan.videoOptions["x264-params"], "zones=50,99,b\\=2.0000/100,124,b\\=0.5000");
}

TEST(SceneZones, CountPicturesThatKeepTheirTimes) {
  ConversionPlan plan{.videoEncoder = "libx265"};
  plan.setRate({25, 1});
  setZones(plan, 20, std::vector<SceneCrf>{{kSecond, 3 * kSecond, 14}},
           {0, kSecond / 2, kSecond, 2 * kSecond, 3 * kSecond});
  EXPECT_THAT(plan.videoOptions["x265-params"], testing::EndsWith("zones=2,3,b\\=2.0000"));
}

}  // namespace
}  // namespace kestrel::test
