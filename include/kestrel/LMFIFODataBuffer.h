#pragma once

#include <kestrel/Export.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace kestrel {

/// A first-in-first-out queue of bytes between one writing and one reading thread.
///
/// It consists of two buffers: the writer appends to one while the reader consumes the other; when
/// that is used up, they are swapped. Bytes are not moved within a buffer, and storage is reused,
/// so that neither side allocates memory once the buffers have grown.
///
/// The queued bytes are the unread part of `readData` followed by all of `writeData`. All
/// operations but `readBytesHelper` take the object's lock.
class KESTREL_API LMFIFODataBuffer {
 public:
  /// A growable byte buffer. Setting its length to 0 keeps the storage.
  using Data = std::vector<uint8_t>;

  LMFIFODataBuffer();
  LMFIFODataBuffer(const LMFIFODataBuffer&) = delete;
  LMFIFODataBuffer& operator=(const LMFIFODataBuffer&) = delete;

  /// Copies `length` bytes to the end of the queue. Always returns true; null queues nothing.
  bool appendBytes(const void* bytes, uint64_t length);

  /// Moves up to `length` bytes, oldest first, to `bytes` and returns how many.
  uint64_t readBytes(void* bytes, uint64_t length);

  /// One step of `readBytes`, for a caller with exclusive access: takes bytes from the read buffer
  /// only. If that is now used up, or was empty, swaps the buffers and empties the new write
  /// buffer. Returns how many bytes were taken.
  uint64_t readBytesHelper(void* bytes, uint64_t length);

  /// The number of queued bytes.
  int64_t length() const;

  /// Discards all queued bytes; both buffers keep their storage.
  void clear();

  /// The buffers, shared with the queue: to modify one, keep other threads away from the queue.
  /// Setting null creates a new empty buffer. Setting the read buffer does not reset how much of it
  /// has been consumed.
  std::shared_ptr<Data> readData() const;
  void setReadData(std::shared_ptr<Data> data);
  std::shared_ptr<Data> writeData() const;
  void setWriteData(std::shared_ptr<Data> data);

 private:
  uint64_t unreadLength() const;

  mutable std::recursive_mutex mutex_;
  uint64_t readIndex_ = 0;  ///< bytes of the read buffer that have been consumed
  std::shared_ptr<Data> readData_;
  std::shared_ptr<Data> writeData_;
};

}  // namespace kestrel
