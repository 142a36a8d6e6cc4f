#include "convert/join/JoinPlan.h"

#include <gmock/gmock.h>
#include <kestrel/convert/Failure.h>

#include <string>
#include <tuple>
#include <vector>

#include "tests/support/Fixture.h"

namespace kestrel::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

JoinPlan planOf(const std::vector<std::string>& inputs, const std::string& output,
                JoinSettings settings = {}) {
  for (const std::string& input : inputs) settings.inputs.push_back({fixture(input).string()});
  settings.output = output;
  return planJoin(settings, {});
}

TEST(JoinPlan, EqualStreamsAreCopied) {
  const JoinPlan plan = planOf({"av25.mp4", "av25.mp4"}, "out.mp4");
  EXPECT_THAT(plan.reasons, IsEmpty());
  EXPECT_EQ(plan.reason(), "");
  EXPECT_TRUE(plan.copiesPictures);
  EXPECT_TRUE(plan.keepsCodecs);
  EXPECT_THAT(plan.leftOut, IsEmpty());
  ASSERT_THAT(plan.parts, SizeIs(2));
  for (const JoinPart& part : plan.parts) {
    EXPECT_EQ(part.video, 0);
    EXPECT_THAT(part.audios, ElementsAre(1));
    EXPECT_THAT(part.subtitles, IsEmpty());
    EXPECT_EQ(part.wanted, std::nullopt);
  }
  EXPECT_THAT(plan.table, AllOf(HasSubstr("h264 320x180 25/s + aac 44100 Hz, 2 channels"),
                                HasSubstr("sets the format"), HasSubstr("fits")));
}

TEST(JoinPlan, EachDifferenceIsAReason) {
  const JoinPlan plan = planOf({"av25.mp4", "numbered25.mp4"}, "out.mp4");
  EXPECT_FALSE(plan.copiesPictures);
  ASSERT_THAT(plan.reasons, SizeIs(1));
  EXPECT_THAT(plan.reason(),
              AllOf(HasSubstr("numbered25.mp4': "), HasSubstr("size 128x32 instead of 320x180")));
  EXPECT_THAT(plan.table, HasSubstr("does not fit: "));
}

TEST(JoinPlan, OtherSoundLeavesThePicturesToBeCopied) {
  const JoinPlan plan = planOf({"av25.mp4", "video-only.mp4"}, "out.mp4");
  EXPECT_TRUE(plan.copiesPictures);
  EXPECT_THAT(plan.reasons, ElementsAre(EndsWith("it has 0 sound tracks instead of 1")));
}

TEST(JoinPlan, PicturesAndNoneDoNotFit) {
  for (const auto& [first, second, why] :
       {std::tuple{"av25.mp4", "audio-only.m4a", "it has no pictures"},
        {"audio-only.m4a", "av25.mp4", "it has pictures"}}) {
    const JoinPlan plan = planOf({first, second}, "out.mp4");
    EXPECT_FALSE(plan.copiesPictures);
    EXPECT_THAT(plan.reasons, ElementsAre(EndsWith(why)));
  }
}

TEST(JoinPlan, AnotherSpeedIsEncoded) {
  JoinSettings settings;
  settings.inputs = {{.path = fixture("av25.mp4").string(), .rate = 2}};
  const JoinPlan plan = planOf({"av25.mp4"}, "out.mp4", settings);
  EXPECT_FALSE(plan.copiesPictures);
  EXPECT_THAT(plan.reasons, ElementsAre(EndsWith("it plays at 2 times its speed")));
}

TEST(JoinPlan, NothingIsCopiedWhereAllIsToBeEncoded) {
  JoinSettings settings;
  settings.reencode = JoinSettings::Reencode::kAlways;
  EXPECT_FALSE(planOf({"av25.mp4", "av25.mp4"}, "out.mp4", settings).copiesPictures);
}

TEST(JoinPlan, WhatTheContainerRefusesGetsItsOwnCodecs) {
  const JoinPlan plan = planOf({"av25.mp4", "av25.mp4"}, "out.webm");
  EXPECT_FALSE(plan.keepsCodecs);
  EXPECT_FALSE(plan.copiesPictures);
  EXPECT_THAT(plan.reasons, ElementsAre(HasSubstr("the webm format cannot hold h264")));
}

TEST(JoinPlan, SubtitlesGoWhereTheyAreHeld) {
  const JoinPlan held = planOf({"av-tracks.mkv", "av-tracks.mkv"}, "out.mkv");
  EXPECT_THAT(held.reasons, IsEmpty());
  EXPECT_THAT(held.leftOut, IsEmpty());
  for (const JoinPart& part : held.parts) {
    EXPECT_THAT(part.subtitles, ElementsAre(3));
    EXPECT_EQ(part.subtitleTracks(), "1 subtitle track");
    EXPECT_THAT(part.streams(), SizeIs(4));
    EXPECT_THAT(part.silentStreams(), SizeIs(2));
  }
  const JoinPlan lost = planOf({"av-tracks.mkv", "av-tracks.mkv"}, "out.avi");
  EXPECT_THAT(lost.parts.front().subtitles, IsEmpty());
  EXPECT_THAT(lost.leftOut,
              ElementsAre(EndsWith("1 subtitle track"), EndsWith("1 subtitle track")));
}

TEST(JoinPlan, WhatIsLostIsToldOfEachInput) {
  EXPECT_THAT(planOf({"av25.mp4", "av-tags.mp4"}, "out.avi").leftOut,
              ElementsAre(AllOf(HasSubstr("av-tags.mp4"), EndsWith("2 chapters"))));
  EXPECT_THAT(planOf({"av25.mp4", "av-tags.mp4"}, "out.mkv").leftOut, IsEmpty());
  const auto turned = AllOf(HasSubstr("av-rotated.mp4"), HasSubstr("the turn of its pictures"));
  EXPECT_THAT(planOf({"av-rotated.mp4", "av-rotated.mp4"}, "out.avi").leftOut,
              ElementsAre(turned, turned));
  EXPECT_THAT(planOf({"av-rotated.mp4", "av-rotated.mp4"}, "out.mp4").leftOut, IsEmpty());
}

TEST(JoinPlan, WhatCannotBeOpenedIsAFailure) {
  JoinSettings settings;
  settings.inputs = {{.path = "/nowhere/absent.mp4"}};
  settings.output = "out.mp4";
  EXPECT_THROW(planJoin(settings, {}), Failure);
}

}  // namespace
}  // namespace kestrel::test
