#include <kestrel/LMCustomSource.h>

#include "support/ReadCallbacks.h"

namespace kestrel {

LMCustomSource::LMCustomSource() = default;

LMCustomSource::~LMCustomSource() {
  close();  // the demuxer reads through the context until it is closed
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
  if (!io_context_) io_context_ = makeReadContext(*this, buffer_size());
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
  if (whence == AVSEEK_SIZE) return filesize();
  const auto target = seekTarget(offset, whence, read_offset_, filesize());
  if (!target) return AVERROR(ENOSYS);
  read_offset_ = *target;
  return *target;
}

}  // namespace kestrel
