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

/// Planes of 4:2:0 with noise, and what the picture of them refers to.
struct NoisePlanes {
  NoisePlanes(int width, int height, uint32_t seed)
      : samples(noise(width, height, seed)), picture{{}, {}, samples} {
    picture.format.width = width;
    picture.format.height = height;
    const ptrdiff_t chroma = (width + 1) / 2;
    const uint8_t* const y = samples->pixels();
    const uint8_t* const cb = y + ptrdiff_t{width} * height;
    picture.planes[0] = {y, width, 1};
    picture.planes[1] = {cb, chroma, 1};
    picture.planes[2] = {cb + chroma * ((height + 1) / 2), chroma, 1};
  }

  std::shared_ptr<const BitmapImage> samples;
  YUVPicture picture;
};

class LargeTurnTest : public testing::TestWithParam<uint32_t> {};

// Pictures so large that most of what is shown lies far from their borders.
TEST_P(LargeTurnTest, LooksAsThePlainEvaluatorHasIt) {
  std::mt19937 random(GetParam());
  const auto number = [&](double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random);
  };
  constexpr int kWidth = 613;
  constexpr int kHeight = 477;
  const ImagePointer sources[] = {
      Image::fromBitmap(noise(kWidth, kHeight, 1), Image::Alpha::kOpaque),
      Image::fromBitmap(noise(kWidth, kHeight, 2, Image::Alpha::kStraight),
                        Image::Alpha::kStraight),
      Image::fromPlanes(NoisePlanes(kWidth, kHeight, 3).picture)};
  for (int i = 0; i < 4; ++i) {
    const AffineTransform map =
        AffineTransform::translation(-kWidth / 2.0 + number(-1, 1), -kHeight / 2.0)
            .concat(AffineTransform::rotation(number(-3.2, 3.2)))
            .concat(AffineTransform::scale(number(0.3, 1.7), number(0.3, 1.7)))
            .concat(AffineTransform::translation(75, 50));
    for (const ImagePointer& source : sources) {
      ImagePointer image = source->transformed(map);
      if (i % 2 == 1) {
        const auto filter = FilterRegistry::filterWithName("CIColorControls");
        filter->setValue(1.4, kCIInputSaturationKey);
        filter->setValue(image, kCIInputImageKey);
        image = filter->outputImage();
      }
      ASSERT_LE(largestError(image, {{0, 0}, {150, 99}}), 1.0)
          << "picture " << &source - sources << ", map " << map.a << " " << map.b << " " << map.c
          << " " << map.d;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, LargeTurnTest, testing::Range(1u, 9u));

INSTANTIATE_TEST_SUITE_P(Seeds, RandomRecipeTest, testing::Range(1u, 21u));

}  // namespace
}  // namespace kestrel
