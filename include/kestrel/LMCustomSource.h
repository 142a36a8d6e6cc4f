#pragma once

#include <kestrel/LMMediaSource.h>

#include <atomic>

namespace kestrel {

/// A byte source that a subclass implements: it says how large its virtual file is and which bytes
/// come next, and the demuxer reads through that.
///
/// A subclass overrides `filesize`, `read`, and `copy` (a second, independent reader of the same
/// bytes). Reads and seeks happen on the thread that reads the media.
class KESTREL_API LMCustomSource : public LMMediaSource {
 public:
  LMCustomSource();
  ~LMCustomSource() override;

  /// A subclass returns a new source of its own class; the base returns a source that
  /// reads nothing.
  std::shared_ptr<LMMediaSource> copy() const override;

  /// Delivers up to `size` bytes from `read_offset` on and returns how many; 0 at the end, or a
  /// negative library error. It does not move `read_offset`.
  ///
  /// `AVERROR(EAGAIN)` says that there is nothing yet: the demuxer's read then asks again every 10
  /// ms, for 5 seconds at most. A source that answers 100 errors in a row, or is late by more, is
  /// not asked any more. Before it asks, that read asks the interrupt.
  virtual int32_t read(uint8_t* buffer, int32_t size);

  /// The size of the I/O buffer in bytes: one second of 44.1 kHz stereo float samples.
  virtual int32_t buffer_size() const;

  /// The context over `read` and `filesize`, made on the first call; null when it can't be.
  AVIOContext* avio_context() override;

  AVIOContext* io_context() const;

  /// The position of the next read in the virtual file, in bytes.
  int64_t read_offset() const;
  void setRead_offset(int64_t offset);

  /// What the demuxer's read does: `read`, then `read_offset` moves by its result.
  int32_t read_packet(uint8_t* buffer, int32_t size);

  /// What the demuxer's seek does: sets `read_offset`, without a range check, and returns it.
  /// `AVSEEK_SIZE` returns `filesize` and moves nothing; an unknown `whence` returns
  /// `AVERROR(ENOSYS)`.
  int64_t seek(int64_t offset, int32_t whence);

 private:
  int32_t readPatiently(uint8_t* buffer, int32_t size);

  AVIOContext* io_context_ = nullptr;
  int failures_ = 0;  // in a row; only the reading thread asks
  std::atomic<int64_t> read_offset_{0};
};

}  // namespace kestrel
