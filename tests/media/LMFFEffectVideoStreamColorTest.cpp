#include <gtest/gtest.h>
#include <kestrel/LMFFImageColorspaceConverter.h>

#include <cmath>
#include <cstring>
#include <numbers>

#include "tests/media/EffectStream.h"

namespace kestrel::test {
namespace {

// The colour settings do the same whether frames come as RGB or as planes of luma and chroma, and
// whether pictures go out as the one or the other. What they do is worked out here by hand.

constexpr int kWidth = 96;
constexpr int kHeight = 54;

struct Controls {
  const char* name;
  float saturation = 0.5F;
  float brightness = 0.5F;
  float contrast = 0.25F;
  float hue = 0.5F;
};

std::ostream& operator<<(std::ostream& out, const Controls& controls) {
  return out << controls.name;
}

/// A colour of 0 to 255 with the settings applied.
Triple controlled(const Triple& color, const Controls& controls) {
  Triple c = color;
  for (double& value : c) value /= 255;
  const double luminance = 0.2126 * c[0] + 0.7152 * c[1] + 0.0722 * c[2];
  for (double& value : c) {
    value = luminance + (value - luminance) * 2 * controls.saturation;
    value = (value - 0.5) * 4 * controls.contrast + 0.5 + (controls.brightness - 0.5) * 2;
  }
  // A turn about the axis of greys: the part along the axis stays, the part across it turns.
  const double angle = (controls.hue - 0.5) * 6.28;
  const double grey = (c[0] + c[1] + c[2]) / 3;
  const double root = std::numbers::sqrt3;
  const Triple across{(c[2] - c[1]) / root, (c[0] - c[2]) / root, (c[1] - c[0]) / root};
  Triple turned;
  for (size_t i = 0; i < 3; ++i) {
    const double value = grey + (c[i] - grey) * std::cos(angle) + across[i] * std::sin(angle);
    turned[i] = std::clamp(value, 0.0, 1.0) * 255;
  }
  return turned;
}

class LMFFEffectVideoStreamColor : public testing::TestWithParam<Controls> {
 protected:
  static void apply(EffectStream& stream) {
    stream->setSaturation(GetParam().saturation);
    stream->setBrightness(GetParam().brightness);
    stream->setContrast(GetParam().contrast);
    stream->setHue(GetParam().hue);
  }

  /// Slopes in planes without subsampling, limited range.
  static FramePtr planes() {
    FramePtr frame =
        tagged(makePicture(AV_PIX_FMT_YUV444P, kWidth, kHeight), AVCOL_SPC_BT709, AVCOL_RANGE_MPEG);
    paint(*frame, [](int x, int y) {
      const Rgba color = slopes(x, y, kWidth, kHeight);
      return kBt709.fromRgb({double(color[0]), double(color[1]), double(color[2])});
    });
    return frame;
  }

  static void expectNear(const BitmapImage& picture,
                         const std::function<Triple(int x, int y)>& source) {
    double worst = 0;
    for (int y = 0; y < kHeight; ++y) {
      for (int x = 0; x < kWidth; ++x) {
        const Triple expected = controlled(source(x, y), GetParam());
        const Rgba shown = rgbaAt(picture, x, y);
        for (size_t i = 0; i < 3; ++i) worst = std::max(worst, std::abs(shown[i] - expected[i]));
      }
    }
    EXPECT_LE(worst, 2);
  }
};

TEST_P(LMFFEffectVideoStreamColor, OfRgbFramesIsByTheFormulas) {
  EffectStream stream(kWidth, kHeight);
  apply(stream);
  stream->writeFrame(
      rgbaFrame(kWidth, kHeight, [](int x, int y) { return slopes(x, y, kWidth, kHeight); }).get());
  expectNear(*stream.picture(), [](int x, int y) {
    const Rgba color = slopes(x, y, kWidth, kHeight);
    return Triple{double(color[0]), double(color[1]), double(color[2])};
  });
}

TEST_P(LMFFEffectVideoStreamColor, OfFramesInPlanesIsByTheFormulas) {
  EffectStream stream(kWidth, kHeight, AV_PIX_FMT_YUV444P);
  apply(stream);
  const FramePtr frame = planes();
  stream->writeFrame(frame.get());
  expectNear(*stream.picture(), [&](int x, int y) { return kBt709.toRgb(colorAt(*frame, x, y)); });
}

TEST_P(LMFFEffectVideoStreamColor, FromPlanesIntoPlanesIsByTheFormulas) {
  EffectStream stream(kWidth, kHeight, AV_PIX_FMT_YUV444P);
  apply(stream);
  const FramePtr frame = planes();
  stream->writeFrame(frame.get());
  SizedConverter converter(AV_PIX_FMT_YUV444P, kWidth, kHeight);
  converter.setOutputColor({.matrix = AVCOL_SPC_BT709});
  converter.convertImage(stream->currentEffectImage());
  double worst = 0;
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      const Triple expected =
          kBt709.fromRgb(controlled(kBt709.toRgb(colorAt(*frame, x, y)), GetParam()));
      const Triple written = converter.color(x, y);
      for (size_t i = 0; i < 3; ++i) worst = std::max(worst, std::abs(written[i] - expected[i]));
    }
  }
  EXPECT_LE(worst, 2);
}

