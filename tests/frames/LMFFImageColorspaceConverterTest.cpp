#include <kestrel/LMFFImageColorspaceConverter.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <thread>
#include <utility>

#include "support/FFmpegOwners.h"
#include "tests/frames/Pictures.h"

namespace kestrel {
namespace {

using test::colorAt;
using test::greyPicture;
using test::hasAlignedRows;
using test::makePicture;
using test::paint;
using test::rgbPicture;
using test::sampleAt;
using test::setSampleAt;
using test::SizedConverter;
using test::tagged;
using test::Triple;

/// A picture in a format that libswscale cannot read.
FramePtr unreadablePicture(int width, int height) {
  const AVPixFmtDescriptor* descriptor = nullptr;
  while ((descriptor = av_pix_fmt_desc_next(descriptor))) {
    const AVPixelFormat format = av_pix_fmt_desc_get_id(descriptor);
    if (descriptor->flags & AV_PIX_FMT_FLAG_HWACCEL || sws_isSupportedInput(format)) continue;
    if (FramePtr frame = makePicture(format, width, height)) return frame;
  }
  return nullptr;
}

TEST(LMFFImageColorspaceConverter, FreshConverterConvertsNothingUntilItHasASize) {
  LMFFImageColorspaceConverter converter;
  EXPECT_EQ(converter.outputFormat(), (LMFFVideoFormat{AV_PIX_FMT_RGBA, 0, 0}));
  EXPECT_TRUE(converter.isOutputEmpty());
  const FramePtr source = greyPicture(320, 180, 16);
  converter.convertFrame(source.get());
  EXPECT_TRUE(converter.isOutputEmpty());

  converter.setOutputFormat({AV_PIX_FMT_RGBA, 640, 360});
  EXPECT_TRUE(converter.isOutputEmpty());
  converter.convertFrame(source.get());
  ASSERT_FALSE(converter.isOutputEmpty());
  const AVFrame& output = *converter.outputFrame();
  EXPECT_EQ(output.format, AV_PIX_FMT_RGBA);
  EXPECT_EQ(output.width, 640);
  EXPECT_EQ(output.height, 360);
  EXPECT_TRUE(hasAlignedRows(output));
  EXPECT_EQ(colorAt(output, 639, 359), (Triple{0, 0, 0}));
}

TEST(LMFFImageColorspaceConverter, NothingIsConvertedWhileASideIsZero) {
  const FramePtr source = greyPicture(64, 64, 100);
  for (const auto& [width, height] : {std::pair{0, 64}, {64, 0}, {-64, 64}}) {
    SizedConverter converter(AV_PIX_FMT_RGBA, width, height);
    converter.convertFrame(source.get());
    const uint8_t pixels[64] = {};
    converter.convertBytes(pixels, AV_PIX_FMT_RGBA);
    EXPECT_TRUE(converter.isOutputEmpty());
  }
}

TEST(LMFFImageColorspaceConverter, RowsAreAlignedForAnyWidth) {
  for (const int width : {1, 17, 33, 641}) {
    for (const auto format : {AV_PIX_FMT_RGBA, AV_PIX_FMT_RGB24, AV_PIX_FMT_YUV420P}) {
      SizedConverter converter(format, width, 9);
      converter.convertFrame(greyPicture(64, 64, 16).get());
      EXPECT_TRUE(hasAlignedRows(converter.output())) << width;
      EXPECT_EQ(converter.color(width - 1, 8)[0], format == AV_PIX_FMT_YUV420P ? 16 : 0) << width;
    }
  }
}

TEST(LMFFImageColorspaceConverter, FirstConversionFixesTheOutput) {
  SizedConverter converter(AV_PIX_FMT_RGBA, 640, 360);
  converter.convertFrame(greyPicture(320, 180, 16).get());
  converter.setOutputFormat({AV_PIX_FMT_YUV420P, 320, 240});
  EXPECT_EQ(converter.outputFormat(), (LMFFVideoFormat{AV_PIX_FMT_YUV420P, 320, 240}));
  converter.convertFrame(greyPicture(320, 180, 235).get());
  EXPECT_EQ(converter.output().width, 640);
  EXPECT_EQ(converter.output().height, 360);
  EXPECT_EQ(converter.output().format, AV_PIX_FMT_RGBA);
  EXPECT_EQ(converter.color(639, 359), (Triple{255, 255, 255}));
}

TEST(LMFFImageColorspaceConverter, UnreadableSourceLeavesThePreviousPicture) {
  SizedConverter converter(AV_PIX_FMT_RGBA, 64, 36);
  converter.convertFrame(rgbPicture(64, 36, {10, 20, 30}).get());
  const FramePtr unreadable = unreadablePicture(64, 36);
  ASSERT_NE(unreadable, nullptr);
  converter.convertFrame(unreadable.get());
  EXPECT_EQ(converter.color(), (Triple{10, 20, 30}));
  const FramePtr noFormat = greyPicture(64, 36, 235);
  noFormat->format = AV_PIX_FMT_NONE;
  converter.convertFrame(noFormat.get());
  EXPECT_EQ(converter.color(), (Triple{10, 20, 30}));
}

TEST(LMFFImageColorspaceConverter, UnreadableFirstSourceGivesABlackPicture) {
  SizedConverter converter(AV_PIX_FMT_YUV420P, 64, 36);
  converter.convertFrame(unreadablePicture(64, 36).get());
  ASSERT_FALSE(converter.isOutputEmpty());
  EXPECT_EQ(converter.color(), (Triple{16, 128, 128}));
}

TEST(LMFFImageColorspaceConverter, NullAndFramesWithoutPixelsChangeNothing) {
  SizedConverter converter(AV_PIX_FMT_RGBA, 64, 36);
  converter.convertFrame(nullptr);
  EXPECT_TRUE(converter.isOutputEmpty());
  converter.convertFrame(rgbPicture(64, 36, {10, 20, 30}).get());
  converter.convertFrame(makeFrame().get());
  const FramePtr empty = greyPicture(64, 36, 235);
  empty->width = 0;
  converter.convertFrame(empty.get());
  EXPECT_EQ(converter.color(), (Triple{10, 20, 30}));
}

TEST(LMFFImageColorspaceConverter, OutputFormatThatNobodyCanWriteIsHarmless) {
  for (const int format :
       {int{AV_PIX_FMT_PAL8}, int{AV_PIX_FMT_VAAPI}, int{AV_PIX_FMT_NONE}, 1000000}) {
    LMFFImageColorspaceConverter converter;
    converter.setOutputFormat({format, 64, 36});
    converter.convertFrame(greyPicture(64, 36, 100).get());
    converter.convertFrame(greyPicture(32, 36, 100).get());
  }
}

TEST(LMFFImageColorspaceConverter, ImpossibleSizesStayEmpty) {
  SizedConverter converter(AV_PIX_FMT_RGBA, 0x7FFFFFFF, 0x7FFFFFFF);
  converter.convertFrame(greyPicture(64, 36, 100).get());
  const uint8_t pixel[4] = {};
  converter.convertBytes(nullptr, AV_PIX_FMT_RGBA);
  converter.convertBytes(pixel, -1);
  EXPECT_TRUE(converter.isOutputEmpty());
}

TEST(LMFFImageColorspaceConverter, ScalingFollowsTheSourcesSizeAndFormat) {
  SizedConverter converter(AV_PIX_FMT_RGB24, 96, 64);
  converter.convertFrame(greyPicture(32, 32, 16).get());
  EXPECT_EQ(converter.color(95, 63), (Triple{0, 0, 0}));
  converter.convertFrame(rgbPicture(200, 100, {10, 20, 30}).get());
  EXPECT_EQ(converter.color(95, 63), (Triple{10, 20, 30}));
  converter.convertFrame(greyPicture(1280, 720, 235, AV_PIX_FMT_YUV444P).get());
  EXPECT_EQ(converter.color(95, 63), (Triple{255, 255, 255}));
}

TEST(LMFFImageColorspaceConverter, ScalingIsBilinearOverTheWholePicture) {
  const auto wave = [](double x, double y) {
    return 120 + 60 * std::sin(x * 0.02) + 40 * std::cos(y * 0.03);
  };
  const FramePtr source = greyPicture(1200, 900, 0);
  for (int y = 0; y < 900; y++) {
    for (int x = 0; x < 1200; x++) setSampleAt(*source, 0, x, y, wave(x, y));
  }
  SizedConverter converter(AV_PIX_FMT_YUV420P, 800, 600);
  converter.convertFrame(source.get());
  double worst = 0;
  for (int y = 2; y < 598; y++) {
    for (int x = 2; x < 798; x++) {
      const double expected = wave((x + 0.5) * 1.5 - 0.5, (y + 0.5) * 1.5 - 0.5);
      worst = std::max(worst, std::fabs(sampleAt(converter.output(), 0, x, y) - expected));
    }
  }
  EXPECT_LE(worst, 1.1);
}

TEST(LMFFImageColorspaceConverter, OutputFrameStaysInPlace) {
  SizedConverter converter(AV_PIX_FMT_YUV420P, 64, 36);
  const AVFrame* const output = converter.outputFrame();
  converter.convertFrame(greyPicture(32, 36, 100).get());
  EXPECT_EQ(converter.outputFrame(), output);
  converter.convertFrame(greyPicture(64, 36, 100).get());
  EXPECT_EQ(converter.outputFrame(), output);
  EXPECT_EQ(output->extended_data, output->data);
}

TEST(LMFFImageColorspaceConverter, NothingButThePictureGoesAlong) {
  for (const int width : {64, 32}) {
    const FramePtr source = greyPicture(width, 36, 100);
    source->pts = 7;
    source->pict_type = AV_PICTURE_TYPE_I;
    av_dict_set(&source->metadata, "key", "value", 0);
    SizedConverter converter(AV_PIX_FMT_YUV420P, 64, 36);
    converter.convertFrame(source.get());
    EXPECT_EQ(converter.output().pts, AV_NOPTS_VALUE);
    EXPECT_EQ(converter.output().pict_type, AV_PICTURE_TYPE_NONE);
    EXPECT_EQ(converter.output().metadata, nullptr);
  }
}

TEST(LMFFImageColorspaceConverter, TwoThreadsScaleAsOneDoes) {
  struct Case {
    AVPixelFormat from, to;
    int flags;
  };
  constexpr int kRgbFlags = SWS_BILINEAR | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT;
  for (const Case& item : {Case{AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV420P, SWS_BILINEAR},
                           Case{AV_PIX_FMT_YUV420P, AV_PIX_FMT_RGBA, kRgbFlags},
                           Case{AV_PIX_FMT_RGBA, AV_PIX_FMT_YUV420P, kRgbFlags}}) {
    for (const int height : {721, 411}) {
      const FramePtr source =
          tagged(makePicture(item.from, 1201, 803), AVCOL_SPC_SMPTE170M, AVCOL_RANGE_MPEG);
      paint(*source, [](int x, int y) {
        return Triple{(x * 7 + y * 3) % 256 * 1.0, (x + y) % 256 * 1.0, (y * 5) % 256 * 1.0};
      });
      LMFFVideoColor color;
      color.matrix = AVCOL_SPC_SMPTE170M;
      SizedConverter converter(item.to, 1023, height);
      converter.setOutputColor(color);
      converter.convertFrame(source.get());

      const FramePtr expected = makePicture(item.to, 1023, height);
      const SwsPtr single(sws_getContext(1201, 803, item.from, 1023, height, item.to, item.flags,
                                         nullptr, nullptr, nullptr));
      sws_scale(single.get(), source->data, source->linesize, 0, 803, expected->data,
                expected->linesize);
      for (int plane = 0; plane < 3 && expected->data[plane]; plane++) {
        const int bytes = av_image_get_linesize(item.to, 1023, plane);
        const int rows = plane ? (height + 1) / 2 : height;
        for (int y = 0; y < rows; y++) {
          ASSERT_EQ(
              std::memcmp(converter.output().data[plane] + y * converter.output().linesize[plane],
                          expected->data[plane] + y * expected->linesize[plane], bytes),
              0)
              << av_get_pix_fmt_name(item.from) << " plane " << plane << " row " << y;
        }
      }
    }
  }
}

TEST(LMFFImageColorspaceConverter, FormatAndColourAreReadWholeWhileAnotherThreadSetsThem) {
  LMFFImageColorspaceConverter converter;
  std::atomic<bool> done = false;
  std::thread writer([&] {
    for (int i = 0; i < 20000; i++) {
      converter.setOutputFormat({i, i, i});
      converter.setOutputColor({i, i, i, i});
    }
    done = true;
  });
  while (!done) {
    const LMFFVideoFormat format = converter.outputFormat();
    EXPECT_EQ(format.width, format.height);
    const LMFFVideoColor color = converter.outputColor();
    EXPECT_TRUE(color == LMFFVideoColor() ||
                (color.matrix == color.primaries && color.range == color.transfer));
  }
  writer.join();
}

}  // namespace
}  // namespace kestrel
