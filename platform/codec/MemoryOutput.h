#pragma once

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/mem.h>
}

#include <memory>

namespace kestrel {

/// Frees an output container that was begun in memory, if it was begun, and that memory.
struct MemoryOutputDeleter {
  void operator()(AVFormatContext* context) const {
    uint8_t* memory = nullptr;
    if (context->pb) avio_close_dyn_buf(context->pb, &memory);
    context->pb = nullptr;
    av_free(memory);
    avformat_free_context(context);
  }
};

using MemoryOutputPtr = std::unique_ptr<AVFormatContext, MemoryOutputDeleter>;

}  // namespace kestrel
