#include <kestrel/LMCustomSource.h>

#include "support/FFmpegOwners.h"

namespace kestrel {

namespace {

/// The library takes an answer of 0 for "try again", not for the end.
int readPacketOf(void* opaque, uint8_t* buffer, int size) {
  const int32_t count = static_cast<LMCustomSource*>(opaque)->read_packet(buffer, size);
  return count == 0 ? AVERROR_EOF : count;
}

int64_t seekOf(void* opaque, int64_t offset, int whence) {
  return static_cast<LMCustomSource*>(opaque)->seek(offset, whence);
}

}  // namespace

LMCustomSource::LMCustomSource() = default;

LMCustomSource::~LMCustomSource() {
  closeFormatContext();  // the demuxer reads through the context until it is closed
  if (!io_context_) return;
  av_freep(&io_context_->buffer);
  avio_context_free(&io_context_);
}

std::shared_ptr<LMMediaSource> LMCustomSource::copy() const {
  auto source = std::make_shared<LMCustomSource>();
  source->setFullpath(fullpath());
  return source;
}

int32_t LMCustomSource::read(uint8_t* /*buffer*/, int32_t /*size*/) { return 0; }

int32_t LMCustomSource::buffer_size() const { return 352800; }

AVIOContext* LMCustomSource::avio_context() {
  if (io_context_) return io_context_;
  const int32_t size = buffer_size();
  auto* buffer = static_cast<unsigned char*>(av_malloc(static_cast<size_t>(size)));
  if (!buffer) return nullptr;
  io_context_ = avio_alloc_context(buffer, size, 0, this, readPacketOf, nullptr, seekOf);
  if (!io_context_) {
    av_free(buffer);
    return nullptr;
  }
  io_context_->max_packet_size = size;  // fill the whole buffer with one read
  return io_context_;
}

AVIOContext* LMCustomSource::io_context() const { return io_context_; }

int64_t LMCustomSource::read_offset() const { return read_offset_; }

void LMCustomSource::setRead_offset(int64_t offset) { read_offset_ = offset; }

int32_t LMCustomSource::read_packet(uint8_t* buffer, int32_t size) {
  const int32_t count = read(buffer, size);
  read_offset_ += count;
  return count;
}

int64_t LMCustomSource::seek(int64_t offset, int32_t whence) {
  switch (whence) {
    case AVSEEK_SIZE:
      return filesize();
    case SEEK_SET:
      break;
    case SEEK_CUR:
      offset += read_offset_;
      break;
    case SEEK_END:
      offset += filesize();
      break;
    default:
      return AVERROR(ENOSYS);
  }
  read_offset_ = offset;
  return offset;
}

}  // namespace kestrel
