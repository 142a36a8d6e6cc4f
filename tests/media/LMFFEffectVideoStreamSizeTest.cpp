#include <gtest/gtest.h>
#include <kestrel/LMFFEffectVideoStream.h>

#include <cmath>

#include "tests/media/PictureMedia.h"

namespace kestrel::test {
namespace {

/// What a stream answers over a media whose pictures have a size.
class SizedStream {
 public:
  SizedStream(int width, int height) : media_(width, height) { stream_.setMedia(media_.get()); }

  LMFFEffectVideoStream* operator->() { return &stream_; }

 private:
  PictureMedia media_;
  LMFFEffectVideoStream stream_;
};

Size displaySize(int width, int height, int64_t aspectType) {
  SizedStream stream(width, height);
  stream->setAspectType(aspectType);
  return stream->displayVideoSize();
}

TEST(LMFFEffectVideoStreamSize, IsTheMediasPictures) {
  EXPECT_EQ(SizedStream(640, 480)->videoSize(), (Size{640, 480}));
}

TEST(LMFFEffectVideoStreamSize, WithoutAMediaIsZero) {
  LMFFEffectVideoStream stream;
  EXPECT_EQ(stream.videoSize(), (Size{0, 0}));
  for (const int64_t type : {0, 1, 2}) {
    stream.setAspectType(type);
    EXPECT_EQ(stream.displayVideoSize(), (Size{0, 0}));
  }
}

TEST(LMFFEffectVideoStreamSize, SourcesShapeIsKept) {
  EXPECT_EQ(displaySize(720, 576, 0), (Size{720, 576}));
}

TEST(LMFFEffectVideoStreamSize, SixteenByNineWidens) {
  EXPECT_EQ(displaySize(720, 576, 2), (Size{1024, 576}));
}

TEST(LMFFEffectVideoStreamSize, FourByThreeWidens) {
  EXPECT_EQ(displaySize(720, 576, 1), (Size{768, 576}));
}

TEST(LMFFEffectVideoStreamSize, AShapeGivenAsANumberComesFirst) {
  SizedStream stream(720, 480);
  stream->setDisplayAspect(2);
  for (const int64_t type : {0, 1, 2}) {
    stream->setAspectType(type);
    EXPECT_EQ(stream->displayVideoSize(), (Size{960, 480}));
  }
  stream->setDisplayAspect(0);
  stream->setAspectType(1);
  EXPECT_EQ(stream->displayVideoSize(), (Size{640, 480}));
}

TEST(LMFFEffectVideoStreamSize, OtherShapesAreTheSources) {
  for (const int64_t type : {3, -1, 1000}) EXPECT_EQ(displaySize(720, 576, type), (Size{720, 576}));
}

TEST(LMFFEffectVideoStreamSize, FractionsAreRoundedUp) {
  EXPECT_EQ(displaySize(100, 100, 2), (Size{178, 100}));  // 177.8
  EXPECT_EQ(displaySize(100, 100, 1), (Size{134, 100}));  // 133.3
  EXPECT_EQ(displaySize(720, 480, 2), (Size{854, 480}));  // 853.3
}

TEST(LMFFEffectVideoStreamSize, HeightZeroIsZeroByZeroForEveryShape) {
  for (const int64_t type : {-1, 0, 1, 2, 3}) EXPECT_EQ(displaySize(720, 0, type), (Size{0, 0}));
}

TEST(LMFFEffectVideoStreamSize, EveryHeightFollowsTheFormula) {
  for (int height = 1; height <= 1200; height += 7) {
    const auto side = static_cast<double>(height);
    ASSERT_EQ(displaySize(64, height, 2), (Size{std::ceil(side / 9.0 * 16.0), side}));
    ASSERT_EQ(displaySize(64, height, 1), (Size{std::ceil(side / 3.0 * 4.0), side}));
  }
}

TEST(LMFFEffectVideoStreamSize, DataHaveTheMediasSizeAndTheOutputsFormat) {
  SizedStream stream(640, 480);
  stream->setOutputFormat({AV_PIX_FMT_BGRA, 1920, 1080});
  EXPECT_EQ(stream->outputDataFormat(), (LMFFVideoFormat{AV_PIX_FMT_BGRA, 640, 480}));
}

TEST(LMFFEffectVideoStreamSize, DataHaveNoSizeWithoutAMedia) {
  LMFFEffectVideoStream stream;
  EXPECT_EQ(stream.outputDataFormat(), LMFFVideoFormat{});
  stream.setOutputFormat({AV_PIX_FMT_RGBA, 100, 50});
  EXPECT_EQ(stream.outputDataFormat(), (LMFFVideoFormat{AV_PIX_FMT_RGBA, 0, 0}));
}

}  // namespace
}  // namespace kestrel::test
