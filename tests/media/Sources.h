#pragma once

#include <kestrel/LMCustomSource.h>
#include <kestrel/LMMediaSource.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace kestrel::test {

using Bytes = std::shared_ptr<const std::vector<uint8_t>>;

inline Bytes bytesOf(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return std::make_shared<const std::vector<uint8_t>>(std::istreambuf_iterator<char>(stream),
                                                      std::istreambuf_iterator<char>());
}

/// Serves bytes in memory, and notes how it is asked for them.
class MemorySource : public LMCustomSource {
 public:
  explicit MemorySource(Bytes bytes) : bytes_(std::move(bytes)) {}

  std::shared_ptr<LMMediaSource> copy() const override {
    return std::make_shared<MemorySource>(bytes_);
  }

  int64_t filesize() const override { return static_cast<int64_t>(bytes_->size()); }

  int32_t read(uint8_t* buffer, int32_t size) override {
    ++reads;
    largestRead = std::max<int32_t>(largestRead, size);
    const int64_t left = std::clamp<int64_t>(filesize() - read_offset(), 0, size);
    if (left > 0) std::memcpy(buffer, bytes_->data() + read_offset(), static_cast<size_t>(left));
    return static_cast<int32_t>(left);
  }

  int reads = 0;
  int32_t largestRead = 0;

 private:
  Bytes bytes_;
};

/// A file that claims to be a disc's title, with colours and names of tracks.
class DiscLikeSource : public LMMediaSource {
 public:
  std::shared_ptr<LMMediaSource> copy() const override {
    auto source = std::make_shared<DiscLikeSource>();
    source->setFullpath(fullpath());
    return source;
  }

  bool isDVD() const override { return true; }
  const SubtitlePalette* palette() const override { return &palette_; }
  std::optional<std::vector<std::string>> audioNames() const override {
    return std::vector<std::string>{"First", "Second"};
  }
  std::optional<std::vector<std::string>> subtitleNames() const override {
    return std::vector<std::string>{};
  }

 private:
  SubtitlePalette palette_{0x108080, 0xEB8080};
};

}  // namespace kestrel::test
