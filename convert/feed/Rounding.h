#pragma once

#include <algorithm>
#include <cstdint>

namespace kestrel {

/// How soon after a time that somebody gives a picture may begin to be the one that was meant,
/// since times are given in rounded milliseconds. `duration`: of a usual picture; both
/// microseconds.
inline int64_t roundingOf(int64_t duration) {
  constexpr int64_t kMillisecond = 1000;
  return std::min(duration / 4, kMillisecond);
}

}  // namespace kestrel
