// Pictures in planes of luma and chroma, read and written.

#include <gtest/gtest.h>
#include <kestrel/FilterRegistry.h>
#include <kestrel/ImageContext.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

#include "tests/platform/image/ReferenceEvaluator.h"
#include "tests/platform/image/TestPictures.h"

namespace kestrel {
namespace {

using test::evaluate;
using test::largestError;
using test::Pixel;
using test::pixelAt;

using ImagePointer = std::shared_ptr<const Image>;

int chromaWidth(const YUVFormat& f) {
  return (f.width + (1 << f.chromaShiftX) - 1) >> f.chromaShiftX;
}
int chromaHeight(const YUVFormat& f) {
  return (f.height + (1 << f.chromaShiftY) - 1) >> f.chromaShiftY;
}

/// Planes in memory of their own; `isPaired` has Cb and Cr take turns in one plane.
class Planes {
 public:
  explicit Planes(const YUVFormat& format, bool isPaired = false, bool hasAlpha = false)
      : format_(format), isPaired_(isPaired) {
    const int bytes = format.bitDepth > 8 ? 2 : 1;
    strides_[0] = strides_[3] = format.width * bytes + 6;
    strides_[1] = strides_[2] = chromaWidth(format) * bytes * (isPaired ? 2 : 1) + 4;
    const auto size = [&](int stride, int rows) { return static_cast<size_t>(stride * rows); };
    memory_[0].resize(size(strides_[0], format.height));
    memory_[1].resize(size(strides_[1], chromaHeight(format)));
    if (!isPaired) memory_[2].resize(memory_[1].size());
    if (hasAlpha) memory_[3].resize(memory_[0].size());
  }

  uint8_t* plane(size_t p) {
    if (p == 2 && isPaired_) return memory_[1].data() + (format_.bitDepth > 8 ? 2 : 1);
    return memory_[p].empty() ? nullptr : memory_[p].data();
  }

  uint8_t* at(size_t p, int x, int row) {
    const int bytes = format_.bitDepth > 8 ? 2 : 1;
    const int step = isPaired_ && (p == 1 || p == 2) ? 2 : 1;
    return plane(p) + ptrdiff_t{row} * strides_[p] + ptrdiff_t{x} * bytes * step;
  }

  int get(size_t p, int x, int row) {
    if (format_.bitDepth == 8) return *at(p, x, row);
    uint16_t value;
    std::memcpy(&value, at(p, x, row), 2);
    return value >> format_.bitShift;
  }

  void set(size_t p, int x, int row, int value) {
    if (format_.bitDepth == 8) {
      *at(p, x, row) = static_cast<uint8_t>(value);
      return;
    }
    const auto word = static_cast<uint16_t>(value << format_.bitShift);
    std::memcpy(at(p, x, row), &word, 2);
  }

  void fill(size_t p, const std::function<int(int x, int row)>& value) {
    const bool isChroma = p == 1 || p == 2;
    const int width = isChroma ? chromaWidth(format_) : format_.width;
    const int height = isChroma ? chromaHeight(format_) : format_.height;
    for (int row = 0; row < height; ++row) {
      for (int x = 0; x < width; ++x) set(p, x, row, value(x, row));
    }
  }

  /// Noise in the legal range.
  void fillWithNoise(uint32_t seed) {
    std::mt19937 random(seed);
    const int levels = 1 << (format_.bitDepth - 8);
    for (size_t p = 0; p < 4; ++p) {
      if (!plane(p)) continue;
      const int low = p == 3 ? 0 : 60 * levels;
      const int high = p == 3 ? (1 << format_.bitDepth) - 1 : 190 * levels;
      std::uniform_int_distribution<int> value(low, high);
      fill(p, [&](int, int) { return value(random); });
    }
  }

  YUVPicture picture() {
    YUVPicture result{format_, {}, nullptr};
    for (size_t p = 0; p < 4; ++p)
      result.planes[p] = {plane(p), strides_[p], isPaired_ && (p == 1 || p == 2) ? 2 : 1};
    return result;
  }

  YUVTarget target() {
    YUVTarget result{format_, {}};
    for (size_t p = 0; p < 3; ++p)
      result.planes[p] = {plane(p), strides_[p], isPaired_ && p > 0 ? 2 : 1};
    return result;
  }

 private:
  YUVFormat format_;
  bool isPaired_;
  std::array<int, 4> strides_{};
  std::array<std::vector<uint8_t>, 4> memory_;
};

struct Layout {
  const char* name;
  YUVFormat format;
  bool isPaired = false;
  bool hasAlpha = false;
};

constexpr YUVFormat formatOf(int width, int height, int shiftX, int shiftY, int bits = 8,
                             int bitShift = 0, bool isFull = false) {
  YUVFormat format;
  format.width = width;
  format.height = height;
  format.chromaShiftX = shiftX;
  format.chromaShiftY = shiftY;
  format.bitDepth = bits;
  format.bitShift = bitShift;
  format.fullRange = isFull;
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
  EXPECT_LE(largestError(image, view), 1.0);
  EXPECT_LE(largestError(image->scaled(0.63, 0.41), view), 1.0);
  EXPECT_LE(largestError(image->scaled(2.3, 1.7), view), 1.0);
  EXPECT_LE(
      largestError(image->cropped({{5, 3}, {19, 11}})->scaled(-1.1, 0.9), {{-30, 0}, {40, 20}}),
      1.0);
  EXPECT_LE(largestError(image->transformed(AffineTransform::rotation(0.2)), view), 1.0);
  EXPECT_LE(largestError(image->transformed({0, 1, -1, 0, 25, 0}), view), 1.0);
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
          sum +=
              format.chromaShiftX == 0
                  ? component(c, at, r)
                  : (component(c, at - 1, r) + 2 * component(c, at, r) + component(c, at + 1, r)) /
                        4;
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
