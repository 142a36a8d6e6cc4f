#include "tests/platform/image/HdrModel.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace kestrel::test {

namespace {

constexpr double kWhite = 203;

double pqLight(double sample) {
  const double p = std::pow(sample, 4096.0 / (2523.0 * 128));
  const double top = std::max(p - 3424.0 / 4096, 0.0);
  const double bottom = 2413.0 / 128 - 2392.0 / 128 * p;
  return 10000 * std::pow(top / bottom, 16384.0 / 2610);
}

constexpr double kA = 0.17883277;
constexpr double kB = 0.28466892;
constexpr double kC = 0.55991073;

double hlgScene(double sample) {
  return sample <= 0.5 ? sample * sample / 3 : (std::exp((sample - kC) / kA) + kB) / 12;
}

// Red, green and blue of BT.2020 as light of BT.709, as ITU-R BT.2087 has it with more digits.
Colour toBt709(const Colour& c) {
  return {1.660491 * c[0] - 0.587641 * c[1] - 0.072850 * c[2],
          -0.124550 * c[0] + 1.132900 * c[1] - 0.008350 * c[2],
          -0.018151 * c[0] - 0.100579 * c[1] + 1.118730 * c[2]};
}

/// Solves 3 equations by Cramer's rule.
Colour solved(const double (&m)[3][3], const Colour& v) {
  const auto det = [](const double(&a)[3][3]) {
    return a[0][0] * (a[1][1] * a[2][2] - a[1][2] * a[2][1]) -
           a[0][1] * (a[1][0] * a[2][2] - a[1][2] * a[2][0]) +
           a[0][2] * (a[1][0] * a[2][1] - a[1][1] * a[2][0]);
  };
  Colour result;
  for (size_t k = 0; k < 3; ++k) {
    double n[3][3];
    for (size_t i = 0; i < 3; ++i)
      for (size_t j = 0; j < 3; ++j) n[i][j] = j == k ? v[i] : m[i][j];
    result[k] = det(n) / det(m);
  }
  return result;
}

constexpr double kCones[3][3] = {{1688.0 / 4096, 2146.0 / 4096, 262.0 / 4096},
                                 {683.0 / 4096, 2951.0 / 4096, 462.0 / 4096},
                                 {99.0 / 4096, 309.0 / 4096, 3688.0 / 4096}};
constexpr double kOpponents[3][3] = {{0.5, 0.5, 0},
                                     {6610.0 / 4096, -13613.0 / 4096, 7003.0 / 4096},
                                     {17933.0 / 4096, -17390.0 / 4096, -543.0 / 4096}};

Colour product(const double (&m)[3][3], const Colour& v) {
  Colour result{};
  for (size_t i = 0; i < 3; ++i)
    for (size_t j = 0; j < 3; ++j) result[i] += m[i][j] * v[j];
  return result;
}

/// Light of BT.709, 1 for white, of a colour in ICtCp.
Colour shownOf(double intensity, double ct, double cp) {
  Colour cones = solved(kOpponents, {intensity, ct, cp});
  for (double& cone : cones) cone = pqLight(std::clamp(cone, 0.0, 1.0)) / kWhite;
  return toBt709(solved(kCones, cones));
}

bool isWithin(const Colour& c) {
  return std::ranges::all_of(c, [](double v) { return v >= -1e-4 && v <= 1 + 1e-4; });
}

Colour sdrOfLight(const Colour& light, double peak) {
  Colour cones = product(kCones, light);
  for (double& cone : cones) cone = pqSample(cone);
  auto [intensity, ct, cp] = product(kOpponents, cones);
  if (intensity <= 0) return {};

  const double most = pqSample(kWhite) / pqSample(peak);
  const double knee = 1.5 * most - 0.5;
  const double e1 = std::min(intensity / pqSample(peak), 1.0);
  double e2 = e1;
  if (e1 > knee && knee < 1) {
    const double t = (e1 - knee) / (1 - knee);
    e2 = (2 * t * t * t - 3 * t * t + 1) * knee + (t * t * t - 2 * t * t + t) * (1 - knee) +
         (-2 * t * t * t + 3 * t * t) * most;
  }
  const double after = std::min(e2 * pqSample(peak), pqSample(kWhite));
  const double fade = std::min(intensity / after, after / intensity);
  ct *= fade;
  cp *= fade;

  // The first way out of the gamut, from far out inwards.
  constexpr double kKnee = 0.7;
  double low = 0;
  double high = 1 / kKnee;
  if (isWithin(shownOf(after, high * ct, high * cp))) low = high;
  for (int i = 0; i < 50 && low < high; ++i) {
    const double middle = (low + high) / 2;
    (isWithin(shownOf(after, middle * ct, middle * cp)) ? low : high) = middle;
  }
  double share = 1;
  if (low < high) {
    const double x = (1 / std::max(low, 1e-9) - kKnee) / (1 - kKnee);
    share = low * (kKnee + (1 - kKnee) * x / (1 + x));
  }
  Colour shown = shownOf(after, share * ct, share * cp);
  for (double& value : shown) value = std::pow(std::clamp(value, 0.0, 1.0), 1 / 2.4);
  return shown;
}

}  // namespace

