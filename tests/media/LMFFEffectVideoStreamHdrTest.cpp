// HDR pictures brought to SDR, or kept with graphics over them.

#include <kestrel/MovieLook.h>

#include "tests/media/EffectStream.h"

#include <cmath>
#include <cstring>

extern "C" {
#include <libavutil/frame.h>
}

namespace kestrel::test {
namespace {

constexpr int kSide = 16;

/// A grey of HLG, 0 to 1, in 10 bits.
FramePtr hlgFrame(double sample) {
  FramePtr frame = makePicture(AV_PIX_FMT_YUV420P10, kSide, kSide);
  frame->colorspace = AVCOL_SPC_BT2020_NCL;
  frame->color_primaries = AVCOL_PRI_BT2020;
  frame->color_trc = AVCOL_TRC_ARIB_STD_B67;
  frame->color_range = AVCOL_RANGE_MPEG;
  for (int p = 0; p < 3; ++p) {
    const auto value = static_cast<uint16_t>(p ? 512 : std::lround(64 + 876 * sample));
    for (int row = 0; row < (p ? kSide / 2 : kSide); ++row) {
      auto* const line = reinterpret_cast<uint16_t*>(frame->data[p] + row * frame->linesize[p]);
      std::fill_n(line, p ? kSide / 2 : kSide, value);
    }
  }
  return frame;
}

class EffectStreamHdrTest : public testing::Test {
 protected:
  EffectStreamHdrTest() : stream_(kSide, kSide, AV_PIX_FMT_YUV420P10) {}

  void mapTones() {
    MovieLook look = stream_->look();
    look.toneMaps = true;
    stream_->setLook(look);
  }
  int grey(int x = 8, int y = 8) const { return rgbaAt(*stream_.picture(), x, y)[1]; }

  EffectStream stream_;
};

// 0.75 of HLG is 101.5 candelas per square metre on a display of 400, below BT.2390's knee, and 0.9
// is 228.6, above it, of which it makes 191.6: 255 (191.6 / 203)^(1 / 2.4) = 249.
TEST_F(EffectStreamHdrTest, PicturesAreMappedWhereTheLookSaysSo) {
  stream_->writeFrame(hlgFrame(0.75).get());
  EXPECT_NEAR(grey(), 0.75 * 255, 1);
  mapTones();
  EXPECT_NEAR(grey(), 191, 1);
  stream_->writeFrame(hlgFrame(0.9).get());
  EXPECT_NEAR(grey(), 249, 1);
}

TEST_F(EffectStreamHdrTest, SdrStaysAsItIs) {
  const FramePtr frame = hlgFrame(0.75);
  frame->color_trc = AVCOL_TRC_BT709;
  mapTones();
  stream_->writeFrame(frame.get());
  EXPECT_NEAR(grey(), 0.75 * 255, 1);
}

TEST_F(EffectStreamHdrTest, GraphicsLieOverMappedPicturesAsTheyAre) {
  mapTones();
  stream_->setWatermark(patch(0, 0, 4, 4, Color::white()));
  stream_->setMediaSubtitleImage(patch(12, 0, 4, 4, Color::white()));
  stream_->writeFrame(hlgFrame(0.3).get());
  EXPECT_EQ(grey(1, 14), 255);
  EXPECT_EQ(grey(14, 14), 255);
  EXPECT_NEAR(grey(), 75, 1);
}

// 75 % of HLG, as ITU-R BT.2408 has it.
TEST_F(EffectStreamHdrTest, GraphicsOverHdrHaveTheLightThatIsRecommended) {
  stream_->setWatermark(patch(0, 0, 4, 4, Color::white()));
  stream_->setMediaSubtitleImage(patch(12, 0, 4, 4, Color::white()));
  stream_->writeFrame(hlgFrame(0.3).get());
  EXPECT_NEAR(grey(1, 14), 0.75 * 255, 1);
  EXPECT_NEAR(grey(14, 14), 0.75 * 255, 1);
  EXPECT_NEAR(grey(), 0.3 * 255, 1);
}

}  // namespace
}  // namespace kestrel::test
