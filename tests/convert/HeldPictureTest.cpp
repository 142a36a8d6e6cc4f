#include "convert/feed/HeldPicture.h"

#include <gtest/gtest.h>

#include "tests/frames/Pictures.h"

namespace kestrel::test {
namespace {

/// Pictures of a media that begins at 5 s.
class HeldPictureTest : public testing::Test {
 protected:
  HeldPictureTest() { media_.setMovie_position(5000000); }

  void hold(AVFrame* frame, int64_t start, int64_t end) {
    LMFFMedia::Picture picture;
    picture.frame = frame;
    picture.start = start;
    picture.end = end;
    held_.hold(picture, media_);
  }

  const FramePtr grey_ = greyPicture(16, 16, 100);
  const FramePtr other_ = greyPicture(16, 16, 200);
  LMFFMedia media_;
  HeldPicture held_;
};

TEST_F(HeldPictureTest, ItsTimesAreTheMovies) {
  hold(grey_.get(), 40000, 80000);
  EXPECT_TRUE(held_);
  EXPECT_EQ(held_.start, 5040000);
  EXPECT_EQ(held_.end, 5080000);
}

TEST_F(HeldPictureTest, ItStaysWhenItsMediaDecodesOn) {
  hold(grey_.get(), 0, 40000);
  const uint8_t* pixels = grey_->data[0];
  EXPECT_EQ(av_frame_is_writable(grey_.get()), 0);  // there is another who holds the pixels
  av_frame_unref(grey_.get());
  ASSERT_EQ(held_.frame, held_.image->getFrame());
  EXPECT_EQ(held_.frame->data[0], pixels);
  EXPECT_EQ(sampleAt(*held_.frame, 0, 3, 3), 100);
}

TEST_F(HeldPictureTest, TheSamePictureStaysTheSameObject) {
  hold(grey_.get(), 0, 40000);
  const auto image = held_.image;
  // How long it lasts may be known only later.
  hold(grey_.get(), 0, 80000);
  EXPECT_EQ(held_.image, image);
  EXPECT_EQ(held_.end, 5080000);
}

TEST_F(HeldPictureTest, AnotherPictureIsAnotherObject) {
  hold(grey_.get(), 0, 40000);
  const auto image = held_.image;
  hold(other_.get(), 40000, 80000);
  EXPECT_NE(held_.image, image);
  EXPECT_EQ(sampleAt(*held_.frame, 0, 3, 3), 200);
  EXPECT_EQ(sampleAt(*image->getFrame(), 0, 3, 3), 100);
}

TEST_F(HeldPictureTest, ThePictureOfAnotherTimeIsAnotherObject) {
  hold(grey_.get(), 0, 40000);
  const auto image = held_.image;
  hold(grey_.get(), 40000, 80000);
  EXPECT_NE(held_.image, image);
}

TEST_F(HeldPictureTest, WhereThereIsNoneNoneIsHeld) {
  hold(grey_.get(), 0, 40000);
  held_.hold({}, media_);
  EXPECT_FALSE(held_);
  EXPECT_EQ(held_.image, nullptr);
  EXPECT_EQ(held_.frame, nullptr);
}

}  // namespace
}  // namespace kestrel::test
