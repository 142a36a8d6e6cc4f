#pragma once

#include <kestrel/Export.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace kestrel {

/// A first-in-first-out queue of bytes between one thread that writes and one that reads.
///
/// It is made of two buffers that swap roles: the writer appends to one while the reader consumes
/// the other, and when that is used up the two change places. No byte moves within a buffer, and
/// the two are used over and over, so after a while neither side allocates.
///
/// The queued bytes are the unread tail of `readData` followed by all of `writeData`. Every
/// operation but `readBytesHelper` takes the object's own lock.
class KESTREL_API LMFIFODataBuffer {
 public:
  /// A growable byte buffer whose length can be set to 0 without giving its storage back.
  using Data = std::vector<uint8_t>;

  LMFIFODataBuffer();
  LMFIFODataBuffer(const LMFIFODataBuffer&) = delete;
  LMFIFODataBuffer& operator=(const LMFIFODataBuffer&) = delete;

  /// Queues `length` bytes, which are copied. Always true; null queues nothing.
  bool appendBytes(const void* bytes, uint64_t length);

  /// Takes up to `length` bytes, oldest first, into `bytes`, which has room for them, and returns
  /// how many there were.
  uint64_t readBytes(void* bytes, uint64_t length);

  /// One step of `readBytes`, for a caller who holds the queue to himself: takes bytes from the
  /// read buffer only and, when that is used up, also when it was empty to begin with, swaps the
  /// buffers and empties the new write buffer. Returns how many bytes were taken.
  uint64_t readBytesHelper(void* bytes, uint64_t length);

  /// The number of queued bytes.
  int64_t length() const;

  /// Forgets all queued bytes; the storage of both buffers stays.
  void clear();

  /// The buffers themselves, shared with the queue: whoever changes one has to keep the queue's
  /// threads away meanwhile. Setting null sets a new empty buffer. How much of the read buffer has
  /// been consumed is not changed by setting another.
  std::shared_ptr<Data> readData() const;
  void setReadData(std::shared_ptr<Data> data);
  std::shared_ptr<Data> writeData() const;
  void setWriteData(std::shared_ptr<Data> data);

 private:
  uint64_t unreadLength() const;

  mutable std::recursive_mutex mutex_;
  uint64_t readIndex_ = 0;  ///< bytes of the read buffer already consumed
  std::shared_ptr<Data> readData_;
  std::shared_ptr<Data> writeData_;
};

}  // namespace kestrel
