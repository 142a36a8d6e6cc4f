// Pictures in planes of luma and chroma, read and written.

#include <gtest/gtest.h>
#include <kestrel/FilterRegistry.h>
#include <kestrel/ImageContext.h>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

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

constexpr YUVFormat byFields(YUVFormat format) {
  format.byFields = true;
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
    {"420fields", byFields(formatOf(38, 26, 1, 1))},
    {"420fieldsten", byFields(formatOf(37, 24, 1, 1, 10))},
    {"420alpha", formatOf(37, 25, 1, 1), false, true},
    {"444tenalpha", formatOf(37, 25, 0, 0, 10), false, true},
    {"tiny", formatOf(1, 1, 1, 1)},
};

/// The rows of luma that a row of chroma is made of, and what each counts.
std::vector<std::pair<int, double>> rowsOf(const YUVFormat& format, int row) {
  if (format.byFields && format.chromaShiftY == 1) {
    const int field = row % 2;
    const int first = (row - field) * 2 + field;
    return field == 0 ? std::vector<std::pair<int, double>>{{first, 0.75}, {first + 2, 0.25}}
                      : std::vector<std::pair<int, double>>{{first, 0.25}, {first + 2, 0.75}};
  }
  if (format.chromaShiftY == 1 && format.chromaY != 0.5) {
    const int at = 2 * row + (format.chromaY == 0 ? 0 : 1);
    return {{at - 2, -0.125}, {at - 1, 0.25}, {at, 0.75}, {at + 1, 0.25}, {at + 2, -0.125}};
  }
  std::vector<std::pair<int, double>> rows;
  const int first = row << format.chromaShiftY;
  for (int r = first; r < std::min(first + (1 << format.chromaShiftY), format.height); ++r)
    rows.emplace_back(r, 1);
  return rows;
}

/// A sample of chroma of those of a row of luma.
template <typename At>
double acrossOf(const YUVFormat& format, int x, const At& at) {
  const int first = x << format.chromaShiftX;
  if (format.chromaShiftX == 0) return at(first);
  if (format.chromaShiftX == 2) return (2 * at(first) + at(first - 1) + at(first + 1)) / 4;
  if (format.chromaX == 0.5)
    return (3 * (at(first) + at(first + 1)) - at(first - 1) - at(first + 2)) / 4;
  return (6 * at(first) + 2 * (at(first - 1) + at(first + 1)) - at(first - 2) - at(first + 2)) / 8;
}

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
        double sum = 0;
        double whole = 0;
        for (const auto& [r, share] : rowsOf(format, row)) {
          if (format.byFields && r >= format.height) continue;
          const int inside = std::clamp(r, 0, format.height - 1);
          const auto at = [&](int column) { return component(c, column, inside); };
          sum += share * acrossOf(format, x, at);
          whole += share;
        }
        expectNear(static_cast<size_t>(c), x, row, sum / whole);
      }
    }
  }
}

/// What was made of samples of chroma gives these samples again.
TEST_P(PlanesLayoutTest, ChromaUpAndDownLosesNothing) {
  if (GetParam().hasAlpha || GetParam().format.chromaShiftX > 1) GTEST_SKIP() << "not promised";
  const YUVFormat& format = GetParam().format;
  const Rect bounds{{0, 0},
                    {static_cast<double>(format.width), static_cast<double>(format.height)}};
  // A filter in between keeps the planes from being copied.
  const auto exposure = FilterRegistry::filterWithName("CIExposureAdjust");
  exposure->setValue(1e-9, kCIInputEVKey);
  exposure->setValue(Image::fromPlanes(planes_.picture()), kCIInputImageKey);
  Planes gentle(format);
  // Colours that RGB has.
  for (size_t p = 0; p < 3; ++p)
    planes_.fill(p, [&](int x, int row) {
      const int levels = 1 << (format.bitDepth - 8);
      return levels * (p == 0 ? 100 + (x * 7 + row * 3) % 40 : 118 + (x * 5 + row * 11) % 20);
    });
  ASSERT_TRUE(ImageContext().render(exposure->outputImage(), bounds, gentle.target()));
  const int step = std::max(1, 1 << std::max(format.bitDepth - 11, 0));
  for (size_t p = 1; p < 3; ++p) {
    for (int row = 0; row < chromaHeight(format); ++row) {
      for (int x = 0; x < chromaWidth(format); ++x) {
        // A lower place has no row above that tells of the first one.
        if (format.chromaY == 1 && format.height % 2 != 0 && row + 1 == chromaHeight(format))
          continue;
        ASSERT_NEAR(gentle.get(p, x, row), planes_.get(p, x, row), step)
            << "plane " << p << " at " << x << " " << row;
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
