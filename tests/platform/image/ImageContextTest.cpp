#include <gtest/gtest.h>
#include <kestrel/FilterRegistry.h>
#include <kestrel/ImageContext.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <numbers>
#include <thread>

#include "tests/platform/image/ReferenceEvaluator.h"
#include "tests/platform/image/TestPictures.h"

namespace kestrel {
namespace {

using test::largestError;
using test::makeBitmap;
using test::noise;
using test::over;
using test::Pixel;
using test::pixelAt;

using ImagePointer = std::shared_ptr<const Image>;

std::shared_ptr<const BitmapImage> rendered(const ImagePointer& image, const Rect& rect) {
  return ImageContext().bitmapImage(image, rect);
}

void expectSame(const BitmapImage& a, const BitmapImage& b) {
  ASSERT_EQ(a.width(), b.width());
  ASSERT_EQ(a.height(), b.height());
  for (int y = 0; y < a.height(); ++y)
    ASSERT_EQ(std::memcmp(a.row(y), b.row(y), static_cast<size_t>(a.width()) * 4), 0)
        << "row " << y;
}

TEST(ImageContextTest, PictureArrivesByteForByte) {
  const auto bitmap = noise(37, 23, 1, Image::Alpha::kStraight, 12);
  expectSame(*rendered(Image::fromBitmap(bitmap), {{0, 0}, {37, 23}}), *bitmap);
}

TEST(ImageContextTest, OpaquePictureOverBlackArrivesByteForByte) {
  const auto bitmap = noise(37, 23, 1);
  const ImagePointer image =
      over(Image::fromBitmap(bitmap, Image::Alpha::kOpaque), Image::fromColor(Color::black()))
          ->cropped({{0, 0}, {37, 23}});
  expectSame(*rendered(image, image->extent()), *bitmap);
}

TEST(ImageContextTest, FourthByteOfAnOpaquePictureHasNoMeaning) {
  const auto bitmap = makeBitmap(5, 2, [](int x, int) -> Pixel {
    return {10, 20, 30, static_cast<uint8_t>(x * 7)};
  });
  const ImagePointer image = Image::fromBitmap(bitmap, Image::Alpha::kOpaque);
  EXPECT_EQ(pixelAt(*rendered(image, image->extent()), 1, 1), (Pixel{10, 20, 30, 255}));
  EXPECT_EQ(pixelAt(*rendered(image->scaled(2, 2), {{0, 0}, {10, 4}}), 1, 1),
            (Pixel{10, 20, 30, 255}));
}

TEST(ImageContextTest, LowerLeftCornerIsTheOrigin) {
  const auto bitmap = makeBitmap(2, 2, [](int x, int y) -> Pixel {
    return {static_cast<uint8_t>(x), static_cast<uint8_t>(y), 0, 255};
  });
  // The pixel from (0, 0) is the left one of the last row in memory.
  EXPECT_EQ(pixelAt(*rendered(Image::fromBitmap(bitmap), {{0, 0}, {1, 1}}), 0, 0),
            (Pixel{0, 1, 0, 255}));
}

TEST(ImageContextTest, OutsideIsTransparentBlack) {
  const ImagePointer image = Image::fromBitmap(noise(3, 3, 1))->translated(-1, 5);
  const auto result = rendered(image, {{-2, 4}, {5, 5}});
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(pixelAt(*result, i, 0), (Pixel{0, 0, 0, 0}));
    EXPECT_EQ(pixelAt(*result, 0, i), (Pixel{0, 0, 0, 0}));
    EXPECT_EQ(pixelAt(*result, 4, i), (Pixel{0, 0, 0, 0}));
  }
  EXPECT_EQ(pixelAt(*result, 1, 1)[3], 255);
}

TEST(ImageContextTest, WritesNothingBesideThePicture) {
  std::vector<uint8_t> pixels(20 * 4, 77);
  const ImagePointer image = Image::fromColor(Color::white());
  ASSERT_TRUE(ImageContext().render(image, {{0, 0}, {3, 2}}, pixels.data(), 20));
  EXPECT_EQ(pixels[11], 255);
  for (int i = 12; i < 20; ++i) EXPECT_EQ(pixels[static_cast<size_t>(i)], 77);
  for (size_t i = 40; i < pixels.size(); ++i) EXPECT_EQ(pixels[i], 77);
}

TEST(ImageContextTest, BoundsCoverWholePixels) {
  const auto result = rendered(Image::fromColor(Color::white()), {{0.5, 0.5}, {2, 1.2}});
  EXPECT_EQ(result->width(), 3);
  EXPECT_EQ(result->height(), 2);
}

TEST(ImageContextTest, NoImageIsTransparent) {
  EXPECT_EQ(pixelAt(*rendered(nullptr, {{0, 0}, {2, 2}}), 1, 1), (Pixel{0, 0, 0, 0}));
}

TEST(ImageContextTest, ImpossiblePicturesAreRefused) {
  const ImagePointer image = Image::fromColor(Color::white());
  uint8_t pixel[4] = {1, 2, 3, 4};
  const ImageContext context;
  EXPECT_FALSE(context.render(image, {}, pixel, 4));
  EXPECT_FALSE(context.render(image, Rect::infinite(), pixel, 4));
  EXPECT_FALSE(context.render(image, {{0, 0}, {1, 1}}, nullptr, 4));
  EXPECT_FALSE(context.render(image, {{0, 0}, {2, 1}}, pixel, 4));
  EXPECT_FALSE(context.render(image, {{0, 0}, {32769, 1}}, pixel, 32769 * 4));
  EXPECT_FALSE(context.render(image, {{std::nan(""), 0}, {1, 1}}, pixel, 4));
  EXPECT_FALSE(context.render(image, {{1e12, 0}, {1, 1}}, pixel, 4));
  EXPECT_EQ(pixel[0], 1);
}

TEST(ImageContextTest, QuarterTurnsKeepPixels) {
  const auto bitmap = noise(7, 5, 3, Image::Alpha::kStraight);
  const ImagePointer image = Image::fromBitmap(bitmap);
  for (const double degrees : {90.0, 180.0, 270.0}) {
    const ImagePointer turned =
        image->transformed(AffineTransform::rotation(degrees * std::numbers::pi / 180));
    const auto result = rendered(turned, turned->extent());
    const bool isUpright = degrees == 180;
    ASSERT_EQ(result->width(), isUpright ? 7 : 5);
    for (int y = 0; y < 5; ++y) {
      for (int x = 0; x < 7; ++x) {
        // Counter-clockwise, with y counted from the top.
        const Pixel there = degrees == 90    ? pixelAt(*result, y, 6 - x)
                            : degrees == 180 ? pixelAt(*result, 6 - x, 4 - y)
                                             : pixelAt(*result, 4 - y, x);
        const Pixel here = pixelAt(*bitmap, x, y);
        ASSERT_EQ(there[3], here[3]);
        // Colours that alpha all but hides cannot be kept to the byte.
        if (here[3] >= 128) {
          ASSERT_EQ(there, here) << degrees << " " << x << " " << y;
        }
      }
    }
  }
}

TEST(ImageContextTest, OpaquePicturesAreTurnedAndMirroredWithoutLoss) {
  const auto bitmap = noise(301, 203, 3);
  const ImagePointer image =
      Image::fromBitmap(bitmap, Image::Alpha::kOpaque)->translated(-150.5, -101.5);
  const ImagePointer turned = image->transformed(AffineTransform::rotation(std::numbers::pi / 2))
                                  ->transformed(AffineTransform::rotation(std::numbers::pi))
                                  ->scaled(-1, 1)
                                  ->translated(101.5, 150.5);
  const auto result = rendered(turned, {{0, 0}, {203, 301}});
  for (int y = 0; y < 203; ++y) {
    for (int x = 0; x < 301; ++x) {
      // Turned by three quarters and mirrored, columns have become rows.
      ASSERT_EQ(pixelAt(*result, y, x), pixelAt(*bitmap, x, y)) << x << " " << y;
    }
  }
}

TEST(ImageContextTest, HalfTurnEqualsBothMirrors) {
  const ImagePointer image =
      Image::fromBitmap(noise(33, 21, 9), Image::Alpha::kOpaque)->translated(-16.5, -10.5);
  const Rect view{{-17, -11}, {34, 22}};
  expectSame(*rendered(image->transformed(AffineTransform::rotation(std::numbers::pi)), view),
             *rendered(image->scaled(-1, -1), view));
}

TEST(ImageContextTest, FittedPictureLiesOnExactlyItsPixels) {
  // 720 x 576 into 1280 x 720: 900 x 720 from x = 190.
  const auto white = makeBitmap(720, 576, [](int, int) -> Pixel { return {255, 255, 255, 255}; });
  const float scale = 720.0f / 576.0f;
  const ImagePointer fitted = Image::fromBitmap(white, Image::Alpha::kOpaque)
                                  ->translated(-360, -288)
                                  ->scaled(scale, scale)
                                  ->translated(640, 360);
  const auto result =
      rendered(over(fitted, Image::fromColor(Color::black())), {{0, 0}, {1280, 720}});
  for (const int y : {0, 359, 719}) {
    EXPECT_EQ(pixelAt(*result, 189, y), (Pixel{0, 0, 0, 255}));
    EXPECT_EQ(pixelAt(*result, 190, y), (Pixel{255, 255, 255, 255}));
    EXPECT_EQ(pixelAt(*result, 1089, y), (Pixel{255, 255, 255, 255}));
    EXPECT_EQ(pixelAt(*result, 1090, y), (Pixel{0, 0, 0, 255}));
  }
}

TEST(ImageContextTest, RoundedScaleLeavesNoRim) {
  // 853 / 1920 in single precision is not the exact ratio.
  const auto white = makeBitmap(1920, 64, [](int, int) -> Pixel { return {255, 255, 255, 255}; });
  const auto scale = static_cast<double>(853.0f / 1920.0f);
  const ImagePointer image = Image::fromBitmap(white)->translated(-960, 0)->scaled(scale, 1);
  const auto result = rendered(image->translated(426.5, 0), {{0, 0}, {853, 64}});
  EXPECT_EQ(pixelAt(*result, 0, 9), (Pixel{255, 255, 255, 255}));
  EXPECT_EQ(pixelAt(*result, 852, 9), (Pixel{255, 255, 255, 255}));
}

TEST(ImageContextTest, HalvingAveragesFourPixels) {
  const auto bitmap = makeBitmap(2, 2, [](int x, int y) -> Pixel {
    return {static_cast<uint8_t>(100 * x + 40 * y), 0, 0, 255};
  });
  EXPECT_EQ(pixelAt(*rendered(Image::fromBitmap(bitmap)->scaled(0.5, 0.5), {{0, 0}, {1, 1}}), 0, 0),
            (Pixel{70, 0, 0, 255}));
}

TEST(ImageContextTest, TransparentPixelsDoNotColorTheirNeighbours) {
  const auto bitmap = makeBitmap(2, 1, [](int x, int) -> Pixel {
    return x == 0 ? Pixel{200, 40, 0, 255} : Pixel{0, 255, 255, 0};
  });
  EXPECT_EQ(pixelAt(*rendered(Image::fromBitmap(bitmap)->scaled(0.5, 1), {{0, 0}, {1, 1}}), 0, 0),
            (Pixel{200, 40, 0, 128}));
}

TEST(ImageContextTest, CroppedAwayPixelsDoNotBleedIn) {
  const auto bitmap = makeBitmap(4, 4, [](int, int y) -> Pixel {
    return y == 0 ? Pixel{255, 255, 255, 255} : Pixel{50, 50, 50, 255};
  });
  const ImagePointer image = Image::fromBitmap(bitmap)->cropped({{0, 0}, {4, 3}})->scaled(3, 3);
  EXPECT_EQ(pixelAt(*rendered(image, {{0, 0}, {12, 9}}), 6, 0), (Pixel{50, 50, 50, 255}));
}

TEST(ImageContextTest, BorderThroughPixelsCoversThemInPart) {
  const ImagePointer image = Image::fromColor(Color::white())->cropped({{0.25, 0}, {1, 0.5}});
  const auto result = rendered(image, {{0, 0}, {2, 1}});
  EXPECT_EQ(pixelAt(*result, 0, 0)[3], 96);  // 3/4 × 1/2
  EXPECT_EQ(pixelAt(*result, 1, 0)[3], 32);  // 1/4 × 1/2
}

TEST(ImageContextTest, SmallAnglesAndShiftsMatchThePlainEvaluator) {
  const ImagePointer image = Image::fromBitmap(noise(300, 200, 5), Image::Alpha::kOpaque);
  for (const double degrees : {0.1, 0.01, -0.1, 89.9}) {
    const ImagePointer turned =
        image->transformed(AffineTransform::rotation(degrees * std::numbers::pi / 180));
    EXPECT_LE(largestError(turned, {{150, 100}, {90, 40}}), 1.0) << degrees;
  }
  EXPECT_LE(largestError(image->translated(0.37, -0.81), {{-2, -2}, {60, 40}}), 1.0);
}

TEST(ImageContextTest, ManyFoldReductionMatchesThePlainEvaluator) {
  const ImagePointer image = Image::fromBitmap(noise(1500, 900, 5), Image::Alpha::kOpaque);
  EXPECT_LE(largestError(image->scaled(0.011, 0.017), {{-1, -1}, {19, 18}}), 1.0);
  const ImagePointer turned = image->transformed(AffineTransform::rotation(0.4).scaled(0.02, 0.02));
  EXPECT_LE(largestError(turned, {{-9, -1}, {40, 32}}), 1.0);
}

TEST(ImageContextTest, GiantPictureIsRendered) {
  constexpr int kSide = 8192;
  const auto bitmap = makeBitmap(kSide, kSide, [](int x, int y) -> Pixel {
    return {static_cast<uint8_t>(x >> 5), static_cast<uint8_t>(y >> 5), 9, 255};
  });
  const ImagePointer image = Image::fromBitmap(bitmap, Image::Alpha::kOpaque);
  const auto small = rendered(image->scaled(1 / 32.0, 1 / 32.0), {{0, 0}, {256, 256}});
  for (const int i : {0, 100, 255})
    EXPECT_EQ(pixelAt(*small, i, i),
              (Pixel{static_cast<uint8_t>(i), static_cast<uint8_t>(i), 9, 255}));
  const ImagePointer turned =
      image->translated(-kSide / 2, -kSide / 2)
          ->transformed(AffineTransform::rotation(0.1 * std::numbers::pi / 180))
          ->translated(kSide / 2, kSide / 2);
  EXPECT_LE(largestError(turned, {{8100, 40}, {40, 20}}), 1.0);
  EXPECT_LE(largestError(turned, {{4000, 4100}, {40, 20}}), 1.0);
}

TEST(ImageContextTest, AnyNumberOfThreadsGivesTheSameBytes) {
  const ImagePointer photo = Image::fromBitmap(noise(640, 360, 5), Image::Alpha::kOpaque);
  const ImagePointer mark = Image::fromBitmap(noise(50, 40, 6, Image::Alpha::kStraight));
  const ImagePointer recipes[] = {
      over(mark->translated(30, 9), photo->scaled(0.7, 0.7)),
      over(photo->transformed(AffineTransform::rotation(0.1)), Image::fromColor(Color::black())),
      over(mark, photo)->transformed(AffineTransform::rotation(1)),
  };
  for (const ImagePointer& image : recipes) {
    ImageContext context;
    context.setThreads(1);
    const auto expected = context.bitmapImage(image, {{-20, -20}, {500, 300}});
    for (const int threads : {2, 3, 8}) {
      context.setThreads(threads);
      expectSame(*context.bitmapImage(image, {{-20, -20}, {500, 300}}), *expected);
    }
  }
}

TEST(ImageContextTest, PartOfThePictureIsThatPartOfTheWhole) {
  const ImagePointer image =
      over(Image::fromBitmap(noise(200, 150, 5), Image::Alpha::kOpaque)
               ->transformed(AffineTransform::rotation(0.3).scaled(0.8, 1.1)),
           Image::fromBitmap(noise(90, 90, 6), Image::Alpha::kOpaque)->scaled(2.3, 1.9));
  const auto whole = rendered(image, {{0, 0}, {200, 160}});
  const auto part = rendered(image, {{61, 47}, {77, 31}});
  for (int y = 0; y < 31; ++y) {
    for (int x = 0; x < 77; ++x) {
      // Only rounding may differ: positions count from the corner of the piece.
      for (size_t c = 0; c < 4; ++c)
        ASSERT_NEAR(pixelAt(*part, x, y)[c], pixelAt(*whole, 61 + x, 160 - 47 - 31 + y)[c], 1);
    }
  }
}

TEST(ImageContextTest, SeveralThreadsShareAContext) {
  const ImageContext context;
  const ImagePointer image =
      Image::fromBitmap(noise(120, 90, 5), Image::Alpha::kOpaque)->scaled(1.7, 0.6);
  const auto expected = context.bitmapImage(image, image->extent());
  std::vector<std::jthread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 20; ++i)
        expectSame(*context.bitmapImage(image, image->extent()), *expected);
    });
  }
}

