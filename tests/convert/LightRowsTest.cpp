#include "convert/compare/LightRows.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <vector>

#include "platform/codec/CodecOwners.h"

namespace kestrel::test {
namespace {

/// A picture of 10 bits, PQ or HLG, of one grey but for a pixel of another at the upper left.
FramePtr grey(int width, int height, AVColorTransferCharacteristic transfer, int level,
              int corner) {
  FramePtr frame(av_frame_alloc());
  frame->width = width;
  frame->height = height;
  frame->format = AV_PIX_FMT_YUV444P10LE;
  frame->colorspace = AVCOL_SPC_BT2020_NCL;
  frame->color_primaries = AVCOL_PRI_BT2020;
  frame->color_trc = transfer;
  frame->color_range = AVCOL_RANGE_MPEG;
  av_frame_get_buffer(frame.get(), 0);
  for (int plane = 0; plane < 3; ++plane)
    for (int y = 0; y < height; ++y) {
      auto* row = reinterpret_cast<uint16_t*>(frame->data[plane] + y * frame->linesize[plane]);
      for (int x = 0; x < width; ++x)
        row[x] = static_cast<uint16_t>(plane > 0 ? 512 : x == 0 && y == 0 ? corner : level);
    }
  return frame;
}

std::vector<float> rowOf(const LightRows& rows, int width, int y) {
  std::vector<float> red(static_cast<size_t>(width));
  std::vector<float> green = red;
  std::vector<float> blue = red;
  rows.row(y, {red.data(), green.data(), blue.data()});
  for (size_t i = 0; i < red.size(); ++i) {
    EXPECT_NEAR(green[i], red[i], 0.01 + 0.01 * red[i]);  // grey stays grey
    EXPECT_NEAR(blue[i], red[i], 0.01 + 0.01 * red[i]);
  }
  return red;
}

// Levels of 10 bits: 64 is black, 940 is 1. ITU-R BT.2408 has the white of graphics at 58 % of PQ
// and 75 % of HLG; 75 % of PQ is 983 candelas per square metre, all of HLG 1000.
TEST(LightRows, WhiteOfGraphicsIsOne) {
  LightRows pq(16, 8, {});
  pq.take(*grey(16, 8, AVCOL_TRC_SMPTE2084, 64 + 509, 64 + 657));
  EXPECT_NEAR(rowOf(pq, 16, 4)[7], 1, 0.02);
  EXPECT_NEAR(rowOf(pq, 16, 0)[0], 983 / 203.0, 0.05);
  LightRows hlg(16, 8, {});
  hlg.take(*grey(16, 8, AVCOL_TRC_ARIB_STD_B67, 64 + 657, 940));
  EXPECT_NEAR(rowOf(hlg, 16, 4)[7], 1, 0.02);
  EXPECT_NEAR(rowOf(hlg, 16, 0)[0], 1000 / 203.0, 0.05);
}

// The upper left pixel that was stored, turned.
TEST(LightRows, PicturesAreUpright) {
  const auto frame = grey(16, 8, AVCOL_TRC_SMPTE2084, 64 + 509, 940);
  const auto isBright = [&](const Orientation& orientation, int x, int y) {
    const bool isOnItsSide = static_cast<int>(orientation.counterclockwise) % 180 != 0;
    LightRows rows(isOnItsSide ? 8 : 16, isOnItsSide ? 16 : 8, orientation);
    rows.take(*frame);
    return rowOf(rows, isOnItsSide ? 8 : 16, y)[static_cast<size_t>(x)] > 10;
  };
  EXPECT_TRUE(isBright({}, 0, 0));
  EXPECT_TRUE(isBright({.mirrored = true}, 15, 0));
  EXPECT_TRUE(isBright({.counterclockwise = 90}, 0, 15));
  EXPECT_TRUE(isBright({.counterclockwise = 180}, 15, 7));
  EXPECT_TRUE(isBright({.counterclockwise = -90}, 7, 0));
}

TEST(LightRows, PicturesOfSdrHaveNone) {
  EXPECT_FALSE(LightRows::canRead(*grey(16, 8, AVCOL_TRC_BT709, 500, 500)));
  EXPECT_TRUE(LightRows::canRead(*grey(16, 8, AVCOL_TRC_SMPTE2084, 500, 500)));
}

}  // namespace
}  // namespace kestrel::test
