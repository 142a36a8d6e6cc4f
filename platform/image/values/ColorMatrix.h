#pragma once

#include <array>

namespace kestrel {

/// An affine mapping of colours: r' = m[0][0] r + m[0][1] g + m[0][2] b + m[0][3], and so on for g
/// and b. Alpha stays as it is.
///
/// Applied to colours that are multiplied by their alpha, the fourth column is multiplied by alpha,
/// too: that makes the mapping linear there, so that it may come before or after a resampling.
struct ColorMatrix {
  std::array<std::array<double, 4>, 3> m = {{{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}}};

  /// This mapping first, then `next`.
  constexpr ColorMatrix then(const ColorMatrix& next) const {
    ColorMatrix result;
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 4; ++j) {
        double sum = j == 3 ? next.m[i][3] : 0;
        for (int k = 0; k < 3; ++k) sum += next.m[i][k] * m[k][j];
        result.m[i][j] = sum;
      }
    }
    return result;
  }

  constexpr bool isIdentity() const { return *this == ColorMatrix{}; }

  bool operator==(const ColorMatrix&) const = default;
};

/// The luminance that filters work with, of encoded values.
inline constexpr std::array<double, 3> kLuminance = {0.2126, 0.7152, 0.0722};

}  // namespace kestrel
