#pragma once

struct dvd_reader_s;

namespace kestrel {

/// Holds a disc's reader handle, so that nobody else need know its type. It does not close it: the
/// `LMDVD` does.
class LMDVDInternal {
 public:
  dvd_reader_s* dvd() const { return dvd_; }
  void setDvd(dvd_reader_s* dvd) { dvd_ = dvd; }

 private:
  dvd_reader_s* dvd_ = nullptr;
};

}  // namespace kestrel
