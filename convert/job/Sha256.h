#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kestrel {

/// SHA-256 of bytes that come one after the other.
class Sha256 {
 public:
  Sha256();

  void add(const void* data, size_t size);

  /// In hexadecimal digits. Once, at the end.
  std::string text();

 private:
  std::vector<uint64_t> state_;
};

}  // namespace kestrel
