#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/media/EffectStream.h"

namespace kestrel::test {
namespace {

// A frame in planes of luma and chroma reaches the picture without the conversion to RGB that a
// host's request for its bytes brings about; both ways show the same.

/// A frame of slopes in the format, matrix and range.
FramePtr slopesFrame(AVPixelFormat format, int width, int height, int matrix, int range,
                     const YuvModel& model) {
  FramePtr frame = tagged(makePicture(format, width, height), matrix, range);
  const int shift = av_pix_fmt_desc_get(format)->comp[0].shift;
  paint(*frame, [&](int x, int y) {
    const Rgba color = slopes(x, y, width, height);
    Triple yuv = model.fromRgb({double(color[0]), double(color[1]), double(color[2])});
    for (double& value : yuv) value *= 1 << shift;
    return yuv;
  });
  return frame;
}

int worstDifference(const BitmapImage& a, const BitmapImage& b) {
  int worst = 0;
  for (int y = 0; y < a.height(); ++y) {
    for (int x = 0; x < a.width(); ++x) {
      const Rgba one = rgbaAt(a, x, y);
      const Rgba two = rgbaAt(b, x, y);
      for (size_t i = 0; i < 4; ++i) worst = std::max(worst, std::abs(one[i] - two[i]));
    }
  }
  return worst;
}

/// How far samples are from what they should be, in levels of 255.
struct Differences {
  double mean = 0;
  int worst = 0;
  int beyondTwo = 0;  ///< pixels
};

Differences differences(const BitmapImage& image,
                        const std::function<Rgba(int x, int y)>& expected) {
  Differences result;
  for (int y = 0; y < image.height(); ++y) {
    for (int x = 0; x < image.width(); ++x) {
      const Rgba one = rgbaAt(image, x, y);
      const Rgba two = expected(x, y);
      int worst = 0;
      for (size_t i = 0; i < 4; ++i) {
        const int difference = std::abs(one[i] - two[i]);
        worst = std::max(worst, difference);
        result.mean += difference;
      }
      result.worst = std::max(result.worst, worst);
      if (worst > 2) ++result.beyondTwo;
    }
  }
  result.mean /= 4.0 * image.width() * image.height();
  return result;
}

struct Kind {
  const char* name;
  AVPixelFormat format;
  int matrix;
  int range;
  YuvModel model;
};

std::ostream& operator<<(std::ostream& out, const Kind& kind) { return out << kind.name; }

YuvModel withBits(YuvModel model, int bits) {
  model.bits = bits;
  return model;
}

class LMFFEffectVideoStreamPlanes : public testing::TestWithParam<Kind> {
 protected:
  static constexpr int kWidth = 192;
  static constexpr int kHeight = 108;

