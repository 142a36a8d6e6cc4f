// What a recipe becomes before a pixel is touched.

#include "platform/image/plan/Planner.h"

#include <gtest/gtest.h>
#include <kestrel/FilterRegistry.h>

#include <numbers>

#include "platform/image/layers/CompositeLayers.h"
#include "tests/platform/image/TestPictures.h"

namespace kestrel {
namespace {

using ImagePointer = std::shared_ptr<const Image>;

class PlannerTest : public testing::Test {
 protected:
  const Layer* plan(const ImagePointer& image, const IntRect& needed = {0, 0, 64, 48}) {
    return planner_.plan(*image->node(), needed);
  }

  template <typename Kind>
  const Kind* planned(const ImagePointer& image) {
    return dynamic_cast<const Kind*>(plan(image));
  }

  static ImagePointer filtered(const char* name, const ImagePointer& input,
                               const ImagePointer& background = nullptr) {
    const auto filter = FilterRegistry::filterWithName(name);
    filter->setValue(input, kCIInputImageKey);
    if (background) filter->setValue(background, kCIInputBackgroundImageKey);
    return filter->outputImage();
  }
  static ImagePointer over(const ImagePointer& front, const ImagePointer& behind) {
    return filtered("CISourceOverCompositing", front, behind);
  }

  Arena arena_;
  std::vector<const Pass*> passes_;
  TapsStore taps_;
  Planner planner_{arena_, taps_, passes_};
  ImagePointer photo_ = Image::fromBitmap(test::noise(64, 48, 1), Image::Alpha::kOpaque);
  ImagePointer mark_ = Image::fromBitmap(test::noise(10, 8, 2, Image::Alpha::kStraight));
  ImagePointer black_ = Image::fromColor(Color::black());
};

TEST_F(PlannerTest, TransformsBecomeOneResampling) {
  const ImagePointer image = photo_->translated(-32, -24)
                                 ->scaled(0.5, 0.5)
                                 ->cropped({{-10, -10}, {20, 20}})
                                 ->scaled(3, 3)
                                 ->translated(30, 30);
  EXPECT_TRUE(planned<ScaleLayer>(image));
  EXPECT_TRUE(passes_.empty());
}

TEST_F(PlannerTest, TransformsThatCancelBecomeACopy) {
  const ImagePointer image = photo_->transformed(AffineTransform::rotation(0.7))
                                 ->scaled(2, 2)
                                 ->scaled(0.5, 0.5)
                                 ->transformed(AffineTransform::rotation(-0.7));
  EXPECT_TRUE(planned<CopyLayer>(image));
}

TEST_F(PlannerTest, TwoHalfTurnsAreNoResampling) {
  const double pi = std::numbers::pi;
  EXPECT_TRUE(planned<CopyLayer>(photo_->transformed(AffineTransform::rotation(pi))
                                     ->transformed(AffineTransform::rotation(pi))));
}

TEST_F(PlannerTest, ColorMatricesJoinTheResampling) {
  const ImagePointer image =
      filtered("CIColorInvert", filtered("CISepiaTone", photo_->scaled(0.5, 0.5)));
  EXPECT_TRUE(planned<ScaleLayer>(image));
}

TEST_F(PlannerTest, TurnByAnAngleIsOneLayer) {
  EXPECT_TRUE(planned<TurnLayer>(
      filtered("CIColorInvert", photo_->transformed(AffineTransform::rotation(0.1)))));
}

TEST_F(PlannerTest, OpaquePictureHidesItsBackground) {
  EXPECT_TRUE(planned<CopyLayer>(over(photo_, black_)->cropped({{0, 0}, {64, 48}})));
}

TEST_F(PlannerTest, PictureThatMayBeTransparentDoesNot) {
  EXPECT_TRUE(planned<OverLayer>(over(mark_, photo_)));
}

TEST_F(PlannerTest, PictureBesideTheViewIsLeftOut) {
  EXPECT_TRUE(planned<CopyLayer>(over(mark_->translated(500, 0), photo_)));
  EXPECT_TRUE(planned<CopyLayer>(over(photo_->cropped({}), photo_)));
}

TEST_F(PlannerTest, NothingInViewIsNoLayer) {
  EXPECT_FALSE(plan(photo_->translated(100, 0)));
  EXPECT_FALSE(plan(filtered("CISourceInCompositing", photo_, mark_->translated(80, 0))));
}

TEST_F(PlannerTest, LayerCoversOnlyWhatIsNeeded) {
  EXPECT_EQ(plan(photo_->translated(-5, 40))->bounds(), (IntRect{0, 40, 59, 48}));
}

TEST_F(PlannerTest, TurnedCompositeIsComputedFirst) {
  EXPECT_TRUE(planned<TurnLayer>(over(mark_, photo_)->transformed(AffineTransform::rotation(0.1))));
  EXPECT_EQ(passes_.size(), 1u);
}

TEST_F(PlannerTest, MovedCompositeIsNot) {
  EXPECT_TRUE(plan(over(mark_, photo_)->translated(3, 4)));
  EXPECT_TRUE(passes_.empty());
}

TEST_F(PlannerTest, MaskThatIsOpaqueVanishes) {
  EXPECT_TRUE(planned<CopyLayer>(filtered("CISourceInCompositing", photo_, photo_)));
}

}  // namespace
}  // namespace kestrel
