#include "convert/plan/OtherStreams.h"

#include <gmock/gmock.h>
#include <kestrel/LMMediaSource.h>

#include <string>
#include <vector>

#include "tests/convert/Failures.h"
#include "tests/support/Fixture.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// What becomes of each stream: "copy", "draw", "mov_text" where it becomes that, else the reason
/// why it stays behind, in brackets.
std::vector<std::string> told(const std::vector<PlannedStream>& streams) {
  std::vector<std::string> list;
  for (const PlannedStream& stream : streams) {
    const bool becomesText = stream.action == StreamAction::kEncode;
    const auto codec = static_cast<AVCodecID>(stream.subtitleCodec);
    list.push_back(stream.action == StreamAction::kCopy     ? "copy"
                   : stream.action == StreamAction::kBurnIn ? "draw"
                   : becomesText                            ? avcodec_get_name(codec)
                                                            : "(" + stream.reason + ")");
  }
  return list;
}

class OtherStreams : public testing::Test {
 protected:
  /// Two texts without a language behind pictures.
  std::vector<std::string> subtitles(const std::string& container, bool encodesPictures = true) {
    const auto input = opened("two-texts.mkv");
    const AVOutputFormat& format = *av_guess_format(container.c_str(), nullptr, nullptr);
    return told(
        planSubtitles(settings_, *input, mediaInfoOf(*input), format, format, encodesPictures));
  }

  std::vector<std::string> attachments(const std::string& name, const std::string& container) {
    const auto input = opened(name);
    return told(planAttachments(settings_, *input, mediaInfoOf(*input),
                                *av_guess_format(container.c_str(), nullptr, nullptr)));
  }

  static std::shared_ptr<LMMediaSource> opened(const std::string& name) {
    const auto source = LMMediaSource::mediaWithPath(fixture(name).string());
    source->open();
    return source;
  }

  ConversionSettings settings_{.output = "out"};
};

TEST_F(OtherStreams, TextsGoAlongAsTheyAreOrInTheContainersForm) {
  EXPECT_THAT(subtitles("matroska"), ElementsAre("copy", "copy"));
  EXPECT_THAT(subtitles("mp4"), ElementsAre("mov_text", "mov_text"));
  EXPECT_THAT(subtitles("avi"),
              ElementsAre("(avi cannot hold subrip)", "(avi cannot hold subrip)"));
}

TEST_F(OtherStreams, WhatIsNotChosenIsLeftOutWithoutAReason) {
  settings_.subtitleTracks = TrackChoice::of({1});
  EXPECT_THAT(subtitles("matroska"), ElementsAre("()", "copy"));
  settings_.keepsSubtitles = false;
  EXPECT_THAT(subtitles("matroska"), ElementsAre("()", "()"));
}

TEST_F(OtherStreams, WhatIsChosenMustBeThere) {
  settings_.subtitleTracks = TrackChoice::of({2});
  const Failure failure = failureOf([&] { subtitles("matroska"); });
  EXPECT_EQ(failure.kind(), Failure::Kind::kSettings);
  EXPECT_THAT(failure.what(), HasSubstr("no subtitle track 2: the input has 2"));
  settings_.suitsAnyInput = true;
  EXPECT_THAT(subtitles("matroska"), ElementsAre("()", "()"));
}

TEST_F(OtherStreams, WhatIsDrawnIntoEncodedPicturesIsNotLost) {
  settings_.look.subtitleTrack = TrackChoice::of({0});
  EXPECT_THAT(subtitles("avi"), ElementsAre("draw", "(avi cannot hold subrip)"));
  EXPECT_THAT(subtitles("matroska", false), ElementsAre("copy", "copy"));
}

TEST_F(OtherStreams, CoversGoWhereTheyAreHeldAndWanted) {
  EXPECT_THAT(attachments("cover.m4a", "mp4"), ElementsAre("copy"));
  EXPECT_THAT(attachments("cover.m4a", "wav"), ElementsAre("(wav cannot hold it)"));
  EXPECT_THAT(attachments("av25.mp4", "mp4"), IsEmpty());
  settings_.fragment = 2;
  EXPECT_THAT(attachments("cover.m4a", "mp4"), ElementsAre("(mp4 cannot hold it)"));
  settings_.keepsAttachments = false;
  EXPECT_THAT(attachments("cover.m4a", "matroska"), ElementsAre("()"));
}

}  // namespace
}  // namespace kestrel::test