  FramePtr frame() const {
    const Kind& kind = GetParam();
    return slopesFrame(kind.format, kWidth, kHeight, kind.matrix, kind.range, kind.model);
  }
};

TEST_P(LMFFEffectVideoStreamPlanes, ShowTheirColours) {
  EffectStream stream(kWidth, kHeight, GetParam().format);
  stream->writeFrame(frame().get());
  const auto off =
      differences(*stream.picture(), [](int x, int y) { return slopes(x, y, kWidth, kHeight); });
  // Chroma is rounded to whole levels, of which one is up to 2.1 of blue, luma to levels of 1.2.
  // Where both are half a level off the same way a colour is 1.7 off; kernels that take chroma up
  // without loss make 1.25 times as much of a level, 2.3, where its neighbours are rounded the
  // other way, too.
  EXPECT_LE(off.worst, 3);
  EXPECT_LE(off.beyondTwo, kWidth * kHeight / 1000);
  EXPECT_LE(off.mean, 0.32);  // 0.30 at full chroma, of which rounding is all
}

TEST_P(LMFFEffectVideoStreamPlanes, ShowWhatTheirConversionShows) {
  EffectStream stream(kWidth, kHeight, GetParam().format);
  stream.setOutputSize(160, 90);
  stream->writeFrame(frame().get());
  ASSERT_FALSE(stream->currentCIImage()->bitmap());  // no RGB
  const auto planes = stream.picture();
  ASSERT_TRUE(stream->currentImage());  // asks for RGB
  ASSERT_TRUE(stream->currentCIImage()->bitmap());
  const auto converted = stream.picture();
  EXPECT_LE(worstDifference(*planes, *converted), 2);
}

TEST_P(LMFFEffectVideoStreamPlanes, AreTheSameToTheBitInAProvidersBuffer) {
  EffectStream stream(kWidth, kHeight, GetParam().format);
  stream->writeFrame(frame().get());
  const auto own = stream.picture();
  stream->writeFrame(frame().get(), [](int32_t size) {
    return std::make_shared<std::vector<uint8_t>>(static_cast<size_t>(size));
  });
  ASSERT_TRUE(stream->dataBuffer());
  EXPECT_EQ(worstDifference(*own, *stream.picture()), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Formats, LMFFEffectVideoStreamPlanes,
    testing::Values(
        Kind{"yuv420p", AV_PIX_FMT_YUV420P, AVCOL_SPC_SMPTE170M, AVCOL_RANGE_MPEG, kBt601},
        Kind{"bt709", AV_PIX_FMT_YUV420P, AVCOL_SPC_BT709, AVCOL_RANGE_MPEG, kBt709},
        Kind{"bt2020", AV_PIX_FMT_YUV420P, AVCOL_SPC_BT2020_NCL, AVCOL_RANGE_MPEG, kBt2020},
        Kind{"full", AV_PIX_FMT_YUV420P, AVCOL_SPC_BT709, AVCOL_RANGE_JPEG, kBt709Full},
        Kind{"yuvj420p", AV_PIX_FMT_YUVJ420P, AVCOL_SPC_SMPTE170M, AVCOL_RANGE_UNSPECIFIED,
             kBt601Full},
        Kind{"open", AV_PIX_FMT_YUV420P, AVCOL_SPC_UNSPECIFIED, AVCOL_RANGE_UNSPECIFIED, kBt601},
        Kind{"yuv422p", AV_PIX_FMT_YUV422P, AVCOL_SPC_SMPTE170M, AVCOL_RANGE_MPEG, kBt601},
        Kind{"yuv444p", AV_PIX_FMT_YUV444P, AVCOL_SPC_BT709, AVCOL_RANGE_MPEG, kBt709},
        Kind{"nv12", AV_PIX_FMT_NV12, AVCOL_SPC_SMPTE170M, AVCOL_RANGE_MPEG, kBt601},
        Kind{"nv21", AV_PIX_FMT_NV21, AVCOL_SPC_SMPTE170M, AVCOL_RANGE_MPEG, kBt601},
        Kind{"yuva420p", AV_PIX_FMT_YUVA420P, AVCOL_SPC_SMPTE170M, AVCOL_RANGE_MPEG, kBt601},
        Kind{"yuv420p10", AV_PIX_FMT_YUV420P10, AVCOL_SPC_BT709, AVCOL_RANGE_MPEG,
             withBits(kBt709, 10)},
        Kind{"yuv422p12", AV_PIX_FMT_YUV422P12, AVCOL_SPC_BT709, AVCOL_RANGE_MPEG,
             withBits(kBt709, 12)},
        Kind{"yuv444p16", AV_PIX_FMT_YUV444P16, AVCOL_SPC_BT709, AVCOL_RANGE_MPEG,
             withBits(kBt709, 16)},
        Kind{"p010", AV_PIX_FMT_P010, AVCOL_SPC_BT709, AVCOL_RANGE_MPEG, withBits(kBt709, 10)}),
    [](const auto& each) { return std::string(each.param.name); });

TEST(LMFFEffectVideoStreamGrey, ShowsAsItsConversionDoes) {
  for (const int range : {AVCOL_RANGE_UNSPECIFIED, AVCOL_RANGE_MPEG, AVCOL_RANGE_JPEG}) {
    EffectStream stream(64, 36, AV_PIX_FMT_GRAY8);
    FramePtr frame = tagged(makePicture(AV_PIX_FMT_GRAY8, 64, 36), AVCOL_SPC_UNSPECIFIED, range);
    for (int y = 0; y < 36; ++y)
      for (int x = 0; x < 64; ++x)
        frame->data[0][y * frame->linesize[0] + x] = static_cast<uint8_t>(4 * x);
    stream->writeFrame(frame.get());
    ASSERT_FALSE(stream->currentCIImage()->bitmap());
    const auto planes = stream.picture();
    ASSERT_TRUE(stream->currentImage());
    EXPECT_LE(worstDifference(*planes, *stream.picture()), 1) << range;
    // Grey that tells nothing of its range uses all of it.
    for (int x = 8; x < 56; ++x) {
      const double level = range == AVCOL_RANGE_MPEG ? (4 * x - 16) * 255.0 / 219 : 4 * x;
      EXPECT_NEAR(planes->row(18)[4 * x], std::clamp(level, 0.0, 255.0), 1) << range;
    }
  }
}

TEST(LMFFEffectVideoStreamAlpha, PlaneOfAlphaLiesOnBlack) {
  EffectStream stream(32, 16, AV_PIX_FMT_YUVA420P);
  FramePtr frame = makePicture(AV_PIX_FMT_YUVA420P, 32, 16);
  paint(*frame, [](int, int) { return Triple{235, 128, 128}; });
  for (int y = 0; y < 16; ++y)
    for (int x = 0; x < 32; ++x) setSampleAt(*frame, 3, x, y, x < 16 ? 0 : 128);
  stream->writeFrame(frame.get());
  const auto picture = stream.picture();
  EXPECT_EQ(rgbaAt(*picture, 3, 3), kBlack);
  EXPECT_NEAR(rgbaAt(*picture, 28, 3)[1], 128, 1);
  EXPECT_EQ(rgbaAt(*picture, 28, 3)[3], 255);
}

TEST(LMFFEffectVideoStreamOtherFormats, GoThroughTheConversion) {
  for (const auto format : {AV_PIX_FMT_RGB24, AV_PIX_FMT_GBRP, AV_PIX_FMT_YUYV422}) {
    EffectStream stream(32, 16, format);
    FramePtr frame = makePicture(format, 32, 16);
    const bool isYuv = format == AV_PIX_FMT_YUYV422;
    paint(*frame, [&](int, int) { return isYuv ? Triple{235, 128, 128} : Triple{255, 255, 255}; });
    stream->writeFrame(frame.get());
    ASSERT_TRUE(stream->currentCIImage()) << format;
    EXPECT_TRUE(stream->currentCIImage()->bitmap());
    EXPECT_NEAR(rgbaAt(*stream.picture(), 3, 3)[0], 255, 2);
  }
}

TEST(LMFFEffectVideoStreamOtherFormats, FrameThatIsNotTheMediasGoesThroughTheConversion) {
  EffectStream stream(64, 36, AV_PIX_FMT_YUV420P);
  stream->writeFrame(greyPicture(64, 36, 235, AV_PIX_FMT_YUV444P).get());
  ASSERT_TRUE(stream->currentCIImage());
  EXPECT_TRUE(stream->currentCIImage()->bitmap());
  EXPECT_EQ(rgbaAt(*stream.picture(), 3, 3), kWhite);
}

TEST(LMFFEffectVideoStreamBytes, AreThereAfterTheConverterHasGone) {
  EffectStream stream(64, 36, AV_PIX_FMT_YUV420P);
  stream->writeFrame(greyPicture(64, 36, 235).get());
  stream->free_graph();
  ASSERT_TRUE(stream->currentImage());
  EXPECT_EQ(rgbaAt(*stream->currentImage(), 3, 3), kWhite);
}

TEST(LMFFEffectVideoStreamBytes, AProvidersBufferIsWhatThePictureIsMadeOf) {
  EffectStream stream(64, 36, AV_PIX_FMT_YUV420P);
  stream->writeFrame(greyPicture(64, 36, 235).get(), [](int32_t size) {
    return std::make_shared<std::vector<uint8_t>>(static_cast<size_t>(size));
  });
  for (uint8_t& byte : *stream->dataBuffer()) byte = byte ? 200 : 0;
  EXPECT_EQ(rgbaAt(*stream->currentImage(), 3, 3)[0], 200);
  const auto picture = stream.picture();
  EXPECT_NEAR(rgbaAt(*picture, 3, 3)[0], 200 * 200 / 255, 1);  // alpha 200, on black
}

TEST(LMFFEffectVideoStreamBytes, BufferThatIsTooSmallIsNoPicture) {
  EffectStream stream(64, 36, AV_PIX_FMT_YUV420P);
  stream->writeFrame(greyPicture(64, 36, 235).get(),
                     [](int32_t) { return std::make_shared<std::vector<uint8_t>>(100); });
  EXPECT_EQ(stream->currentImage(), nullptr);
  EXPECT_EQ(stream->currentEffectImage(), nullptr);
}

}  // namespace
}  // namespace kestrel::test
