#include <kestrel/BitmapContext.h>
#include <kestrel/LMFFImageColorspaceConverter.h>
#include <kestrel/LMFFMovieFileOutput.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <utility>
#include <vector>

#include "support/FFmpegOwners.h"
#include "tests/output/MovieOutput.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

TEST(LMFFMovieFileOutputColor, ColourIsTaggedInStreamAndContainer) {
  const TempDir dir;
  const LMFFVideoColor color{AVCOL_PRI_BT709, AVCOL_TRC_BT709, AVCOL_SPC_BT709, AVCOL_RANGE_MPEG};
  for (const auto& [name, codec] : {std::pair{"a.mp4", AV_CODEC_ID_H264},
                                    {"b.mp4", AV_CODEC_ID_MPEG4},
                                    {"a.mkv", AV_CODEC_ID_FFV1}}) {
    LMFFMovieFileOutput output;
    output.setMovieFormat(smallFormat(codec));
    output.setOutputColor(color);
    start(output, dir / name, true, false);
    EXPECT_EQ(output.videoConverter()->outputColor(), color);
    writePictures(output, 3);
    output.stopOutput();
    const nlohmann::json stream = streamOf(dir / name, "v");
    EXPECT_EQ(stream["color_space"], "bt709") << name;
    EXPECT_EQ(stream["color_primaries"], "bt709") << name;
    EXPECT_EQ(stream["color_transfer"], "bt709") << name;
  }
}

// Pure red in 8-bit limited range has a luma of 63 by BT.709 and of 81 by BT.601.
TEST(LMFFMovieFileOutputColor, PicturesAreConvertedToTheColourThatIsTagged) {
  const TempDir dir;
  for (const auto& [matrix, luma] :
       {std::pair<int, double>{AVCOL_SPC_BT709, 63}, {AVCOL_SPC_SMPTE170M, 81}}) {
    LMFFMovieFileOutput output;
    output.setMovieFormat(smallFormat(AV_CODEC_ID_FFV1));
    LMFFVideoColor color;
    color.matrix = matrix;
    color.range = AVCOL_RANGE_MPEG;
    output.setOutputColor(color);
    start(output, dir / "a.mkv", true, false);
    const std::unique_ptr<BitmapContext> context = output.createCGContext();
    context->fillRect({{0, 0}, {160, 120}}, 1, 0, 0);
    output.writeCGContext(context.get());
    output.stopOutput();
    const std::vector<double> lumas = meanLumas(dir / "a.mkv");
    ASSERT_EQ(lumas.size(), 1u);
    EXPECT_NEAR(lumas[0], luma, 1);
  }
}

TEST(LMFFMovieFileOutputColor, PrimariesAndTransferAreLeftOpenWhenNoneAreAskedFor) {
  const TempDir dir;
  LMFFMovieFileOutput output;
  output.setMovieFormat(smallFormat(AV_CODEC_ID_H264));
  start(output, dir / "a.mp4", true, false);
  writePictures(output, 3);
  output.stopOutput();
  const nlohmann::json stream = streamOf(dir / "a.mp4", "v");
  EXPECT_FALSE(stream.contains("color_primaries"));
  EXPECT_FALSE(stream.contains("color_transfer"));
}

/// A frame of 1280 x 720 that says nothing of its colours, pure red in BT.709.
FramePtr untaggedRed() {
  FramePtr frame = makeFrame();
  frame->format = AV_PIX_FMT_YUV420P;
  frame->width = 1280;
  frame->height = 720;
  av_frame_get_buffer(frame.get(), 0);
  const std::array<uint8_t, 3> red{63, 102, 240};
  for (int plane = 0; plane < 3; ++plane)
    std::fill_n(frame->data[plane], frame->linesize[plane] * (plane ? 360 : 720), red.at(plane));
  return frame;
}

// A host that says nothing of colours: its 720 lines count as BT.709, the 120 that it asks for as
// BT.601, in which red has a luma of 81.
TEST(LMFFMovieFileOutputColor, PicturesAreConvertedToWhatTheFileSaysWhenNothingIsAskedFor) {
  const TempDir dir;
  LMFFMovieFileOutput output;
  output.setMovieFormat(smallFormat(AV_CODEC_ID_FFV1));
  start(output, dir / "a.mkv", true, false);
  EXPECT_EQ(output.outputColor(),
            (LMFFVideoColor{.matrix = AVCOL_SPC_SMPTE170M, .range = AVCOL_RANGE_MPEG}));
  output.writeVideoFrame(untaggedRed().get());
  output.stopOutput();
  const std::vector<double> lumas = meanLumas(dir / "a.mkv");
  ASSERT_EQ(lumas.size(), 1u);
  EXPECT_NEAR(lumas[0], 81, 1);
  EXPECT_EQ(streamOf(dir / "a.mkv", "v")["color_space"], "smpte170m");
}

TEST(LMFFMovieFileOutputColor, ColourOfAnEncodersOptionOrOfTheConverterIsTakenOver) {
  const TempDir dir;
  for (const bool byOption : {true, false}) {
    LMFFMovieFileOutput output;
    output.setMovieFormat(smallFormat(AV_CODEC_ID_FFV1));
    if (byOption)
      output.setVideoOptions({{"colorspace", "bt709"}});
    else
      output.videoConverter()->setOutputColor({.matrix = AVCOL_SPC_BT709});
    start(output, dir / "a.mkv", true, false);
    output.writeVideoFrame(untaggedRed().get());
    output.stopOutput();
    const std::vector<double> lumas = meanLumas(dir / "a.mkv");
    ASSERT_EQ(lumas.size(), 1u);
    EXPECT_NEAR(lumas[0], 63, 1);
    EXPECT_EQ(streamOf(dir / "a.mkv", "v")["color_space"], "bt709");
  }
}

}  // namespace
}  // namespace kestrel::test
