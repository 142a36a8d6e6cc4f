#pragma once

// Differences between library versions concerning encoders.

#include <cstring>
#include <span>

#include <kestrel/LMFFFormat.h>

#include "support/FFmpegCompat.h"
#include "support/FFmpegOwners.h"

namespace kestrel {

/// The first pixel format in an encoder's list; 8-bit 4:2:0 if it accepts any.
inline AVPixelFormat firstPixelFormat(const AVCodec* codec) {
#if LIBAVCODEC_VERSION_INT >= AV_VERSION_INT(61, 13, 100)
  const void* list = nullptr;
  avcodec_get_supported_config(nullptr, codec, AV_CODEC_CONFIG_PIX_FORMAT, 0, &list, nullptr);
  const auto* formats = static_cast<const AVPixelFormat*>(list);
#else
  const AVPixelFormat* formats = codec->pix_fmts;
#endif
  return formats ? formats[0] : AV_PIX_FMT_YUV420P;
}

/// The sample formats that an encoder accepts; empty if it accepts any.
inline std::span<const AVSampleFormat> sampleFormats(const AVCodec* codec) {
#if LIBAVCODEC_VERSION_INT >= AV_VERSION_INT(61, 13, 100)
  const void* list = nullptr;
  avcodec_get_supported_config(nullptr, codec, AV_CODEC_CONFIG_SAMPLE_FORMAT, 0, &list, nullptr);
  const auto* formats = static_cast<const AVSampleFormat*>(list);
#else
  const AVSampleFormat* formats = codec->sample_fmts;
#endif
  size_t count = 0;
  while (formats && formats[count] != AV_SAMPLE_FMT_NONE) ++count;
  return {formats, count};
}

/// The first sample format in an encoder's list; the engine's own if it accepts any.
inline AVSampleFormat firstSampleFormat(const AVCodec* codec) {
  const auto formats = sampleFormats(codec);
  return formats.empty() ? static_cast<AVSampleFormat>(lm_get_default_sample_fmt()) : formats[0];
}

/// Lets the encoder choose the picture type.
inline void clearPictureType(AVFrame& frame) {
  frame.pict_type = AV_PICTURE_TYPE_NONE;
#if LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(58, 7, 100)
  frame.flags &= ~AV_FRAME_FLAG_KEY;
#else
  frame.key_frame = 0;
#endif
}

/// Copies an encoder's side data, such as buffer sizes, to the stream. Later library versions keep
/// it in the codec parameters.
inline void copyEncoderSideData([[maybe_unused]] const AVCodecContext& encoder,
                                [[maybe_unused]] AVStream& stream) {
#if LIBAVCODEC_VERSION_INT < AV_VERSION_INT(60, 30, 100)
  for (int i = 0; i < encoder.nb_coded_side_data; i++) {
    const AVPacketSideData& data = encoder.coded_side_data[i];
    uint8_t* copy = av_stream_new_side_data(&stream, data.type, data.size);
    if (copy) std::memcpy(copy, data.data, data.size);
  }
#endif
}

}  // namespace kestrel
