#include "support/CodecLock.h"

namespace kestrel {

std::mutex& codecLock() {
  static std::mutex lock;
  return lock;
}

}  // namespace kestrel
