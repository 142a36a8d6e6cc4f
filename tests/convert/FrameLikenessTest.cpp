#include "convert/cut/FrameLikeness.h"

#include <gtest/gtest.h>

#include <cstdint>

#include "support/FFmpegOwners.h"

namespace kestrel::test {
namespace {

/// A slope of grey whose rows are longer than they show.
FramePtr slope(AVPixelFormat format = AV_PIX_FMT_YUV420P, int width = 34, int height = 18) {
  FramePtr frame = makeFrame();
  frame->format = format;
  frame->width = width;
  frame->height = height;
  av_frame_get_buffer(frame.get(), 64);
  for (int plane = 0; plane < 3 && frame->data[plane]; ++plane)
    for (int y = 0; y < (plane ? (height + 1) / 2 : height); ++y)
      for (int x = 0; x < frame->linesize[plane]; ++x)
        frame->data[plane][y * frame->linesize[plane] + x] = static_cast<uint8_t>(4 * x + y);
  return frame;
}

TEST(FrameLikeness, EqualSamplesAreEqualWhateverLiesBesideThem) {
  const FramePtr one = slope();
  const FramePtr other = slope();
  other->data[0][other->width] ^= 1;  // behind the first row
  EXPECT_TRUE(samplesEqual(*one, *other));
  EXPECT_DOUBLE_EQ(likeness(*one, *other).value(), 1);
  other->data[2][8 * other->linesize[2] + 16] ^= 1;  // the last sample of all
  EXPECT_FALSE(samplesEqual(*one, *other));
}

TEST(FrameLikeness, FallsWithWhatIsDifferent) {
  const FramePtr one = slope();
  const FramePtr other = slope();
  double before = 1;
  for (int x = 8; x < 16; ++x) {
    other->data[0][8 * other->linesize[0] + x] ^= 64;
    const double now = likeness(*one, *other).value();
    EXPECT_LT(now, before) << x;
    before = now;
  }
}

TEST(FrameLikeness, PicturesOfOtherFormsAreNeverAlike) {
  const FramePtr one = slope();
  for (const FramePtr& other :
       {slope(AV_PIX_FMT_YUV420P, 36), slope(AV_PIX_FMT_YUV420P, 34, 20), slope(AV_PIX_FMT_NV12)}) {
    EXPECT_FALSE(samplesEqual(*one, *other));
    EXPECT_FALSE(likeness(*one, *other));
  }
}

// Structural similarity of planes whose samples take turns is not measured; whether they are equal
// is known all the same.
TEST(FrameLikeness, InterleavedSamplesAreOnlyEqualOrNot) {
  const FramePtr one = slope(AV_PIX_FMT_NV12);
  const FramePtr other = slope(AV_PIX_FMT_NV12);
  EXPECT_TRUE(samplesEqual(*one, *other));
  EXPECT_FALSE(likeness(*one, *other));
}

}  // namespace
}  // namespace kestrel::test
