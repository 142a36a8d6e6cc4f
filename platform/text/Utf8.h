#pragma once

#include <cstdint>
#include <string>

namespace kestrel {

/// Appends a character by its code, which is not checked.
inline void appendUtf8(uint32_t code, std::string& text) {
  const auto put = [&](uint32_t byte) { text.push_back(static_cast<char>(byte)); };
  if (code < 0x80) return put(code);
  if (code < 0x800) {
    put(0xC0 | code >> 6);
  } else if (code < 0x10000) {
    put(0xE0 | code >> 12);
    put(0x80 | (code >> 6 & 0x3F));
  } else {
    put(0xF0 | code >> 18);
    put(0x80 | (code >> 12 & 0x3F));
    put(0x80 | (code >> 6 & 0x3F));
  }
  put(0x80 | (code & 0x3F));
}

}  // namespace kestrel
