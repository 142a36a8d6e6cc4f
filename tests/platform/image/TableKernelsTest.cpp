// Kernels of tables and of deep samples beside plain loops, with every instruction set.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "platform/image/kernels/KernelTargets.h"
#include "platform/image/kernels/Kernels.h"
#include "platform/image/kernels/TableKernels.h"
// After the choice of targets.
#include <hwy/highway.h>

namespace kestrel {
namespace {

/// Calls `run` with each instruction set in turn.
template <typename Run>
void withAllTargets(const Run& run) {
  for (const int64_t target : hwy::SupportedAndGeneratedTargets()) {
    hwy::GetChosenTarget().Update(target);
    run(hwy::TargetName(target));
  }
  hwy::GetChosenTarget().Update(hwy::SupportedTargets());
}

/// Tetrahedral interpolation: from the lower corner to the upper one along the axes in the order in
/// which the place lies far along them.
std::array<double, 3> lookedUp(const kernels::ColorCube& cube, const std::array<double, 3>& color) {
  std::array<int, 3> cell{};
  std::array<double, 3> part{};
  for (size_t i = 0; i < 3; ++i) {
    const double place = std::clamp(color[i] * cube.scale, 0.0, cube.side - 1.0);
    cell[i] = std::min(static_cast<int>(place), cube.side - 2);
    part[i] = place - cell[i];
  }
  std::array<size_t, 3> order{0, 1, 2};
  std::ranges::sort(order, [&](size_t a, size_t b) { return part[a] > part[b]; });
  std::array<double, 3> result{};
  const auto add = [&](double weight) {
    const int at = 4 * ((cell[0] * cube.side + cell[1]) * cube.side + cell[2]);
    for (size_t c = 0; c < 3; ++c)
      result[c] += weight * cube.colors[at + static_cast<int>(c)] / kernels::ColorCube::kOne;
  };
  double before = 1;
  for (const size_t axis : order) {
    add(before - part[axis]);
    before = part[axis];
    ++cell[axis];
  }
  add(before);
  return result;
}

TEST(TableKernelsTest, ColorsAreMixedOfTheCornersOfTheirTetrahedron) {
  constexpr int kSide = 9;
  std::mt19937 random(3);
  std::uniform_int_distribution<int> sample(0, kernels::ColorCube::kOne);
  std::vector<int16_t> colors(size_t{4} * kSide * kSide * kSide);
  for (int16_t& color : colors) color = static_cast<int16_t>(sample(random));
  const kernels::ColorCube cube{colors.data(), kSide, 10};
  std::uniform_real_distribution<float> value(-0.1f, 0.9f);
  std::uniform_real_distribution<float> cover(0.05f, 1.0f);
  withAllTargets([&](const char* target) {
    for (const bool isOpaque : {true, false}) {
      for (const size_t count : {1, 3, 8, 37}) {
        std::vector<float> pixels(4 * count);
        for (size_t i = 0; i < pixels.size(); i += 4) {
          pixels[i + 3] = isOpaque ? 1 : cover(random);
          for (size_t c = 0; c < 3; ++c) pixels[i + c] = value(random) * pixels[i + 3];
        }
        std::vector<float> mapped = pixels;
        kernels::lookUpColors(mapped.data(), count, cube, isOpaque);
        for (size_t i = 0; i < pixels.size(); i += 4) {
          const float alpha = pixels[i + 3];
          const auto exact =
              lookedUp(cube, {pixels[i] / alpha, pixels[i + 1] / alpha, pixels[i + 2] / alpha});
          for (size_t c = 0; c < 3; ++c)
            ASSERT_NEAR(mapped[i + c], alpha * exact[c], 1.5e-4) << target << ' ' << i;
          ASSERT_EQ(mapped[i + 3], alpha);
        }
      }
    }
  });
}

// Black and white come out to the bit, wherever a colour lies between corners that are alike.
TEST(TableKernelsTest, WhatAllCornersShareIsKept) {
  for (const int one : {0, 1, 12345, kernels::ColorCube::kOne}) {
    const std::vector<int16_t> colors(size_t{4} * 8, static_cast<int16_t>(one));
    const kernels::ColorCube cube{colors.data(), 2, 1};
    withAllTargets([&](const char* target) {
      for (int i = 0; i < 50; ++i) {
        std::array<float, 4> pixel{0.0203f * static_cast<float>(i), 0.31f,
                                   1 - 0.017f * static_cast<float>(i), 1};
        kernels::lookUpColors(pixel.data(), 1, cube, true);
        ASSERT_NEAR(pixel[0], one / static_cast<double>(kernels::ColorCube::kOne), 1e-7) << target;
      }
    });
  }
}

TEST(TableKernelsTest, DeepSamplesAreMovedAndLimited) {
  std::mt19937 random(4);
  std::vector<uint16_t> samples(77);
  for (uint16_t& sample : samples) sample = static_cast<uint16_t>(random());
  withAllTargets([&](const char* target) {
    for (const int bits : {9, 10, 12, 14}) {
      for (const int shift : {0, 16 - bits}) {
        const int most = (1 << bits) - 1;
        std::vector<int16_t> out(samples.size());
        kernels::widenSamples(samples.data(), shift, most, 14 - bits, samples.size(), out.data());
        for (size_t i = 0; i < samples.size(); ++i)
          ASSERT_EQ(out[i], std::min(samples[i] >> shift, most) * (1 << (14 - bits))) << target;
      }
    }
  });
}

}  // namespace
}  // namespace kestrel
