#include <kestrel/convert/Sprites.h>

#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include <kestrel/convert/Failure.h>

using namespace kestrel;

namespace {

constexpr int64_t kSecond = 1'000'000;

TEST(Sprites, TheUsualSpanGivesAtMostAHundredPictures) {
  const std::vector<std::pair<int64_t, int64_t>> spans{
      {1, 1},     {100, 1},   {101, 2},   {500, 5},    {501, 10},   {1500, 15},
      {3000, 30}, {3001, 60}, {6000, 60}, {6001, 120}, {36000, 360}};
  for (const auto& [duration, span] : spans)
    EXPECT_EQ(usualSpan(duration * kSecond), span * kSecond) << duration;
}

TEST(Sprites, StandInRowsOfTenWithTheLastSpanCutAtTheEnd) {
  const SpritePlan plan = planSprites(23'500'000, 2 * kSecond, 160, 90);
  ASSERT_EQ(plan.sprites.size(), 12u);
  EXPECT_EQ(plan.columns, 10);
  EXPECT_EQ(plan.rows, 2);
  EXPECT_EQ(plan.sprites[9].x, 1440);
  EXPECT_EQ(plan.sprites[9].y, 0);
  EXPECT_EQ(plan.sprites[11].x, 160);
  EXPECT_EQ(plan.sprites[11].y, 90);
  EXPECT_EQ(plan.sprites[11].start, 22 * kSecond);
  EXPECT_EQ(plan.sprites[11].end, 23'500'000);
}

TEST(Sprites, ARestTooShortToSeeBelongsToTheLastPicture) {
  const SpritePlan plan = planSprites(30'003'000, kSecond, 160, 90);
  ASSERT_EQ(plan.sprites.size(), 30u);
  EXPECT_EQ(plan.rows, 3);
  EXPECT_EQ(plan.sprites.back().end, 30'003'000);
  EXPECT_EQ(planSprites(30'200'000, kSecond, 160, 90).sprites.size(), 31u);
}

TEST(Sprites, FewPicturesMakeANarrowSheet) {
  const SpritePlan plan = planSprites(3 * kSecond, kSecond, 160, 90);
  EXPECT_EQ(plan.columns, 3);
  EXPECT_EQ(plan.rows, 1);
}

TEST(Sprites, AMovieShorterThanASpanHasOnePicture) {
  const SpritePlan plan = planSprites(kSecond / 2, kSecond, 160, 90);
  ASSERT_EQ(plan.sprites.size(), 1u);
  EXPECT_EQ(plan.sprites[0].end, kSecond / 2);
}

TEST(Sprites, ASheetThatPlayersWouldNotShowIsRefused) {
  try {
    planSprites(int64_t{36000} * kSecond, kSecond, 160, 90);
    FAIL() << "no failure";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.kind(), Failure::Kind::kSettings);
    EXPECT_NE(std::string(failure.what()).find("choose a longer step"), std::string::npos);
  }
}

TEST(Sprites, TheTextTellsPlayersWhichPartIsWhen) {
  const SpritePlan plan = planSprites(3'661'500'000, 1'800 * kSecond, 160, 90);
  EXPECT_EQ(spriteText(plan, "movie.jpg"),
            "WEBVTT\n"
            "\n00:00:00.000 --> 00:30:00.000\nmovie.jpg#xywh=0,0,160,90\n"
            "\n00:30:00.000 --> 01:00:00.000\nmovie.jpg#xywh=160,0,160,90\n"
            "\n01:00:00.000 --> 01:01:01.500\nmovie.jpg#xywh=320,0,160,90\n");
}

TEST(Sprites, TheNameOfTheSheetIsWrittenAsAnAddress) {
  const SpritePlan plan = planSprites(kSecond, kSecond, 8, 8);
  EXPECT_NE(
      spriteText(plan, "my #1 m\xC3\xB6vie?.jpg").find("\nmy%20%231%20m%C3%B6vie%3F.jpg#xywh="),
      std::string::npos);
}

}  // namespace
