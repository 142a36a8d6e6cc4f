#pragma once

#include <array>
#include <cstddef>

namespace kestrel {

/// One to four numbers: a point, a direction, a position in space. A plain value; components that
/// were not given are 0.
class Vector {
 public:
  constexpr Vector() = default;
  constexpr explicit Vector(double x) : values_{x, 0, 0, 0}, count_(1) {}
  constexpr Vector(double x, double y) : values_{x, y, 0, 0}, count_(2) {}
  constexpr Vector(double x, double y, double z) : values_{x, y, z, 0}, count_(3) {}
  constexpr Vector(double x, double y, double z, double w) : values_{x, y, z, w}, count_(4) {}

  constexpr double x() const { return values_[0]; }
  constexpr double y() const { return values_[1]; }
  constexpr double z() const { return values_[2]; }
  constexpr double w() const { return values_[3]; }

  /// The number of components given, 0 to 4.
  constexpr size_t count() const { return count_; }

  /// A component; 0 beyond the last one.
  constexpr double operator[](size_t index) const {
    return index < values_.size() ? values_[index] : 0;
  }

  bool operator==(const Vector&) const = default;

 private:
  std::array<double, 4> values_{};
  size_t count_ = 0;
};

}  // namespace kestrel
