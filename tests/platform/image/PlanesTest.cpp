// Pictures in planes of luma and chroma, read and written.

#include <gtest/gtest.h>
#include <kestrel/FilterRegistry.h>
#include <kestrel/ImageContext.h>

#include <algorithm>
#include <cmath>

#include "tests/platform/image/ReferenceEvaluator.h"
#include "tests/platform/image/TestPictures.h"
#include "tests/platform/image/TestPlanes.h"

namespace kestrel {
namespace {

using test::chromaHeight;
using test::chromaWidth;
using test::evaluate;
using test::formatOf;
using test::largestError;
using test::Pixel;
using test::pixelAt;
using test::Planes;

using ImagePointer = std::shared_ptr<const Image>;

struct Layout {
  const char* name;
  YUVFormat format;
  bool isPaired = false;
  bool hasAlpha = false;
};

constexpr YUVFormat placed(YUVFormat format, double chromaX, double chromaY) {
  format.chromaX = chromaX;
  format.chromaY = chromaY;
  return format;
}

const Layout kLayouts[] = {
    {"420", formatOf(38, 26, 1, 1)},
    {"420odd", formatOf(37, 25, 1, 1)},
    {"nv12", formatOf(38, 26, 1, 1), true},
    {"422", formatOf(37, 25, 1, 0)},
    {"444", formatOf(37, 25, 0, 0)},
    {"411", formatOf(37, 25, 2, 0)},
    {"420full", formatOf(38, 26, 1, 1, 8, 0, true)},
    {"420ten", formatOf(37, 25, 1, 1, 10)},
    {"p010", formatOf(38, 26, 1, 1, 10, 6), true},
    {"444twelvefull", formatOf(37, 25, 0, 0, 12, 0, true)},
    {"444sixteen", formatOf(37, 25, 0, 0, 16)},
    {"420centre", placed(formatOf(38, 26, 1, 1), 0.5, 0.5)},
    {"420upperleft", placed(formatOf(37, 25, 1, 1, 10), 0, 0)},
    {"420lower", placed(formatOf(38, 26, 1, 1), 0.5, 1)},
    {"420alpha", formatOf(37, 25, 1, 1), false, true},
    {"444tenalpha", formatOf(37, 25, 0, 0, 10), false, true},
    {"tiny", formatOf(1, 1, 1, 1)},
};

class PlanesLayoutTest : public testing::TestWithParam<Layout> {
 protected:
  PlanesLayoutTest() : planes_(GetParam().format, GetParam().isPaired, GetParam().hasAlpha) {
    planes_.fillWithNoise(7);
  }

