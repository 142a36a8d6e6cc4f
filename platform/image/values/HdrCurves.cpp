#include "platform/image/values/HdrCurves.h"

#include <algorithm>
#include <cmath>

namespace kestrel {

namespace {

// ITU-R BT.2100, table 4.
constexpr double kM1 = 2610.0 / 16384;
constexpr double kM2 = 2523.0 / 4096 * 128;
constexpr double kC1 = 3424.0 / 4096;
constexpr double kC2 = 2413.0 / 4096 * 32;
constexpr double kC3 = 2392.0 / 4096 * 32;

// Table 5.
constexpr double kHlgA = 0.17883277;
constexpr double kHlgB = 1 - 4 * kHlgA;
const double kHlgC = 0.5 - kHlgA * std::log(4 * kHlgA);

}  // namespace

Triple operator*(const Matrix3& matrix, const Triple& values) {
  Triple result{};
  for (size_t i = 0; i < 3; ++i)
    for (size_t j = 0; j < 3; ++j) result[i] += matrix[i][j] * values[j];
  return result;
}

Matrix3 operator*(const Matrix3& a, const Matrix3& b) {
  Matrix3 result{};
  for (size_t i = 0; i < 3; ++i)
    for (size_t j = 0; j < 3; ++j)
      for (size_t k = 0; k < 3; ++k) result[i][j] += a[i][k] * b[k][j];
  return result;
}

Matrix3 inverse(const Matrix3& m) {
  const auto minor = [&](size_t i, size_t j) {
    const size_t a = (i + 1) % 3, b = (i + 2) % 3, c = (j + 1) % 3, d = (j + 2) % 3;
    return m[a][c] * m[b][d] - m[a][d] * m[b][c];
  };
  const double whole = m[0][0] * minor(0, 0) + m[0][1] * minor(0, 1) + m[0][2] * minor(0, 2);
  Matrix3 result{};
  for (size_t i = 0; i < 3; ++i)
    for (size_t j = 0; j < 3; ++j) result[i][j] = minor(j, i) / whole;
  return result;
}

double lightOfPq(double sample) {
  const double power = std::pow(std::max(sample, 0.0), 1 / kM2);
  return kMostLightOfPq * std::pow(std::max(power - kC1, 0.0) / (kC2 - kC3 * power), 1 / kM1);
}

double pqOfLight(double light) {
  const double power = std::pow(std::clamp(light / kMostLightOfPq, 0.0, 1.0), kM1);
  return std::pow((kC1 + kC2 * power) / (1 + kC3 * power), kM2);
}

double quickLightOfPq(double sample) {
  static const Sampled table(lightOfPq);
  return table(sample);
}

/// Samples lie closer where there is less light, as the curve is steeper there.
double quickPqOfLight(double light) {
  static const Sampled table(
      [](double root) { return pqOfLight(kMostLightOfPq * std::pow(root, 4)); });
  return table(std::sqrt(std::sqrt(std::max(light, 0.0) / kMostLightOfPq)));
}

double sceneOfHlg(double sample) {
  return sample <= 0.5 ? sample * sample / 3 : (std::exp((sample - kHlgC) / kHlgA) + kHlgB) / 12;
}

double hlgOfScene(double scene) {
  return scene <= 1.0 / 12 ? std::sqrt(3 * scene) : kHlgA * std::log(12 * scene - kHlgB) + kHlgC;
}

double Sampled::operator()(double value) const {
  const double at = std::clamp(value, 0.0, 1.0) * kSteps;
  const auto index = static_cast<size_t>(at);
  return values_[index] + (at - static_cast<double>(index)) * (values_[index + 1] - values_[index]);
}

}  // namespace kestrel
