#include "platform/image/recipe/Components.h"

#include <algorithm>
#include <cmath>

namespace kestrel {

namespace {

// ITU-R BT.2020, table 4: luma, what the differences are divided by below and above 0, and the
// curve from light to samples.
constexpr Triple kLuma = {0.2627, 0.6780, 0.0593};
constexpr double kBlueBelow = 2 * 0.9702;
constexpr double kBlueAbove = 2 * 0.7910;
constexpr double kRedBelow = 2 * 0.8591;
constexpr double kRedAbove = 2 * 0.4969;
constexpr double kAlpha = 1.09929682680944;
constexpr double kBeta = 0.018053968510807;

double sampleOf(double light) {
  return light < kBeta ? 4.5 * light : kAlpha * std::pow(light, 0.45) - (kAlpha - 1);
}

double lightOf(double sample) {
  return sample < 4.5 * kBeta ? sample / 4.5 : std::pow((sample + kAlpha - 1) / kAlpha, 1 / 0.45);
}

double quickLight(double sample) {
  static const Sampled table(lightOf);
  return table(sample);
}

double quickSample(double light) {
  static const Sampled table([](double root) { return sampleOf(std::pow(root, 4)); });
  return table(std::sqrt(std::sqrt(std::max(light, 0.0))));
}

double share(double difference, double below, double above) {
  return difference / (difference < 0 ? below : above);
}

double limited(double value) { return std::clamp(value, 0.0, 1.0); }

Triple colorsOfConstantLuminance(const Triple& components) {
  const auto [luma, cb, cr] = components;
  const double blue = limited(luma + cb * (cb < 0 ? kBlueBelow : kBlueAbove));
  const double red = limited(luma + cr * (cr < 0 ? kRedBelow : kRedAbove));
  const double rest = quickLight(luma) - kLuma[0] * quickLight(red) - kLuma[2] * quickLight(blue);
  return {red, limited(quickSample(rest / kLuma[1])), blue};
}

Triple constantLuminanceOf(const Triple& colors) {
  const Triple light = each(colors, quickLight);
  const double luma = quickSample(kLuma[0] * light[0] + kLuma[1] * light[1] + kLuma[2] * light[2]);
  return {luma, share(colors[2] - luma, kBlueBelow, kBlueAbove),
          share(colors[0] - luma, kRedBelow, kRedAbove)};
}

// BT.2100, table 7, for HLG.
constexpr Matrix3 kIntensityOfHlg = {{{0.5, 0.5, 0},
                                      {3625.0 / 4096, -7465.0 / 4096, 3840.0 / 4096},
                                      {9500.0 / 4096, -9212.0 / 4096, -288.0 / 4096}}};

/// How samples of cones and colours stand for their light.
struct Curves {
  Matrix3 intensity;
  double (*light)(double sample);
  double (*sample)(double light);
};

double quickScene(double sample) {
  static const Sampled table(sceneOfHlg);
  return table(sample);
}

double quickHlg(double scene) {
  static const Sampled table([](double root) { return hlgOfScene(std::pow(root, 4)); });
  return table(std::sqrt(std::sqrt(std::max(scene, 0.0))));
}

const Curves& curvesOf(YUVMatrix matrix) {
  static const Curves pq{kIntensity, quickLightOfPq, quickPqOfLight};
  static const Curves hlg{kIntensityOfHlg, quickScene, quickHlg};
  return matrix == YUVMatrix::kICtCpOfPq ? pq : hlg;
}

template <typename Map>
void mapRow(float* pixels, size_t count, double before, double after, const Map& map) {
  for (size_t i = 0; i < count; ++i, pixels += 4) {
    const double alpha = pixels[3];
    if (alpha <= 0) continue;
    const Triple mapped =
        map({pixels[0] / alpha, pixels[1] / alpha - before, pixels[2] / alpha - before});
    pixels[0] = static_cast<float>(alpha * limited(mapped[0]));
    for (size_t c = 1; c < 3; ++c)
      pixels[c] = static_cast<float>(alpha * limited(mapped[c] + after));
  }
}

}  // namespace

Triple colorsOf(YUVMatrix matrix, const Triple& components) {
  if (matrix == YUVMatrix::kConstantLuminance) return colorsOfConstantLuminance(components);
  static const Matrix3 fromPq = inverse(kIntensity);
  static const Matrix3 fromHlg = inverse(kIntensityOfHlg);
  static const Matrix3 toColors = inverse(kCones);
  const Curves& curves = curvesOf(matrix);
  const Triple cones = (matrix == YUVMatrix::kICtCpOfPq ? fromPq : fromHlg) * components;
  return each(toColors * each(cones, curves.light), curves.sample);
}

Triple componentsOf(YUVMatrix matrix, const Triple& colors) {
  if (matrix == YUVMatrix::kConstantLuminance) return constantLuminanceOf(colors);
  const Curves& curves = curvesOf(matrix);
  return curves.intensity * each(kCones * each(colors, curves.light), curves.sample);
}

void componentsToColors(YUVMatrix matrix, float* pixels, size_t count) {
  mapRow(pixels, count, 0.5, 0, [&](const Triple& c) { return colorsOf(matrix, c); });
}

void colorsToComponents(YUVMatrix matrix, float* pixels, size_t count) {
  mapRow(pixels, count, 0, 0.5, [&](const Triple& c) { return componentsOf(matrix, c); });
}

}  // namespace kestrel
