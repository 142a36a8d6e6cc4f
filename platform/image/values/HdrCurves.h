#pragma once

#include <array>
#include <vector>

namespace kestrel {

/// Red, green and blue, or another three components.
using Triple = std::array<double, 3>;
using Matrix3 = std::array<Triple, 3>;

Triple operator*(const Matrix3& matrix, const Triple& values);
Matrix3 operator*(const Matrix3& a, const Matrix3& b);
Matrix3 inverse(const Matrix3& matrix);

template <typename Function>
Triple each(const Triple& values, const Function& function) {
  return {function(values[0]), function(values[1]), function(values[2])};
}

inline constexpr double kMostLightOfPq = 10000;

/// The samples of one PQ component, 0 to 1, and the light that they stand for, candelas per square
/// metre (ITU-R BT.2100, table 4).
double lightOfPq(double sample);
double pqOfLight(double light);

/// The same from tables, for those who ask millions of times.
double quickLightOfPq(double sample);
double quickPqOfLight(double light);

/// The samples of one HLG component and the light of the scene, both 0 to 1 (table 5).
double sceneOfHlg(double sample);
double hlgOfScene(double scene);

/// From light of BT.2020 to that of cones, and from these, as samples of PQ, to intensity and two
/// differences (BT.2100, table 7).
inline constexpr Matrix3 kCones = {{{1688.0 / 4096, 2146.0 / 4096, 262.0 / 4096},
                                    {683.0 / 4096, 2951.0 / 4096, 462.0 / 4096},
                                    {99.0 / 4096, 309.0 / 4096, 3688.0 / 4096}}};
inline constexpr Matrix3 kIntensity = {{{0.5, 0.5, 0},
                                        {6610.0 / 4096, -13613.0 / 4096, 7003.0 / 4096},
                                        {17933.0 / 4096, -17390.0 / 4096, -543.0 / 4096}}};

/// A function from 0 to 1, between samples of it.
class Sampled {
 public:
  template <typename Function>
  explicit Sampled(const Function& function) {
    for (int i = 0; i <= kSteps + 1; ++i) values_.push_back(function(1.0 * i / kSteps));
  }

  /// Values outside are limited.
  double operator()(double value) const;

 private:
  static constexpr int kSteps = 4096;

  std::vector<double> values_;
};

}  // namespace kestrel
