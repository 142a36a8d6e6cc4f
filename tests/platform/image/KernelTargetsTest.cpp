// Every instruction set that the kernels are compiled for makes the same pictures.

#include <gtest/gtest.h>
#include <kestrel/FilterRegistry.h>
#include <kestrel/ImageContext.h>

#include <cstdlib>

#include "platform/image/kernels/KernelTargets.h"
// After the choice of targets.
#include <hwy/highway.h>

#include "tests/platform/image/ReferenceEvaluator.h"
#include "tests/platform/image/TestPictures.h"

namespace kestrel {
namespace {

using test::noise;

using ImagePointer = std::shared_ptr<const Image>;

constexpr Rect kView{{-3, -2}, {91, 67}};

/// Has the kernels use one instruction set until it goes away.
class OnlyTarget {
 public:
  explicit OnlyTarget(int64_t target) { hwy::GetChosenTarget().Update(target); }
  ~OnlyTarget() { hwy::GetChosenTarget().Update(hwy::SupportedTargets()); }
  OnlyTarget(const OnlyTarget&) = delete;
  OnlyTarget& operator=(const OnlyTarget&) = delete;
};

ImagePointer filtered(const char* name, const ImagePointer& input,
                      const ImagePointer& background = nullptr) {
  const auto filter = FilterRegistry::filterWithName(name);
  filter->setValue(input, kCIInputImageKey);
  filter->setValue(4.0, kCIInputRadiusKey);
  filter->setValue(Vector(20, 10), kCIInputCenterKey);
  if (background) filter->setValue(background, kCIInputBackgroundImageKey);
  return filter->outputImage();
}

std::vector<ImagePointer> recipes() {
  const ImagePointer opaque = Image::fromBitmap(noise(71, 53, 1), Image::Alpha::kOpaque);
  const ImagePointer straight = Image::fromBitmap(noise(67, 41, 2, Image::Alpha::kStraight));
  static const auto planes = noise(40, 50, 3);
  YUVPicture picture;
  picture.format.width = 61;
  picture.format.height = 43;
  picture.planes[0] = {planes->pixels(), 100, 1};
  picture.planes[1] = {planes->pixels() + 4300, 50, 1};
  picture.planes[2] = {planes->pixels() + 5500, 50, 1};
  std::vector<ImagePointer> all = {
      straight->scaled(0.61, 0.37),
      opaque->scaled(1.31, 1.27),
      opaque->scaled(0.07, 0.09),
      opaque->transformed(AffineTransform::rotation(0.3)),
      filtered("CISepiaTone", opaque->transformed(AffineTransform::rotation(0.3))),
      Image::fromPlanes(picture)->transformed(AffineTransform::rotation(0.1).scaled(0.7, 0.8)),
      straight->transformed(AffineTransform::rotation(0.3).scaled(0.6, 0.7)),
      opaque->transformed({0, 1, -1, 0, 60, 0}),
      filtered("CISepiaTone", straight),
      filtered("CISourceOverCompositing", straight->translated(5.5, 3), opaque),
      filtered("CISourceInCompositing", opaque, straight),
      Image::fromPlanes(picture)->scaled(1.2, 0.7),
  };
  for (const char* const name : {"CIGaussianBlur", "CISharpenLuminance", "CIBloom", "CIGloom",
                                 "CISpotLight", "CILineScreen", "CIHexagonalPixellate"})
    all.push_back(filtered(name, straight));
  return all;
}

TEST(KernelTargetsTest, AllMakeThePictureOfThePlainEvaluator) {
  const auto targets = hwy::SupportedAndGeneratedTargets();
  EXPECT_GE(targets.size(), 1u);
  const auto all = recipes();
  for (const int64_t target : targets) {
    const OnlyTarget only(target);
    for (size_t i = 0; i < all.size(); ++i)
      EXPECT_LE(test::largestError(all[i], kView), 1.0) << hwy::TargetName(target) << " " << i;
  }
}

TEST(KernelTargetsTest, PlainCodeIsAmongThem) {
  const auto targets = hwy::SupportedAndGeneratedTargets();
  EXPECT_NE(std::find(targets.begin(), targets.end(), HWY_EMU128), targets.end());
}

}  // namespace
}  // namespace kestrel
