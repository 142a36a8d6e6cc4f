#pragma once

#include <kestrel/LMCustomSource.h>

namespace kestrel {

/// Presents raw PCM as a WAV file: a header of 56 bytes and a data region of fixed size, 32-bit
/// float, stereo, 44.1 kHz, interleaved. The class itself delivers three hours of silence; a
/// subclass overrides `readData(data, offset, size)` (and `copy`) to supply samples.
class KESTREL_API LMWavSource : public LMCustomSource {
 public:
  std::shared_ptr<LMMediaSource> copy() const override;

  /// "filename.wav", which makes libavformat use its WAV demuxer.
  std::string path() const override;

  /// `datasize` + `headerSize`.
  int64_t filesize() const override;

  /// The size of the sample data in bytes; by default three hours.
  virtual int64_t datasize() const;

  /// Always 56.
  int32_t headerSize() const;

  /// Reads bytes of the header, then of the data.
  int32_t read(uint8_t* buffer, int32_t size) override;

  /// `readData` at `read_offset`, clamped to the end of the file.
  int32_t readData(uint8_t* data, int32_t size);

  /// Supplies `size` bytes of samples and returns how many. `offset` is a position in the virtual
  /// file, header included. Exception: a read that starts inside the header passes its own start,
  /// not that of the data, so that a read from 0 asks for the first samples at offset 0.
  virtual int32_t readData(uint8_t* data, int64_t offset, int32_t size);
};

}  // namespace kestrel
