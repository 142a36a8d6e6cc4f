#include "support/Combs.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>

#include "support/FFmpegOwners.h"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixdesc.h>
}

namespace kestrel::test {
namespace {

constexpr int kSide = 96;
constexpr int kBar = 40;  // its width

using Brightness = std::function<int(int x, int y)>;  // 0 to 255

/// A picture of one of the formats that the tests use, its colours left as they come.
FramePtr pictureOf(const Brightness& brightness, AVPixelFormat format = AV_PIX_FMT_YUV420P) {
  FramePtr frame = makeFrame();
  frame->width = kSide;
  frame->height = kSide;
  frame->format = format;
  av_frame_get_buffer(frame.get(), 0);
  const AVPixFmtDescriptor& pixels = *av_pix_fmt_desc_get(format);
  const AVComponentDescriptor& part = pixels.comp[pixels.flags & AV_PIX_FMT_FLAG_RGB ? 1 : 0];
  for (int y = 0; y < kSide; ++y)
    for (int x = 0; x < kSide; ++x) {
      uint8_t* to = frame->data[part.plane] + ptrdiff_t{y} * frame->linesize[part.plane] +
                    part.offset + ptrdiff_t{x} * part.step;
      const int value = brightness(x, y) << (part.depth - 8) << part.shift;
      to[0] = static_cast<uint8_t>(value);
      if (part.depth > 8) to[1] = static_cast<uint8_t>(value >> 8);
    }
  return frame;
}

/// A bar whose left edge is where `edge` says for each line.
Brightness barAt(const std::function<int(int y)>& edge) {
  return [edge](int x, int y) { return x >= edge(y) && x < edge(y) + kBar ? 200 : 40; };
}

Brightness progressive(int edge) {
  return barAt([edge](int) { return edge; });
}

/// The bar moves on by `step` between the upper field and the lower one.
Brightness woven(int edge, int step) {
  return barAt([=](int y) { return y % 2 == 0 ? edge : edge + step; });
}

TEST(Combs, AreSeenWhereTwoMomentsAreWoven) {
  const auto picture = pictureOf(woven(10, 4));
  const auto next = pictureOf(woven(18, 4));
  const Combs combs = countCombs(*picture, *next);
  EXPECT_TRUE(combs.areSeen());
  EXPECT_EQ(combs.pixels, kSide * (kSide - 4));
  // Between the fields' edges, 4 columns at either side of the bar on all lines that have two
  // neighbours on both sides; a comb counts from its sixth line on.
  EXPECT_EQ(combs.combed, 2 * 4 * (kSide - 9));
}

TEST(Combs, AreNotSeenInOneMoment) {
  const Combs combs = countCombs(*pictureOf(progressive(10)), *pictureOf(progressive(18)));
  EXPECT_TRUE(combs.canTell());
  EXPECT_FALSE(combs.areSeen());
  EXPECT_EQ(combs.combed, 0);
}

TEST(Combs, NothingIsToldWhereNothingMoves) {
  const Combs combs = countCombs(*pictureOf(woven(10, 4)), *pictureOf(woven(10, 4)));
  EXPECT_FALSE(combs.canTell());
  EXPECT_FALSE(combs.areSeen());
}

TEST(Combs, APatternOfLinesThatStandsStillIsNone) {
  // Lines all over the lower half, a bar that moves above them.
  const auto picture = [](int edge) {
    return pictureOf([edge](int x, int y) {
      return y > kSide / 2 ? (y % 2 == 0 ? 40 : 200) : progressive(edge)(x, y);
    });
  };
  EXPECT_FALSE(countCombs(*picture(10), *picture(14)).areSeen());
}

TEST(Combs, NoiseIsNone) {
  const auto noise = [](unsigned seed) {
    std::mt19937 random(seed);
    return pictureOf([&](int, int) { return static_cast<int>(random() % 220); });
  };
  const Combs combs = countCombs(*noise(1), *noise(2));
  EXPECT_TRUE(combs.canTell());
  EXPECT_FALSE(combs.areSeen());
}

TEST(Combs, ThinLinesThatMoveAreNone) {
  const auto picture = [](int offset) {
    return pictureOf([offset](int, int y) { return (y + offset) % 12 == 0 ? 200 : 40; });
  };
  EXPECT_FALSE(countCombs(*picture(0), *picture(4)).areSeen());
}

TEST(Combs, AreSeenInEveryFormatOfPixels) {
  for (const AVPixelFormat format :
       {AV_PIX_FMT_GRAY8, AV_PIX_FMT_NV12, AV_PIX_FMT_YUYV422, AV_PIX_FMT_UYVY422, AV_PIX_FMT_RGB24,
        AV_PIX_FMT_GBRP, AV_PIX_FMT_YUV422P10LE, AV_PIX_FMT_P010LE, AV_PIX_FMT_GBRP12LE,
        AV_PIX_FMT_YUV444P16LE}) {
    SCOPED_TRACE(av_get_pix_fmt_name(format));
    EXPECT_TRUE(
        countCombs(*pictureOf(woven(10, 4), format), *pictureOf(woven(18, 4), format)).areSeen());
    EXPECT_FALSE(
        countCombs(*pictureOf(progressive(10), format), *pictureOf(progressive(18), format))
            .areSeen());
  }
}

TEST(Combs, NothingIsToldOfPixelsThatCannotBeRead) {
  const auto picture = pictureOf(woven(10, 4), AV_PIX_FMT_GRAY8);
  const auto next = pictureOf(woven(18, 4), AV_PIX_FMT_GRAY8);
  picture->format = next->format = AV_PIX_FMT_PAL8;
  EXPECT_EQ(countCombs(*picture, *next).pixels, 0);
  const auto smaller = pictureOf(woven(18, 4));
  smaller->height /= 2;
  EXPECT_EQ(countCombs(*pictureOf(woven(10, 4)), *smaller).pixels, 0);
}

TEST(Combs, TellWhichFieldIsTheEarlierOne) {
  EXPECT_GT(topFieldFirst(*pictureOf(woven(10, 4)), *pictureOf(woven(18, 4))), 0);
  EXPECT_LT(topFieldFirst(*pictureOf(woven(14, -4)), *pictureOf(woven(22, -4))), 0);
}

}  // namespace
}  // namespace kestrel::test
