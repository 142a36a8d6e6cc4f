#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>

#include "platform/metrics/kernels/MetricKernels.h"

namespace kestrel {

/// Rows of floats as kernels of metrics take them: each begins at a multiple of 64 bytes and has a
/// margin of zeros in front; behind, values that kernels may write, and another margin.
class FloatRows {
 public:
  FloatRows() = default;

  FloatRows(int rows, int width)
      : stride_(2 * kernels::kRowMargin + rounded(static_cast<size_t>(width)) + kernels::kRowUnit),
        values_(static_cast<float*>(
            ::operator new(static_cast<size_t>(rows) * stride_ * sizeof(float), kAlignment))) {
    std::fill_n(values_.get(), static_cast<size_t>(rows) * stride_, 0.0F);
  }

  float* row(int y) {
    return values_.get() + static_cast<size_t>(y) * stride_ + kernels::kRowMargin;
  }

  /// Makes zeros of what kernels wrote behind the last of `count` values.
  static void clearBehind(float* row, size_t count) {
    std::fill(row + count, row + rounded(count) + kernels::kRowMargin, 0.0F);
  }

  /// Has the last of `count` values once more behind it.
  static void repeatLast(float* row, size_t count) { row[count] = row[count - 1]; }

 private:
  static constexpr std::align_val_t kAlignment{64};

  struct Free {
    void operator()(float* values) const { ::operator delete(values, kAlignment); }
  };

  static size_t rounded(size_t width) {
    return (width + kernels::kRowUnit - 1) / kernels::kRowUnit * kernels::kRowUnit;
  }

  size_t stride_ = 0;
  std::unique_ptr<float[], Free> values_;
};

}  // namespace kestrel
