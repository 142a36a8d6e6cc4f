#pragma once

#include <cmath>
#include <cstdint>
#include <optional>

namespace kestrel::python {

// Python counts in seconds, the engine in microseconds.

inline double seconds(int64_t microseconds) { return static_cast<double>(microseconds) / 1e6; }

inline std::optional<double> seconds(const std::optional<int64_t>& microseconds) {
  return microseconds ? std::optional(seconds(*microseconds)) : std::nullopt;
}

inline int64_t microseconds(double seconds) { return std::llround(seconds * 1e6); }

}  // namespace kestrel::python
