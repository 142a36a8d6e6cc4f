#pragma once

#include <kestrel/LMMediaSource.h>

#include <atomic>
#include <memory>

namespace kestrel {

/// A source for subclasses that report the size of a virtual file and supply its bytes to the
/// demuxer.
///
/// A subclass overrides `filesize`, `read`, and `copy` (a second, independent reader of the same
/// bytes). Reads and seeks happen on the thread that opens or reads the media.
class KESTREL_API LMCustomSource : public LMMediaSource {
 public:
  LMCustomSource();
  ~LMCustomSource() override;

  /// A subclass returns a new source of its own class. The base class returns a source without
  /// data.
  std::shared_ptr<LMMediaSource> copy() const override;

  /// Reads up to `size` bytes at `read_offset`, without moving it, and returns how many; 0 at the
  /// end, or a negative FFmpeg error code.
  ///
  /// `AVERROR(EAGAIN)` means that no data is available yet: the demuxer's read polls again every 10
  /// ms, for 5 seconds at most, asking the interrupt each time. After a timeout or 100 errors in a
  /// row, the source is not asked again.
  virtual int32_t read(uint8_t* buffer, int32_t size);

  /// The size of the I/O buffer in bytes; by default one second of 44.1 kHz stereo float samples.
  virtual int32_t buffer_size() const;

  /// The I/O context over `read` and `filesize`, created on the first call and owned by this
  /// object; null on failure.
  AVIOContext* avio_context() override;

  AVIOContext* io_context() const;  ///< null before `avio_context`

  /// The position of the next read in the virtual file, in bytes.
  int64_t read_offset() const;
  void setRead_offset(int64_t offset);

  /// The demuxer's read: calls `read` and adds the result to `read_offset`.
  int32_t read_packet(uint8_t* buffer, int32_t size);

  /// The demuxer's seek: sets `read_offset`, without checking the range, and returns it.
  /// `AVSEEK_SIZE` returns `filesize` and moves nothing; an unknown `whence` returns
  /// `AVERROR(ENOSYS)`.
  int64_t seek(int64_t offset, int32_t whence);

 private:
  int32_t readPatiently(uint8_t* buffer, int32_t size);

  std::shared_ptr<AVIOContext> io_context_;
  int failures_ = 0;  // in a row; used by the reading thread only
  std::atomic<int64_t> read_offset_{0};
};

}  // namespace kestrel
