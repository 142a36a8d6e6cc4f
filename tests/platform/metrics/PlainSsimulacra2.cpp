#include "tests/platform/metrics/PlainSsimulacra2.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#include "platform/metrics/ScoreWeights.h"

namespace kestrel::test {

namespace {

using Plane = std::vector<double>;

PlainPicture halved(const PlainPicture& picture) {
  PlainPicture half{(picture.width + 1) / 2, (picture.height + 1) / 2, {}};
  for (int c = 0; c < 3; ++c) {
    for (int y = 0; y < half.height; ++y) {
      for (int x = 0; x < half.width; ++x) {
        double sum = 0;
        for (const int row : {2 * y, std::min(2 * y + 1, picture.height - 1)})
          for (const int column : {2 * x, std::min(2 * x + 1, picture.width - 1)})
            sum +=
                picture
                    .rgb[static_cast<size_t>((c * picture.height + row) * picture.width + column)];
        half.rgb.push_back(sum / 4);
      }
    }
  }
  return half;
}

std::vector<Plane> xyb(const PlainPicture& picture) {
  const double dark = 0.0037930732552754493;
  const auto pixels = static_cast<size_t>(picture.width) * static_cast<size_t>(picture.height);
  std::vector<Plane> planes(3, Plane(pixels));
  for (size_t i = 0; i < pixels; ++i) {
    const double r = picture.rgb[i];
    const double g = picture.rgb[pixels + i];
    const double b = picture.rgb[2 * pixels + i];
    const auto answer = [dark](double light) { return std::cbrt(light + dark) - std::cbrt(dark); };
    const double l = answer(0.3 * r + 0.622 * g + 0.078 * b);
    const double m = answer(0.23 * r + 0.692 * g + 0.078 * b);
    const double s =
        answer(0.24342268924547819 * r + 0.20476744424496821 * g + 0.55180986650955360 * b);
    planes[0][i] = 14 * (l - m) / 2 + 0.42;
    planes[1][i] = (l + m) / 2 + 0.01;
    planes[2][i] = s - (l + m) / 2 + 0.55;
  }
  return planes;
}

/// Cosines of a radius of 5 whose sum is 1 where they are added up, whose variance is 1.5 squared,
/// and that are next to the Gauss curve otherwise (D. Charalampidis, 2016).
std::array<double, 9> gauss() {
  const double radius = 5;
  const double variance = 2.25;
  std::array<double, 3> omega{};
  std::array<double, 3> p{};
  std::array<double, 3> r{};
  std::array<double, 3> rho{};
  for (size_t i = 0; i < 3; ++i) {
    omega[i] = (2 * static_cast<double>(i) + 1) * std::numbers::pi / (2 * radius);
    const double sign = i == 1 ? -1 : 1;
    p[i] = sign / std::tan(omega[i] / 2);
    r[i] = sign * p[i] * p[i] / std::sin(omega[i]);
    rho[i] = std::exp(-variance / 2 * omega[i] * omega[i]) / radius;
  }
  // Of all that fulfil the first two conditions the one nearest to the curve's own shares.
  const auto dot = [](const auto& a, const auto& b) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
  };
  // rho + s p + t r, where p · it = 1 and r · it = radius² - variance.
  const double lackP = 1 - dot(p, rho);
  const double lackR = radius * radius - variance - dot(r, rho);
  const double pp = dot(p, p);
  const double pr = dot(p, r);
  const double rr = dot(r, r);
  const double determinant = pp * rr - pr * pr;
  const double s = (lackP * rr - lackR * pr) / determinant;
  const double t = (lackR * pp - lackP * pr) / determinant;
  std::array<double, 9> curve{};
  for (int n = -4; n <= 4; ++n)
    for (size_t i = 0; i < 3; ++i)
      curve[static_cast<size_t>(n + 4)] += (rho[i] + s * p[i] + t * r[i]) * std::cos(omega[i] * n);
  return curve;
}

Plane blurred(const Plane& plane, int width, int height) {
  const auto curve = gauss();
  const auto convolved = [&](const Plane& from, int dx, int dy) {
    Plane to(from.size());
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        for (int k = -4; k <= 4; ++k) {
          const int column = x + k * dx;
          const int row = y + k * dy;
          if (column < 0 || column >= width || row < 0 || row >= height) continue;
          to[static_cast<size_t>(y * width + x)] +=
              curve[static_cast<size_t>(k + 4)] * from[static_cast<size_t>(row * width + column)];
        }
      }
    }
    return to;
  };
  return convolved(convolved(plane, 1, 0), 0, 1);
}

Plane product(const Plane& a, const Plane& b) {
  Plane result(a.size());
  for (size_t i = 0; i < a.size(); ++i) result[i] = a[i] * b[i];
  return result;
}

}  // namespace

double plainSsimulacra2(PlainPicture original, PlainPicture distorted) {
  int scales = 0;
  for (int w = original.width, h = original.height; scales < 6 && w >= 8 && h >= 8; ++scales) {
    if (scales == 0) continue;
    w = (w + 1) / 2;
    h = (h + 1) / 2;
  }
  double score = 0;
  for (int scale = 0; scale < scales; ++scale) {
    if (scale > 0) {
      original = halved(original);
      distorted = halved(distorted);
    }
    const auto one = xyb(original);
    const auto two = xyb(distorted);
    const auto blur = [&](const Plane& plane) {
      return blurred(plane, original.width, original.height);
    };
    for (size_t c = 0; c < 3; ++c) {
      const Plane mean1 = blur(one[c]);
      const Plane mean2 = blur(two[c]);
      const Plane square1 = blur(product(one[c], one[c]));
      const Plane square2 = blur(product(two[c], two[c]));
      const Plane mixed = blur(product(one[c], two[c]));
      double sums[2][3] = {};
      for (size_t i = 0; i < mean1.size(); ++i) {
        const double m = 1 - std::pow(mean1[i] - mean2[i], 2);
        const double s = 2 * (mixed[i] - mean1[i] * mean2[i]) + 0.0009;
        const double variances =
            square1[i] - mean1[i] * mean1[i] + square2[i] - mean2[i] * mean2[i] + 0.0009;
        const double edge =
            (1 + std::abs(two[c][i] - mean2[i])) / (1 + std::abs(one[c][i] - mean1[i])) - 1;
        const double errors[] = {std::max(1 - m * s / variances, 0.0), std::max(edge, 0.0),
                                 std::max(-edge, 0.0)};
        for (int e = 0; e < 3; ++e) {
          sums[0][e] += errors[e];
          sums[1][e] += std::pow(errors[e], 4);
        }
      }
      const auto pixels = static_cast<double>(mean1.size());
      const double* weight = &kErrorWeights[firstWeight(static_cast<int>(c), scale, scales)];
      for (const double error : sums[0]) score += *weight++ * (error / pixels);
      for (const double error : sums[1]) score += *weight++ * std::pow(error / pixels, 0.25);
    }
  }
  return scoreOf(score);
}

}  // namespace kestrel::test