double pqSample(double light) {
  const double y = std::pow(std::max(light, 0.0) / 10000, 2610.0 / 16384);
  return std::pow((3424.0 / 4096 + 2413.0 / 128 * y) / (1 + 2392.0 / 128 * y), 2523.0 / 32);
}

double hlgSample(double light) {
  const double scene = std::pow(light / 1000, 1 / 1.2);
  return scene <= 1.0 / 12 ? std::sqrt(3 * scene) : kA * std::log(12 * scene - kB) + kC;
}

Colour sdrOfPq(const Colour& samples, double peak) {
  return sdrOfLight({pqLight(samples[0]), pqLight(samples[1]), pqLight(samples[2])}, peak);
}

Colour sdrOfHlg(const Colour& samples) {
  Colour light{hlgScene(samples[0]), hlgScene(samples[1]), hlgScene(samples[2])};
  const double luminance = 0.2627 * light[0] + 0.6780 * light[1] + 0.0593 * light[2];
  // On a display of 400, whose gamma is 1.2 + 0.42 log10(400 / 1000).
  for (double& part : light) part *= 400 * std::pow(luminance, 0.2 - 0.42 * 0.39794);
  return sdrOfLight(light, 400);
}

Colour labOf(const Colour& sdr) {
  Colour c;
  for (size_t i = 0; i < 3; ++i) c[i] = std::pow(std::clamp(sdr[i], 0.0, 1.0), 2.4);
  const double x = (0.4124 * c[0] + 0.3576 * c[1] + 0.1805 * c[2]) / 0.9505;
  const double y = 0.2126 * c[0] + 0.7152 * c[1] + 0.0722 * c[2];
  const double z = (0.0193 * c[0] + 0.1192 * c[1] + 0.9505 * c[2]) / 1.089;
  const auto f = [](double t) {
    return t > 216.0 / 24389 ? std::cbrt(t) : (24389.0 / 27 * t + 16) / 116;
  };
  return {116 * f(y) - 16, 500 * (f(x) - f(y)), 200 * (f(y) - f(z))};
}

double ciede2000(const Colour& first, const Colour& second) {
  constexpr double kDegree = std::numbers::pi / 180;
  const double mean = (std::hypot(first[1], first[2]) + std::hypot(second[1], second[2])) / 2;
  const auto share = [](double c) {
    return std::sqrt(std::pow(c, 7) / (std::pow(c, 7) + std::pow(25.0, 7)));
  };
  const double g = 1 + (1 - share(mean)) / 2;
  const double c1 = std::hypot(g * first[1], first[2]);
  const double c2 = std::hypot(g * second[1], second[2]);
  const auto hue = [&](const Colour& c) {
    const double h = std::atan2(c[2], g * c[1]) / kDegree;
    return h < 0 ? h + 360 : h;
  };
  const double h1 = c1 == 0 ? 0 : hue(first);
  const double h2 = c2 == 0 ? 0 : hue(second);
  const bool isColoured = c1 * c2 != 0;
  double dh = isColoured ? h2 - h1 : 0;
  if (dh > 180) dh -= 360;
  if (dh < -180) dh += 360;
  double h = h1 + h2;
  if (isColoured) h = std::abs(h1 - h2) <= 180 ? h / 2 : (h + (h < 360 ? 360 : -360)) / 2;
  const double l = (first[0] + second[0]) / 2;
  const double c = (c1 + c2) / 2;
  const double t = 1 - 0.17 * std::cos((h - 30) * kDegree) + 0.24 * std::cos(2 * h * kDegree) +
                   0.32 * std::cos((3 * h + 6) * kDegree) - 0.2 * std::cos((4 * h - 63) * kDegree);
  const double sl = 1 + 0.015 * (l - 50) * (l - 50) / std::sqrt(20 + (l - 50) * (l - 50));
  const double sc = 1 + 0.045 * c;
  const double sh = 1 + 0.015 * c * t;
  const double turn = 30 * std::exp(-std::pow((h - 275) / 25, 2));
  const double rt = -std::sin(2 * turn * kDegree) * 2 * share(c);
  const double dl = (second[0] - first[0]) / sl;
  const double dc = (c2 - c1) / sc;
  const double dH = 2 * std::sqrt(c1 * c2) * std::sin(dh / 2 * kDegree) / sh;
  return std::sqrt(std::max(dl * dl + dc * dc + dH * dH + rt * dc * dH, 0.0));
}

}  // namespace kestrel::test
