#include "support/StreamSideData.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace kestrel {

std::span<const uint8_t> streamSideData(const AVStream& stream, int type) {
  const auto kind = static_cast<AVPacketSideDataType>(type);
#if LIBAVCODEC_VERSION_INT >= AV_VERSION_INT(60, 30, 100)
  const AVPacketSideData* entry = av_packet_side_data_get(
      stream.codecpar->coded_side_data, stream.codecpar->nb_coded_side_data, kind);
  return entry ? std::span<const uint8_t>(entry->data, entry->size) : std::span<const uint8_t>();
#else
  size_t size = 0;
  const uint8_t* data = av_stream_get_side_data(&stream, kind, &size);
  return data ? std::span<const uint8_t>(data, size) : std::span<const uint8_t>();
#endif
}

}  // namespace kestrel
