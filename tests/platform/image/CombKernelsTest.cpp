#include "platform/image/kernels/CombKernels.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <vector>

#include "platform/image/kernels/KernelTargets.h"
// After the choice of targets.
#include <hwy/highway.h>

namespace kestrel::kernels {
namespace {

constexpr CombLimits kLimits{.step = 10, .leastRun = 3};
constexpr int kRows = 40;

using Row = std::vector<uint8_t>;

/// Rows of noise that stands in columns or lines now and then, so that there are combs to find.
std::vector<Row> rowsOf(size_t width, unsigned seed) {
  std::mt19937 random(seed);
  std::vector<Row> rows(kRows, Row(width + kCombPadding));
  for (int y = 0; y < kRows; ++y)
    for (size_t x = 0; x < width; ++x) {
      const auto tooth = static_cast<int>((x / 9 % 2 == 0 ? static_cast<size_t>(y) : x) % 2);
      rows[static_cast<size_t>(y)][x] = static_cast<uint8_t>(60 * tooth + 80 + random() % 30);
    }
  return rows;
}

bool isTooth(int outer, int beside, int here, int beyond, int outermost) {
  const int step = kLimits.step;
  const bool isBrighter = here - beside > step && here - beyond > step &&
                          outer - beside > step / 2 && outermost - beyond > step / 2;
  const bool isDarker = beside - here > step && beyond - here > step && beside - outer > step / 2 &&
                        beyond - outermost > step / 2;
  return isBrighter || isDarker;
}

/// The same, pixel by pixel.
class Plain {
 public:
  Plain(const std::vector<Row>& here, const std::vector<Row>& before, int width)
      : here_(here), before_(before), runs_(static_cast<size_t>(width)), width_(width) {}

  CombCounts count(int y) {
    CombCounts counts;
    for (int x = 0; x < width_; ++x) {
      int& run = runs_[static_cast<size_t>(x)];
      const bool isCombed =
          moves(x, y) && isTooth(at(x, y - 2), at(x, y - 1), at(x, y), at(x, y + 1), at(x, y + 2));
      run = isCombed ? run + 1 : 0;
      counts.combed += run >= kLimits.leastRun;
      counts.moving += moves(x, y);
    }
    for (int x = 2; x < width_ - 2 - kLimits.leastRun; ++x) {
      bool isRun = true;
      for (int i = x; i < x + kLimits.leastRun; ++i)
        isRun = isRun && moves(i, y) &&
                isTooth(at(i - 2, y), at(i - 1, y), at(i, y), at(i + 1, y), at(i + 2, y));
      counts.noise += isRun;
    }
    return counts;
  }

 private:
  int at(int x, int y) const { return here_[static_cast<size_t>(y)][static_cast<size_t>(x)]; }
  bool moves(int x, int y) const {
    for (int row = y - 1; row <= y + 1; ++row)
      if (std::abs(at(x, row) - before_[static_cast<size_t>(row)][static_cast<size_t>(x)]) >
          kLimits.step)
        return true;
    return false;
  }

  const std::vector<Row>& here_;
  const std::vector<Row>& before_;
  std::vector<int> runs_;
  int width_;
};

TEST(CombKernels, CountAsAPlainLoopDoes) {
  size_t combed = 0;
  size_t noise = 0;
  for (const int64_t target : hwy::SupportedAndGeneratedTargets()) {
    hwy::GetChosenTarget().Update(target);
    for (const size_t width : {1, 4, 7, 8, 16, 63, 64, 65, 131, 720}) {
      const auto here = rowsOf(width, 1);
      const auto before = rowsOf(width, 2);
      Plain plain(here, before, static_cast<int>(width));
      Row runs(width + kCombPadding);
      Row across(runs.size());
      for (int y = 2; y < kRows - 2; ++y) {
        const uint8_t* rows[5];
        const uint8_t* others[3];
        for (int i = 0; i < 5; ++i) rows[i] = here[static_cast<size_t>(y + i - 2)].data();
        for (int i = 0; i < 3; ++i) others[i] = before[static_cast<size_t>(y + i - 1)].data();
        const CombCounts counts =
            countCombs(rows, others, width, kLimits, runs.data(), across.data());
        const CombCounts wanted = plain.count(y);
        ASSERT_EQ(counts.combed, wanted.combed) << width << " " << y;
        ASSERT_EQ(counts.noise, wanted.noise) << width << " " << y;
        ASSERT_EQ(counts.moving, wanted.moving) << width << " " << y;
        combed += counts.combed;
        noise += counts.noise;
      }
    }
  }
  hwy::GetChosenTarget().Update(hwy::SupportedTargets());
  EXPECT_GT(combed, 1000u);
  EXPECT_GT(noise, 1000u);
}

}  // namespace
}  // namespace kestrel::kernels
