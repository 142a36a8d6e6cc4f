#pragma once

#include <kestrel/LMFFMediaStream.h>

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "support/FFmpegOwners.h"

namespace kestrel::test {

/// A container without a file behind it: streams whose every field a test may set, and the engine's
/// streams over them. The engine's streams must go before it does.
class HandMadeContainer {
 public:
  HandMadeContainer();
  ~HandMadeContainer();
  HandMadeContainer(const HandMadeContainer&) = delete;
  HandMadeContainer& operator=(const HandMadeContainer&) = delete;

  AVStream* addStream(AVMediaType type, AVCodecID codec, AVRational timeBase = {1, 1000});

  /// PCM, 16 bits, whose time base is one sample.
  AVStream* addSound(int sampleRate, int channels);

  /// Uncompressed pictures, yuv420p.
  AVStream* addPictures(int width, int height, AVRational timeBase = {1, 1000});

 private:
  AVFormatContext* context_;
};

/// An engine stream over a container stream, opened.
std::unique_ptr<LMFFMediaStream> openedStream(AVStream* stream, LMFFMedia* media = nullptr);

PacketPtr packetOf(const std::vector<uint8_t>& bytes, int64_t pts, int64_t duration = 0);
PacketPtr packetOf(std::string_view text, int64_t pts, int64_t duration = 0);

/// A packet for `addSound`: `samples` per channel, each of the value `level`.
PacketPtr soundPacket(int64_t pts, int samples, int channels, int16_t level = 0);

/// A packet for `addPictures`, all of one grey.
PacketPtr picturePacket(int64_t pts, int width, int height, uint8_t grey);

/// A DVD subpicture: every pixel of `width` × `height` at (x, y) has colour 3 of the four, which is
/// entry `paletteIndex` of the palette with full opacity. It shows from `start` to `end`, in
/// 1024 / 90000 s after the packet's time.
struct Subpicture {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;
  int paletteIndex = 0;
  int start = 0;
  int end = 0;
};
std::vector<uint8_t> subpictureBytes(const Subpicture& picture);

}  // namespace kestrel::test
