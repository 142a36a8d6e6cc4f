#pragma once

#include <kestrel/LMCustomSource.h>
#include <kestrel/MemorySource.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

namespace kestrel::test {

using Bytes = std::vector<uint8_t>;

/// Serves bytes in memory, and notes how many it is asked for.
class ObservedSource : public MemorySource {
 public:
  explicit ObservedSource(MemorySource::Bytes bytes) : MemorySource(std::move(bytes)) {}
  explicit ObservedSource(std::vector<uint8_t> bytes)
      : MemorySource(std::make_shared<const std::vector<uint8_t>>(std::move(bytes))) {}

  std::shared_ptr<LMMediaSource> copy() const override {
    return std::make_shared<ObservedSource>(bytes());
  }

  int32_t read(uint8_t* buffer, int32_t size) override {
    largestRead = std::max(largestRead, size);
    return MemorySource::read(buffer, size);
  }

  int32_t largestRead = 0;
};

inline Bytes contentOf(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

/// 0, 1, 2 …
inline Bytes counting(size_t count) {
  Bytes bytes(count);
  for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<uint8_t>(i);
  return bytes;
}

}  // namespace kestrel::test
