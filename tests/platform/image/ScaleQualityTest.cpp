// Pictures that shrink by a third, beside libswscale's bilinear ones, against a Lanczos filter in
// doubles.

#include <gtest/gtest.h>
#include <kestrel/ImageContext.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <numbers>
#include <vector>

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

std::vector<uint8_t> scaledBilinearly(const BitmapImage& bitmap) {
  const std::unique_ptr<SwsContext, void (*)(SwsContext*)> context(
      sws_getContext(kWidth, kHeight, AV_PIX_FMT_RGBA, kSmallWidth, kSmallHeight, AV_PIX_FMT_RGBA,
                     SWS_BILINEAR, nullptr, nullptr, nullptr),
      sws_freeContext);
  std::vector<uint8_t> out(size_t{4} * kSmallWidth * kSmallHeight);
  const uint8_t* from[] = {bitmap.pixels(), nullptr, nullptr, nullptr};
  uint8_t* to[] = {out.data(), nullptr, nullptr, nullptr};
  const int fromStride[] = {bitmap.bytesPerRow(), 0, 0, 0};
  const int toStride[] = {4 * kSmallWidth, 0, 0, 0};
  sws_scale(context.get(), from, fromStride, 0, kHeight, to, toStride);
  return out;
}

TEST(ScaleQualityTest, AShrunkenPictureIsNoFartherFromLanczosThanLibswscalesBilinear) {
  const auto bitmap = test::makeBitmap(kWidth, kHeight, detail);
  const auto expected = reference(*bitmap);
  const auto image = Image::fromBitmap(bitmap, Image::Alpha::kOpaque)->scaled(2.0 / 3, 2.0 / 3);
  const auto small = ImageContext().bitmapImage(image, {{0, 0}, {kSmallWidth, kSmallHeight}});
  ASSERT_TRUE(small);
  const double ours = meanSquare(expected, small->pixels());
  const double theirs = meanSquare(expected, scaledBilinearly(*bitmap).data());
  const auto decibels = [](double mean) { return 10 * std::log10(255 * 255 / mean); };
  RecordProperty("ours", std::to_string(decibels(ours)));
  RecordProperty("libswscale", std::to_string(decibels(theirs)));
  EXPECT_LE(ours, theirs) << decibels(ours) << " dB, libswscale " << decibels(theirs) << " dB";
}

}  // namespace
}  // namespace kestrel
