#pragma once

#include <mutex>

struct dvd_reader_s;

namespace kestrel {

/// Holds a disc's reader handle, so that nobody else need know its type. It does not close it: the
/// `LMDVD` does.
class LMDVDInternal {
 public:
  dvd_reader_s* dvd() const { return dvd_; }
  void setDvd(dvd_reader_s* dvd) { dvd_ = dvd; }

  /// Held during every access to the disc: of an image there is one open file, and two threads
  /// would move its position under each other.
  std::mutex& lock() { return lock_; }

 private:
  std::mutex lock_;
  dvd_reader_s* dvd_ = nullptr;
};

}  // namespace kestrel
