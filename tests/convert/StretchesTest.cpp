#include "convert/job/Stretches.h"

#include <gmock/gmock.h>

#include <vector>

#include "convert/feed/PictureFeed.h"

namespace kestrel::test {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

/// Pictures at 25 a second, a key picture where `isKey` says so of its number.
template <typename IsKey>
std::vector<TimedPicture> pictures(int count, IsKey isKey) {
  std::vector<TimedPicture> all;
  for (int i = 0; i < count; ++i) all.push_back({int64_t{40000} * i, isKey(i)});
  return all;
}

ConversionPlan planAt(int rate, bool keepsTimes) {
  ConversionPlan plan;
  plan.setRate({rate, 1});
  plan.keepsTimes = keepsTimes;
  return plan;
}

std::vector<int64_t> beginsOf(const std::vector<PictureStretch>& stretches) {
  std::vector<int64_t> begins;
  for (const PictureStretch& stretch : stretches) begins.push_back(stretch.from);
  return begins;
}

std::vector<int64_t> placesOf(const std::vector<PictureStretch>& stretches) {
  std::vector<int64_t> places;
  for (const PictureStretch& stretch : stretches) places.push_back(stretch.place);
  return places;
}

// Ten seconds: keys at 0, 2.4, 4.8 ...; two seconds are wanted.
TEST(Stretches, BeginWithTheNearestKeyPictures) {
  const auto all = pictures(250, [](int i) { return i % 60 == 0; });
  const ConversionPlan plan = planAt(25, true);
  const auto stretches = planStretches({plan, 0, all, 2'000'000});
  EXPECT_THAT(beginsOf(stretches), ElementsAre(0, 2'400'000, 4'800'000, 7'200'000));
  // A tick is 1/10000 s.
  EXPECT_THAT(placesOf(stretches), ElementsAre(0, 24000, 48000, 72000));
  EXPECT_EQ(stretches[1].until, 4'800'000);
  EXPECT_EQ(stretches[1].untilPlace, 48000);
  EXPECT_FALSE(stretches[3].until);
}

// Two pictures a second, from 1.4 s: the one that began at 1 s is shown there.
TEST(Stretches, CountFromThePictureShownAtTheStart) {
  std::vector<TimedPicture> all;
  for (int i = 0; i < 10; ++i) all.push_back({int64_t{500'000} * i, true});
  const ConversionPlan plan = planAt(2, true);
  EXPECT_THAT(beginsOf(planStretches({plan, 1'400'000, all, 1'500'000})),
              ElementsAre(1'400'000, 2'500'000));
}

TEST(Stretches, LongGroupsAreDivided) {
  const auto all = pictures(250, [](int i) { return i == 0; });
  const ConversionPlan plan = planAt(25, true);
  EXPECT_THAT(beginsOf(planStretches({plan, 0, all, 3'000'000})),
              ElementsAre(0, 3'000'000, 6'000'000));
}

TEST(Stretches, LieWithinTheSpan) {
  const auto all = pictures(250, [](int) { return true; });
  ConversionPlan plan = planAt(25, true);
  plan.end = 5'000'000;
  EXPECT_THAT(beginsOf(planStretches({plan, 1'000'000, all, 2'000'000})),
              ElementsAre(1'000'000, 3'000'000));
}

// At 10 a second, the picture at 2.04 s is shown from the tick 20 on.
TEST(Stretches, AtAnotherRateCountTicks) {
  const auto all = pictures(250, [](int i) { return i == 51 || i == 101; });
  const ConversionPlan plan = planAt(10, false);
  const auto stretches = planStretches({plan, 0, all, 2'000'000});
  EXPECT_EQ(stretches[1].place, 20);
  EXPECT_EQ(stretches[1].from, 2'000'000);
  EXPECT_EQ(stretches[2].place, 40);
}

TEST(Stretches, WhereTimesAreNotKnownThereIsOne) {
  const ConversionPlan plan = planAt(25, true);
  EXPECT_THAT(planStretches({plan, 0, {}, 2'000'000}), SizeIs(1));
}

// Milliseconds, as Matroska counts them, become a third of a tenth of a second each; a real step
// stays.
TEST(Stretches, TicksAreThoseOfTheFeed) {
  EXPECT_THAT(pictureTicks({0, 33'000, 67'000, 100'000, 150'000, 183'000}, 0, {30, 1}, false),
              ElementsAre(0, 334, 668, 1002, 1503, 1837));
}

TEST(Stretches, LongPicturesAreRepeatedWhereTextsAreDrawn) {
  EXPECT_THAT(pictureTicks({0, 1'000'000, 1'040'000}, 0, {25, 1}, true),
              ElementsAre(0, 10000, 10400));
}

}  // namespace
}  // namespace kestrel::test
