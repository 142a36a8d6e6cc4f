#include "convert/feed/PictureMaker.h"

#include <gtest/gtest.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMMediaSource.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "convert/look/Overlay.h"
#include "convert/probe/Input.h"
#include "tests/frames/Pictures.h"
#include "tests/support/Fixture.h"

namespace kestrel::test {
namespace {

constexpr int kBlack = 16;  // luma

/// Pictures of 320 × 180 on their way into an output of 160 × 90.
class PictureMakerTest : public testing::Test {
 protected:
  PictureMakerTest() { open(fixture("video-only.mp4").string(), {}, 160, 90); }

  void open(const std::string& path, std::optional<int> title, int width, int height) {
    movie_.close();
    movie_.setExportMovie(true);
    movie_.openMedias(openInput(path, title, {})->createMedias());
    movie_.setOutputVideoSize({static_cast<double>(width), static_cast<double>(height)});
    movie_.seek(0);
    movie_.flushOperation();
    maker_.emplace(movie_, SizedConverter(AV_PIX_FMT_YUV420P, width, height));
  }

  std::shared_ptr<LMFFImage> make(const std::shared_ptr<LMFFImage>& frame, double seconds) {
    std::shared_ptr<LMFFImage> picture;
    movie_.decodeImage([&] { picture = maker_->make(frame, static_cast<int64_t>(seconds * 1e6)); },
                       true);
    return picture;
  }

  static std::shared_ptr<LMFFImage> grey(int luma, int width = 320, int height = 180) {
    return LMFFImage::imageWithFrame(greyPicture(width, height, luma).release(), true);
  }

  /// Whether a picture of a black frame shows anything.
  static bool isBlank(const LMFFImage& picture) {
    const AVFrame& frame = *picture.getFrame();
    for (int y = 0; y < frame.height; ++y)
      for (int x = 0; x < frame.width; ++x)
        if (sampleAt(frame, 0, x, y) > 40) return false;
    return true;
  }

  LMFFMovie movie_;
  std::optional<PictureMaker> maker_;
  const std::shared_ptr<LMFFImage> black_ = grey(kBlack);
};

TEST_F(PictureMakerTest, PicturesHaveTheFormThatTheOutputTakes) {
  const auto picture = make(grey(100), 0);
  const AVFrame& frame = *picture->getFrame();
  EXPECT_EQ(frame.format, AV_PIX_FMT_YUV420P);
  EXPECT_EQ(frame.width, 160);
  EXPECT_EQ(frame.height, 90);
  for (const auto& [x, y] : {std::pair{0, 0}, {80, 45}, {159, 89}})
    EXPECT_NEAR(sampleAt(frame, 0, x, y), 100, 1);
}

TEST_F(PictureMakerTest, WhatLooksTheSameIsTheSameObject) {
  const auto first = make(black_, 0);
  EXPECT_EQ(make(black_, 0.04), first);
  const auto frame = grey(100);
  const auto second = make(frame, 0.08);
  EXPECT_NE(second, first);
  EXPECT_EQ(make(frame, 0.12), second);
}

TEST_F(PictureMakerTest, APictureStaysWhenTheNextIsMade) {
  const auto first = make(grey(100), 0);
  make(grey(200), 0.04);
  EXPECT_NEAR(sampleAt(*first->getFrame(), 0, 80, 45), 100, 1);
}

TEST_F(PictureMakerTest, PicturesHaveTheMoviesLook) {
  FramePtr frame = greyPicture(320, 180, 200);
  paint(*frame, [](int x, int) { return Triple{x < 160 ? 200.0 : 50.0, 128, 128}; });
  movie_.setHflip(true);
  const auto picture = make(LMFFImage::imageWithFrame(frame.release(), true), 0);
  EXPECT_NEAR(sampleAt(*picture->getFrame(), 0, 20, 45), 50, 1);
  EXPECT_NEAR(sampleAt(*picture->getFrame(), 0, 140, 45), 200, 1);
}

// Lines from 0.2 to 0.9 s and from 1.1 to 1.8 s.
TEST_F(PictureMakerTest, TextShowsInItsTime) {
  openSubtitles(movie_, fixture("subtitles.srt").string());
  for (const auto& [time, isShown] :
       {std::pair{0.1, false}, {0.3, true}, {0.8, true}, {1.0, false}, {1.2, true}, {1.9, false}})
    EXPECT_EQ(isBlank(*make(black_, time)), !isShown) << time;
}

TEST_F(PictureMakerTest, TheSamePictureIsAnotherWithAnotherText) {
  openSubtitles(movie_, fixture("subtitles.srt").string());
  const auto before = make(black_, 0.1);
  const auto first = make(black_, 0.3);
  EXPECT_NE(first, before);
  EXPECT_EQ(make(black_, 0.8), first);
  EXPECT_NE(make(black_, 1.2), first);
}

TEST_F(PictureMakerTest, TextShowsWhereItsMediaLiesInTheMovie) {
  openSubtitles(movie_, fixture("subtitles.srt").string());
  movie_.subtitle()->setMovie_position(1000000);
  EXPECT_TRUE(isBlank(*make(black_, 0.5)));
  EXPECT_FALSE(isBlank(*make(black_, 1.5)));
}

/// The disc's first title: an English block, red to the left and blue to the right, with its upper
/// left at 100,400 and 200 × 40 large, from 1 to 3 s; a green one at 300,200 from 3.2 to 5 s.
class BitmapsOfADisc : public PictureMakerTest {
 protected:
  BitmapsOfADisc() {
    open((discFixture("pal") / "disc").string(), 1, 720, 576);
    openSubtitleTrack(movie_, TrackChoice::in("en"));
  }

  /// Whether something shows at a place at a time.
  bool isShown(double seconds, int x, int y) {
    return sampleAt(*make(frame_, seconds)->getFrame(), 0, x, y) > 25;
  }

  const std::shared_ptr<LMFFImage> frame_ = grey(kBlack, 720, 576);
};

// The second block is read before the first one ends: it lies behind the same pictures.
TEST_F(BitmapsOfADisc, EachShowsFromItsBeginningToItsEnd) {
  for (const auto& [time, isFirst, isSecond] : {std::tuple{0.9, false, false},
                                                {1.1, true, false},
                                                {2.0, true, false},
                                                {2.9, true, false},
                                                {3.1, false, false},
                                                {3.3, false, true},
                                                {4.9, false, true},
                                                {5.1, false, false}}) {
    EXPECT_EQ(isShown(time, 150, 420), isFirst) << time;
    EXPECT_EQ(isShown(time, 350, 220), isSecond) << time;
  }
}

TEST_F(BitmapsOfADisc, EachLiesAtItsPlace) {
  EXPECT_FALSE(isShown(2, 150, 395));
  EXPECT_TRUE(isShown(2, 150, 405));
  EXPECT_TRUE(isShown(2, 150, 435));
  EXPECT_FALSE(isShown(2, 150, 445));
  EXPECT_FALSE(isShown(2, 95, 420));
  EXPECT_TRUE(isShown(2, 105, 420));
  EXPECT_FALSE(isShown(2, 305, 420));
}

TEST_F(BitmapsOfADisc, WhileOneShowsThePictureIsTheSame) {
  const auto shown = make(frame_, 1.5);
  EXPECT_EQ(make(frame_, 2.5), shown);
  EXPECT_NE(make(frame_, 3.1), shown);
}

}  // namespace
}  // namespace kestrel::test
