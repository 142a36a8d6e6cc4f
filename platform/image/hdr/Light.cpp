#include "platform/image/hdr/Light.h"

#include <algorithm>
#include <cmath>

namespace kestrel {

namespace {

constexpr double kUnknownPeak = 1000;

// ITU-R BT.2100, table 5: luminance in HLG, and its gamma.
constexpr double kHlgGamma = 1.2;
constexpr Triple kHlgLuminance = {0.2627, 0.6780, 0.0593};

constexpr double kDisplayGamma = 2.4;  // BT.1886 where black is no light

/// Chroma up to this share of what the display has stays as it is.
constexpr double kChromaKnee = 0.7;
constexpr int kHalvings = 12;

/// Red, green and blue at one light each, x and y.
struct Lights {
  double red[2], green[2], blue[2];
};
constexpr double kWhite[2] = {0.3127, 0.3290};

Lights lightsOf(HdrLight::Primaries primaries) {
  switch (primaries) {
    case HdrLight::Primaries::kRec2020:
      return {{0.708, 0.292}, {0.170, 0.797}, {0.131, 0.046}};
    case HdrLight::Primaries::kDisplayP3:
      return {{0.680, 0.320}, {0.265, 0.690}, {0.150, 0.060}};
    default:
      return {{0.640, 0.330}, {0.300, 0.600}, {0.150, 0.060}};
  }
}

/// The matrix to XYZ, by which white has the luminance 1 (SMPTE RP 177).
Matrix3 toXyz(HdrLight::Primaries primaries) {
  const auto xyz = [](const double(&at)[2]) {
    return Triple{at[0] / at[1], 1, (1 - at[0] - at[1]) / at[1]};
  };
  const Lights lights = lightsOf(primaries);
  const Triple columns[3] = {xyz(lights.red), xyz(lights.green), xyz(lights.blue)};
  Matrix3 matrix{};
  for (size_t i = 0; i < 3; ++i)
    for (size_t j = 0; j < 3; ++j) matrix[i][j] = columns[j][i];
  const Triple shares = inverse(matrix) * xyz(kWhite);
  for (auto& row : matrix)
    for (size_t j = 0; j < 3; ++j) row[j] *= shares[j];
  return matrix;
}

double hlgLuminance(const Triple& rgb) {
  return kHlgLuminance[0] * rgb[0] + kHlgLuminance[1] * rgb[1] + kHlgLuminance[2] * rgb[2];
}

double quickSdrOfLight(double light) {
  static const Sampled table([](double root) { return std::pow(root, 2 / kDisplayGamma); });
  return table(std::sqrt(std::max(light, 0.0)));
}

const Matrix3& fromIntensity() {
  static const Matrix3 matrix = inverse(kIntensity);
  return matrix;
}

}  // namespace

Matrix3 betweenPrimaries(HdrLight::Primaries from, HdrLight::Primaries to) {
  return inverse(toXyz(to)) * toXyz(from);
}

Triple lightOf(const Triple& samples, const HdrLight& light, double hlgPeak) {
  if (light.transfer == HdrLight::Transfer::kPq) return each(samples, quickLightOfPq);
  const Triple scene = each(samples, sceneOfHlg);
  const double gamma = kHlgGamma + 0.42 * std::log10(hlgPeak / kHlgPeak);
  const double gain = hlgPeak * std::pow(hlgLuminance(scene), gamma - 1);
  return each(scene, [&](double part) { return gain * part; });
}

Triple samplesOf(const Triple& displayed, const HdrLight& light) {
  const Triple seen = each(displayed, [](double part) { return std::max(part, 0.0); });
  if (light.transfer == HdrLight::Transfer::kPq) return each(seen, pqOfLight);
  const double luminance = hlgLuminance(seen) / kHlgPeak;
  if (luminance <= 0) return {};
  const double gain = std::pow(luminance, (1 - kHlgGamma) / kHlgGamma) / kHlgPeak;
  return each(seen, [&](double part) { return std::min(hlgOfScene(gain * part), 1.0); });
}

SdrMapping::SdrMapping(const HdrLight& light)
    : toCones_(kCones * betweenPrimaries(light.primaries, HdrLight::Primaries::kRec2020)),
      toDisplay_(betweenPrimaries(HdrLight::Primaries::kRec2020, HdrLight::Primaries::kRec709) *
                 inverse(kCones)),
      targetPeak_(pqOfLight(kGraphicsWhite)) {
  for (auto& row : toDisplay_)
    for (double& part : row) part /= kGraphicsWhite;
  const bool isPq = light.transfer == HdrLight::Transfer::kPq;
  const double told = std::isfinite(light.peak) ? light.peak : kUnknownPeak;
  const double peak = isPq ? std::clamp(told, kGraphicsWhite, kMostLightOfPq) : kDimHlgPeak;
  sourcePeak_ = pqOfLight(peak);
  mostSample_ = isPq ? sourcePeak_ : 1;
}

/// ITU-R BT.2390, 5.4.1: a spline of Hermite's above the knee. Black stays, for that of both
/// displays is no light.
double SdrMapping::compressed(double intensity) const {
  const double most = targetPeak_ / sourcePeak_;
  const double knee = 1.5 * most - 0.5;
  const double value = std::min(intensity / sourcePeak_, 1.0);
  if (value < knee || knee >= 1) return value * sourcePeak_;
  const double t = (value - knee) / (1 - knee);
  const double t2 = t * t;
  const double t3 = t2 * t;
  return sourcePeak_ *
         ((2 * t3 - 3 * t2 + 1) * knee + (t3 - 2 * t2 + t) * (1 - knee) + (3 * t2 - 2 * t3) * most);
}

Triple SdrMapping::displayed(double intensity, double tritan, double protan) const {
  return toDisplay_ * each(fromIntensity() * Triple{intensity, tritan, protan}, quickLightOfPq);
}

/// Which multiple of the chroma the display can show, at most 1 / `kChromaKnee`.
double SdrMapping::chromaWithin(double intensity, double tritan, double protan) const {
  constexpr double kSlack = 1e-4;
  const auto isShown = [&](double share) {
    const Triple shown = displayed(intensity, share * tritan, share * protan);
    return std::ranges::all_of(shown,
                               [](double part) { return part >= -kSlack && part <= 1 + kSlack; });
  };
  double least = 0;
  double most = 1 / kChromaKnee;
  if (isShown(most)) return most;
  for (int i = 0; i < kHalvings; ++i) {
    const double middle = (least + most) / 2;
    (isShown(middle) ? least : most) = middle;
  }
  return least;
}

Triple SdrMapping::operator()(const Triple& light) const {
  const Triple cones = each(toCones_ * light, quickPqOfLight);
  const auto [before, tritan, protan] = kIntensity * cones;
  const double after = std::min(compressed(before), targetPeak_);
  if (after <= 0) return {};
  // Light that gives way takes chroma along (BT.2390, 5.4.2).
  const double fade = std::min(before / after, after / before);
  const double room = chromaWithin(after, fade * tritan, fade * protan);
  double share = fade;
  if (const double reach = 1 / std::max(room, 1e-9); reach > kChromaKnee) {
    const double beyond = (reach - kChromaKnee) / (1 - kChromaKnee);
    share *= room * (kChromaKnee + (1 - kChromaKnee) * beyond / (1 + beyond));
  }
  return each(displayed(after, share * tritan, share * protan), quickSdrOfLight);
}

Triple hdrSamplesOf(const Triple& sdr, const HdrLight& light) {
  const Triple shown = each(sdr, [](double sample) {
    return kGraphicsWhite * std::pow(std::max(sample, 0.0), kDisplayGamma);
  });
  return samplesOf(betweenPrimaries(HdrLight::Primaries::kRec709, light.primaries) * shown, light);
}

}  // namespace kestrel
