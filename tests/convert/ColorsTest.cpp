#include "convert/probe/Colors.h"

#include <gtest/gtest.h>
#include <kestrel/LMFFImage.h>
#include <kestrel/LMMediaSource.h>

#include "support/FFmpegOwners.h"
#include "tests/support/Fixture.h"

extern "C" {
#include <libavutil/pixfmt.h>
}

namespace kestrel::test {
namespace {

/// Pictures of so many lines, with nothing told of their colours.
VideoInfo untold(int height, AVPixelFormat format = AV_PIX_FMT_YUV420P) {
  VideoInfo pictures;
  pictures.height = height;
  tellColors(pictures, {}, format);
  return pictures;
}

TEST(Colors, ThatNobodyTellsAreThoseThatPlayersTake) {
  EXPECT_EQ(untold(719).color.matrix, AVCOL_SPC_SMPTE170M);
  EXPECT_EQ(untold(720).color.matrix, AVCOL_SPC_BT709);
  EXPECT_EQ(untold(720).color.range, AVCOL_RANGE_MPEG);
  EXPECT_EQ(untold(720, AV_PIX_FMT_RGB24).color.matrix, AVCOL_SPC_RGB);
  EXPECT_EQ(untold(720, AV_PIX_FMT_YUVJ420P).color.range, AVCOL_RANGE_JPEG);
  for (const auto& name : {untold(720).colorSpace, untold(720).colorRange,
                           untold(720).colorPrimaries, untold(720).colorTransfer})
    EXPECT_EQ(name, "");
}

TEST(Colors, ThatAreToldHaveTheirNames) {
  VideoInfo pictures;
  pictures.height = 1080;
  tellColors(pictures,
             {AVCOL_PRI_BT2020, AVCOL_TRC_SMPTE2084, AVCOL_SPC_BT2020_NCL, AVCOL_RANGE_JPEG},
             AV_PIX_FMT_YUV420P10);
  EXPECT_EQ(pictures.colorPrimaries, "bt2020");
  EXPECT_EQ(pictures.colorTransfer, "smpte2084");
  EXPECT_EQ(pictures.colorSpace, "bt2020nc");
  EXPECT_EQ(pictures.colorRange, "pc");
  EXPECT_EQ(pictures.color.matrix, AVCOL_SPC_BT2020_NCL);
}

FramePtr picture(AVColorSpace matrix, AVColorRange range) {
  FramePtr frame = makeFrame();
  frame->format = AV_PIX_FMT_YUV420P;
  frame->colorspace = matrix;
  frame->color_range = range;
  return frame;
}

TEST(Colors, PicturesTellWhatNothingElseDoes) {
  VideoInfo pictures = untold(720);
  learnColors(pictures, *picture(AVCOL_SPC_BT470BG, AVCOL_RANGE_UNSPECIFIED));
  EXPECT_EQ(pictures.colorSpace, "bt470bg");
  EXPECT_EQ(pictures.color.matrix, AVCOL_SPC_BT470BG);
  EXPECT_EQ(pictures.colorRange, "");
  EXPECT_EQ(pictures.color.range, AVCOL_RANGE_MPEG);
}

TEST(Colors, TheContainersWordCounts) {
  VideoInfo pictures;
  pictures.height = 720;
  tellColors(pictures, {.matrix = AVCOL_SPC_BT709}, AV_PIX_FMT_YUV420P);
  learnColors(pictures, *picture(AVCOL_SPC_BT470BG, AVCOL_RANGE_JPEG));
  EXPECT_EQ(pictures.colorSpace, "bt709");
  EXPECT_EQ(pictures.color.matrix, AVCOL_SPC_BT709);
  EXPECT_EQ(pictures.colorRange, "pc");
}

TEST(Colors, TheFirstPictureIsTheOneThatIsShownFirst) {
  const auto source = LMMediaSource::mediaWithPath(fixture("mpeg4-bframes.avi").string());
  source->open();
  const auto first = firstPicture(source);
  ASSERT_TRUE(first);
  EXPECT_TRUE(first->getFrame()->key_frame);
  const auto sound = LMMediaSource::mediaWithPath(fixture("audio-only.m4a").string());
  sound->open();
  EXPECT_FALSE(firstPicture(sound));
}

}  // namespace
}  // namespace kestrel::test
