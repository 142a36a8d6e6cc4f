#include "convert/feed/PictureTurner.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>

#include "support/FFmpegOwners.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace kestrel::test {
namespace {

constexpr int kWidth = 64;
constexpr int kHeight = 32;

/// Colour that rises by 2 with each pixel from the left, at the place where a sample of it lies:
/// the left of two pixels, unless `location` says another.
std::shared_ptr<LMFFImage> risingColor(AVPixelFormat format,
                                       AVChromaLocation location = AVCHROMA_LOC_LEFT) {
  FramePtr frame = makeFrame();
  frame->format = format;
  frame->width = kWidth;
  frame->height = kHeight;
  frame->chroma_location = location;
  frame->color_range = AVCOL_RANGE_MPEG;
  av_frame_get_buffer(frame.get(), 0);
  const AVPixFmtDescriptor& described = *av_pix_fmt_desc_get(format);
  const double offset = location == AVCHROMA_LOC_CENTER ? 0.5 : 0;
  for (int plane = 0; plane < 3; ++plane) {
    const bool isColor = plane > 0;
    const int shift = isColor ? described.log2_chroma_w : 0;
    const int rows = kHeight >> (isColor ? described.log2_chroma_h : 0);
    for (int y = 0; y < rows; ++y)
      for (int x = 0; x < kWidth >> shift; ++x) {
        const double pixel = (x << shift) + (shift ? offset : 0);
        frame->data[plane][y * frame->linesize[plane] + x] =
            isColor ? static_cast<uint8_t>(std::lround(40 + 2 * pixel)) : uint8_t{128};
      }
  }
  return LMFFImage::imageWithFrame(frame.release(), true);
}

/// How far colour lies from where it was, pixels, after a quarter turn clockwise: what was at the
/// left is above then.
double distanceAfterATurn(const std::shared_ptr<LMFFImage>& picture) {
  PictureTurner turner({.quarters = 3}, false);
  const auto turned = turner.make(picture);
  const AVFrame& frame = *turned->getFrame();
  EXPECT_EQ(frame.width, kHeight);
  EXPECT_EQ(frame.height, kWidth);
  const auto& described = *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
  const int rows = kWidth >> described.log2_chroma_h;
  const double place = described.log2_chroma_h ? 0.5 : 0;
  double sum = 0;
  int count = 0;
  for (int y = rows / 4; y < rows * 3 / 4; ++y, ++count) {
    const double pixel = (y << described.log2_chroma_h) + place;
    const double found = (frame.data[1][y * frame.linesize[1] + 8] - 40) / 2.0;
    sum += found - pixel;
  }
  return sum / count;
}

TEST(PictureTurner, ColourThatTwoPixelsShareStaysWhereItWas) {
  EXPECT_NEAR(distanceAfterATurn(risingColor(AV_PIX_FMT_YUV422P)), 0, 0.1);
  EXPECT_NEAR(distanceAfterATurn(risingColor(AV_PIX_FMT_YUV422P, AVCHROMA_LOC_CENTER)), 0, 0.1);
}

TEST(PictureTurner, ColourOfEveryPixelStaysWhereItWas) {
  EXPECT_NEAR(distanceAfterATurn(risingColor(AV_PIX_FMT_YUV444P)), 0, 0.01);
}

TEST(PictureTurner, ColourThatFourPixelsShareStaysWhereItWas) {
  EXPECT_NEAR(distanceAfterATurn(risingColor(AV_PIX_FMT_YUV420P)), 0, 0.1);
}

TEST(PictureTurner, TheSameFrameBecomesTheSamePicture) {
  PictureTurner turner({.quarters = 1}, false);
  const auto frame = risingColor(AV_PIX_FMT_YUV422P);
  const auto turned = turner.make(frame);
  EXPECT_NE(turned, frame);
  EXPECT_EQ(turner.make(frame), turned);
}

}  // namespace
}  // namespace kestrel::test
