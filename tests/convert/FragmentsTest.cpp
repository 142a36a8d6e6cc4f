#include "convert/plan/Fragments.h"

#include <gmock/gmock.h>

#include <string>

#include "tests/convert/Failures.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel::test {
namespace {

using testing::HasSubstr;
using testing::Pair;
using testing::UnorderedElementsAre;

using Kind = StreamInfo::Kind;

const AVOutputFormat& container(const char* name) {
  return *av_guess_format(name, nullptr, nullptr);
}

/// Pictures at 25 a second, or sound, or both, all encoded.
ConversionPlan planned(bool hasPictures, bool hasSound) {
  ConversionPlan plan;
  if (hasPictures) plan.streams.push_back({.kind = Kind::kVideo, .action = StreamAction::kEncode});
  if (hasSound) plan.streams.push_back({.kind = Kind::kAudio, .action = StreamAction::kEncode});
  plan.setRate({25, 1});
  return plan;
}

TEST(Fragments, AreForFilesThatAskAndForPipes) {
  const ConversionSettings plain{.output = "a.mp4"};
  const ConversionSettings asked{.output = "a.mp4", .fragment = 2};
  const ConversionSettings piped{.output = "pipe:1"};
  EXPECT_FALSE(isFragmented(plain, container("mp4")));
  EXPECT_TRUE(isFragmented(asked, container("mp4")));
  EXPECT_TRUE(isFragmented(piped, container("mov")));
  EXPECT_FALSE(isFragmented(piped, container("matroska")));
}

TEST(Fragments, TheIndexOfOtherFilesComesFirst) {
  ConversionPlan plan = planned(true, true);
  planFragments(plan, {.output = "a.mp4"}, container("mp4"));
  EXPECT_THAT(plan.muxerOptions, UnorderedElementsAre(Pair("movflags", "+faststart")));
  ConversionPlan other = planned(true, true);
  planFragments(other, {.output = "a.mkv"}, container("matroska"));
  EXPECT_TRUE(other.muxerOptions.empty());
}

// Two seconds less a fiftieth, so that rounding makes no key picture wait.
TEST(Fragments, BeginWithKeyPicturesAndOfSoundAloneByTime) {
  ConversionPlan both = planned(true, true);
  planFragments(both, {.output = "a.mp4", .fragment = 2}, container("mp4"));
  EXPECT_THAT(both.muxerOptions,
              UnorderedElementsAre(Pair("movflags", "+frag_keyframe+delay_moov+default_base_moof"),
                                   Pair("min_frag_duration", "1960000")));
  ConversionPlan sound = planned(false, true);
  planFragments(sound, {.output = "a.mp4", .fragment = 3}, container("mp4"));
  EXPECT_THAT(
      sound.muxerOptions,
      UnorderedElementsAre(Pair("movflags", "+frag_keyframe+delay_moov+default_base_moof+cmaf"),
                           Pair("use_editlist", "1"), Pair("frag_duration", "3000000")));
}

TEST(Fragments, SegmentsHaveWholePicturesSixSecondsUnlessToldOtherwise) {
  ConversionPlan plan = planned(true, true);
  planSegments(plan, {.output = "a.m3u8"}, container("hls"));
  EXPECT_EQ(plan.segment, 6'000'000);
  plan.setRate({24000, 1001});
  planSegments(plan, {.output = "a.m3u8", .fragment = 2}, container("hls"));
  EXPECT_EQ(plan.segment, 2'002'000);  // 48 pictures
  ConversionPlan sound = planned(false, true);
  planSegments(sound, {.output = "a.m3u8", .fragment = 2.5}, container("hls"));
  EXPECT_EQ(sound.segment, 2'500'000);
  ConversionPlan file = planned(true, true);
  planSegments(file, {.output = "a.mp4"}, container("mp4"));
  EXPECT_FALSE(file.segment);
}

TEST(Fragments, SmallerSizesGetTheirShareOfTheRate) {
  ConversionPlan plan = planned(true, false);
  plan.format.width = 1280;
  plan.format.height = 720;
  plan.format.video_bitrate = 4'000'000;
  planRungs(plan, {{1280, 720}, {640, 360}, {320, 180, 1.5}});
  ASSERT_EQ(plan.rungs.size(), 2U);
  EXPECT_EQ(plan.rungs[0].width, 640);
  EXPECT_EQ(plan.rungs[1].aspect, 1.5);
  EXPECT_GT(plan.rungs[0].bitrate, 500'000);
  EXPECT_LT(plan.rungs[0].bitrate, 4'000'000);
  EXPECT_LT(plan.rungs[1].bitrate, plan.rungs[0].bitrate);
}

TEST(Fragments, WhatAContainerDoesNotHaveIsRefused) {
  struct Row {
    const char* container;
    ConversionSettings settings;
    Failure::Kind kind;
    const char* sentence;
  };
  for (const Row& row :
       {Row{"matroska",
            {.output = "a.mkv", .fragment = 2},
            Failure::Kind::kSettings,
            "only MPEG-4"},
        Row{"mp4", {.output = "a.mp4", .ladder = {360}}, Failure::Kind::kSettings, "only HLS"},
        Row{"hls", {.output = "pipe:1"}, Failure::Kind::kOutput, "a folder of files"},
        Row{"avi", {.output = "pipe:1"}, Failure::Kind::kOutput, "written last"}}) {
    SCOPED_TRACE(row.container);
    ConversionPlan plan = planned(true, true);
    const Failure failure =
        failureOf([&] { planFragments(plan, row.settings, container(row.container)); });
    EXPECT_EQ(failure.kind(), row.kind);
    EXPECT_THAT(failure.what(), HasSubstr(row.sentence));
  }
}

}  // namespace
}  // namespace kestrel::test
