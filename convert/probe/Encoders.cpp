#include <kestrel/convert/Encoders.h>

#include <algorithm>
#include <string_view>
#include <tuple>

#include <kestrel/convert/Failure.h>
#include "convert/probe/Codecs.h"
#include "convert/probe/EncoderTable.h"
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

StreamInfo::Kind kindOf(const AVCodec& encoder) {
  return encoder.type == AVMEDIA_TYPE_AUDIO ? StreamInfo::Kind::kAudio : StreamInfo::Kind::kVideo;
}

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

/// Why an encoder writes nothing here; "" if it does.
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

void tellPictures(EncoderInfo& info, const AVCodec& encoder) {
  for (const AVPixelFormat format : acceptedFormats<AVPixelFormat>(&encoder)) {
    const AVPixFmtDescriptor& known = *av_pix_fmt_desc_get(format);
    info.pixelFormats.emplace_back(known.name);
    if (!(known.flags & AV_PIX_FMT_FLAG_HWACCEL)) info.depths.push_back(known.comp[0].depth);
  }
  std::ranges::sort(info.depths);
  info.depths.erase(std::unique(info.depths.begin(), info.depths.end()), info.depths.end());
}

void tellSound(EncoderInfo& info, const AVCodec& encoder) {
  for (const int* rate = encoder.supported_samplerates; rate && *rate; ++rate)
    info.sampleRates.push_back(*rate);
  std::ranges::sort(info.sampleRates);
  for (const AVSampleFormat format : acceptedFormats<AVSampleFormat>(&encoder))
    info.sampleFormats.emplace_back(av_get_sample_fmt_name(format));
}

EncoderInfo infoOf(const AVCodec& encoder) {
  EncoderInfo info;
  info.name = encoder.name;
  info.longName = encoder.long_name ? encoder.long_name : "";
  info.codec = avcodec_get_name(encoder.id);
  info.kind = kindOf(encoder);
  info.isHardware = (encoder.capabilities & AV_CODEC_CAP_HARDWARE) != 0;
  const AVCodecDescriptor* codec = avcodec_descriptor_get(encoder.id);
  const bool isLossless =
      codec && (codec->props & AV_CODEC_PROP_LOSSLESS) && !(codec->props & AV_CODEC_PROP_LOSSY);
  info.takesBitrate = !isLossless;
  if (info.kind == StreamInfo::Kind::kVideo)
    tellPictures(info, encoder);
  else
    tellSound(info, encoder);
  if (const EncoderRow* row = encoderRow(encoder.name)) {
    info.quality = row->quality();
    info.presets = row->presets();
    info.usualPreset = row->usualPreset;
  }
  info.trouble = troubleOf(encoder);
  return info;
}

AVCodecID codecNamed(const std::string& name) {
  const AVCodecDescriptor* known = avcodec_descriptor_get_by_name(codecNameOf(name).c_str());
  const bool isCoded =
      known && (known->type == AVMEDIA_TYPE_VIDEO || known->type == AVMEDIA_TYPE_AUDIO);
  if (!isCoded)
    throw Failure::settings("there is no codec '" + name + "' of pictures or sound", "codec");
  return known->id;
}

}  // namespace

std::vector<EncoderInfo> readEncoders(const std::string& codec) {
  const AVCodecID wanted = codec.empty() ? AV_CODEC_ID_NONE : codecNamed(codec);
  std::vector<const AVCodec*> encoders;
  void* position = nullptr;
  while (const AVCodec* encoder = av_codec_iterate(&position)) {
    const bool isCoder = av_codec_is_encoder(encoder) && (encoder->type == AVMEDIA_TYPE_VIDEO ||
                                                          encoder->type == AVMEDIA_TYPE_AUDIO);
    if (isCoder && (wanted == AV_CODEC_ID_NONE || encoder->id == wanted))
      encoders.push_back(encoder);
  }
  std::ranges::stable_sort(encoders, {}, [](const AVCodec* encoder) {
    return std::tuple(encoder->type, std::string_view(avcodec_get_name(encoder->id)),
                      encoder != bestEncoder(encoder->id));
  });
  std::vector<EncoderInfo> infos;
  for (const AVCodec* encoder : encoders) infos.push_back(infoOf(*encoder));
  return infos;
}

}  // namespace kestrel
