#include "tests/platform/image/HdrStills.h"

#include <kestrel/ImageContext.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>
#include <utility>

#include "platform/image/layers/Dither.h"
#include "tests/platform/image/HdrModel.h"

namespace kestrel::test {

namespace {

constexpr int kWidth = 64;
constexpr int kHeight = 48;
constexpr double kKr = 0.2627;
constexpr double kKb = 0.0593;

/// The light of BT.2020 at a place, candelas per square metre; x and y from 0 to 1.
using Scene = std::function<Colour(double x, double y)>;

Colour samplesOf(const Colour& light, bool isHlg) {
  if (!isHlg) return {pqSample(light[0]), pqSample(light[1]), pqSample(light[2])};
  // A colour keeps its shares of luminance, which alone has the gamma.
  const double luminance = 0.2627 * light[0] + 0.6780 * light[1] + 0.0593 * light[2];
  if (luminance <= 0) return {};
  const double gain = std::pow(luminance / 1000, 1 / 1.2) / luminance;
  Colour samples;
  for (size_t i = 0; i < 3; ++i)
    samples[i] = std::min(hlgSample(1000 * std::pow(gain * light[i], 1.2)), 1.0);
  return samples;
}

HdrStill still(const std::string& name, bool isHlg, double peak, const Scene& scene) {
  HdrStill result = emptyStill(name,
                               {isHlg ? HdrLight::Transfer::kHlg : HdrLight::Transfer::kPq,
                                HdrLight::Primaries::kRec2020, peak},
                               kWidth, kHeight);
  for (int row = 0; row < kHeight; ++row) {
    for (int x = 0; x < kWidth; ++x) {
      const auto [r, g, b] =
          samplesOf(scene(1.0 * x / (kWidth - 1), 1.0 * row / (kHeight - 1)), isHlg);
      const double luma = kKr * r + (1 - kKr - kKb) * g + kKb * b;
      const auto code = [](double value) { return static_cast<int>(std::lround(value)); };
      result.planes.set(0, x, row, code(64 + 876 * luma));
      result.planes.set(1, x, row, code(512 + 896 * (b - luma) / (2 * (1 - kKb))));
      result.planes.set(2, x, row, code(512 + 896 * (r - luma) / (2 * (1 - kKr))));
    }
  }
  return result;
}

/// Light of BT.709 in primaries of BT.2020 (ITU-R BT.2087, table 2).
Colour ofBt709(const Colour& c) {
  return {0.6274 * c[0] + 0.3293 * c[1] + 0.0433 * c[2],
          0.0691 * c[0] + 0.9195 * c[1] + 0.0114 * c[2],
          0.0164 * c[0] + 0.0880 * c[1] + 0.8956 * c[2]};
}

Colour times(const Colour& c, double factor) {
  return {c[0] * factor, c[1] * factor, c[2] * factor};
}

Colour hueOf(double turn, double saturation) {
  Colour c;
  for (size_t i = 0; i < 3; ++i)
    c[i] =
        1 - saturation *
                (0.5 - 0.5 * std::cos(2 * std::numbers::pi * (turn - static_cast<double>(i) / 3)));
  return c;
}

/// Light of the patches that photographers know, of BT.709.
Colour patch(int index) {
  constexpr Colour kPatches[] = {
      {0.17, 0.08, 0.06}, {0.54, 0.31, 0.22}, {0.12, 0.19, 0.34}, {0.10, 0.15, 0.05},
      {0.24, 0.22, 0.43}, {0.14, 0.51, 0.41}, {0.69, 0.21, 0.03}, {0.08, 0.11, 0.38},
      {0.55, 0.09, 0.12}, {0.11, 0.05, 0.14}, {0.34, 0.50, 0.05}, {0.76, 0.37, 0.03},
      {0.04, 0.05, 0.29}, {0.06, 0.29, 0.07}, {0.45, 0.04, 0.04}, {0.84, 0.57, 0.01},
      {0.51, 0.09, 0.30}, {0.02, 0.24, 0.37}, {0.88, 0.88, 0.87}, {0.58, 0.58, 0.58},
      {0.36, 0.36, 0.36}, {0.19, 0.19, 0.19}, {0.09, 0.09, 0.09}, {0.03, 0.03, 0.03}};
  return kPatches[index % 24];
}

Scene patches(double white) {
  return [white](double x, double y) {
    const int column = std::min(static_cast<int>(x * 6), 5);
    const int row = std::min(static_cast<int>(y * 4), 3);
    return times(ofBt709(patch(6 * row + column)), white);
  };
}

Scene greys(double most) {
  return [most](double x, double y) {
    const double light = most * std::pow(x, 3) * (1 - y / 2);
    return Colour{light, light, light};
  };
}

/// Hues of BT.709 across, down to a hundredth of the light: in less, one step of 8 bits is more
/// than what is measured here.
Scene hues(double most, double saturation) {
  return [=](double x, double y) {
    return times(ofBt709(hueOf(x, saturation)), most * std::pow(10, -2 * y));
  };
}

/// A sky with the sun in it over a dark land.
Scene sunset(double sun) {
  return [sun](double x, double y) {
    const double glow = std::exp(-20 * ((x - 0.6) * (x - 0.6) + (y - 0.4) * (y - 0.4)));
    if (y > 0.7) return times(ofBt709({0.2, 0.25, 0.1}), 2 + 20 * (1 - y));
    return Colour{30 + sun * glow, 40 + 0.7 * sun * glow, 80 * (1 - y) + 0.3 * sun * glow};
  };
}

}  // namespace

HdrStill emptyStill(std::string name, const HdrLight& light, int width, int height) {
  YUVFormat format = formatOf(width, height, 0, 0, 10);
  format.kr = kKr;
  format.kb = kKb;
  return {std::move(name), light, Planes(format)};
}

std::vector<HdrStill> hdrStills() {
  std::vector<HdrStill> stills;
  const auto add = [&](const std::string& name, double peak, const Scene& scene) {
    stills.push_back(
        still("PQ of " + std::to_string(static_cast<int>(peak)) + ": " + name, false, peak, scene));
  };
  add("greys", 1000, greys(1000));
  add("greys", 4000, greys(4000));
  add("patches under 100", 1000, patches(100));
  add("patches under 203", 1000, patches(203));
  add("patches under 1000", 1000, patches(1000));
  add("patches under 2000", 4000, patches(2000));
  add("pale hues", 1000, hues(1000, 0.4));
  add("hues", 600, hues(600, 0.8));
  add("hues", 4000, hues(4000, 0.6));
  add("sunset", 1000, sunset(900));
  add("sunset", 10000, sunset(8000));
  const auto addHlg = [&](const std::string& name, const Scene& scene) {
    stills.push_back(still("HLG: " + name, true, 1000, scene));
  };
  addHlg("greys", greys(1000));
  addHlg("patches under 203", patches(203));
  addHlg("patches under 1000", patches(1000));
  addHlg("pale hues", hues(800, 0.4));
  addHlg("hues", hues(500, 0.8));
  addHlg("sunset", sunset(900));
  return stills;
}

Difference differenceFromModel(HdrStill& still) {
  const YUVFormat& format = still.planes.picture().format;
  const Rect bounds{{0, 0}, {1.0 * format.width, 1.0 * format.height}};
  const auto shown = ImageContext().bitmapImage(
      toneMapped(Image::fromPlanes(still.planes.picture()), still.light), bounds);
  Difference result;
  for (int row = 0; row < format.height; ++row) {
    for (int x = 0; x < format.width; ++x) {
      const double luma = (still.planes.get(0, x, row) - 64) / 876.0;
      const double cb = (still.planes.get(1, x, row) - 512) / 896.0;
      const double cr = (still.planes.get(2, x, row) - 512) / 896.0;
      const double r = luma + 2 * (1 - kKr) * cr;
      const double b = luma + 2 * (1 - kKb) * cb;
      const double g = (luma - kKr * r - kKb * b) / (1 - kKr - kKb);
      const auto part = [](double value) { return std::clamp(value, 0.0, 1.0); };
      const Colour samples{part(r), part(g), part(b)};
      const Colour model = still.light.transfer == HdrLight::Transfer::kHlg
                               ? sdrOfHlg(samples)
                               : sdrOfPq(samples, still.light.peak);
      float noise = 0;
      fillNoise(x, format.height - 1 - row, kDitherReach / 255, {&noise, 1});
      const uint8_t* const pixel = shown->row(row) + 4 * ptrdiff_t{x};
      const auto sampleOf = [&](size_t i) {
        return pixel[i] / 255.0 - (pixel[i] > 0 && pixel[i] < 255 ? noise : 0);
      };
      const double difference =
          ciede2000(labOf(model), labOf({sampleOf(0), sampleOf(1), sampleOf(2)}));
      result.mean += difference / (format.width * format.height);
      result.worst = std::max(result.worst, difference);
    }
  }
  return result;
}

}  // namespace kestrel::test
