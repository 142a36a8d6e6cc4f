#pragma once

extern "C" {
#include <libavutil/mem.h>
}

#include <limits>

namespace kestrel::test {

/// While it lives, the media libraries cannot allocate.
class NoMemory {
 public:
  NoMemory() { av_max_alloc(1); }
  ~NoMemory() { av_max_alloc(std::numeric_limits<int>::max()); }
  NoMemory(const NoMemory&) = delete;
  NoMemory& operator=(const NoMemory&) = delete;
};

}  // namespace kestrel::test
