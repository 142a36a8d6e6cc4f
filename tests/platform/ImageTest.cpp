#include <gtest/gtest.h>
#include <kestrel/Image.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

namespace kestrel {
namespace {

class ImageTest : public testing::Test {
 protected:
  const std::vector<uint8_t> memory_ = std::vector<uint8_t>(3 * 2 * 4);
  const std::shared_ptr<const BitmapImage> bitmap_ =
      BitmapImage::borrowing(memory_.data(), 3, 2, 12);
  const std::shared_ptr<const Image> image_ = Image::fromBitmap(bitmap_);
};

TEST_F(ImageTest, BitmapLiesAtTheOriginInItsOwnSize) {
  EXPECT_EQ(image_->extent(), (Rect{{0, 0}, {3, 2}}));
  EXPECT_EQ(image_->bitmap(), bitmap_);
}

TEST_F(ImageTest, NoBitmapGivesNoImage) { EXPECT_FALSE(Image::fromBitmap(nullptr)); }

TEST_F(ImageTest, TranslationMovesTheExtentAndSharesThePixels) {
  const auto moved = image_->translated(10.5, -4);
  EXPECT_EQ(moved->extent(), (Rect{{10.5, -4}, {3, 2}}));
  EXPECT_EQ(moved->bitmap(), bitmap_);
}

TEST_F(ImageTest, TranslationsAddUp) {
  EXPECT_EQ(image_->translated(10, 20)->translated(-4, 1)->extent(), (Rect{{6, 21}, {3, 2}}));
}

TEST_F(ImageTest, OperationsLeaveTheOriginalAsItWas) {
  image_->translated(7, 7)->scaled(2, 2)->cropped({});
  EXPECT_EQ(image_->extent(), (Rect{{0, 0}, {3, 2}}));
}

TEST_F(ImageTest, OnlyAMovedBitmapHasABitmap) {
  EXPECT_FALSE(image_->scaled(2, 2)->bitmap());
  EXPECT_FALSE(image_->cropped({{0, 0}, {1, 1}})->bitmap());
  EXPECT_FALSE(Image::fromColor(Color::black())->bitmap());
}

TEST_F(ImageTest, CropKeepsWhatBothCover) {
  EXPECT_EQ(image_->cropped({{1, -5}, {9, 6.5}})->extent(), (Rect{{1, 0}, {2, 1.5}}));
}

TEST_F(ImageTest, CropBesideThePictureIsEmpty) {
  EXPECT_TRUE(isEmpty(image_->cropped({{5, 5}, {2, 2}})->extent()));
  EXPECT_TRUE(isEmpty(image_->cropped({})->extent()));
}

TEST_F(ImageTest, TransformMapsTheExtent) {
  EXPECT_EQ(image_->transformed({0, 1, -1, 0, 10, 0})->extent(), (Rect{{8, 0}, {2, 3}}));
  EXPECT_EQ(image_->scaled(-2, 0.5)->extent(), (Rect{{-6, 0}, {6, 1}}));
}

TEST_F(ImageTest, TurnsByQuartersStayOnWholePixels) {
  const double quarter = std::numbers::pi / 2;
  EXPECT_EQ(image_->transformed(AffineTransform::rotation(quarter))->extent(),
            (Rect{{-2, 0}, {2, 3}}));
  EXPECT_EQ(image_->transformed(AffineTransform::rotation(2 * quarter))->extent(),
            (Rect{{-3, -2}, {3, 2}}));
}

TEST_F(ImageTest, TransformsFollowEachOther) {
  const auto image = image_->scaled(2, 3)->translated(1, 1)->scaled(10, 10);
  EXPECT_EQ(image->extent(), (Rect{{10, 10}, {60, 60}}));
}

TEST_F(ImageTest, FlatteningTransformLeavesNothing) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_TRUE(isEmpty(image_->scaled(0, 1)->extent()));
  EXPECT_TRUE(isEmpty(image_->scaled(nan, 1)->extent()));
  EXPECT_TRUE(isEmpty(image_->translated(INFINITY, 0)->extent()));
  EXPECT_TRUE(isEmpty(image_->scaled(1e-200, 1)->scaled(1e-200, 1)->extent()));
}

TEST_F(ImageTest, ColorHasNoBounds) {
  const auto color = Image::fromColor({1, 0, 0, 1});
  EXPECT_TRUE(isInfinite(color->extent()));
  EXPECT_TRUE(isInfinite(color->translated(50, 2)->scaled(0.1, 7)->extent()));
  EXPECT_EQ(color->cropped({{1, 2}, {3, 4}})->extent(), (Rect{{1, 2}, {3, 4}}));
}

TEST_F(ImageTest, EmptyInfiniteImageIsMadeOnce) {
  EXPECT_EQ(Image::emptyInfiniteImage(), Image::emptyInfiniteImage());
  EXPECT_EQ(Image::emptyInfiniteImage()->extent(), Rect::infinite());
}

TEST_F(ImageTest, PlanesLieAtTheOrigin) {
  YUVPicture picture;
  picture.format.width = 5;
  picture.format.height = 4;
  picture.planes[0] = {memory_.data(), 5, 1};
  EXPECT_EQ(Image::fromPlanes(picture)->extent(), (Rect{{0, 0}, {5, 4}}));
}

TEST_F(ImageTest, PlanesThatCannotBeReadGiveNoImage) {
  YUVPicture picture;
  picture.format.width = 5;
  picture.format.height = 4;
  EXPECT_FALSE(Image::fromPlanes(picture)) << "no luma";
  picture.planes[0] = {memory_.data(), 5, 1};
  picture.format.bitDepth = 17;
  EXPECT_FALSE(Image::fromPlanes(picture)) << "depth";
  picture.format.bitDepth = 8;
  picture.format.width = 0;
  EXPECT_FALSE(Image::fromPlanes(picture)) << "width";
}

}  // namespace
}  // namespace kestrel
