#pragma once

#include <mutex>

struct dvd_reader_s;

namespace kestrel {

/// Holds a disc's reader handle without exposing its type. `LMDVD` closes it.
class LMDVDInternal {
 public:
  dvd_reader_s* dvd() const { return dvd_; }
  void setDvd(dvd_reader_s* dvd) { dvd_ = dvd; }

  /// Held during every access to the disc: an image is a single open file with one position, which
  /// concurrent reads would move.
  std::mutex& lock() { return lock_; }

 private:
  std::mutex lock_;
  dvd_reader_s* dvd_ = nullptr;
};

}  // namespace kestrel
