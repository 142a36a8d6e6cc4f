#include <gmock/gmock.h>
#include <kestrel/BitmapContext.h>
#include <kestrel/Image.h>
#include <kestrel/LMFFImageColorspaceConverter.h>
#include <kestrel/LMFFMovieFileOutput.h>

#include "tests/frames/Pictures.h"
#include "tests/output/MovieOutput.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::ElementsAre;

std::shared_ptr<const Image> grey(double level) {
  return Image::fromColor({level, level, level, 1})->cropped({{0, 0}, {16, 9}});
}

std::shared_ptr<const BitmapImage> greyBitmap(uint8_t level) {
  std::shared_ptr<uint8_t[]> pixels(new uint8_t[]{level, level, level, 255});
  return BitmapImage::sharing(std::move(pixels), 1, 1, 4);
}

class LMFFMovieFileOutputImage : public testing::Test {
 protected:
  LMFFMovieFileOutputImage() {
    output_.setMovieFormat(smallFormat(AV_CODEC_ID_FFV1));
    start(output_, file_, true, false);
  }

  const TempDir dir_;
  const std::filesystem::path file_ = dir_ / "a.mkv";
  LMFFMovieFileOutput output_;
};

TEST_F(LMFFMovieFileOutputImage, EachRecipeIsOnePicture) {
  for (const double level : {0.0, 1.0, 100 / 219.0}) output_.writeImage(grey(level));
  EXPECT_EQ(output_.video_pts(), 3);
  output_.stopOutput();
  EXPECT_THAT(meanLumas(file_), ElementsAre(16, 235, 116));
}

TEST_F(LMFFMovieFileOutputImage, EachBitmapIsOnePicture) {
  output_.writeImage(greyBitmap(0));
  output_.writeImage(greyBitmap(255));
  EXPECT_EQ(output_.video_pts(), 2);
  output_.stopOutput();
  EXPECT_THAT(meanLumas(file_), ElementsAre(16, 235));
}

TEST_F(LMFFMovieFileOutputImage, NothingIsNoPicture) {
  output_.writeImage(std::shared_ptr<const Image>());
  output_.writeImage(std::shared_ptr<const BitmapImage>());
  output_.writeImage(nullptr);
  EXPECT_EQ(output_.video_pts(), 0);
}

TEST_F(LMFFMovieFileOutputImage, ImagesFramesAndContextsMayTakeTurns) {
  const auto context = output_.createCGContext();
  context->fillRect({{0, 0}, {160, 120}}, 1, 1, 1);
  output_.writeImage(grey(0));
  output_.writeVideoFrame(greyPicture(160, 120, 77).get());
  output_.writeCGContext(context.get());
  output_.writeImage(grey(0));
  output_.stopOutput();
  EXPECT_THAT(meanLumas(file_), ElementsAre(16, 77, 235, 16));
}

TEST_F(LMFFMovieFileOutputImage, DrawsImagesIntoAContext) {
  const auto context = output_.createCGContext();
  output_.drawImage(grey(1), context.get());
  EXPECT_EQ(context->data()[0], 255);
  output_.drawImage(greyBitmap(9), context.get());
  EXPECT_EQ(context->data()[160 * 120 * 4 - 2], 9);
}

TEST_F(LMFFMovieFileOutputImage, PicturesInsideOfTheEncoderStayAsTheyAre) {
  output_.stopOutput();
  LMFFMovieFileOutput output;
  output.setMovieFormat(smallFormat(AV_CODEC_ID_H264));
  output.setVideoOptions({{"bf", "3"}, {"crf", "1"}, {"preset", "fast"}});
  start(output, dir_ / "b.mkv", true, false);
  std::vector<double> expected;
  for (int i = 0; i < 30; ++i) {
    output.writeImage(grey(i * 7 / 219.0));
    expected.push_back(16 + i * 7);
  }
  output.stopOutput();
  EXPECT_THAT(meanLumas(dir_ / "b.mkv"), testing::Pointwise(testing::DoubleNear(1.0), expected));
}

TEST(LMFFMovieFileOutputWithoutStream, ImagesAreIgnored) {
  LMFFMovieFileOutput output;
  output.writeImage(grey(1));
  output.writeImage(greyBitmap(1));
  output.setVideoConverter(nullptr);
  output.writeImage(grey(1));
  BitmapContext context(4, 4);
  output.drawImage(grey(1), &context);
  EXPECT_EQ(context.data()[0], 0);
}

}  // namespace
}  // namespace kestrel::test