INSTANTIATE_TEST_SUITE_P(
    Settings, LMFFEffectVideoStreamColor,
    testing::Values(
        Controls{.name = "neutral"}, Controls{.name = "grey", .saturation = 0},
        Controls{.name = "vivid", .saturation = 0.9F},
        Controls{.name = "bright", .brightness = 0.6F},
        Controls{.name = "white", .brightness = 0.9F}, Controls{.name = "dark", .brightness = 0.3F},
        Controls{.name = "flat", .contrast = 0.1F}, Controls{.name = "hard", .contrast = 0.4F},
        Controls{.name = "turned", .hue = 0.7F}, Controls{.name = "turned_back", .hue = 0.25F},
        Controls{.name = "opposite", .hue = 1},
        Controls{
            .name = "all", .saturation = 0.7F, .brightness = 0.45F, .contrast = 0.3F, .hue = 0.6F}),
    [](const auto& each) { return std::string(each.param.name); });

TEST(LMFFEffectVideoStreamNeutral, PlanesGoThroughByteForByte) {
  for (const auto& [width, height] : {std::pair{64, 36}, {853, 479}}) {
    for (const auto format : {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUV444P}) {
      EffectStream stream(width, height, format);
      FramePtr frame =
          tagged(makePicture(format, width, height), AVCOL_SPC_BT709, AVCOL_RANGE_MPEG);
      paint(*frame, [](int x, int y) {
        const Rgba value = noise(x / 2, y / 2);  // one chroma for four pixels
        return Triple{double(value[0]), double(value[1]), double(value[2])};
      });
      stream->writeFrame(frame.get());
      SizedConverter converter(format, width, height);
      converter.setOutputColor({.matrix = AVCOL_SPC_BT709});
      converter.convertImage(stream->currentEffectImage());
      const AVFrame& output = converter.output();
      const AVPixFmtDescriptor* kind = av_pix_fmt_desc_get(format);
      for (int plane = 0; plane < 3; ++plane) {
        const int columns = plane ? AV_CEIL_RSHIFT(width, kind->log2_chroma_w) : width;
        const int rows = plane ? AV_CEIL_RSHIFT(height, kind->log2_chroma_h) : height;
        for (int y = 0; y < rows; ++y)
          ASSERT_EQ(std::memcmp(output.data[plane] + y * output.linesize[plane],
                                frame->data[plane] + y * frame->linesize[plane],
                                static_cast<size_t>(columns)),
                    0)
              << width << ' ' << plane << ' ' << y;
      }
    }
  }
}

TEST(LMFFEffectVideoStreamLatecomer, PixelsThatTurnOutOtherwiseAreConvertedByTheirKind) {
  // The container told of pictures without alpha; those that come have one.
  EffectStream stream(32, 16, AV_PIX_FMT_YUV420P);
  stream->media()->videoStream()->codecContext()->pix_fmt = AV_PIX_FMT_YUVA420P;
  FramePtr frame = makePicture(AV_PIX_FMT_YUVA420P, 32, 16);
  paint(*frame, [](int, int) { return Triple{235, 128, 128}; });
  for (int y = 0; y < 16; ++y)
    for (int x = 0; x < 32; ++x) setSampleAt(*frame, 3, x, y, 128);
  stream->writeFrame(frame.get());
  EXPECT_NEAR(rgbaAt(*stream.picture(), 3, 3)[1], 128, 1);
}

TEST(LMFFEffectVideoStreamLatecomer, PixelsThatNobodyKnewOfAreConverted) {
  EffectStream stream(32, 16, AV_PIX_FMT_NONE);
  stream->media()->videoStream()->codecContext()->pix_fmt = AV_PIX_FMT_YUV420P;
  stream->writeFrame(greyPicture(32, 16, 235).get());
  ASSERT_TRUE(stream.picture());
  EXPECT_EQ(rgbaAt(*stream.picture(), 3, 3), kWhite);
}

}  // namespace
}  // namespace kestrel::test
