#include "convert/join/JoinFormat.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/Fixture.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace kestrel::test {
namespace {

std::string nameOf(int codec) { return avcodec_get_name(static_cast<AVCodecID>(codec)); }

/// The format of a join that has one input.
ConversionPlan formatOf(const std::string& input, const std::string& output,
                        bool keepsCodecs = true, const JoinEncoding& format = {}) {
  JoinSettings settings;
  settings.inputs = {{fixture(input).string()}};
  settings.output = output;
  settings.format = format;
  const JoinPlan plan = planJoin(settings, {});
  return formatOfJoin(settings, plan.parts.front(), keepsCodecs).plan;
}

std::string soundOf(const ConversionPlan& plan) {
  return nameOf(plan.kept(StreamInfo::Kind::kAudio).at(0)->sound.codec);
}

TEST(JoinFormat, WhatIsLeftOpenIsTheFirstInputs) {
  const ConversionPlan plan = formatOf("av24000-1001.mp4", "out.mkv");
  EXPECT_EQ(nameOf(plan.format.video_codec), "h264");
  EXPECT_EQ(soundOf(plan), "aac");
  EXPECT_EQ(plan.format.width, 320);
  EXPECT_EQ(plan.format.height, 180);
  EXPECT_EQ(plan.rate().num, 24000);
  EXPECT_EQ(plan.rate().den, 1001);
}

// The containers' own codecs are MPEG-4, H.264 and AAC.
TEST(JoinFormat, CodecsAreTheFirstInputsWhereTheContainerHoldsThem) {
  EXPECT_EQ(nameOf(formatOf("av25.mp4", "out.avi").format.video_codec), "h264");
  EXPECT_EQ(nameOf(formatOf("mpeg4.avi", "out.mkv").format.video_codec), "mpeg4");
  EXPECT_EQ(soundOf(formatOf("tone.mp3", "out.mka")), "mp3");
}

TEST(JoinFormat, ElseTheyAreTheContainers) {
  const ConversionPlan other = formatOf("av25.mp4", "out.webm");
  EXPECT_EQ(nameOf(other.format.video_codec), "vp9");
  EXPECT_EQ(soundOf(other), "opus");
  EXPECT_EQ(nameOf(formatOf("mpeg4.avi", "out.mkv", false).format.video_codec), "h264");
}

TEST(JoinFormat, AFileOfBarePacketsIsOneCodecsAlone) {
  EXPECT_EQ(soundOf(formatOf("tone.mp3", "out.aac")), "aac");
  EXPECT_EQ(soundOf(formatOf("audio-only.m4a", "out.mp3")), "mp3");
}

TEST(JoinFormat, WhatIsAskedForComesFirst) {
  JoinEncoding format;
  format.videoCodec = "mpeg4";
  format.width = 160;
  const ConversionPlan plan = formatOf("av25.mp4", "out.mkv", true, format);
  EXPECT_EQ(nameOf(plan.format.video_codec), "mpeg4");
  EXPECT_EQ(plan.format.width, 160);
  EXPECT_EQ(plan.format.height, 90);
}

TEST(JoinFormat, APartIsOpenAsLongAsItIsUsed) {
  JoinSettings settings;
  settings.inputs = {{fixture("av25.mp4").string()}};
  settings.output = "out.mp4";
  const JoinPlan plan = planJoin(settings, {});
  const LMMediaSource& source = *plan.parts.front().source;
  EXPECT_FALSE(source.isOpen());
  {
    const OpenPart open(plan.parts.front());
    EXPECT_TRUE(open.source().isOpen());
  }
  EXPECT_FALSE(source.isOpen());
}

}  // namespace
}  // namespace kestrel::test
