#pragma once

// What library versions spell differently, and small facts that the libraries do not tell in one
// call.

#include <cstring>

#include "support/FFmpegOwners.h"

namespace kestrel {

/// How long a decoded frame lasts, in its stream's time base.
inline int64_t frameDuration(const AVFrame& frame) {
#if LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(57, 30, 100)
  return frame.duration;
#else
  return frame.pkt_duration;
#endif
}

inline void setFrameDuration(AVFrame& frame, int64_t duration) {
#if LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(57, 30, 100)
  frame.duration = duration;
#else
  frame.pkt_duration = duration;
#endif
}

/// How long a packet of a stream lasts, microseconds; told from the stream where the packet does
/// not say, and 0 where neither does.
inline int64_t packetDuration(const AVPacket& packet, const AVStream& stream) {
  if (packet.duration > 0) return av_rescale_q(packet.duration, stream.time_base, kMicroseconds);
  AVCodecParameters& parameters = *stream.codecpar;
  if (parameters.codec_type == AVMEDIA_TYPE_AUDIO && parameters.sample_rate > 0)
    return av_rescale_q(av_get_audio_frame_duration2(&parameters, packet.size),
                        {1, parameters.sample_rate}, kMicroseconds);
  const AVRational rate = stream.avg_frame_rate;
  return rate.num > 0 && rate.den > 0 ? av_rescale_q(1, av_inv_q(rate), kMicroseconds) : 0;
}

/// H.264 that may have a colour for every pixel.
#ifdef AV_PROFILE_H264_HIGH_444_PREDICTIVE
inline constexpr int kProfileH264High444 = AV_PROFILE_H264_HIGH_444_PREDICTIVE;
#else
inline constexpr int kProfileH264High444 = FF_PROFILE_H264_HIGH_444_PREDICTIVE;
#endif

/// A layout's channel mask; 0 when its channels are not in native order.
inline int64_t layoutMask(const AVChannelLayout& layout) {
  return layout.order == AV_CHANNEL_ORDER_NATIVE ? static_cast<int64_t>(layout.u.mask) : 0;
}

/// Gives a stream what `from`, another stream or an encoder, tells of it beside its parameters,
/// such as how a picture is to be turned. Later libraries keep it among the parameters.
template <typename From>
void copySideData([[maybe_unused]] const From& from, [[maybe_unused]] AVStream& stream) {
#if LIBAVCODEC_VERSION_INT < AV_VERSION_INT(60, 30, 100)
  const auto copy = [&stream](const AVPacketSideData* data, int count) {
    for (; count > 0; ++data, --count) {
      uint8_t* bytes = av_stream_new_side_data(&stream, data->type, data->size);
      if (bytes) std::memcpy(bytes, data->data, data->size);
    }
  };
  if constexpr (requires { from.coded_side_data; })
    copy(from.coded_side_data, from.nb_coded_side_data);
  else
    copy(from.side_data, from.nb_side_data);
#endif
}

}  // namespace kestrel
