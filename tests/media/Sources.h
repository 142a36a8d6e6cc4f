#pragma once

#include <kestrel/LMMediaSource.h>
#include <kestrel/MemorySource.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace kestrel::test {

using Bytes = MemorySource::Bytes;

inline Bytes bytesOf(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return std::make_shared<const std::vector<uint8_t>>(std::istreambuf_iterator<char>(stream),
                                                      std::istreambuf_iterator<char>());
}

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