TEST(ImageContextTest, ThreadsAreLimited) {
  ImageContext context;
  EXPECT_EQ(context.threads(), 0);
  context.setThreads(3);
  EXPECT_EQ(context.threads(), 3);
  context.setThreads(-5);
  EXPECT_EQ(context.threads(), 0);
  context.setThreads(100000);
  EXPECT_LE(context.threads(), 64);
}

TEST(ImageContextTest, BorrowedBitmapShowsWhatItHoldsWhenRendered) {
  std::vector<uint8_t> memory(4, 10);
  const ImagePointer image = Image::fromBitmap(BitmapImage::borrowing(memory.data(), 1, 1, 4));
  memory[0] = 99;
  EXPECT_EQ(pixelAt(*rendered(image, image->extent()), 0, 0)[0], 99);
}

TEST(SourceOverTest, BlendsByAlpha) {
  const ImagePointer front = Image::fromColor({1, 0, 0, 0.25});
  EXPECT_EQ(pixelAt(*rendered(over(front, Image::fromColor({0, 0, 1, 1})), {{0, 0}, {1, 1}}), 0, 0),
            (Pixel{64, 0, 191, 255}));
  // Half of red over half of blue: alpha 5/8; red 1/4, blue 3/8 of it.
  const ImagePointer both = over(front, Image::fromColor({0, 0, 1, 0.5}));
  EXPECT_EQ(pixelAt(*rendered(both, {{0, 0}, {1, 1}}), 0, 0), (Pixel{102, 0, 153, 159}));
}

TEST(SourceInTest, KeepsTheInputWhereTheBackgroundIs) {
  const auto filter = FilterRegistry::filterWithName("CISourceInCompositing");
  filter->setValue(Image::fromColor({1, 1, 0, 0.8}), kCIInputImageKey);
  filter->setValue(Image::fromColor({0, 0, 1, 0.5})->cropped({{0, 0}, {1, 1}}),
                   kCIInputBackgroundImageKey);
  const auto result = rendered(filter->outputImage(), {{0, 0}, {2, 1}});
  EXPECT_EQ(pixelAt(*result, 0, 0), (Pixel{255, 255, 0, 102}));
  EXPECT_EQ(pixelAt(*result, 1, 0), (Pixel{0, 0, 0, 0}));
}

}  // namespace
}  // namespace kestrel
