#include "output/EncoderSettings.h"

extern "C" {
#include <libavutil/opt.h>
}

#include "support/encode/EncoderCompat.h"

namespace kestrel {

namespace {

constexpr int kPicturesPerGroup = 12;

/// The finest ticks, per second, that MPEG-4's 16 bits hold.
constexpr int kMostMpeg4Ticks = 65535;

// What a DVD player takes.
constexpr int kDvdPacketSize = 2048;             // bytes
constexpr int kDvdRateBuffer = 1835008;          // bits
constexpr const char* kDvdMuxRate = "10080000";  // bits per second

/// Sets the aspect of a pixel such that the picture has the display aspect that is asked for.
void setAspect(const LMFFMovieFileOutputFormat& format, AVStream& stream, AVCodecContext& encoder) {
  if (format.aspect == 0.0F) return;
  const float pixel =
      format.aspect * static_cast<float>(format.height) / static_cast<float>(format.width);
  encoder.sample_aspect_ratio = av_d2q(pixel, 255);
  stream.sample_aspect_ratio = encoder.sample_aspect_ratio;
}

void setColor(const LMFFVideoColor& color, AVCodecContext& encoder) {
  encoder.color_primaries = static_cast<AVColorPrimaries>(color.primaries);
  encoder.color_trc = static_cast<AVColorTransferCharacteristic>(color.transfer);
  encoder.colorspace = static_cast<AVColorSpace>(color.matrix);
  encoder.color_range = static_cast<AVColorRange>(color.range);
}

/// Sets the time base and the rate, as near to a picture's duration as the codec can tell it.
void setRate(AVRational duration, AVCodecContext& encoder) {
  if (encoder.codec_id == AV_CODEC_ID_MPEG4 && duration.den > kMostMpeg4Ticks) {
    av_reduce(&duration.num, &duration.den, duration.num, duration.den, kMostMpeg4Ticks);
    if (duration.num == 0) duration = {1, kMostMpeg4Ticks};
  }
  encoder.time_base = duration;
  encoder.framerate = av_inv_q(duration);
}

void setQuality(AVCodecContext& encoder) {
  switch (encoder.codec_id) {
    case AV_CODEC_ID_MPEG1VIDEO:
    case AV_CODEC_ID_MPEG2VIDEO:
    case AV_CODEC_ID_MSMPEG4V3:
      encoder.mb_decision = FF_MB_DECISION_RD;
      break;
    case AV_CODEC_ID_H264:
      av_opt_set(encoder.priv_data, "preset", "fast", 0);
      if (encoder.pix_fmt == AV_PIX_FMT_YUV420P)
        av_opt_set(encoder.priv_data, "profile", "Main", 0);
      break;
    case AV_CODEC_ID_HEVC:
      // x265 writes to standard error by itself, past the libraries' log.
      av_opt_set(encoder.priv_data, "x265-params", "log-level=none", 0);
      break;
    default:
      break;
  }
}

}  // namespace

void configurePicture(const LMFFMovieFileOutputFormat& format, const LMFFVideoColor& color,
                      AVStream& stream, AVCodecContext& encoder) {
  encoder.codec_id = encoder.codec->id;
  encoder.bit_rate = format.video_bitrate;
  encoder.width = format.width;
  encoder.height = format.height;
  if (encoder.pix_fmt == AV_PIX_FMT_NONE) encoder.pix_fmt = firstPixelFormat(encoder.codec);
  setRate({format.frameTime, format.framerate}, encoder);
  setAspect(format, stream, encoder);
  setColor(lm_resolved_video_color(color, encoder.pix_fmt, format.height), encoder);
  encoder.gop_size = kPicturesPerGroup;
  setQuality(encoder);
}

void configureForDvd(const LMFFMovieFileOutputFormat& format, AVFormatContext& container,
                     AVCodecContext& encoder) {
  encoder.pix_fmt = AV_PIX_FMT_YUV420P;
  encoder.gop_size = format.framerate == 25 ? 15 : 18;
  encoder.rc_max_rate = encoder.bit_rate;
  encoder.rc_min_rate = encoder.bit_rate;
  encoder.rc_buffer_size = kDvdRateBuffer;
  container.packet_size = kDvdPacketSize;
  // Containers that keep this to their muxer go on working it out from the bit rates.
  av_opt_set(&container, "muxrate", kDvdMuxRate, 0);
}

LMFFVideoColor colorOf(const AVCodecContext& encoder) {
  return {encoder.color_primaries, encoder.color_trc, encoder.colorspace, encoder.color_range};
}

}  // namespace kestrel
