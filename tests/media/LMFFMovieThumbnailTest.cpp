#include <gtest/gtest.h>
#include <kestrel/BitmapImage.h>
#include <kestrel/LMFFImage.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/OperationQueue.h>

#include <cstdlib>
#include <semaphore>

#include "tests/media/Media.h"
#include "tests/support/Process.h"

namespace kestrel::test {
namespace {

/// The mean distance of the colour components of two pictures of one size.
double meanDifference(const BitmapImage& image, const std::string& rgba) {
  int64_t sum = 0;
  for (int y = 0; y < image.height(); ++y) {
    for (int i = 0; i < image.width() * 4; ++i) {
      const auto other = static_cast<uint8_t>(rgba[static_cast<size_t>(y * image.width() * 4 + i)]);
      sum += std::abs(image.row(y)[i] - other);
    }
  }
  return static_cast<double>(sum) / (image.width() * image.height() * 4);
}

/// The picture that starts at a time as ffmpeg decodes it, RGBA.
std::string pictureByFfmpeg(const std::filesystem::path& file, const std::string& seconds) {
  return run({"ffmpeg", "-v", "error", "-ss", seconds, "-i", file.string(), "-frames:v", "1", "-vf",
              "scale=flags=bilinear+accurate_rnd+full_chroma_int", "-f", "rawvideo", "-pix_fmt",
              "rgba", "-"})
      .out;
}

class LMFFMovieThumbnail : public testing::Test {
 protected:
  void open(const char* name) { movie_.openMedias({videoMediaOf(fixture(name))}); }

  Size sizeOf(int64_t time, const Size& size) {
    const auto image = movie_.thumbnailAtTime(time, size);
    return image ? Size{double(image->width()), double(image->height())} : Size{};
  }

  int64_t pictureAt(int64_t time) {
    int64_t pts = AV_NOPTS_VALUE;
    movie_.decodeImageAtTime(time, true, [&](const std::shared_ptr<LMFFImage>& image) {
      if (image && image->getFrame()) pts = image->getFrame()->pts;
    });
    return pts;
  }

