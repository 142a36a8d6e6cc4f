#pragma once

#include <kestrel/YUVPicture.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

namespace kestrel::test {

constexpr YUVFormat formatOf(int width, int height, int shiftX, int shiftY, int bits = 8,
                             int bitShift = 0, bool isFull = false) {
  YUVFormat format;
  format.width = width;
  format.height = height;
  format.chromaShiftX = shiftX;
  format.chromaShiftY = shiftY;
  format.bitDepth = bits;
  format.bitShift = bitShift;
  format.fullRange = isFull;
  return format;
}

inline int chromaWidth(const YUVFormat& f) {
  return (f.width + (1 << f.chromaShiftX) - 1) >> f.chromaShiftX;
}
inline int chromaHeight(const YUVFormat& f) {
  return (f.height + (1 << f.chromaShiftY) - 1) >> f.chromaShiftY;
}

/// Planes in memory of their own; `isPaired` has Cb and Cr take turns in one plane.
class Planes {
 public:
  explicit Planes(const YUVFormat& format, bool isPaired = false, bool hasAlpha = false)
      : format_(format), isPaired_(isPaired) {
    const int bytes = format.bitDepth > 8 ? 2 : 1;
    strides_[0] = strides_[3] = format.width * bytes + 6;
    strides_[1] = strides_[2] = chromaWidth(format) * bytes * (isPaired ? 2 : 1) + 4;
    const auto size = [&](int stride, int rows) { return static_cast<size_t>(stride * rows); };
    memory_[0].resize(size(strides_[0], format.height));
    memory_[1].resize(size(strides_[1], chromaHeight(format)));
    if (!isPaired) memory_[2].resize(memory_[1].size());
    if (hasAlpha) memory_[3].resize(memory_[0].size());
  }

  uint8_t* plane(size_t p) {
    if (p == 2 && isPaired_) return memory_[1].data() + (format_.bitDepth > 8 ? 2 : 1);
    return memory_[p].empty() ? nullptr : memory_[p].data();
  }

  uint8_t* at(size_t p, int x, int row) {
    const int bytes = format_.bitDepth > 8 ? 2 : 1;
    const int step = isPaired_ && (p == 1 || p == 2) ? 2 : 1;
    return plane(p) + ptrdiff_t{row} * strides_[p] + ptrdiff_t{x} * bytes * step;
  }

  int get(size_t p, int x, int row) {
    if (format_.bitDepth == 8) return *at(p, x, row);
    uint16_t value;
    std::memcpy(&value, at(p, x, row), 2);
    return value >> format_.bitShift;
  }

  void set(size_t p, int x, int row, int value) {
    if (format_.bitDepth == 8) {
      *at(p, x, row) = static_cast<uint8_t>(value);
      return;
    }
    const auto word = static_cast<uint16_t>(value << format_.bitShift);
    std::memcpy(at(p, x, row), &word, 2);
  }

  void fill(size_t p, const std::function<int(int x, int row)>& value) {
    for (int row = 0; row < height(p); ++row) {
      for (int x = 0; x < width(p); ++x) set(p, x, row, value(x, row));
    }
  }

  /// Noise in the legal range.
  void fillWithNoise(uint32_t seed) {
    std::mt19937 random(seed);
    const int levels = 1 << (format_.bitDepth - 8);
    for (size_t p = 0; p < 4; ++p) {
      if (!plane(p)) continue;
      const int low = p == 3 ? 0 : 60 * levels;
      const int high = p == 3 ? (1 << format_.bitDepth) - 1 : 190 * levels;
      std::uniform_int_distribution<int> value(low, high);
      fill(p, [&](int, int) { return value(random); });
    }
  }

  int width(size_t p) const { return p == 1 || p == 2 ? chromaWidth(format_) : format_.width; }
  int height(size_t p) const { return p == 1 || p == 2 ? chromaHeight(format_) : format_.height; }

  YUVPicture picture() {
    YUVPicture result{format_, {}, nullptr};
    for (size_t p = 0; p < 4; ++p)
      result.planes[p] = {plane(p), strides_[p], isPaired_ && (p == 1 || p == 2) ? 2 : 1};
    return result;
  }

  YUVTarget target() {
    YUVTarget result{format_, {}};
    for (size_t p = 0; p < 3; ++p)
      result.planes[p] = {plane(p), strides_[p], isPaired_ && p > 0 ? 2 : 1};
    return result;
  }

 private:
  YUVFormat format_;
  bool isPaired_;
  std::array<int, 4> strides_{};
  std::array<std::vector<uint8_t>, 4> memory_;
};

}  // namespace kestrel::test
