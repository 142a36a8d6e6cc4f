#include "convert/wave/WaveFile.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/support/FileBytes.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

/// Two channels of two points.
Waveform small() {
  return {.sampleRate = 8000,
          .samplesPerPoint = 100,
          .channels = {{{-0.5F, 0.25F, 0.1F}, {-1, 1, 0.5F}}, {{0, 0.5F, 0.2F}, {-0.25F, 0, 0}}}};
}

class WaveFile : public testing::Test {
 protected:
  std::string written(const std::function<void(OutputFile&)>& write) const {
    const auto path = folder_ / "wave.png";
    OutputFile file(path.string(), true);
    write(file);
    file.commit();
    return readBytes(path);
  }

  nlohmann::json json(const Waveform& waveform, int bits) const {
    return nlohmann::json::parse(
        written([&](OutputFile& file) { writeWaveJson(waveform, bits, file); }));
  }

  std::string data(const Waveform& waveform, int bits) const {
    return written([&](OutputFile& file) { writeWaveData(waveform, bits, file); });
  }

  /// The picture's pixels as ffmpeg reads them: red, green and blue.
  std::string pixels(const Waveform& waveform, int width, int height) const {
    written([&](OutputFile& file) { writeWavePicture(waveform, width, height, file); });
    const RunResult result = run({"ffmpeg", "-v", "error", "-i", (folder_ / "wave.png").string(),
                                  "-f", "rawvideo", "-pix_fmt", "rgb24", "-"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out.size(), static_cast<size_t>(width * height * 3));
    return result.out;
  }

  const TempDir folder_;
};

TEST_F(WaveFile, SamplesBecomeNumbersOfSoManyBits) {
  EXPECT_EQ(quantized(0, 8), 0);
  EXPECT_EQ(quantized(0.5F, 8), 64);
  EXPECT_EQ(quantized(-1, 8), -128);
  EXPECT_EQ(quantized(1, 8), 127);
  EXPECT_EQ(quantized(0.25F, 16), 8192);
  EXPECT_EQ(quantized(2, 16), 32767);
  EXPECT_EQ(quantized(-3, 16), -32768);
}

TEST_F(WaveFile, JsonTellsTheFactsAndThePointsChannelBesideChannel) {
  EXPECT_EQ(json(small(), 8), nlohmann::json::parse(R"({
    "version": 2, "channels": 2, "sample_rate": 8000, "samples_per_pixel": 100, "bits": 8,
    "length": 2, "data": [-64, 32, 0, 64, -128, 127, -32, 0]})"));
  EXPECT_EQ(json(small(), 16)["data"],
            (std::vector{-16384, 8192, 0, 16384, -32768, 32767, -8192, 0}));
}

TEST_F(WaveFile, DataTellsTheSameLowestByteFirst) {
  using namespace std::string_literals;
  const std::string rest = "\x40\x1F\0\0\x64\0\0\0\x02\0\0\0\x02\0\0\0"s;
  EXPECT_EQ(data(small(), 8), "\x02\0\0\0\x01\0\0\0"s + rest + "\xC0\x20\x00\x40\x80\x7F\xE0\x00"s);
  EXPECT_EQ(data(small(), 16),
            "\x02\0\0\0\0\0\0\0"s + rest +
                "\x00\xC0\x00\x20\x00\x00\x00\x40\x00\x80\xFF\x7F\x00\xE0\x00\x00"s);
}

TEST_F(WaveFile, LongOutlinesAreWholeInEitherForm) {
  Waveform waveform{.sampleRate = 8000, .samplesPerPoint = 100, .channels = {{}}};
  constexpr size_t kCount = 50000;
  for (size_t i = 0; i < kCount; ++i)
    waveform.channels[0].push_back({-static_cast<float>(i % 128) / 128, 0, 0});
  const auto numbers = json(waveform, 8)["data"];
  const std::string bytes = data(waveform, 8);
  ASSERT_EQ(numbers.size(), 2 * kCount);
  ASSERT_EQ(bytes.size(), 24 + 2 * kCount);
  for (size_t i = 0; i < kCount; ++i) {
    const int expected = -static_cast<int>(i % 128);
    ASSERT_EQ(numbers[2 * i], expected) << i;
    ASSERT_EQ(static_cast<int8_t>(bytes[24 + 2 * i]), expected) << i;
  }
}

TEST_F(WaveFile, WithoutPointsThereAreOnlyTheFacts) {
  const Waveform empty{.sampleRate = 8000, .samplesPerPoint = 100, .channels = {{}}};
  EXPECT_EQ(json(empty, 16)["length"], 0);
  EXPECT_EQ(json(empty, 16)["data"], nlohmann::json::array());
  EXPECT_EQ(data(empty, 16).size(), 24U);
}

/// What a picture shows at a place, the upper left being (0, 0).
enum class Shown { kNothing, kPeak, kMean, kSomethingElse };

Shown at(const std::string& pixels, int width, int x, int y) {
  const auto isNear = [&](std::array<double, 3> color) {
    for (size_t i = 0; i < 3; ++i) {
      const auto value =
          static_cast<uint8_t>(pixels.at(3 * static_cast<size_t>(y * width + x) + i));
      if (std::abs(value - color.at(i) * 255) > 2) return false;
    }
    return true;
  };
  if (isNear({0.08, 0.09, 0.12})) return Shown::kNothing;
  if (isNear({0.24, 0.55, 0.78})) return Shown::kPeak;
  return isNear({0.62, 0.85, 0.97}) ? Shown::kMean : Shown::kSomethingElse;
}

// The scale of a channel is 0.94 of its place: 18.8 pixels up and down from the middle at 20.
TEST_F(WaveFile, APictureHasThePeaksBehindTheMean) {
  const Waveform waveform{
      .sampleRate = 8, .samplesPerPoint = 1, .channels = {{{-1, 0.5F, 0.25F}, {0, 0, 0}}}};
  const std::string picture = pixels(waveform, 2, 40);
  const auto column = [&](int x, int y) { return at(picture, 2, x, y); };
  EXPECT_EQ(column(0, 8), Shown::kNothing);  // the upper end is at 10.6
  EXPECT_EQ(column(0, 12), Shown::kPeak);
  EXPECT_EQ(column(0, 14), Shown::kPeak);  // the mean reaches up to 15.3
  EXPECT_EQ(column(0, 17), Shown::kMean);
  EXPECT_EQ(column(0, 23), Shown::kMean);
  EXPECT_EQ(column(0, 26), Shown::kPeak);
  EXPECT_EQ(column(0, 37), Shown::kPeak);  // and the peak down to 38.8
  EXPECT_EQ(column(0, 39), Shown::kNothing);
  EXPECT_EQ(column(1, 17), Shown::kNothing);
  EXPECT_EQ(column(1, 23), Shown::kNothing);
}

TEST_F(WaveFile, APictureHasItsFirstChannelOnTop) {
  const Waveform waveform{
      .sampleRate = 8, .samplesPerPoint = 1, .channels = {{{0, 0, 0}}, {{-1, 1, 0}}}};
  const std::string picture = pixels(waveform, 1, 40);
  EXPECT_EQ(at(picture, 1, 0, 5), Shown::kNothing);
  EXPECT_EQ(at(picture, 1, 0, 15), Shown::kNothing);
  EXPECT_EQ(at(picture, 1, 0, 25), Shown::kPeak);
  EXPECT_EQ(at(picture, 1, 0, 35), Shown::kPeak);
}

TEST_F(WaveFile, AColumnShowsTheMostOfAllItsPoints) {
  Waveform waveform{
      .sampleRate = 8, .samplesPerPoint = 1, .channels = {std::vector<WaveformPoint>(8)}};
  waveform.channels[0][2] = {-1, 0, 0};
  waveform.channels[0][5] = {0, 1, 0};
  const std::string picture = pixels(waveform, 2, 40);
  EXPECT_EQ(at(picture, 2, 0, 5), Shown::kNothing);
  EXPECT_EQ(at(picture, 2, 0, 35), Shown::kPeak);
  EXPECT_EQ(at(picture, 2, 1, 5), Shown::kPeak);
  EXPECT_EQ(at(picture, 2, 1, 35), Shown::kNothing);
}

// A point may be wider than a pixel.
TEST_F(WaveFile, AFewPointsFillAWidePicture) {
  const Waveform waveform{
      .sampleRate = 8, .samplesPerPoint = 1, .channels = {{{-1, 1, 0}, {0, 0, 0}}}};
  const std::string picture = pixels(waveform, 10, 40);
  for (int x = 0; x < 10; ++x)
    EXPECT_EQ(at(picture, 10, x, 5), x < 5 ? Shown::kPeak : Shown::kNothing) << x;
}

}  // namespace
}  // namespace kestrel::test
