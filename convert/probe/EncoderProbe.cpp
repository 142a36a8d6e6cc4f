#include "convert/probe/EncoderProbe.h"

#include <algorithm>
#include <string_view>

#include "platform/codec/Codec.h"
#include "support/FFmpegOwners.h"
#include "support/LibraryLog.h"
#include "support/encode/EncoderCompat.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

namespace kestrel {

namespace {

// Large enough for what devices refuse to encode, small enough to cost nothing.
constexpr int kProbeWidth = 320;
constexpr int kProbeHeight = 192;

/// The first format whose pictures lie in memory.
AVPixelFormat plainFormat(const AVCodec& encoder) {
  for (const AVPixelFormat format : acceptedFormats<AVPixelFormat>(&encoder))
    if (!(av_pix_fmt_desc_get(format)->flags & AV_PIX_FMT_FLAG_HWACCEL)) return format;
  return acceptedFormats<AVPixelFormat>(&encoder).empty() ? AV_PIX_FMT_YUV420P : AV_PIX_FMT_NONE;
}

void configureProbe(AVCodecContext& context) {
  const AVCodec& encoder = *context.codec;
  context.strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
  if (encoder.type == AVMEDIA_TYPE_VIDEO) {
    context.width = kProbeWidth;
    context.height = kProbeHeight;
    context.pix_fmt = plainFormat(encoder);
    context.framerate =
        encoder.supported_framerates ? encoder.supported_framerates[0] : AVRational{25, 1};
    context.time_base = av_inv_q(context.framerate);
    context.bit_rate = 500000;
    if (std::string_view(encoder.name) == "libx265")
      av_opt_set(context.priv_data, "x265-params", "log-level=none", 0);
    return;
  }
  context.sample_fmt = firstSampleFormat(&encoder);
  context.sample_rate = encoder.supported_samplerates ? encoder.supported_samplerates[0] : 48000;
  context.time_base = {1, context.sample_rate};
  if (encoder.ch_layouts)
    av_channel_layout_copy(&context.ch_layout, &encoder.ch_layouts[0]);
  else
    av_channel_layout_default(&context.ch_layout, 2);
  context.bit_rate = 64000;
}

/// A picture, or as much sound as the encoder wants at once, of whatever the memory holds.
FramePtr probeFrame(const AVCodecContext& context) {
  FramePtr frame = makeFrame();
  if (!frame) return nullptr;
  if (context.codec_type == AVMEDIA_TYPE_VIDEO) {
    frame->width = context.width;
    frame->height = context.height;
    frame->format = context.pix_fmt;
  } else {
    frame->nb_samples = context.frame_size > 0 ? context.frame_size : 1024;
    frame->format = context.sample_fmt;
    frame->sample_rate = context.sample_rate;
    if (av_channel_layout_copy(&frame->ch_layout, &context.ch_layout) < 0) return nullptr;
  }
  if (av_frame_get_buffer(frame.get(), 0) < 0) return nullptr;
  for (const auto* buffer : frame->buf)
    if (buffer) std::fill_n(buffer->data, buffer->size, uint8_t{0});
  frame->pts = 0;
  return frame;
}

}  // namespace

std::string troubleOf(const AVCodec& encoder) {
  const LibraryLog log;
  const auto told = [&](int result) { return log.explain(result, encoder.name).message; };
  CodecContextPtr context(avcodec_alloc_context3(&encoder));
  if (!context) return told(AVERROR(ENOMEM));
  configureProbe(*context);
  std::string trouble;
  int packets = 0;
  const auto take = [&](PacketPtr packet) { packets += packet && packet->size > 0; };
  int result = context->pix_fmt == AV_PIX_FMT_NONE && encoder.type == AVMEDIA_TYPE_VIDEO
                   ? AVERROR(ENOSYS)
                   : openCodec(*context, &encoder);
  if (result >= 0) {
    const FramePtr frame = probeFrame(*context);
    result = frame ? encodeFrame(*context, frame.get(), take) : AVERROR(ENOMEM);
  }
  if (result >= 0) result = encodeFrame(*context, nullptr, take);
  if (result < 0) trouble = told(result);
  if (trouble.empty() && packets == 0) trouble = "it writes nothing";
  return trouble;
}

}  // namespace kestrel
