#include <kestrel/LMFFImageColorspaceConverter.h>

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "support/FFmpegOwners.h"
#include "tests/frames/Pictures.h"

namespace kestrel {
namespace {

using test::barsPicture;
using test::barsWidth;
using test::colorAt;
using test::kBt2020;
using test::kBt601;
using test::kBt601Full;
using test::kBt709;
using test::kBt709Full;
using test::makePicture;
using test::paint;
using test::tagged;
using test::Triple;
using test::worstBarError;
using test::YuvModel;

constexpr int kHeight = 32;

LMFFVideoColor wantedColor(int matrix, int range) {
  LMFFVideoColor color;
  color.matrix = matrix;
  color.range = range;
  return color;
}

/// The same picture in another format (and size).
FramePtr converted(const AVFrame& source, AVPixelFormat format, LMFFVideoColor color = {},
                   int width = 0, int height = 0) {
  LMFFImageColorspaceConverter converter;
  converter.setOutputFormat(
      {format, width ? width : source.width, height ? height : source.height});
  converter.setOutputColor(color);
  converter.convertFrame(&source);
  return FramePtr(av_frame_clone(converter.outputFrame()));
}

Triple rounded(const Triple& value) {
  return {std::round(value[0]), std::round(value[1]), std::round(value[2])};
}

Triple unchanged(const Triple& value) { return value; }

struct Flavour {
  const char* name;
  int matrix;
  int range;
  YuvModel model;
};

class LMFFImageColorspaceConverterFlavour : public testing::TestWithParam<Flavour> {
 protected:
  Triple inYuv(const Triple& rgb) const { return rounded(GetParam().model.fromRgb(rgb)); }
};

TEST_P(LMFFImageColorspaceConverterFlavour, YuvBarsBecomeTheRightRgb) {
  const Flavour& flavour = GetParam();
  for (const auto format : {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV422P, AV_PIX_FMT_YUV444P}) {
    const FramePtr bars =
        tagged(barsPicture(format, kHeight, [&](auto& rgb) { return inYuv(rgb); }), flavour.matrix,
               flavour.range);
    const FramePtr rgba = converted(*bars, AV_PIX_FMT_RGBA);
    const double worst =
        worstBarError(*rgba, [&](auto& rgb) { return flavour.model.toRgb(inYuv(rgb)); });
    EXPECT_LE(worst, 1.5) << av_get_pix_fmt_name(format);
    EXPECT_LE(worstBarError(*rgba, unchanged), 2) << av_get_pix_fmt_name(format);
  }
}

TEST_P(LMFFImageColorspaceConverterFlavour, RgbBarsBecomeTheRightYuv) {
  const Flavour& flavour = GetParam();
  for (const auto format : {AV_PIX_FMT_RGBA, AV_PIX_FMT_BGR24, AV_PIX_FMT_GBRP}) {
    const FramePtr bars = barsPicture(format, kHeight, unchanged);
    const FramePtr yuv =
        converted(*bars, AV_PIX_FMT_YUV420P, wantedColor(flavour.matrix, flavour.range));
    EXPECT_LE(worstBarError(*yuv, [&](auto& rgb) { return flavour.model.fromRgb(rgb); }), 1.5)
        << av_get_pix_fmt_name(format);
    EXPECT_EQ(yuv->colorspace, flavour.matrix);
    EXPECT_EQ(yuv->color_range, flavour.range);
  }
}

TEST_P(LMFFImageColorspaceConverterFlavour, BarsSurviveTheWayThroughRgb) {
  const Flavour& flavour = GetParam();
  const FramePtr bars =
      tagged(barsPicture(AV_PIX_FMT_YUV420P, kHeight, [&](auto& rgb) { return inYuv(rgb); }),
             flavour.matrix, flavour.range);
  const FramePtr rgba = converted(*bars, AV_PIX_FMT_RGBA);
  const FramePtr back =
      converted(*rgba, AV_PIX_FMT_YUV420P, wantedColor(flavour.matrix, flavour.range));
  EXPECT_LE(worstBarError(*back, [&](auto& rgb) { return inYuv(rgb); }), 2);
}

TEST_P(LMFFImageColorspaceConverterFlavour, BarsSurviveTheWayThroughYuv) {
  const Flavour& flavour = GetParam();
  const FramePtr bars = barsPicture(AV_PIX_FMT_RGBA, kHeight, unchanged);
  const FramePtr yuv =
      converted(*bars, AV_PIX_FMT_YUV420P, wantedColor(flavour.matrix, flavour.range));
  const FramePtr back = converted(*yuv, AV_PIX_FMT_RGBA);
  EXPECT_LE(worstBarError(*back, unchanged), 2);
}

TEST_P(LMFFImageColorspaceConverterFlavour, AnotherYuvMatrixAndRangeAreConvertedTo) {
  const Flavour& flavour = GetParam();
  const FramePtr bars = tagged(barsPicture(AV_PIX_FMT_YUV420P, kHeight,
                                           [&](auto& rgb) { return rounded(kBt709.fromRgb(rgb)); }),
                               AVCOL_SPC_BT709, AVCOL_RANGE_MPEG);
  const FramePtr yuv =
      converted(*bars, AV_PIX_FMT_YUV420P, wantedColor(flavour.matrix, flavour.range));
  EXPECT_LE(worstBarError(*yuv, [&](auto& rgb) { return flavour.model.fromRgb(rgb); }), 2);
  EXPECT_EQ(yuv->colorspace, flavour.matrix);
  EXPECT_EQ(yuv->color_range, flavour.range);
}

TEST_P(LMFFImageColorspaceConverterFlavour, YuvKeepsItsMatrixAndRangeWhenNothingIsAskedFor) {
  const Flavour& flavour = GetParam();
  const FramePtr bars =
      tagged(barsPicture(AV_PIX_FMT_YUV444P, kHeight, [&](auto& rgb) { return inYuv(rgb); }),
             flavour.matrix, flavour.range);
  const FramePtr yuv = converted(*bars, AV_PIX_FMT_YUV420P);
  EXPECT_LE(worstBarError(*yuv, [&](auto& rgb) { return inYuv(rgb); }), 0);
  EXPECT_EQ(yuv->colorspace, flavour.matrix);
  EXPECT_EQ(yuv->color_range, flavour.range);
}

INSTANTIATE_TEST_SUITE_P(
    Flavours, LMFFImageColorspaceConverterFlavour,
    testing::Values(Flavour{"Bt601", AVCOL_SPC_SMPTE170M, AVCOL_RANGE_MPEG, kBt601},
                    Flavour{"Bt470", AVCOL_SPC_BT470BG, AVCOL_RANGE_MPEG, kBt601},
                    Flavour{"Bt601Full", AVCOL_SPC_SMPTE170M, AVCOL_RANGE_JPEG, kBt601Full},
                    Flavour{"Bt709", AVCOL_SPC_BT709, AVCOL_RANGE_MPEG, kBt709},
                    Flavour{"Bt709Full", AVCOL_SPC_BT709, AVCOL_RANGE_JPEG, kBt709Full},
                    Flavour{"Bt2020", AVCOL_SPC_BT2020_NCL, AVCOL_RANGE_MPEG, kBt2020}),
    [](const auto& item) { return std::string(item.param.name); });

TEST(LMFFImageColorspaceConverterColor, HighDefinitionRedIsRed) {
  const FramePtr red =
      tagged(makePicture(AV_PIX_FMT_YUV420P, 64, 64), AVCOL_SPC_BT709, AVCOL_RANGE_MPEG);
  paint(*red, [](int, int) { return rounded(kBt709.fromRgb({255, 0, 0})); });
  const Triple rgb = colorAt(*converted(*red, AV_PIX_FMT_RGBA), 30, 30);
  EXPECT_EQ(rgb[0], 255);
  EXPECT_LE(rgb[1], 1);
  EXPECT_LE(rgb[2], 1);
}

TEST(LMFFImageColorspaceConverterColor, UntaggedYuvCountsAs709From720LinesUp) {
  for (const int height : {720, 718}) {
    const YuvModel& model = height == 720 ? kBt709 : kBt601;
    const FramePtr bars = barsPicture(AV_PIX_FMT_YUV420P, height,
                                      [&](auto& rgb) { return rounded(model.fromRgb(rgb)); });
    EXPECT_LE(worstBarError(*converted(*bars, AV_PIX_FMT_RGBA), unchanged), 2) << height;
  }
}

TEST(LMFFImageColorspaceConverterColor, UntaggedYuvIsLabelledAsWhatItCountsAs) {
  const FramePtr low = makePicture(AV_PIX_FMT_YUV420P, 64, 64);
  paint(*low, [](int, int) { return Triple{50, 100, 150}; });
  const FramePtr output = converted(*low, AV_PIX_FMT_YUV420P, {}, 1280, 720);
  EXPECT_EQ(output->colorspace, AVCOL_SPC_SMPTE170M);
  EXPECT_EQ(output->color_range, AVCOL_RANGE_MPEG);
  EXPECT_EQ(colorAt(*output, 600, 300), (Triple{50, 100, 150}));
}

TEST(LMFFImageColorspaceConverterColor, UntaggedRgbBecomesYuvByTheOutputsLines) {
  const FramePtr bars = barsPicture(AV_PIX_FMT_RGBA, 64, unchanged);
  for (const int height : {720, 360}) {
    const FramePtr yuv = converted(*bars, AV_PIX_FMT_YUV420P, {}, barsWidth(), height);
    const YuvModel& model = height == 720 ? kBt709 : kBt601;
    EXPECT_LE(worstBarError(*yuv, [&](auto& rgb) { return model.fromRgb(rgb); }), 1.5) << height;
    EXPECT_EQ(yuv->colorspace, height == 720 ? AVCOL_SPC_BT709 : AVCOL_SPC_SMPTE170M);
    EXPECT_EQ(yuv->color_range, AVCOL_RANGE_MPEG);
  }
}

TEST(LMFFImageColorspaceConverterColor, RgbOutputIsFullRangeWhateverIsAskedFor) {
  const FramePtr bars = tagged(barsPicture(AV_PIX_FMT_YUV420P, kHeight,
                                           [](auto& rgb) { return rounded(kBt601.fromRgb(rgb)); }),
                               AVCOL_SPC_SMPTE170M, AVCOL_RANGE_MPEG);
  const FramePtr rgba =
      converted(*bars, AV_PIX_FMT_RGBA, wantedColor(AVCOL_SPC_BT709, AVCOL_RANGE_MPEG));
  EXPECT_LE(worstBarError(*rgba, unchanged), 2);
  EXPECT_EQ(rgba->colorspace, AVCOL_SPC_RGB);
  EXPECT_EQ(rgba->color_range, AVCOL_RANGE_JPEG);
}

TEST(LMFFImageColorspaceConverterColor, RgbPassesThroughRgbUnchanged) {
  const FramePtr bars = barsPicture(AV_PIX_FMT_RGBA, kHeight, unchanged);
  const FramePtr bgr = converted(*bars, AV_PIX_FMT_BGR24);
  EXPECT_EQ(worstBarError(*bgr, unchanged), 0);
}

TEST(LMFFImageColorspaceConverterColor, TheFullRangeFormatsAreFullRangeWithoutATag) {
  const auto full = [](auto& rgb) { return rounded(kBt601Full.fromRgb(rgb)); };
  const FramePtr bars = barsPicture(AV_PIX_FMT_YUVJ420P, kHeight, full);
  EXPECT_LE(worstBarError(*converted(*bars, AV_PIX_FMT_RGBA), unchanged), 2);
  const FramePtr plain = converted(*bars, AV_PIX_FMT_YUV422P);
  EXPECT_EQ(plain->color_range, AVCOL_RANGE_JPEG);
  EXPECT_EQ(worstBarError(*plain, full), 0);
}

TEST(LMFFImageColorspaceConverterColor, OutputInAFullRangeFormatIsFullRange) {
  const FramePtr bars = barsPicture(AV_PIX_FMT_YUV420P, kHeight,
                                    [](auto& rgb) { return rounded(kBt601.fromRgb(rgb)); });
  const FramePtr full = converted(*bars, AV_PIX_FMT_YUVJ420P);
  EXPECT_EQ(full->color_range, AVCOL_RANGE_JPEG);
  EXPECT_LE(worstBarError(*full, [](auto& rgb) { return kBt601Full.fromRgb(rgb); }), 2);
}

TEST(LMFFImageColorspaceConverterColor, TenBitPicturesOfBothRangesBecomeTheRightRgb) {
  for (const bool isFull : {false, true}) {
    const YuvModel model{0.2126, 0.0722, isFull, 10};
    const FramePtr bars =
        tagged(barsPicture(AV_PIX_FMT_YUV420P10, kHeight,
                           [&](auto& rgb) { return rounded(model.fromRgb(rgb)); }),
               AVCOL_SPC_BT709, isFull ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG);
    EXPECT_LE(worstBarError(*converted(*bars, AV_PIX_FMT_RGBA), unchanged), 2) << isFull;
  }
}

TEST(LMFFImageColorspaceConverterColor, PrimariesAndTransferAreTheSourcesOrTheWantedLabels) {
  const FramePtr source = makePicture(AV_PIX_FMT_YUV420P, 64, 64);
  paint(*source, [](int, int) { return Triple{50, 100, 150}; });
  source->color_primaries = AVCOL_PRI_BT2020;
  source->color_trc = AVCOL_TRC_SMPTE2084;
  const FramePtr kept = converted(*source, AV_PIX_FMT_YUV422P);
  EXPECT_EQ(kept->color_primaries, AVCOL_PRI_BT2020);
  EXPECT_EQ(kept->color_trc, AVCOL_TRC_SMPTE2084);
  LMFFVideoColor wanted;
  wanted.primaries = AVCOL_PRI_BT709;
  wanted.transfer = AVCOL_TRC_BT709;
  const FramePtr labelled = converted(*source, AV_PIX_FMT_YUV422P, wanted);
  EXPECT_EQ(labelled->color_primaries, AVCOL_PRI_BT709);
  EXPECT_EQ(labelled->color_trc, AVCOL_TRC_BT709);
  EXPECT_EQ(colorAt(*labelled, 30, 30), (Triple{50, 100, 150}));
}

TEST(LMFFImageColorspaceConverterColor, ColourThatChangesMidStreamIsFollowed) {
  LMFFImageColorspaceConverter converter;
  converter.setOutputFormat({AV_PIX_FMT_RGBA, barsWidth(), kHeight});
  for (const bool isHigh : {false, true, false}) {
    const YuvModel& model = isHigh ? kBt709Full : kBt601;
    const FramePtr bars =
        tagged(barsPicture(AV_PIX_FMT_YUV420P, kHeight,
                           [&](auto& rgb) { return rounded(model.fromRgb(rgb)); }),
               isHigh ? AVCOL_SPC_BT709 : AVCOL_SPC_SMPTE170M,
               isHigh ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG);
    converter.convertFrame(bars.get());
    EXPECT_LE(worstBarError(*converter.outputFrame(), unchanged), 2);
  }
}

}  // namespace
}  // namespace kestrel
