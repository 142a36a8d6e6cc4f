#pragma once

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>
#include <vector>

namespace kestrel::test {

/// Columns become rows, scaled by a sinc of 12 lobes: doing it twice scales both ways.
inline std::vector<double> sincScaled(const std::vector<double>& in, int width, int height,
                                      int wanted) {
  std::vector<double> out;
  const double scale = 1.0 * width / wanted;
  const double span = std::max(1.0, scale);
  for (int i = 0; i < wanted; ++i) {
    const double u = (i + 0.5) * scale;
    std::vector<std::pair<int, double>> taps;
    double sum = 0;
    for (int k = static_cast<int>(u - 12 * span) - 1; k <= u + 12 * span + 1; ++k) {
      const double t = (k + 0.5 - u) / span;
      if (std::abs(t) >= 12) continue;
      const double p = std::numbers::pi * t;
      const double weight = t == 0 ? 1 : 12 * std::sin(p) * std::sin(p / 12) / (p * p);
      taps.emplace_back(std::clamp(k, 0, width - 1), weight);
      sum += weight;
    }
    for (int y = 0; y < height; ++y) {
      double value = 0;
      for (const auto& [k, weight] : taps)
        value += weight *
                 in[static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(k)];
      out.push_back(value / sum);
    }
  }
  return out;
}

}  // namespace kestrel::test
