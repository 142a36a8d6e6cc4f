#include "support/FFmpegBytes.h"

#include <algorithm>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/mem.h>
}

namespace kestrel {

bool setBytes(AVPacket& packet, std::span<const uint8_t> bytes) {
  const PacketPtr made = makePacket();
  if (!made || av_new_packet(made.get(), static_cast<int>(bytes.size())) < 0 ||
      av_packet_copy_props(made.get(), &packet) < 0)
    return false;
  std::ranges::copy(bytes, made->data);
  av_packet_unref(&packet);
  av_packet_move_ref(&packet, made.get());
  return true;
}

bool setCodecData(AVCodecParameters& parameters, std::span<const uint8_t> data) {
  auto* const copy = static_cast<uint8_t*>(av_mallocz(data.size() + AV_INPUT_BUFFER_PADDING_SIZE));
  if (!copy) return false;
  std::ranges::copy(data, copy);
  av_freep(&parameters.extradata);
  parameters.extradata = copy;
  parameters.extradata_size = static_cast<int>(data.size());
  return true;
}

}  // namespace kestrel
