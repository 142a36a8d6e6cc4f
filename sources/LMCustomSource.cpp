#include <kestrel/LMCustomSource.h>

#include <chrono>
#include <thread>

#include "sources/SourceSettings.h"
#include "support/ReadCallbacks.h"

namespace kestrel {

namespace {

/// How often in a row a source is asked that has nothing yet, and how long it is left alone
/// between.
constexpr int kMostWaits = 500;
constexpr std::chrono::milliseconds kWait(10);

/// So many errors in a row are the end.
constexpr int kMostFailures = 100;

}  // namespace

LMCustomSource::LMCustomSource() = default;

LMCustomSource::~LMCustomSource() {
  close();  // the demuxer reads through the context until it is closed
}

std::shared_ptr<LMMediaSource> LMCustomSource::copy() const {
  auto source = std::make_shared<LMCustomSource>();
  copySettings(*this, *source);
  return source;
}

int32_t LMCustomSource::read(uint8_t* /*buffer*/, int32_t /*size*/) { return 0; }

int32_t LMCustomSource::buffer_size() const { return 352800; }

AVIOContext* LMCustomSource::avio_context() {
  if (!io_context_)
    io_context_ = makeReadContext<&LMCustomSource::readPatiently>(*this, buffer_size());
  return io_context_.get();
}

/// Asks again where there is nothing yet, which demuxers take for anything but that; and no more
/// where there is nothing but errors, which some take for damage to be skipped.
int32_t LMCustomSource::readPatiently(uint8_t* buffer, int32_t size) {
  const auto isInterrupted = interrupt();
  for (int i = 0; i < kMostWaits && failures_ < kMostFailures; ++i) {
    if (isInterrupted && isInterrupted()) return AVERROR_EXIT;
    const int64_t place = read_offset_;
    const int32_t count = read_packet(buffer, size);
    if (count != AVERROR(EAGAIN)) {
      failures_ = count < 0 ? failures_ + 1 : 0;
      return count;
    }
    read_offset_ = place;
    std::this_thread::sleep_for(kWait);
  }
  failures_ = kMostFailures;
  return AVERROR(ETIMEDOUT);
}

AVIOContext* LMCustomSource::io_context() const { return io_context_.get(); }

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
