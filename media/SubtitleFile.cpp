#include "media/SubtitleFile.h"

#include <kestrel/MemorySource.h>
#include <kestrel/TextEncoding.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <vector>

namespace kestrel {

namespace {

constexpr uintmax_t kLargestFile = 64 << 20;  // bytes; no subtitles in text are larger

/// A regular file's bytes; none where it can't be read or is too large. What can be read only once
/// is left alone.
std::vector<uint8_t> bytesOf(const std::string& path) {
  std::error_code failed;
  if (!std::filesystem::is_regular_file(path, failed)) return {};
  const uintmax_t size = std::filesystem::file_size(path, failed);
  if (failed || size > kLargestFile) return {};
  std::vector<uint8_t> bytes(size);
  std::ifstream stream(path, std::ios::binary);
  stream.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(size));
  bytes.resize(static_cast<size_t>(std::max<std::streamsize>(stream.gcount(), 0)));
  return bytes;
}

}  // namespace

std::shared_ptr<LMMediaSource> recodedSubtitleFile(const std::string& path) {
  const std::vector<uint8_t> bytes = bytesOf(path);
  const auto text = textFromData(bytes);
  if (!text || std::ranges::equal(*text, bytes, {}, [](char c) { return static_cast<uint8_t>(c); }))
    return nullptr;
  auto source = MemorySource::fromText(*text);
  source->setFullpath(path);
  return source;
}

}  // namespace kestrel
