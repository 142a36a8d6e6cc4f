// Random recipes, rendered by the engine and by the plain evaluator.

#include <gtest/gtest.h>
#include <kestrel/FilterRegistry.h>
#include <kestrel/ImageContext.h>

#include <cmath>
#include <numbers>
#include <random>

#include "tests/platform/image/ReferenceEvaluator.h"
#include "tests/platform/image/TestPictures.h"

namespace kestrel {
namespace {

using test::largestError;
using test::noise;

using ImagePointer = std::shared_ptr<const Image>;

constexpr Rect kView{{-9, -7}, {37, 31}};

class RandomRecipes {
 public:
  explicit RandomRecipes(uint32_t seed) : random_(seed) {}

  ImagePointer make(int steps) {
    ImagePointer image = leaf();
    for (int i = 0; i < steps; ++i) image = step(image);
    return image;
  }

  const std::string& said() const { return said_; }

 private:
  double number(double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random_);
  }
  int whole(int low, int high) { return std::uniform_int_distribution<int>(low, high)(random_); }
  void say(const std::string& what) { said_ += what + "; "; }

  ImagePointer leaf() {
    const int kind = whole(0, 5);
    if (kind == 0) {
      say("color");
      return Image::fromColor({number(0, 1), number(0, 1), number(0, 1), number(0, 1)});
    }
    const auto alpha = kind < 3 ? Image::Alpha::kStraight : Image::Alpha::kOpaque;
    const int width = whole(1, 33);
    const int height = whole(1, 29);
    say("bitmap " + std::to_string(width) + "x" + std::to_string(height) +
        (kind < 3 ? " alpha" : " opaque"));
    return Image::fromBitmap(
        noise(width, height, static_cast<uint32_t>(random_()), alpha, 4 * whole(0, 2)), alpha);
  }

  AffineTransform transform() {
    const double angles[] = {0.1, 7, 90, 180, 270, 45, -33};
    switch (whole(0, 6)) {
      case 0:
        return AffineTransform::translation(whole(-9, 9), whole(-9, 9));
      case 1:
        return AffineTransform::translation(number(-9, 9), number(-9, 9));
      case 2:
        return AffineTransform::scale(number(0.35, 1), number(0.35, 1));
      case 3:
        return AffineTransform::scale(number(1, 3), -number(1, 3));
      case 4:
        return AffineTransform::scale(whole(0, 1) ? 1 : -1, whole(0, 1) ? 1 : -1);
      case 5:
        return AffineTransform::rotation(angles[whole(0, 6)] * std::numbers::pi / 180)
            .concat(AffineTransform::translation(number(0, 20), number(0, 20)));
      default:
        // A turn, a stretch and a skew that does not flatten.
        return AffineTransform::scale(number(0.3, 2), number(0.3, 2))
            .concat({1, number(-0.6, 0.6), number(-0.6, 0.6), 1, number(0, 20), number(0, 20)});
    }
  }

  ImagePointer step(const ImagePointer& image) {
    switch (whole(0, 7)) {
      case 0: {
        const Rect rect{{number(-9, 12), number(-9, 12)}, {number(1, 30), number(1, 30)}};
        say("crop");
        return image->cropped(whole(0, 1) ? integral(rect) : rect);
      }
      case 1:
      case 2:
      case 3: {
        const AffineTransform t = transform();
        say("transform " + std::to_string(t.a) + " " + std::to_string(t.b) + " " +
            std::to_string(t.c) + " " + std::to_string(t.d) + " " + std::to_string(t.tx) + " " +
            std::to_string(t.ty));
        return image->transformed(t);
      }
      case 4:
      case 5:
        return colored(image);
      default:
        return composed(image);
    }
  }

  ImagePointer colored(const ImagePointer& image) {
    const char* const names[] = {"CIColorControls", "CIHueAdjust", "CIExposureAdjust",
                                 "CIColorInvert",   "CISepiaTone", "CIColorMonochrome"};
    const auto filter = FilterRegistry::filterWithName(names[whole(0, 5)]);
    say(filter->name());
    filter->setValue(number(0, 2), kCIInputSaturationKey);
    filter->setValue(number(-0.3, 0.3), kCIInputBrightnessKey);
    filter->setValue(number(0.5, 1.7), kCIInputContrastKey);
    filter->setValue(number(-3, 3), kCIInputAngleKey);
    filter->setValue(number(-1, 1), kCIInputEVKey);
    filter->setValue(number(0, 1), kCIInputIntensityKey);
    filter->setValue(image, kCIInputImageKey);
    return filter->outputImage();
  }

  ImagePointer composed(const ImagePointer& image) {
    const auto filter = FilterRegistry::filterWithName(whole(0, 2) ? "CISourceOverCompositing"
                                                                   : "CISourceInCompositing");
    say("(");
    ImagePointer other = leaf();
    if (whole(0, 1)) other = step(other);
    say(") " + filter->name());
    const bool isFront = whole(0, 1);
    filter->setValue(image, isFront ? kCIInputImageKey : kCIInputBackgroundImageKey);
    filter->setValue(other, isFront ? kCIInputBackgroundImageKey : kCIInputImageKey);
    return filter->outputImage();
  }

  std::mt19937 random_;
  std::string said_;
};

class RandomRecipeTest : public testing::TestWithParam<uint32_t> {};

TEST_P(RandomRecipeTest, LooksAsThePlainEvaluatorHasIt) {
  for (uint32_t i = 0; i < 200; ++i) {
    RandomRecipes recipes(GetParam() * 1000 + i);
    const ImagePointer image = recipes.make(static_cast<int>(i % 7));
    ASSERT_LE(largestError(image, kView), 1.0) << "recipe " << i << ": " << recipes.said();
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomRecipeTest, testing::Range(1u, 21u));

}  // namespace
}  // namespace kestrel
