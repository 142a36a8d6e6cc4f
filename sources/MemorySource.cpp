#include <kestrel/MemorySource.h>

#include <algorithm>
#include <utility>

#include "sources/SourceSettings.h"

namespace kestrel {

MemorySource::MemorySource(Bytes bytes)
    : bytes_(bytes ? std::move(bytes) : std::make_shared<const std::vector<uint8_t>>()) {}

std::shared_ptr<MemorySource> MemorySource::fromText(std::string_view text) {
  return std::make_shared<MemorySource>(
      std::make_shared<const std::vector<uint8_t>>(text.begin(), text.end()));
}

std::shared_ptr<LMMediaSource> MemorySource::copy() const {
  auto source = std::make_shared<MemorySource>(bytes_);
  copySettings(*this, *source);
  return source;
}

int64_t MemorySource::filesize() const { return static_cast<int64_t>(bytes_->size()); }

int32_t MemorySource::read(uint8_t* buffer, int32_t size) {
  const int64_t offset = std::clamp<int64_t>(read_offset(), 0, filesize());
  const int64_t count = std::clamp<int64_t>(size, 0, filesize() - offset);
  std::copy_n(bytes_->begin() + offset, count, buffer);
  return static_cast<int32_t>(count);
}

}  // namespace kestrel
