#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>

#include "support/FFmpegOwners.h"

namespace kestrel {

using ReadFunction = int (*)(void* opaque, uint8_t* bytes, int size);
using SeekFunction = int64_t (*)(void* opaque, int64_t offset, int whence);

/// A context with a buffer of `size` bytes over functions that are called with `opaque`; without
/// `seek` it goes forward only. Null when there is no memory.
inline IOContextPtr makeReadContext(int size, void* opaque, ReadFunction read,
                                    SeekFunction seek = nullptr) {
  auto* buffer = static_cast<unsigned char*>(av_malloc(static_cast<size_t>(size)));
  if (!buffer) return nullptr;
  IOContextPtr context(avio_alloc_context(buffer, size, 0, opaque, read, nullptr, seek));
  if (!context) av_free(buffer);
  return context;
}

/// The same over a source's `Read`, which answers as `read_packet` does, and its `seek`. The source
/// keeps its address for as long as the context lives.
template <auto Read, typename Source>
IOContextPtr makeReadContext(Source& source, int size) {
  // The library takes an answer of 0 for "try again", not for the end.
  const auto read = [](void* opaque, uint8_t* bytes, int wanted) {
    const int32_t count = (static_cast<Source*>(opaque)->*Read)(bytes, wanted);
    return count == 0 ? AVERROR_EOF : count;
  };
  const auto seek = [](void* opaque, int64_t offset, int whence) {
    return static_cast<Source*>(opaque)->seek(offset, whence);
  };
  IOContextPtr context = makeReadContext(size, &source, read, seek);
  if (context) context->max_packet_size = size;  // fill the whole buffer with one read
  return context;
}

/// Where a seek leads in a file of `size` bytes that stands at `position`, without a range check;
/// nothing for an unknown `whence`.
inline std::optional<int64_t> seekTarget(int64_t offset, int whence, int64_t position,
                                         int64_t size) {
  switch (whence) {
    case SEEK_SET:
      return offset;
    case SEEK_CUR:
      return position + offset;
    case SEEK_END:
      return size + offset;
    default:
      return std::nullopt;
  }
}

}  // namespace kestrel