  Planes planes_;
};

TEST_P(PlanesLayoutTest, IsReadAsThePlainEvaluatorHasIt) {
  const ImagePointer image = Image::fromPlanes(planes_.picture());
  const Rect view{{-2, -2}, {42, 30}};
  const bool isFine = GetParam().format.bitDepth > 8;
  EXPECT_LE(largestError(image, view, isFine), 1.0);
  EXPECT_LE(largestError(image->scaled(0.63, 0.41), view, isFine), 1.0);
  EXPECT_LE(largestError(image->scaled(2.3, 1.7), view, isFine), 1.0);
  EXPECT_LE(largestError(image->cropped({{5, 3}, {19, 11}})->scaled(-1.1, 0.9),
                         {{-30, 0}, {40, 20}}, isFine),
            1.0);
  EXPECT_LE(largestError(image->transformed(AffineTransform::rotation(0.2)), view, isFine), 1.0);
  EXPECT_LE(largestError(image->transformed({0, 1, -1, 0, 25, 0}), view, isFine), 1.0);
}

TEST_P(PlanesLayoutTest, IsWrittenByTheFormula) {
  if (GetParam().hasAlpha) GTEST_SKIP() << "alpha is not written";
  const YUVFormat& format = GetParam().format;
  const ImagePointer image =
      Image::fromBitmap(test::noise(format.width, format.height, 3), Image::Alpha::kOpaque);
  const Rect bounds{{0, 0},
                    {static_cast<double>(format.width), static_cast<double>(format.height)}};
  ASSERT_TRUE(ImageContext().render(image, bounds, planes_.target()));

  const double levels = std::exp2(format.bitDepth - 8);
  const double most = std::exp2(format.bitDepth) - 1;
  const auto component = [&](int c, int x, int row) {
    const auto s = evaluate(*image, std::clamp(x, 0, format.width - 1), format.height - 1 - row);
    const double y = format.kr * s.r + (1 - format.kr - format.kb) * s.g + format.kb * s.b;
    if (c == 0) return format.fullRange ? y * most : (16 + 219 * y) * levels;
    const double d = c == 1 ? (s.b - y) / (2 * (1 - format.kb)) : (s.r - y) / (2 * (1 - format.kr));
    return 128 * levels + d * (format.fullRange ? most : 224 * levels);
  };
  const auto expectNear = [&](size_t p, int x, int row, double exact) {
    const double step = std::max(1.0, levels / 8);
    ASSERT_NEAR(planes_.get(p, x, row), std::clamp(exact, 0.0, most), step)
        << "plane " << p << " at " << x << " " << row;
  };
  for (int row = 0; row < format.height; ++row) {
    for (int x = 0; x < format.width; ++x) expectNear(0, x, row, component(0, x, row));
  }
  for (int c = 1; c <= 2; ++c) {
    for (int row = 0; row < chromaHeight(format); ++row) {
      for (int x = 0; x < chromaWidth(format); ++x) {
        const int first = row << format.chromaShiftY;
        const int last = std::min(first + (1 << format.chromaShiftY), format.height);
        const int at = x << format.chromaShiftX;
        double sum = 0;
        for (int r = first; r < last; ++r) {
          const double here = component(c, at, r);
          const auto sides = [&](int apart) {
            return component(c, at - apart, r) + component(c, at + apart, r);
          };
          sum += format.chromaShiftX == 0   ? here
                 : format.chromaShiftX == 1 ? (6 * here + 2 * sides(1) - sides(2)) / 8
                                            : (2 * here + sides(1)) / 4;
        }
        expectNear(static_cast<size_t>(c), x, row, sum / (last - first));
      }
    }
  }
}

TEST_P(PlanesLayoutTest, PlainPlanesKeepTheirSamples) {
  if (GetParam().hasAlpha) GTEST_SKIP() << "alpha is not written";
  const YUVFormat& format = GetParam().format;
  const auto over = FilterRegistry::filterWithName("CISourceOverCompositing");
  over->setValue(Image::fromPlanes(planes_.picture()), kCIInputImageKey);
  over->setValue(Image::fromColor(Color::black()), kCIInputBackgroundImageKey);
  const Rect bounds{{0, 0},
                    {static_cast<double>(format.width), static_cast<double>(format.height)}};
  Planes out(format);
  ASSERT_TRUE(ImageContext().render(over->outputImage()->cropped(bounds), bounds, out.target()));
  for (size_t p = 0; p < 3; ++p) {
    const int width = p == 0 ? format.width : chromaWidth(format);
    const int height = p == 0 ? format.height : chromaHeight(format);
    for (int row = 0; row < height; ++row) {
      for (int x = 0; x < width; ++x) ASSERT_EQ(out.get(p, x, row), planes_.get(p, x, row));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Layouts, PlanesLayoutTest, testing::ValuesIn(kLayouts),
                         [](const auto& layout) { return std::string(layout.param.name); });

TEST(PlanesTest, ColorsAreThoseOfTheMatrix) {
  // Pure red of BT.709 in the limited range: Y = 16 + 219 × 0.2126 = 62.6, Cb = 102.3, Cr = 240.
  Planes planes(formatOf(2, 2, 1, 1));
  planes.fill(0, [](int, int) { return 63; });
  planes.fill(1, [](int, int) { return 102; });
  planes.fill(2, [](int, int) { return 240; });
  const ImagePointer image = Image::fromPlanes(planes.picture());
  const Pixel pixel = pixelAt(*ImageContext().bitmapImage(image, image->extent()), 1, 1);
  EXPECT_NEAR(pixel[0], 255, 1);
  EXPECT_NEAR(pixel[1], 0, 1);
  EXPECT_NEAR(pixel[2], 0, 1);
  EXPECT_EQ(pixel[3], 255);
}

TEST(PlanesTest, WithoutChromaIsGrey) {
  Planes planes(formatOf(3, 1, 1, 1));
  planes.fill(0, [](int x, int) { return x == 0 ? 16 : x == 1 ? 126 : 235; });
  YUVPicture picture = planes.picture();
  picture.planes[1] = picture.planes[2] = {};
  const ImagePointer image = Image::fromPlanes(picture);
  const auto result = ImageContext().bitmapImage(image, image->extent());
  EXPECT_EQ(pixelAt(*result, 0, 0), (Pixel{0, 0, 0, 255}));
  EXPECT_EQ(pixelAt(*result, 1, 0), (Pixel{128, 128, 128, 255}));  // 110 / 219 × 255 = 128.1
  EXPECT_EQ(pixelAt(*result, 2, 0), (Pixel{255, 255, 255, 255}));
}

TEST(PlanesTest, TransparencyIsWrittenAsBlack) {
  Planes planes(formatOf(4, 2, 1, 1));
  const ImagePointer image = Image::fromColor(Color::white())->cropped({{0, 0}, {2, 2}});
  ASSERT_TRUE(ImageContext().render(image, {{0, 0}, {4, 2}}, planes.target()));
  EXPECT_EQ(planes.get(0, 0, 0), 235);
  EXPECT_EQ(planes.get(0, 3, 1), 16);
  EXPECT_EQ(planes.get(1, 1, 0), 128);
}

TEST(PlanesTest, TargetOfAnotherSizeIsRefused) {
  Planes planes(formatOf(4, 2, 1, 1));
  const ImagePointer image = Image::fromColor(Color::white());
  EXPECT_FALSE(ImageContext().render(image, {{0, 0}, {4, 3}}, planes.target()));
  YUVTarget target = planes.target();
  target.planes[1].data = nullptr;
  EXPECT_FALSE(ImageContext().render(image, {{0, 0}, {4, 2}}, target));
}

TEST(PlanesTest, LargePicturesAreWrittenTheSameByAnyNumberOfThreads) {
  Planes in(formatOf(700, 301, 1, 1));
  in.fillWithNoise(5);
  const ImagePointer image = Image::fromPlanes(in.picture())
                                 ->transformed(AffineTransform::rotation(0.05).scaled(0.9, 0.9));
  Planes expected(formatOf(601, 275, 1, 1));
  Planes out(formatOf(601, 275, 1, 1));
  ImageContext context;
  context.setThreads(1);
  const Rect bounds{{10, 5}, {601, 275}};
  ASSERT_TRUE(context.render(image, bounds, expected.target()));
  context.setThreads(3);
  ASSERT_TRUE(context.render(image, bounds, out.target()));
  for (int row = 0; row < 275; ++row) {
    for (int x = 0; x < 601; ++x) ASSERT_EQ(out.get(0, x, row), expected.get(0, x, row));
  }
  for (int row = 0; row < 138; ++row) {
    for (int x = 0; x < 301; ++x) ASSERT_EQ(out.get(2, x, row), expected.get(2, x, row));
  }
}

}  // namespace
}  // namespace kestrel
