#include <gtest/gtest.h>
#include <kestrel/LMFFEffectVideoStream.h>

#include <cmath>

#include "tests/media/Media.h"

namespace kestrel::test {
namespace {

class LMFFEffectVideoStreamSize : public testing::Test {
 protected:
  LMFFEffectVideoStreamSize() { setSize(64, 36); }

  /// Makes the media's pictures claim another size.
  void setSize(int width, int height) {
    media_ = openedMedia(fixture("raw.avi"));
    media_->videoStream()->codecContext()->width = width;
    media_->videoStream()->codecContext()->height = height;
    stream_.setMedia(media_);
  }

  Size displaySize(int64_t aspectType) {
    stream_.setAspectType(aspectType);
    return stream_.displayVideoSize();
  }

  std::shared_ptr<LMFFMedia> media_;
  LMFFEffectVideoStream stream_;
};

TEST_F(LMFFEffectVideoStreamSize, IsTheMediasPictures) {
  EXPECT_EQ(stream_.videoSize(), (Size{64, 36}));
}

TEST_F(LMFFEffectVideoStreamSize, WithoutAMediaIsZero) {
  stream_.setMedia(nullptr);
  EXPECT_EQ(stream_.videoSize(), (Size{0, 0}));
  for (const int64_t type : {0, 1, 2}) EXPECT_EQ(displaySize(type), (Size{0, 0}));
  EXPECT_EQ(stream_.outputDataFormat(), LMFFVideoFormat{});
}

TEST_F(LMFFEffectVideoStreamSize, SourcesShapeIsKept) {
  setSize(720, 576);
  EXPECT_EQ(displaySize(0), (Size{720, 576}));
}

TEST_F(LMFFEffectVideoStreamSize, SixteenByNineWidens) {
  setSize(720, 576);
  EXPECT_EQ(displaySize(2), (Size{1024, 576}));
}

TEST_F(LMFFEffectVideoStreamSize, FourByThreeWidens) {
  setSize(720, 576);
  EXPECT_EQ(displaySize(1), (Size{768, 576}));
}

TEST_F(LMFFEffectVideoStreamSize, AShapeGivenAsANumberComesFirst) {
  setSize(720, 480);
  stream_.setDisplayAspect(2);
  for (const int64_t type : {0, 1, 2}) EXPECT_EQ(displaySize(type), (Size{960, 480}));
  stream_.setDisplayAspect(0);
  EXPECT_EQ(displaySize(1), (Size{640, 480}));
}

TEST_F(LMFFEffectVideoStreamSize, OtherShapesAreTheSources) {
  setSize(720, 576);
  for (const int64_t type : {3, -1, 1000}) EXPECT_EQ(displaySize(type), (Size{720, 576}));
}

TEST_F(LMFFEffectVideoStreamSize, FractionsAreRoundedUp) {
  setSize(100, 100);
  EXPECT_EQ(displaySize(2), (Size{178, 100}));  // 177.8
  EXPECT_EQ(displaySize(1), (Size{134, 100}));  // 133.3
}

TEST_F(LMFFEffectVideoStreamSize, HeightZeroIsZeroByZeroForEveryShape) {
  setSize(720, 0);
  for (const int64_t type : {0, 1, 2, 3}) EXPECT_EQ(displaySize(type), (Size{0, 0}));
}

TEST_F(LMFFEffectVideoStreamSize, EveryHeightFollowsTheFormula) {
  for (int height = 1; height <= 1200; height += 7) {
    media_->videoStream()->codecContext()->height = height;
    ASSERT_EQ(displaySize(2), (Size{std::ceil(height / 9.0 * 16.0), static_cast<double>(height)}));
    ASSERT_EQ(displaySize(1), (Size{std::ceil(height / 3.0 * 4.0), static_cast<double>(height)}));
  }
}

TEST_F(LMFFEffectVideoStreamSize, DataHaveTheMediasSizeWhateverTheOutputs) {
  stream_.setOutputFormat({AV_PIX_FMT_RGBA, 1920, 1080});
  EXPECT_EQ(stream_.outputDataFormat(), (LMFFVideoFormat{AV_PIX_FMT_RGBA, 64, 36}));
}

}  // namespace
}  // namespace kestrel::test
