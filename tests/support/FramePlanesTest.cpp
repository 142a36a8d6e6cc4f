#include "support/FramePlanes.h"

#include <gtest/gtest.h>

#include "support/FFmpegOwners.h"

namespace kestrel {
namespace {

std::shared_ptr<AVFrame> frameOf(AVPixelFormat format, int width = 64, int height = 36) {
  std::shared_ptr<AVFrame> frame = makeFrame();
  frame->format = format;
  frame->width = width;
  frame->height = height;
  EXPECT_GE(av_frame_get_buffer(frame.get(), 0), 0);
  return frame;
}

TEST(FramePlanes, PlanesOfTheirOwnAreReadWhereTheyLie) {
  const auto frame = frameOf(AV_PIX_FMT_YUV420P);
  frame->colorspace = AVCOL_SPC_BT709;
  const auto picture = yuvPictureOf(frame);
  ASSERT_TRUE(picture);
  EXPECT_EQ(picture->format, (YUVFormat{.width = 64,
                                        .height = 36,
                                        .chromaShiftX = 1,
                                        .chromaShiftY = 1,
                                        .bitDepth = 8,
                                        .bitShift = 0,
                                        .kr = 0.2126,
                                        .kb = 0.0722,
                                        .fullRange = false}));
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(picture->planes[i].data, frame->data[i]);
    EXPECT_EQ(picture->planes[i].bytesPerRow, frame->linesize[i]);
    EXPECT_EQ(picture->planes[i].sampleStride, 1);
  }
  EXPECT_EQ(picture->planes[3].data, nullptr);
}

TEST(FramePlanes, PictureKeepsTheFrameAlive) {
  auto frame = frameOf(AV_PIX_FMT_YUV420P);
  const std::weak_ptr<AVFrame> watch = frame;
  auto picture = yuvPictureOf(std::move(frame));
  EXPECT_FALSE(watch.expired());
  picture.reset();
  EXPECT_TRUE(watch.expired());
}

TEST(FramePlanes, ChromaMayTakeTurnsInOnePlane) {
  const auto nv12 = frameOf(AV_PIX_FMT_NV12);
  const auto one = yuvPictureOf(nv12);
  EXPECT_EQ(one->planes[1].data, nv12->data[1]);
  EXPECT_EQ(one->planes[2].data, nv12->data[1] + 1);
  EXPECT_EQ(one->planes[1].sampleStride, 2);
  const auto nv21 = frameOf(AV_PIX_FMT_NV21);
  const auto two = yuvPictureOf(nv21);
  EXPECT_EQ(two->planes[1].data, nv21->data[1] + 1);
  EXPECT_EQ(two->planes[2].data, nv21->data[1]);
}

TEST(FramePlanes, SamplesOfTwoBytesAreCountedInSamples) {
  const auto p010 = yuvPictureOf(frameOf(AV_PIX_FMT_P010));
  EXPECT_EQ(p010->format.bitDepth, 10);
  EXPECT_EQ(p010->format.bitShift, 6);
  EXPECT_EQ(p010->planes[0].sampleStride, 1);
  EXPECT_EQ(p010->planes[1].sampleStride, 2);
  const auto planar = yuvPictureOf(frameOf(AV_PIX_FMT_YUV422P12));
  EXPECT_EQ(planar->format.bitDepth, 12);
  EXPECT_EQ(planar->format.bitShift, 0);
  EXPECT_EQ(planar->format.chromaShiftX, 1);
  EXPECT_EQ(planar->format.chromaShiftY, 0);
}

TEST(FramePlanes, RangeAndMatrixAreTheFramesOrItsKinds) {
  const auto full = frameOf(AV_PIX_FMT_YUVJ444P);
  EXPECT_TRUE(yuvPictureOf(full)->format.fullRange);
  const auto high = yuvPictureOf(frameOf(AV_PIX_FMT_YUV420P, 16, 720));
  EXPECT_NEAR(high->format.kr, 0.2126, 1e-9);
  const auto low = yuvPictureOf(frameOf(AV_PIX_FMT_YUV420P, 16, 576));
  EXPECT_NEAR(low->format.kr, 0.299, 1e-9);
  EXPECT_NEAR(low->format.kb, 0.114, 1e-9);
}

TEST(FramePlanes, GreyAndAlphaAreRead) {
  const auto grey = yuvPictureOf(frameOf(AV_PIX_FMT_GRAY8));
  ASSERT_TRUE(grey);
  EXPECT_EQ(grey->planes[1].data, nullptr);
  const auto frame = frameOf(AV_PIX_FMT_YUVA444P);
  EXPECT_EQ(yuvPictureOf(frame)->planes[3].data, frame->data[3]);
}

TEST(FramePlanes, OtherFormatsAreNot) {
  for (const auto format :
       {AV_PIX_FMT_RGBA, AV_PIX_FMT_GBRP, AV_PIX_FMT_PAL8, AV_PIX_FMT_YUYV422, AV_PIX_FMT_MONOBLACK,
        AV_PIX_FMT_YA8, AV_PIX_FMT_YUV420P10BE, AV_PIX_FMT_GRAYF32LE, AV_PIX_FMT_BAYER_BGGR8}) {
    EXPECT_FALSE(isYuvPlanes(format)) << format;
    EXPECT_FALSE(yuvPictureOf(frameOf(format))) << format;
  }
  EXPECT_FALSE(isYuvPlanes(AV_PIX_FMT_NONE));
  EXPECT_FALSE(isYuvPlanes(100'000));
  EXPECT_FALSE(isYuvPlanes(AV_PIX_FMT_VAAPI));
}

TEST(FramePlanes, MatrixThatMixesNoColoursIsNone) {
  const auto frame = frameOf(AV_PIX_FMT_YUV444P);
  frame->colorspace = AVCOL_SPC_SMPTE2085;
  EXPECT_FALSE(yuvPictureOf(frame));
}

TEST(FramePlanes, ComponentsOfLightAndOfConesHaveTheirOwnKinds) {
  const auto frame = frameOf(AV_PIX_FMT_YUV420P10);
  frame->colorspace = AVCOL_SPC_BT2020_CL;
  EXPECT_EQ(yuvPictureOf(frame)->format.matrix, YUVMatrix::kConstantLuminance);
  frame->colorspace = AVCOL_SPC_ICTCP;
  frame->color_trc = AVCOL_TRC_SMPTE2084;
  EXPECT_EQ(yuvPictureOf(frame)->format.matrix, YUVMatrix::kICtCpOfPq);
  frame->color_trc = AVCOL_TRC_ARIB_STD_B67;
  EXPECT_EQ(yuvTargetOf(*frame)->format.matrix, YUVMatrix::kICtCpOfHlg);
}

TEST(FramePlanes, ChromaOfInterlacedFramesIsByFieldsWhereRowsShareIt) {
  const auto frame = frameOf(AV_PIX_FMT_YUV420P);
  EXPECT_FALSE(yuvPictureOf(frame)->format.byFields);
  frame->interlaced_frame = 1;
  EXPECT_TRUE(yuvPictureOf(frame)->format.byFields);
  const auto full = frameOf(AV_PIX_FMT_YUV422P);
  full->interlaced_frame = 1;
  EXPECT_FALSE(yuvPictureOf(full)->format.byFields);
}

TEST(FramePlanes, YCgCoHasItsOwnMatrix) {
  const auto frame = frameOf(AV_PIX_FMT_YUV444P);
  frame->colorspace = AVCOL_SPC_YCGCO;
  EXPECT_EQ(yuvPictureOf(frame)->format.matrix, YUVMatrix::kYCgCo);
}

TEST(FramePlanes, DeepRgbIsGreenBlueAndRed) {
  const auto planar = frameOf(AV_PIX_FMT_GBRP12);
  const auto picture = yuvPictureOf(planar);
  ASSERT_TRUE(picture);
  EXPECT_EQ(picture->format.matrix, YUVMatrix::kRgb);
  EXPECT_EQ(picture->format.bitDepth, 12);
  EXPECT_TRUE(picture->format.fullRange);
  for (size_t p = 0; p < 3; ++p) EXPECT_EQ(picture->planes[p].data, planar->data[p]);
  const auto packed = frameOf(AV_PIX_FMT_RGB48);
  const auto target = yuvTargetOf(*packed);
  ASSERT_TRUE(target);
  EXPECT_EQ(target->planes[0].data, packed->data[0] + 2);
  EXPECT_EQ(target->planes[1].data, packed->data[0] + 4);
  EXPECT_EQ(target->planes[2].data, packed->data[0]);
  EXPECT_EQ(target->planes[0].sampleStride, 3);
  EXPECT_EQ(yuvPictureOf(frameOf(AV_PIX_FMT_RGBA64))->planes[3].sampleStride, 4);
}

TEST(FramePlanes, NothingIsNone) {
  EXPECT_FALSE(yuvPictureOf(nullptr));
  const std::shared_ptr<AVFrame> blank = makeFrame();
  blank->format = AV_PIX_FMT_YUV420P;
  EXPECT_FALSE(yuvPictureOf(blank));
  EXPECT_FALSE(yuvTargetOf(*blank));
}

TEST(FramePlanes, TargetsHaveThreeComponents) {
  const auto frame = frameOf(AV_PIX_FMT_NV12);
  const auto target = yuvTargetOf(*frame);
  ASSERT_TRUE(target);
  EXPECT_EQ(target->planes[0].data, frame->data[0]);
  EXPECT_EQ(target->planes[2].data, frame->data[1] + 1);
  EXPECT_EQ(target->planes[2].sampleStride, 2);
  EXPECT_FALSE(yuvTargetOf(*frameOf(AV_PIX_FMT_GRAY8)));
  EXPECT_FALSE(yuvTargetOf(*frameOf(AV_PIX_FMT_YUVA420P)));
}

}  // namespace
}  // namespace kestrel
