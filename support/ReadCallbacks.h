#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>

extern "C" {
#include <libavformat/avio.h>
#include <libavutil/error.h>
#include <libavutil/mem.h>
}

namespace kestrel {

/// A context of `size` bytes over a source's `Read`, which answers as `read_packet` does, and its
/// `seek`; null when there is no memory. The source keeps its address for as long, and frees the
/// context with its buffer.
template <auto Read, typename Source>
AVIOContext* makeReadContext(Source& source, int size) {
  auto* buffer = static_cast<unsigned char*>(av_malloc(static_cast<size_t>(size)));
  if (!buffer) return nullptr;
  // The library takes an answer of 0 for "try again", not for the end.
  const auto read = [](void* opaque, uint8_t* bytes, int wanted) {
    const int32_t count = (static_cast<Source*>(opaque)->*Read)(bytes, wanted);
    return count == 0 ? AVERROR_EOF : count;
  };
  const auto seek = [](void* opaque, int64_t offset, int whence) {
    return static_cast<Source*>(opaque)->seek(offset, whence);
  };
  AVIOContext* context = avio_alloc_context(buffer, size, 0, &source, read, nullptr, seek);
  if (context)
    context->max_packet_size = size;  // fill the whole buffer with one read
  else
    av_free(buffer);
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
