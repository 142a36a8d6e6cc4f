#include <kestrel/LMFIFODataBuffer.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace kestrel {

namespace {

using Lock = std::lock_guard<std::recursive_mutex>;

using DataPtr = std::shared_ptr<LMFIFODataBuffer::Data>;

DataPtr orEmpty(DataPtr data) {
  return data ? std::move(data) : std::make_shared<LMFIFODataBuffer::Data>();
}

}  // namespace

LMFIFODataBuffer::LMFIFODataBuffer()
    : readData_(std::make_shared<Data>()), writeData_(std::make_shared<Data>()) {}

bool LMFIFODataBuffer::appendBytes(const void* bytes, uint64_t length) {
  const Lock lock(mutex_);
  if (bytes) {
    const auto* first = static_cast<const uint8_t*>(bytes);
    writeData_->insert(writeData_->end(), first, first + length);
  }
  return true;
}

uint64_t LMFIFODataBuffer::readBytes(void* bytes, uint64_t length) {
  const Lock lock(mutex_);
  const uint64_t queued = unreadLength() + writeData_->size();
  uint64_t count = readBytesHelper(bytes, length);
  if (count < length && count < queued) {
    count += readBytesHelper(static_cast<uint8_t*>(bytes) + count, length - count);
  }
  return count;
}

uint64_t LMFIFODataBuffer::readBytesHelper(void* bytes, uint64_t length) {
  const uint64_t count = std::min(unreadLength(), length);
  const uint64_t start = readIndex_;
  readIndex_ += count;
  if (count > 0) std::memcpy(bytes, readData_->data() + start, count);
  if (readIndex_ >= readData_->size()) {
    readIndex_ = 0;
    readData_.swap(writeData_);
    writeData_->clear();
  }
  return count;
}

int64_t LMFIFODataBuffer::length() const {
  const Lock lock(mutex_);
  return static_cast<int64_t>(unreadLength() + writeData_->size());
}

void LMFIFODataBuffer::clear() {
  const Lock lock(mutex_);
  readData_->clear();
  writeData_->clear();
  readIndex_ = 0;
}

DataPtr LMFIFODataBuffer::readData() const {
  const Lock lock(mutex_);
  return readData_;
}

void LMFIFODataBuffer::setReadData(DataPtr data) {
  const Lock lock(mutex_);
  readData_ = orEmpty(std::move(data));
}

DataPtr LMFIFODataBuffer::writeData() const {
  const Lock lock(mutex_);
  return writeData_;
}

void LMFIFODataBuffer::setWriteData(DataPtr data) {
  const Lock lock(mutex_);
  writeData_ = orEmpty(std::move(data));
}

/// Bytes left in the read buffer. A host that set a shorter buffer than had been consumed has none.
uint64_t LMFIFODataBuffer::unreadLength() const {
  const uint64_t size = readData_->size();
  return size - std::min(readIndex_, size);
}

}  // namespace kestrel
