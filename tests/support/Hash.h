#pragma once

#include <cstdint>
#include <string>

namespace kestrel::test {

/// FNV-1a, 64 bits: names what is kept by what it is made of, so that what is made otherwise is
/// kept elsewhere.
inline uint64_t hash(const std::string& text, uint64_t seed = 0xcbf29ce484222325u) {
  for (const char c : text) seed = (seed ^ static_cast<uint8_t>(c)) * 0x100000001b3u;
  return seed;
}

inline std::string hexadecimal(uint64_t number) {
  std::string digits;
  for (int shift = 60; shift >= 0; shift -= 4) digits += "0123456789abcdef"[(number >> shift) & 15];
  return digits;
}

}  // namespace kestrel::test
