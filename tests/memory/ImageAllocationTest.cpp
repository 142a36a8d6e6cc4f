// What rendering allocates.

#include <gtest/gtest.h>
#include <kestrel/FilterRegistry.h>
#include <kestrel/ImageContext.h>

#include <vector>

#include "tests/memory/Allocations.h"

namespace kestrel {
namespace {

using test::allocations;

using ImagePointer = std::shared_ptr<const Image>;

class ImageAllocationTest : public testing::Test {
 protected:
  static ImagePointer filtered(const char* name, const ImagePointer& input,
                               const ImagePointer& background = nullptr) {
    const auto filter = FilterRegistry::filterWithName(name);
    filter->setValue(input, kCIInputImageKey);
    if (background) filter->setValue(background, kCIInputBackgroundImageKey);
    return filter->outputImage();
  }

  /// How many allocations one more picture takes when several have been made.
  int allocationsPerPicture(const ImagePointer& image) {
    // One thread: which threads take part in a picture, and so meet its work first, is chance.
    ImageContext context;
    context.setThreads(1);
    const Rect bounds{{0, 0}, {200, 120}};
    for (int i = 0; i < 3; ++i) context.render(image, bounds, out_.data(), 800);
    const int before = allocations;
    context.render(image, bounds, out_.data(), 800);
    return allocations - before;
  }

  std::vector<uint8_t> pixels_ = std::vector<uint8_t>(300 * 200 * 4, 100);
  std::vector<uint8_t> out_ = std::vector<uint8_t>(200 * 120 * 4);
  ImagePointer source_ = Image::fromBitmap(BitmapImage::borrowing(pixels_.data(), 300, 200, 1200));
};

TEST_F(ImageAllocationTest, CountsAtAll) {
  const int before = allocations;
  std::vector<int> some(3);
  EXPECT_GT(allocations, before);
}

TEST_F(ImageAllocationTest, FittedPictureAllocatesNothing) {
  EXPECT_EQ(allocationsPerPicture(source_->scaled(0.61, 0.6)), 0);
}

TEST_F(ImageAllocationTest, TurnedAndColoredPictureAllocatesNothing) {
  const ImagePointer turned = source_->transformed(AffineTransform::rotation(0.2).scaled(0.3, 0.3));
  EXPECT_EQ(
      allocationsPerPicture(filtered("CISourceOverCompositing", filtered("CIColorInvert", turned),
                                     Image::fromColor(Color::black()))),
      0);
}

TEST_F(ImageAllocationTest, PictureThroughAnIntermediateAllocatesNothing) {
  const ImagePointer both = filtered("CISourceOverCompositing", source_->scaled(0.5, 0.5), source_);
  EXPECT_EQ(allocationsPerPicture(both->transformed(AffineTransform::rotation(0.2))), 0);
}

TEST_F(ImageAllocationTest, FiltersOfNeighbourhoodsAllocateNothing) {
  for (const char* const name : {"CIGaussianBlur", "CISharpenLuminance", "CIBloom", "CIGloom",
                                 "CISpotLight", "CILineScreen", "CIHexagonalPixellate"})
    EXPECT_EQ(allocationsPerPicture(filtered(name, source_)), 0) << name;
}

TEST_F(ImageAllocationTest, PictureInPlanesAllocatesNothing) {
  YUVPicture picture;
  picture.format.width = 200;
  picture.format.height = 120;
  picture.planes[0] = {pixels_.data(), 200, 1};
  picture.planes[1] = picture.planes[2] = {pixels_.data(), 100, 1};
  YUVTarget target{picture.format, {}};
  target.planes[0] = {out_.data(), 200, 1};
  target.planes[1] = {out_.data() + 40000, 100, 1};
  target.planes[2] = {out_.data() + 60000, 100, 1};
  const ImagePointer image =
      filtered("CIColorInvert", Image::fromPlanes(picture)->scaled(0.7, 0.7));
  ImageContext context;
  context.setThreads(1);
  const Rect bounds{{0, 0}, {200, 120}};
  for (int i = 0; i < 3; ++i) context.render(image, bounds, target);
  const int before = allocations;
  EXPECT_TRUE(context.render(image, bounds, target));
  EXPECT_EQ(allocations - before, 0);
}

}  // namespace
}  // namespace kestrel
