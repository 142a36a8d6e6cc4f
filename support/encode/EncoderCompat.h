#pragma once

// Differences between library versions concerning encoders.

#include <span>
#include <string_view>
#include <type_traits>

#include <kestrel/LMFFFormat.h>

#include "support/FFmpegOwners.h"

namespace kestrel {

/// The formats that an encoder accepts, of pixels (`AVPixelFormat`) or of samples
/// (`AVSampleFormat`); empty if it accepts any.
template <typename Format>
std::span<const Format> acceptedFormats(const AVCodec* codec) {
  constexpr bool kArePixels = std::is_same_v<Format, AVPixelFormat>;
  const Format* formats = nullptr;
#if LIBAVCODEC_VERSION_INT >= AV_VERSION_INT(61, 13, 100)
  const void* list = nullptr;
  const auto which = kArePixels ? AV_CODEC_CONFIG_PIX_FORMAT : AV_CODEC_CONFIG_SAMPLE_FORMAT;
  avcodec_get_supported_config(nullptr, codec, which, 0, &list, nullptr);
  formats = static_cast<const Format*>(list);
#else
  if constexpr (kArePixels)
    formats = codec->pix_fmts;
  else
    formats = codec->sample_fmts;
#endif
  constexpr auto kEnd = static_cast<Format>(-1);  // AV_PIX_FMT_NONE, AV_SAMPLE_FMT_NONE
  size_t count = 0;
  while (formats && formats[count] != kEnd) ++count;
  return {formats, count};
}

/// The first pixel format in an encoder's list; 8-bit 4:2:0 if it accepts any.
inline AVPixelFormat firstPixelFormat(const AVCodec* codec) {
  const auto formats = acceptedFormats<AVPixelFormat>(codec);
  return formats.empty() ? AV_PIX_FMT_YUV420P : formats[0];
}

/// The first sample format in an encoder's list; the engine's own if it accepts any.
inline AVSampleFormat firstSampleFormat(const AVCodec* codec) {
  const auto formats = acceptedFormats<AVSampleFormat>(codec);
  return formats.empty() ? static_cast<AVSampleFormat>(lm_get_default_sample_fmt()) : formats[0];
}

/// Tells an encoder of how many ticks its pictures usually last. Later libraries ask each picture,
/// and here, too, few encoders ask at all.
inline void setUsualTicks([[maybe_unused]] AVCodecContext& encoder, [[maybe_unused]] int ticks) {
#if LIBAVCODEC_VERSION_MAJOR < 60
  const std::string_view name = encoder.codec->name;
  if (name.starts_with("libvpx") || name == "libaom-av1") encoder.ticks_per_frame = ticks;
#endif
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

}  // namespace kestrel
