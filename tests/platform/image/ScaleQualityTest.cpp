// How good pictures of another size are: against filters in doubles, and beside libswscale's.

#include <gtest/gtest.h>
#include <kestrel/ImageContext.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <numbers>
#include <string>
#include <utility>
#include <vector>

#include "tests/platform/image/SincScaled.h"
#include "tests/platform/image/TestPictures.h"

extern "C" {
#include <libswscale/swscale.h>
}

namespace kestrel {
namespace {

constexpr int kWidth = 480;
constexpr int kHeight = 270;
constexpr int kSmallWidth = 320;
constexpr int kSmallHeight = 180;

/// Rings that become finer to the right, edges in several directions, and slow gradients.
test::Pixel detail(int x, int y) {
  const auto level = [](double value) {
    return static_cast<uint8_t>(std::lround(255 * std::clamp(value, 0.0, 1.0)));
  };
  const double rings = 0.5 + 0.5 * std::cos(0.0035 * (x * x + (y - 135.0) * (y - 135.0)));
  const double edges = (x / 23 + (x + 2 * y) / 61) % 2 == 0 ? 0.1 : 0.85;
  const double slow = 0.5 + 0.4 * std::sin(x * 0.021) * std::cos(y * 0.034);
  return {level(x < 240 ? rings : slow), level(edges), level(0.5 * slow + 0.5 * edges), 255};
}

/// Lanczos with three lobes, as wide as the picture shrinks; weights of `from` samples for each of
/// `to`.
std::vector<std::vector<double>> lanczos(int from, int to) {
  const double scale = static_cast<double>(from) / to;
  std::vector<std::vector<double>> all;
  for (int i = 0; i < to; ++i) {
    std::vector<double> weights(static_cast<size_t>(from));
    double sum = 0;
    for (int k = 0; k < from; ++k) {
      const double t = (k + 0.5 - (i + 0.5) * scale) / scale;
      if (std::abs(t) >= 3) continue;
      const double p = std::numbers::pi * t;
      weights[static_cast<size_t>(k)] = t == 0 ? 1 : 3 * std::sin(p) * std::sin(p / 3) / (p * p);
      sum += weights[static_cast<size_t>(k)];
    }
    for (double& weight : weights) weight /= sum;
    all.push_back(std::move(weights));
  }
  return all;
}

/// Red, green and blue of the small picture, the top row first.
std::vector<double> reference(const BitmapImage& bitmap) {
  const auto across = lanczos(kWidth, kSmallWidth);
  const auto down = lanczos(kHeight, kSmallHeight);
  std::vector<double> result;
  std::vector<double> line(3 * kSmallWidth * kHeight);
  for (int y = 0; y < kHeight; ++y) {
    for (size_t i = 0; i < kSmallWidth; ++i) {
      for (size_t c = 0; c < 3; ++c) {
        double sum = 0;
        for (int x = 0; x < kWidth; ++x)
          sum += across[i][static_cast<size_t>(x)] * bitmap.row(y)[4 * static_cast<size_t>(x) + c];
        line[(static_cast<size_t>(y) * kSmallWidth + i) * 3 + c] = sum;
      }
    }
  }
  for (size_t j = 0; j < kSmallHeight; ++j) {
    for (size_t at = 0; at < 3 * kSmallWidth; ++at) {
      double sum = 0;
      for (size_t y = 0; y < kHeight; ++y) sum += down[j][y] * line[y * 3 * kSmallWidth + at];
      result.push_back(std::clamp(sum, 0.0, 255.0));
    }
  }
  return result;
}

double meanSquare(const std::vector<double>& expected, const uint8_t* pixels) {
  double sum = 0;
  for (size_t i = 0; i < expected.size(); ++i) {
    const double difference = pixels[i / 3 * 4 + i % 3] - expected[i];
    sum += difference * difference;
  }
  return sum / static_cast<double>(expected.size());
}

double decibels(double meanSquare) { return 10 * std::log10(255 * 255 / meanSquare); }

TEST(ScaleQualityTest, PixelsAreThoseOfLanczosButForRounding) {
  const auto bitmap = test::makeBitmap(kWidth, kHeight, detail);
  const auto expected = reference(*bitmap);
  const auto image = Image::fromBitmap(bitmap, Image::Alpha::kOpaque)->scaled(2.0 / 3, 2.0 / 3);
  const auto small = ImageContext().bitmapImage(image, {{0, 0}, {kSmallWidth, kSmallHeight}});
  ASSERT_TRUE(small);
  // Rounding alone makes 1/12 in the mean, which is 58.9 dB.
  EXPECT_GT(decibels(meanSquare(expected, small->pixels())), 57);
}

/// Luma of a picture in 4:2:0 whose chroma is neutral.
struct Grey {
  Grey(int columns, int rows) : width(columns), height(rows) {
    luma.resize(static_cast<size_t>(width) * static_cast<size_t>(height));
    chroma.assign(static_cast<size_t>((width + 1) / 2) * static_cast<size_t>((height + 1) / 2),
                  uint8_t{128});
    other = chroma;
  }
  template <typename View>
  View view() {
    View result{};
    result.format.width = width;
    result.format.height = height;
    result.planes[0] = {luma.data(), width, 1};
    result.planes[1] = {chroma.data(), (width + 1) / 2, 1};
    result.planes[2] = {other.data(), (width + 1) / 2, 1};
    return result;
  }
  int width;
  int height;
  std::vector<uint8_t> luma, chroma, other;
};

void scaleByEngine(Grey& from, Grey& to) {
  const auto image = Image::fromPlanes(from.view<YUVPicture>())
                         ->scaled(1.0 * to.width / from.width, 1.0 * to.height / from.height);
  ASSERT_TRUE(ImageContext().render(image, {{0, 0}, {1.0 * to.width, 1.0 * to.height}},
                                    to.view<YUVTarget>()));
}

void scaleByLibrary(Grey& from, Grey& to) {
  const std::unique_ptr<SwsContext, void (*)(SwsContext*)> context(
      sws_getContext(from.width, from.height, AV_PIX_FMT_YUV420P, to.width, to.height,
                     AV_PIX_FMT_YUV420P, SWS_LANCZOS | SWS_ACCURATE_RND, nullptr, nullptr, nullptr),
      sws_freeContext);
  const uint8_t* in[] = {from.luma.data(), from.chroma.data(), from.other.data(), nullptr};
  uint8_t* out[] = {to.luma.data(), to.chroma.data(), to.other.data(), nullptr};
  const int inStrides[] = {from.width, (from.width + 1) / 2, (from.width + 1) / 2, 0};
  const int outStrides[] = {to.width, (to.width + 1) / 2, (to.width + 1) / 2, 0};
  sws_scale(context.get(), in, inStrides, 0, from.height, out, outStrides);
}

struct Sizes {
  const char* name;
  int width, height, toWidth, toHeight;
};

class ScaleQualityPlanesTest : public testing::TestWithParam<Sizes> {
 protected:
  Grey from_{GetParam().width, GetParam().height};
  Grey ours_{GetParam().toWidth, GetParam().toHeight};
  Grey theirs_{GetParam().toWidth, GetParam().toHeight};
};

TEST_P(ScaleQualityPlanesTest, AreAsNearToASincAsTheLibrarysBest) {
  for (int y = 0; y < from_.height; ++y) {
    for (int x = 0; x < from_.width; ++x)
      from_.luma[static_cast<size_t>(y * from_.width + x)] = detail(x, y)[0];
  }
  scaleByEngine(from_, ours_);
  scaleByLibrary(from_, theirs_);
  const std::vector<double> luma(from_.luma.begin(), from_.luma.end());
  const auto across = test::sincScaled(luma, from_.width, from_.height, ours_.width);
  const auto exact = test::sincScaled(across, from_.height, ours_.width, ours_.height);
  const auto qualityOf = [&](const Grey& grey) {
    double sum = 0;
    for (size_t i = 0; i < exact.size(); ++i)
      sum += std::pow(grey.luma[i] - std::clamp(exact[i], 0.0, 255.0), 2);
    return decibels(sum / static_cast<double>(exact.size()));
  };
  EXPECT_GE(qualityOf(ours_), qualityOf(theirs_) - 0.1);
  EXPECT_GT(qualityOf(ours_), 25);
}

TEST_P(ScaleQualityPlanesTest, LeaveNoMoreOfWhatIsTooFineThanTheLibrarysBest) {
  // Waves that become finer to the right, up to half a wave to the pixel.
  for (int y = 0; y < from_.height; ++y) {
    for (int x = 0; x < from_.width; ++x)
      from_.luma[static_cast<size_t>(y * from_.width + x)] = static_cast<uint8_t>(
          std::lround(128 + 100 * std::cos(std::numbers::pi / 2 * x * x / from_.width)));
  }
  scaleByEngine(from_, ours_);
  scaleByLibrary(from_, theirs_);
  const auto leftOf = [&](const Grey& grey) {
    double sum = 0;
    for (int x = static_cast<int>(1.15 * grey.width * grey.width / from_.width); x < grey.width - 6;
         ++x)
      sum += std::pow(grey.luma[static_cast<size_t>(grey.height / 2 * grey.width + x)] - 128.0, 2);
    return std::sqrt(sum);
  };
  EXPECT_LE(leftOf(ours_), leftOf(theirs_) * 1.02 + 1);
}

INSTANTIATE_TEST_SUITE_P(Sizes, ScaleQualityPlanesTest,
                         testing::Values(Sizes{"third", 480, 270, 320, 180},
                                         Sizes{"half", 480, 270, 214, 120},
                                         Sizes{"larger", 320, 180, 480, 270}),
                         [](const auto& item) { return std::string(item.param.name); });

}  // namespace
}  // namespace kestrel
