#pragma once

#include <kestrel/LMCustomSource.h>

namespace kestrel {

/// Presents raw PCM as a WAV file: a header of 56 bytes before a data region of fixed size, 32-bit
/// float, stereo, 44.1 kHz, interleaved. The class itself delivers three hours of silence; a
/// subclass overrides `readData(data, offset, size)` (and `copy`) to supply samples.
class KESTREL_API LMWavSource : public LMCustomSource {
 public:
  std::shared_ptr<LMMediaSource> copy() const override;

  /// "filename.wav", so that libavformat takes its WAV demuxer.
  std::string path() const override;

  /// `datasize` + `headerSize`.
  int64_t filesize() const override;

  /// The bytes of sample data: three hours.
  virtual int64_t datasize() const;

  /// 56.
  int32_t headerSize() const;

  /// The header's bytes, then the data's.
  int32_t read(uint8_t* buffer, int32_t size) override;

  /// `readData` at `read_offset`, clamped to the file's end.
  int32_t readData(uint8_t* data, int32_t size);

  /// Supplies `size` bytes of samples at `offset`, a position in the virtual file; returns how
  /// many. The one read that starts inside the header passes that read's own start, not the start
  /// of the data: a read from 0 asks for the first samples at offset 0, every later read passes
  /// its file offset, header included.
  virtual int32_t readData(uint8_t* data, int64_t offset, int32_t size);
};

}  // namespace kestrel
