#include <kestrel/LMFFImageColorspaceConverter.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <vector>

#include "support/FFmpegOwners.h"
#include "tests/frames/Pictures.h"

namespace kestrel {
namespace {

using test::colorAt;
using test::greyPicture;
using test::hasAlignedRows;
using test::paint;
using test::rgbPicture;
using test::SizedConverter;
using test::Triple;

TEST(LMFFImageColorspaceConverterSharing, PictureThatNeedsNoConversionIsPassedByReference) {
  FramePtr source = greyPicture(64, 36, 100);
  SizedConverter converter(AV_PIX_FMT_YUV420P, 64, 36);
  converter.convertFrame(source.get());
  for (int plane = 0; plane < 3; plane++) {
    EXPECT_EQ(converter.output().data[plane], source->data[plane]);
    EXPECT_EQ(converter.output().linesize[plane], source->linesize[plane]);
  }
  source.reset();
  EXPECT_EQ(converter.color(63, 35), (Triple{100, 128, 128}));
}

TEST(LMFFImageColorspaceConverterSharing, PassedPictureFixesTheOutputToo) {
  SizedConverter converter(AV_PIX_FMT_YUV420P, 64, 36);
  converter.convertFrame(greyPicture(64, 36, 100).get());
  converter.setOutputFormat({AV_PIX_FMT_RGBA, 32, 32});
  converter.convertFrame(rgbPicture(20, 20, {255, 255, 255}).get());
  EXPECT_EQ(converter.output().format, AV_PIX_FMT_YUV420P);
  EXPECT_EQ(converter.output().width, 64);
  EXPECT_EQ(converter.color(63, 35), (Triple{235, 128, 128}));
}

TEST(LMFFImageColorspaceConverterSharing, PassedPictureIsNeverWrittenInto) {
  const FramePtr source = greyPicture(64, 36, 100);
  SizedConverter converter(AV_PIX_FMT_YUV420P, 64, 36);
  converter.convertFrame(source.get());
  converter.convertFrame(greyPicture(32, 36, 200).get());
  EXPECT_EQ(colorAt(*source, 5, 5), (Triple{100, 128, 128}));
  EXPECT_EQ(converter.color(), (Triple{200, 128, 128}));
}

TEST(LMFFImageColorspaceConverterSharing, FullRangeFormatIsPassedUnderItsPlainName) {
  const FramePtr source = greyPicture(64, 36, 100, AV_PIX_FMT_YUVJ420P);
  SizedConverter converter(AV_PIX_FMT_YUV420P, 64, 36);
  converter.convertFrame(source.get());
  EXPECT_EQ(converter.output().data[0], source->data[0]);
  EXPECT_EQ(converter.output().format, AV_PIX_FMT_YUV420P);
  EXPECT_EQ(converter.output().color_range, AVCOL_RANGE_JPEG);
}

TEST(LMFFImageColorspaceConverterSharing, PictureInAnotherColourIsConverted) {
  const FramePtr source = greyPicture(64, 36, 16);
  LMFFVideoColor full;
  full.range = AVCOL_RANGE_JPEG;
  SizedConverter converter(AV_PIX_FMT_YUV420P, 64, 36);
  converter.setOutputColor(full);
  EXPECT_EQ(converter.outputColor(), full);
  converter.convertFrame(source.get());
  EXPECT_NE(converter.output().data[0], source->data[0]);
  EXPECT_EQ(converter.color(), (Triple{0, 128, 128}));
}

TEST(LMFFImageColorspaceConverterSharing, PictureWhoseBufferIsNotCountedIsCopied) {
  const FramePtr owner = greyPicture(64, 36, 100);
  const FramePtr source = makeFrame();
  source->format = owner->format;
  source->width = owner->width;
  source->height = owner->height;
  source->colorspace = owner->colorspace;
  source->color_range = owner->color_range;
  std::copy(std::begin(owner->data), std::end(owner->data), source->data);
  std::copy(std::begin(owner->linesize), std::end(owner->linesize), source->linesize);
  SizedConverter converter(AV_PIX_FMT_YUV420P, 64, 36);
  converter.convertFrame(source.get());
  EXPECT_NE(converter.output().data[0], owner->data[0]);
  EXPECT_EQ(converter.color(63, 35), (Triple{100, 128, 128}));
}

TEST(LMFFImageColorspaceConverterSharing, PictureWithUnalignedRowsIsCopied) {
  const FramePtr source = greyPicture(100, 36, 100);
  source->width = 64;
  for (int plane = 0; plane < 3; plane++) source->linesize[plane] -= 8;
  paint(*source, [](int, int) { return Triple{90, 128, 128}; });
  SizedConverter converter(AV_PIX_FMT_YUV420P, 64, 36);
  converter.convertFrame(source.get());
  EXPECT_TRUE(hasAlignedRows(converter.output()));
  EXPECT_EQ(converter.color(63, 35), (Triple{90, 128, 128}));
}

TEST(LMFFImageColorspaceConverterSharing, PictureHeldByAnEncoderIsNotOverwritten) {
  SizedConverter converter(AV_PIX_FMT_YUV420P, 64, 36);
  std::vector<FramePtr> held;
  for (int i = 0; i < 5; i++) {
    converter.convertFrame(greyPicture(32, 36, 100 + i).get());
    held.emplace_back(av_frame_clone(converter.outputFrame()));
  }
  for (int i = 0; i < 5; i++) {
    EXPECT_EQ(colorAt(*held[i], 63, 35), (Triple{100.0 + i, 128, 128}));
  }
}

TEST(LMFFImageColorspaceConverterSharing, BuffersAreUsedAgain) {
  SizedConverter converter(AV_PIX_FMT_YUV420P, 64, 36);
  const FramePtr source = greyPicture(32, 36, 100);
  std::set<const uint8_t*> buffers;
  for (int i = 0; i < 20; i++) {
    converter.convertFrame(source.get());
    buffers.insert(converter.output().data[0]);
  }
  EXPECT_LE(buffers.size(), 2U);
}

TEST(LMFFImageColorspaceConverterSharing, HeldPictureOutlivesTheConverter) {
  FramePtr held;
  {
    SizedConverter converter(AV_PIX_FMT_YUV420P, 64, 36);
    converter.convertFrame(greyPicture(32, 36, 100).get());
    held.reset(av_frame_clone(converter.outputFrame()));
  }
  EXPECT_EQ(colorAt(*held, 63, 35), (Triple{100, 128, 128}));
}

TEST(LMFFImageColorspaceConverterSharing, ItsOwnOutputIsAlreadyConverted) {
  SizedConverter converter(AV_PIX_FMT_YUV420P, 64, 36);
  converter.convertFrame(converter.outputFrame());
  EXPECT_TRUE(converter.isOutputEmpty());
  converter.convertFrame(greyPicture(32, 36, 100).get());
  converter.convertFrame(converter.outputFrame());
  EXPECT_EQ(converter.color(63, 35), (Triple{100, 128, 128}));
}

}  // namespace
}  // namespace kestrel
