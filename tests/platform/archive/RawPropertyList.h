#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kestrel::test {

inline std::string bigEndian(uint64_t value, int size) {
  std::string bytes;
  for (int shift = 8 * (size - 1); shift >= 0; shift -= 8)
    bytes.push_back(static_cast<char>(value >> shift & 0xFF));
  return bytes;
}

/// A binary property list put together byte by byte, true or not.
struct RawPropertyList {
  std::vector<std::string> objects;  // as they are stored, references of 4 bytes
  uint64_t root = 0;
  std::optional<uint64_t> claimedCount = {};  // absent: as many as there are

  std::vector<uint8_t> bytes() const {
    std::string all = "bplist00";
    std::string table;
    for (const std::string& object : objects) {
      table += bigEndian(all.size(), 4);
      all += object;
    }
    const uint64_t tableOffset = all.size();
    all += table + std::string(6, '\0') + "\x04\x04" +
           bigEndian(claimedCount.value_or(objects.size()), 8) + bigEndian(root, 8) +
           bigEndian(tableOffset, 8);
    return {all.begin(), all.end()};
  }
};

/// A marker with a count as 8 bytes.
inline std::string counted(int marker, uint64_t count) {
  return std::string(1, static_cast<char>(marker | 0x0F)) + "\x13" + bigEndian(count, 8);
}

inline std::string rawText(const std::string& text) { return counted(0x50, text.size()) + text; }

inline std::string rawArray(const std::vector<uint32_t>& references) {
  std::string bytes = counted(0xA0, references.size());
  for (const uint32_t reference : references) bytes += bigEndian(reference, 4);
  return bytes;
}

inline std::string rawDictionary(const std::vector<uint32_t>& keysThenValues) {
  std::string bytes = counted(0xD0, keysThenValues.size() / 2);
  for (const uint32_t reference : keysThenValues) bytes += bigEndian(reference, 4);
  return bytes;
}

}  // namespace kestrel::test
