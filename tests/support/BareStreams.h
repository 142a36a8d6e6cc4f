#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "support/FFmpegOwners.h"

namespace kestrel::test {

/// Streams without a file behind them, whose fields a test may set.
class BareStreams {
 public:
  AVStream& add(AVMediaType type, AVCodecID codec = AV_CODEC_ID_NONE,
                AVRational timeBase = {1, 90000}) {
    AVStream& stream = *avformat_new_stream(context_.get(), nullptr);
    stream.codecpar->codec_type = type;
    stream.codecpar->codec_id = codec;
    stream.time_base = timeBase;
    return stream;
  }

  AVFormatContext& context() { return *context_; }

 private:
  std::shared_ptr<AVFormatContext> context_{avformat_alloc_context(), avformat_free_context};
};

using Bytes = std::vector<uint8_t>;

/// A packet without times.
inline PacketPtr barePacket(const Bytes& bytes = {}) {
  PacketPtr packet = makePacket();
  av_new_packet(packet.get(), static_cast<int>(bytes.size()));
  if (!bytes.empty()) std::memcpy(packet->data, bytes.data(), bytes.size());
  return packet;
}

inline Bytes bytesOf(const AVPacket& packet) { return {packet.data, packet.data + packet.size}; }

inline void setCodecData(AVCodecParameters& parameters, const Bytes& data) {
  av_freep(&parameters.extradata);
  parameters.extradata =
      static_cast<uint8_t*>(av_mallocz(data.size() + AV_INPUT_BUFFER_PADDING_SIZE));
  std::memcpy(parameters.extradata, data.data(), data.size());
  parameters.extradata_size = static_cast<int>(data.size());
}

}  // namespace kestrel::test
