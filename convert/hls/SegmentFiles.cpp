#include "convert/hls/SegmentFiles.h"

#include <fmt/format.h>

#include <filesystem>
#include <fstream>
#include <span>
#include <system_error>

#include "convert/hls/CodecName.h"

namespace kestrel {

namespace fs = std::filesystem;

namespace {

constexpr const char* kHead = "head.mp4";

bool write(const std::string& path, std::span<const uint8_t> bytes) {
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  file.close();
  return !file.fail();
}

}  // namespace

SegmentFiles::SegmentFiles(const std::string& parent, Rendition& rendition)
    : folder_((fs::path(parent) / rendition.folder).string()), rendition_(rendition) {
  std::error_code seenWhenWriting;
  fs::create_directory(folder_, seenWhenWriting);
}

bool SegmentFiles::take(const Fragment& fragment) {
  if (fragment.isHead) {
    rendition_.head = kHead;
    rendition_.codec = codecName(fragment.bytes);
    return write(folder_ + "/" + kHead, fragment.bytes);
  }
  Segment segment{.file = fmt::format("{:05}.m4s", rendition_.segments.size() + 1),
                  .duration = fragment.duration,
                  .bytes = static_cast<int64_t>(fragment.bytes.size())};
  const std::string path = folder_ + "/" + segment.file;
  rendition_.segments.push_back(std::move(segment));
  return write(path, fragment.bytes);
}

}  // namespace kestrel