  LMFFMovie movie_;
};

// Rectangles.

TEST_F(LMFFMovieThumbnail, FittedRectangleTouchesTwoSides) {
  EXPECT_EQ(movie_.scaleRect({{3, 4}, {1920, 1080}}, {{10, 20}, {640, 480}}),
            (Rect{{10, 80}, {640, 360}}));
}

TEST_F(LMFFMovieThumbnail, EnlargementStopsAtAHundredTimes) {
  EXPECT_EQ(movie_.scaleRect({{0, 0}, {4, 3}}, {{0, 0}, {1600, 900}}),
            (Rect{{600, 300}, {400, 300}}));
  EXPECT_EQ(movie_.scaleRect({{0, 0}, {16, 9}}, {{0, 0}, {1600, 900}}),
            (Rect{{0, 0}, {1600, 900}}));
}

TEST_F(LMFFMovieThumbnail, RatioHasSinglePrecision) {
  const double ratio = static_cast<float>(1000.0 / 300);
  EXPECT_EQ(movie_.scaleRect({{0, 0}, {1000, 10}}, {{0, 0}, {300, 300}}).size,
            (Size{1000 / ratio, 10 / ratio}));
}

// Sizes.

TEST_F(LMFFMovieThumbnail, HasTheFittedSize) {
  open("av25.mp4");
  movie_.setOutputVideoSize({1920, 1080});
  EXPECT_EQ(sizeOf(0, {160, 120}), (Size{160, 90}));
  EXPECT_EQ(sizeOf(0, {120, 160}), (Size{120, 68}));  // 67.5, rounded up
}

TEST_F(LMFFMovieThumbnail, IsNeverLargerThanAsked) {
  open("av25.mp4");
  for (const Size shape : {Size{320, 180}, {853, 479}, {720, 576}, {31, 17}}) {
    movie_.setOutputVideoSize(shape);
    for (int side = 20; side < 180; side += 3) {
      // In whole numbers: the longer side is the one asked for, the other one is rounded up.
      const auto width = static_cast<int>(shape.width);
      const auto height = static_cast<int>(shape.height);
      const Size expected = {static_cast<double>(side),
                             static_cast<double>((side * height + width - 1) / width)};
      EXPECT_EQ(sizeOf(0, {static_cast<double>(side), static_cast<double>(side)}), expected)
          << width << 'x' << height;
    }
  }
}

TEST_F(LMFFMovieThumbnail, IsEnlargedAHundredTimesAtMost) {
  open("av25.mp4");
  movie_.setOutputVideoSize({16, 9});
  EXPECT_EQ(sizeOf(0, {1600, 900}), (Size{1600, 900}));
  movie_.setOutputVideoSize({4, 3});
  EXPECT_EQ(sizeOf(0, {1600, 900}), (Size{400, 300}));
}

TEST_F(LMFFMovieThumbnail, FillsItsSizeToTheRim) {
  open("av25.mp4");
  movie_.setEffectName("Exposure");
  const auto image = movie_.thumbnailAtTime(0, {100, 100});  // 100 × 56.25
  ASSERT_TRUE(image);
  ASSERT_EQ(image->height(), 57);
  for (int y = 0; y < 57; ++y)
    for (int x = 0; x < 100; ++x) ASSERT_EQ(image->row(y)[x * 4 + 3], 255) << x << "," << y;
}

TEST_F(LMFFMovieThumbnail, OfNoSizeIsNone) {
  open("av25.mp4");
  EXPECT_EQ(movie_.thumbnailAtTime(0, {0, 0}), nullptr);
  EXPECT_EQ(movie_.thumbnailAtTime(0, {100, 0}), nullptr);
  EXPECT_EQ(movie_.thumbnailAtTime(0, {-5, -100}), nullptr);
  movie_.setOutputVideoSize({0, 0});
  EXPECT_EQ(movie_.thumbnailAtTime(0, {100, 100}), nullptr);
}

// Pictures.

TEST_F(LMFFMovieThumbnail, IsThePictureOfItsTime) {
  open("av25.mp4");
  for (const auto& [time, text] :
       {std::pair{milliseconds(1220), "1.20"}, {milliseconds(420), "0.40"}}) {
    const auto image = movie_.thumbnailAtTime(time, {320, 180});
    ASSERT_TRUE(image);
    const std::string expected = pictureByFfmpeg(fixture("av25.mp4"), text);
    ASSERT_EQ(expected.size(), 320u * 180 * 4);
    EXPECT_LT(meanDifference(*image, expected), 2.5) << text;
  }
}

TEST_F(LMFFMovieThumbnail, TimeIsTheMovies) {
  const auto media = videoMediaOf(fixture("av25.mp4"));
  media->setMovie_position(3 * kSecond);
  movie_.openMedias({media});
  EXPECT_EQ(movie_.thumbnailAtTime(milliseconds(420), {320, 180}), nullptr);
  const auto image = movie_.thumbnailAtTime(3 * kSecond + milliseconds(420), {320, 180});
  ASSERT_TRUE(image);
  EXPECT_LT(meanDifference(*image, pictureByFfmpeg(fixture("av25.mp4"), "0.40")), 2.5);
}

TEST_F(LMFFMovieThumbnail, ShowsTheMoviesLook) {
  open("av25.mp4");
  movie_.setSaturation(0);
  const auto image = movie_.thumbnailAtTime(0, {64, 64});
  ASSERT_TRUE(image);
  for (int y = 0; y < image->height(); ++y) {
    for (int x = 0; x < image->width(); ++x) {
      const uint8_t* pixel = image->row(y) + x * 4;
      ASSERT_EQ(pixel[0], pixel[1]);
      ASSERT_EQ(pixel[1], pixel[2]);
    }
  }
}

TEST_F(LMFFMovieThumbnail, KeepsItsPixelsWhenTheNextIsMade) {
  open("av25.mp4");
  const auto first = movie_.thumbnailAtTime(milliseconds(420), {320, 180});
  ASSERT_TRUE(movie_.thumbnailAtTime(milliseconds(1620), {320, 180}));
  EXPECT_LT(meanDifference(*first, pictureByFfmpeg(fixture("av25.mp4"), "0.40")), 2.5);
}

// Where it leaves the movie.

TEST_F(LMFFMovieThumbnail, MovieGoesOnWhereItWas) {
  open("video-only.mp4");
  movie_.seek(milliseconds(400));
  EXPECT_EQ(pictureAt(milliseconds(420)), 10 * 512);
  ASSERT_TRUE(movie_.thumbnailAtTime(milliseconds(1820), {160, 90}));
  EXPECT_EQ(movie_.currentTime(), milliseconds(400));
  EXPECT_EQ(pictureAt(milliseconds(460)), 11 * 512);
  ASSERT_TRUE(movie_.thumbnailAtTime(0, {160, 90}));
  EXPECT_EQ(pictureAt(milliseconds(500)), 12 * 512);
}

TEST_F(LMFFMovieThumbnail, OutsideOfEveryMediaDoesNotWaitForTheQueue) {
  open("av25.mp4");
  std::binary_semaphore hold{0};
  movie_.decodeQueue()->addOperation([&] { hold.acquire(); });
  EXPECT_EQ(movie_.thumbnailAtTime(60 * kSecond, {160, 90}), nullptr);
  EXPECT_EQ(movie_.thumbnailAtTime(-1, {160, 90}), nullptr);
  hold.release();
  movie_.flushOperation();
}

TEST_F(LMFFMovieThumbnail, OfAMovieWithoutPicturesIsNone) {
  EXPECT_EQ(movie_.thumbnailAtTime(0, {160, 90}), nullptr);
  movie_.openMedias({openedMedia(fixture("audio-only.m4a"))});
  EXPECT_EQ(movie_.thumbnailAtTime(0, {160, 90}), nullptr);
}

TEST_F(LMFFMovieThumbnail, MayBeAskedForFromTheQueue) {
  open("av25.mp4");
  std::shared_ptr<const BitmapImage> image;
  movie_.decodeImage([&] { image = movie_.thumbnailAtTime(0, {160, 90}); }, true);
  EXPECT_TRUE(image);
}

}  // namespace
}  // namespace kestrel::test
