#include "support/encode/Palette.h"

#include <gmock/gmock.h>

#include <cmath>
#include <functional>

#include "support/FFmpegOwners.h"

extern "C" {
#include <libavutil/frame.h>
}

namespace kestrel::test {
namespace {

constexpr int kSide = 96;

using Paint = std::function<uint32_t(int x, int y)>;

uint32_t opaque(int red, int green, int blue) {
  return 0xff000000 | static_cast<uint32_t>(red) << 16 | static_cast<uint32_t>(green) << 8 |
         static_cast<uint32_t>(blue);
}

FramePtr painted(const Paint& paint) {
  FramePtr frame = makeFrame();
  frame->format = AV_PIX_FMT_RGB32;
  frame->width = kSide;
  frame->height = kSide;
  av_frame_get_buffer(frame.get(), 0);
  for (int y = 0; y < kSide; ++y) {
    auto* row = reinterpret_cast<uint32_t*>(frame->data[0] + ptrdiff_t{y} * frame->linesize[0]);
    for (int x = 0; x < kSide; ++x) row[x] = paint(x, y);
  }
  return frame;
}

uint32_t shown(const AVFrame& picture, int x, int y) {
  const auto* colors = reinterpret_cast<const uint32_t*>(picture.data[1]);
  return colors[picture.data[0][ptrdiff_t{y} * picture.linesize[0] + x]];
}

std::vector<uint32_t> paletteOf(const AVFrame& picture) {
  const auto* colors = reinterpret_cast<const uint32_t*>(picture.data[1]);
  return {colors, colors + 256};
}

/// Mean squared error of a channel.
double errorOf(const AVFrame& picture, const Paint& paint) {
  double sum = 0;
  for (int y = 0; y < kSide; ++y)
    for (int x = 0; x < kSide; ++x)
      for (const int shift : {0, 8, 16}) {
        const int is = shown(picture, x, y) >> shift & 255;
        const int was = paint(x, y) >> shift & 255;
        sum += (is - was) * (is - was);
      }
  return sum / (3.0 * kSide * kSide);
}

uint32_t sky(int x, int y) { return opaque(20 + x / 2 + y / 4, 60 + y + x / 3, 120 + y / 2); }
uint32_t meadow(int x, int y) { return opaque(60 + x / 4, 100 + x + y / 2, 10 + y / 4); }

// 255 of them, as close as they can be.
TEST(Palette, FewColoursStayWhatTheyAre) {
  const Paint paint = [](int x, int y) { return opaque(100, 100, (x + kSide * y) % 255); };
  const FramePtr result = PaletteReducer().reduced(*painted(paint));
  ASSERT_NE(result, nullptr);
  EXPECT_EQ(result->format, AV_PIX_FMT_PAL8);
  EXPECT_EQ(errorOf(*result, paint), 0);
}

// Three bits of red and of green and two of blue are off by 1/12 of a step squared: 110 and 440.
TEST(Palette, OfItsOwnShowsFarMoreThanFixedSteps) {
  const FramePtr result = PaletteReducer().reduced(*painted(sky));
  EXPECT_LT(errorOf(*result, sky), 12);
}

TEST(Palette, StepsAreBrokenUpSoThatAreasKeepTheirColour) {
  const Paint paint = [](int x, int y) {
    return (x / 8 + y / 8) % 2 == 0 ? sky(x, y) : meadow(y, x);
  };
  const FramePtr result = PaletteReducer().reduced(*painted(paint));
  // Of eight by eight pixels, the mean.
  for (int top = 0; top < kSide; top += 8)
    for (int left = 0; left < kSide; left += 8)
      for (const int shift : {0, 8, 16}) {
        int sum = 0;
        for (int y = top; y < top + 8; ++y)
          for (int x = left; x < left + 8; ++x)
            sum += static_cast<int>(shown(*result, x, y) >> shift & 255) -
                   static_cast<int>(paint(x, y) >> shift & 255);
        EXPECT_LE(std::abs(sum), 64 * 5) << left << ' ' << top << ' ' << shift;
      }
}

TEST(Palette, WhatIsLessThanHalfOpaqueIsTransparent) {
  const Paint paint = [](int x, int y) {
    return (sky(x, y) & 0xffffff) | static_cast<uint32_t>(x < 40 ? 127 : 128) << 24;
  };
  const FramePtr result = PaletteReducer().reduced(*painted(paint));
  for (int x = 0; x < kSide; ++x) EXPECT_EQ(shown(*result, x, 9) >> 24, x < 40 ? 0U : 255U) << x;
  const Paint nothing = [](int, int) { return 0x00ff0000U; };
  EXPECT_EQ(shown(*PaletteReducer().reduced(*painted(nothing)), 5, 5) >> 24, 0U);
}

TEST(Palette, LastsForAScene) {
  PaletteReducer reducer;
  const auto first = paletteOf(*reducer.reduced(*painted(sky)));
  const Paint moved = [](int x, int y) { return sky((x + 3) % kSide, y); };
  EXPECT_EQ(paletteOf(*reducer.reduced(*painted(moved))), first);
  const FramePtr other = reducer.reduced(*painted(meadow));
  EXPECT_NE(paletteOf(*other), first);
  EXPECT_LT(errorOf(*other, meadow), 12);
  // Few colours that are none of its own get theirs.
  const Paint red = [](int, int) { return opaque(255, 0, 1); };
  EXPECT_EQ(errorOf(*reducer.reduced(*painted(red)), red), 0);
  EXPECT_LT(errorOf(*reducer.reduced(*painted(sky)), sky), 12);
}

}  // namespace
}  // namespace kestrel::test
