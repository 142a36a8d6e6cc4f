#include <gtest/gtest.h>
#include <kestrel/BitmapFile.h>
#include <kestrel/PlaneMetrics.h>
#include <kestrel/Ssimulacra2.h>

#include <cmath>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "platform/image/kernels/KernelTargets.h"
// After the choice of targets.
#include <hwy/highway.h>

#include "tests/platform/image/TestPictures.h"
#include "tests/platform/metrics/PlainSsimulacra2.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/Peer.h"

namespace kestrel::test {
namespace {

using Bitmap = std::shared_ptr<const BitmapImage>;

/// Pairs of pictures with scores that other programs gave them.
constexpr const char* kPairs = "../quality/ssimulacra2.json";

nlohmann::json pairs() { return nlohmann::json::parse(std::ifstream(mediaFile(kPairs))); }

const Bitmap& picture(const nlohmann::json& name) {
  static std::map<std::string, Bitmap> pictures;
  Bitmap& found = pictures[name];
  if (!found) {
    const std::string bytes = readBytes(mediaFile("../quality/" + name.get<std::string>()));
    found = bitmapImageWithData({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
  }
  return found;
}

PlainPicture light(const BitmapImage& bitmap) {
  PlainPicture result{bitmap.width(), bitmap.height(), {}};
  for (int c = 0; c < 3; ++c) {
    for (int y = 0; y < bitmap.height(); ++y) {
      for (int x = 0; x < bitmap.width(); ++x) {
        const double value = bitmap.row(y)[4 * x + c] / 255.0;
        result.rgb.push_back(value <= 0.04045 ? value / 12.92
                                              : std::pow((value + 0.055) / 1.055, 2.4));
      }
    }
  }
  return result;
}

/// A picture like another, with some of its samples off by a few levels.
Bitmap damaged(const BitmapImage& bitmap, int step) {
  return makeBitmap(bitmap.width(), bitmap.height(), [&](int x, int y) {
    Pixel pixel = pixelAt(bitmap, x, y);
    if ((x * 7 + y * 13) % step == 0)
      for (size_t c = 0; c < 3; ++c) pixel[c] = static_cast<uint8_t>(pixel[c] ^ 24U);
    return pixel;
  });
}

double scoreOf(const BitmapImage& original, const BitmapImage& distorted, int threads = 1) {
  return Ssimulacra2(original.width(), original.height(), threads).score(original, distorted);
}

TEST(Ssimulacra2, IsThatOfADoublePrecisionModelForAHundredPairs) {
  KESTREL_NEED_MEDIA(kPairs);
  int count = 0;
  for (const auto& pair : pairs()) {
    EXPECT_NEAR(scoreOf(*picture(pair["original"]), *picture(pair["distorted"])),
                pair["exact"].get<double>(), 0.005)
        << pair["distorted"].get<std::string>();
    ++count;
  }
  EXPECT_EQ(count, 100);
}

// Sides that end scales early, odd ones, and rows that no vector's length divides.
TEST(Ssimulacra2, IsThatOfItsDefinition) {
  const std::pair<int, int> sizes[] = {{8, 8},   {9, 15},  {16, 8},    {17, 31},
                                       {61, 43}, {113, 9}, {112, 112}, {130, 113}};
  for (const auto& [width, height] : sizes) {
    const Bitmap original = noise(width, height, 5);
    for (const int step : {2, 5, 31}) {
      const Bitmap distorted = damaged(*original, step);
      EXPECT_NEAR(scoreOf(*original, *distorted),
                  plainSsimulacra2(light(*original), light(*distorted)), 0.01)
          << width << 'x' << height << ' ' << step;
    }
  }
}

TEST(Ssimulacra2, OfThePictureItselfIs100) {
  const Bitmap same = noise(90, 70, 8);
  EXPECT_EQ(scoreOf(*same, *same), 100);
}

TEST(Ssimulacra2, DoesNotDependOnThreads) {
  const Bitmap original = noise(301, 333, 3);
  const Bitmap distorted = damaged(*original, 11);
  const double one = scoreOf(*original, *distorted);
  for (const int threads : {2, 3, 16}) EXPECT_EQ(scoreOf(*original, *distorted, threads), one);
}

TEST(Ssimulacra2, DoesNotDependOnTheInstructionSet) {
  const Bitmap original = noise(101, 77, 4);
  const Bitmap distorted = damaged(*original, 3);
  const double best = scoreOf(*original, *distorted);
  for (int64_t left = hwy::SupportedTargets(); left != 0; left &= left - 1) {
    hwy::GetChosenTarget().Update(left & -left);
    EXPECT_NEAR(scoreOf(*original, *distorted), best, 0.002) << hwy::TargetName(left & -left);
  }
  hwy::GetChosenTarget().Update(hwy::SupportedTargets());
}

TEST(Ssimulacra2, KeepsNothingOfThePairBefore) {
  const Bitmap original = noise(75, 64, 6);
  const Bitmap distorted = damaged(*original, 9);
  Ssimulacra2 meter(75, 64);
  const double first = meter.score(*original, *distorted);
  meter.score(*noise(75, 64, 7), *distorted);
  EXPECT_EQ(meter.score(*original, *distorted), first);
}

TEST(Ssimulacra2, RefusesWhatItCannotCompare) {
  EXPECT_THROW(Ssimulacra2(7, 100), std::invalid_argument);
  EXPECT_THROW(Ssimulacra2(100, 7), std::invalid_argument);
  Ssimulacra2 meter(16, 16);
  EXPECT_THROW(meter.score(*noise(16, 16, 1), *noise(16, 17, 1)), std::invalid_argument);
}

PlaneView component(const BitmapImage& bitmap, int c, std::vector<uint8_t>& samples) {
  samples.clear();
  for (int y = 0; y < bitmap.height(); ++y)
    for (int x = 0; x < bitmap.width(); ++x) samples.push_back(bitmap.row(y)[4 * x + c]);
  return {samples.data(), bitmap.width(), bitmap.width(), bitmap.height(), 8};
}

/// Rounded as ffmpeg prints it.
double printed(double value) { return std::round(value * 1e6) / 1e6; }

TEST(PlaneMetrics, AreThoseThatFfmpegPrintsForAHundredPairs) {
  KESTREL_NEED_MEDIA(kPairs);
  std::vector<uint8_t> first;
  std::vector<uint8_t> second;
  for (const auto& pair : pairs()) {
    SCOPED_TRACE(pair["distorted"].get<std::string>());
    const BitmapImage& original = *picture(pair["original"]);
    const double samples = static_cast<double>(original.width()) * original.height();
    const char* names[] = {"r", "g", "b"};
    for (int c = 0; c < 3; ++c) {
      const PlaneView one = component(original, c, first);
      const PlaneView other = component(*picture(pair["distorted"]), c, second);
      const auto& psnrs = pair["gbrp"]["psnr"];
      const double level = psnr(static_cast<double>(squaredError(one, other)) / samples, 8);
      if (psnrs[names[c]] == "inf")
        EXPECT_TRUE(std::isinf(level));
      else
        EXPECT_NEAR(printed(level), psnrs[names[c]].get<double>(), 1e-9);
      // One pair has values that were too long to be read.
      const auto& ssims = pair["gbrp"]["ssim"];
      if (ssims.contains(names[c])) {
        EXPECT_NEAR(ssim(one, other), ssims[names[c]].get<double>(), 1.1e-6);
      }
    }
  }
}

// Deep planes are compared at their own depth.
TEST(PlaneMetrics, OfTenBitsAreThoseThatFfmpegPrints) {
  const auto planes = [](const char* filter) {
    const auto run =
        runPeer({"ffmpeg", "-v", "error", "-f", "lavfi", "-i",
                 std::string("testsrc2=size=98x54:duration=0.04,format=yuv420p10") + filter,
                 "-frames:v", "1", "-f", "rawvideo", "-"});
    EXPECT_EQ(run.out.size(), 98U * 54 * 3);
    return run.out;
  };
  const std::string one = planes("");
  const std::string other = planes(",scale=50:30,scale=98:54,format=yuv420p10");
  const auto view = [](const std::string& bytes) {
    return PlaneView{reinterpret_cast<const uint8_t*>(bytes.data()), 2 * 98, 98, 54, 10};
  };
  const std::string graph =
      "testsrc2=size=98x54:duration=0.04,format=yuv420p10,split[a][b];"
      "[b]scale=50:30,scale=98:54,format=yuv420p10[c];[c][a]";
  const auto told = [&](const std::string& metric) {
    return runPeer({"ffmpeg", "-nostdin", "-hide_banner", "-filter_complex", graph + metric, "-f",
                    "null", "-"})
        .err;
  };
  const auto number = [](const std::string& text, const std::string& name) {
    const size_t at = text.rfind(name);
    return at == std::string::npos ? NAN : std::stod(text.substr(at + name.size()));
  };
  const double squares = static_cast<double>(squaredError(view(one), view(other)));
  EXPECT_GT(squares, 0);
  EXPECT_NEAR(psnr(squares / (98 * 54), 10), number(told("psnr"), " y:"), 1e-6);
  EXPECT_NEAR(ssim(view(one), view(other)), number(told("ssim"), " Y:"), 1e-6);
}

TEST(PlaneMetrics, RefuseWhatTheyCannotCompare) {
  const std::vector<uint8_t> samples(1024);
  const PlaneView one{samples.data(), 32, 16, 16, 8};
  EXPECT_THROW(squaredError(one, {samples.data(), 32, 16, 15, 8}), std::invalid_argument);
  EXPECT_THROW(ssim(one, {samples.data(), 32, 16, 16, 10}), std::invalid_argument);
  const PlaneView narrow{samples.data(), 32, 7, 16, 8};
  EXPECT_THROW(ssim(narrow, narrow), std::invalid_argument);
}

}  // namespace
}  // namespace kestrel::test
