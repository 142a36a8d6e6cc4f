#pragma once

#include <cmath>
#include <cstdint>
#include <optional>

#include <pybind11/pybind11.h>

namespace kestrel::python {

// Python counts in seconds, the engine in microseconds.

inline double seconds(int64_t microseconds) { return static_cast<double>(microseconds) / 1e6; }

inline std::optional<double> seconds(const std::optional<int64_t>& microseconds) {
  return microseconds ? std::optional(seconds(*microseconds)) : std::nullopt;
}

/// A time that is no number, or beyond all movies, is refused.
inline int64_t microseconds(double seconds) {
  constexpr double kBeyond = 1e12;
  if (!(std::abs(seconds) < kBeyond))
    throw pybind11::value_error("a time is a finite number of seconds");
  return std::llround(seconds * 1e6);
}

}  // namespace kestrel::python
