#include "support/copy/FineEncoder.h"

#include <algorithm>
#include <utility>

#include "platform/codec/Codec.h"
#include "support/DictionaryEntries.h"

extern "C" {
#include <libavutil/opt.h>
}

namespace kestrel {

namespace {

/// Which encoder makes pictures that go on in a stream of the codec, and how good they are by its
/// own scale, the more so the finer; null for the codecs whose streams can't be gone on with.
struct Choice {
  AVCodecID codec;
  const char* encoder;
  const char* option;
  const char* values[FineCoding::kMostSteps + 1];
};

constexpr Choice kChoices[] = {
    {AV_CODEC_ID_H264, "libx264", "crf", {"12", "7", "2"}},
    {AV_CODEC_ID_HEVC, "libx265", "crf", {"14", "8", "3"}},
    {AV_CODEC_ID_MPEG1VIDEO, "mpeg1video", "", {}},
    {AV_CODEC_ID_MPEG2VIDEO, "mpeg2video", "", {}},
    {AV_CODEC_ID_MPEG4, "mpeg4", "", {}},
    {AV_CODEC_ID_VP8, "libvpx", "crf", {"6", "5", "4"}},
    {AV_CODEC_ID_VP9, "libvpx-vp9", "crf", {"12", "6", "2"}},
    {AV_CODEC_ID_AV1, "libaom-av1", "crf", {"12", "6", "2"}},
};

/// Of codecs that have a fixed quantiser, the one whose errors nobody sees, and the least.
constexpr int kFineQuantiser = 2;
constexpr int kFinestQuantiser = 1;

/// The rate that a stream without any is taken to have.
constexpr AVRational kUsualRate{25, 1};

const Choice* choiceFor(AVCodecID codec) {
  const auto* found = std::ranges::find(kChoices, codec, &Choice::codec);
  return found == std::end(kChoices) ? nullptr : found;
}

void setQuality(const Choice& choice, int steps, AVCodecContext& encoder) {
  if (choice.option[0] == '\0') {
    encoder.flags |= AV_CODEC_FLAG_QSCALE;
    encoder.global_quality = (steps > 0 ? kFinestQuantiser : kFineQuantiser) * FF_QP2LAMBDA;
    return;
  }
  encoder.bit_rate = 0;
  av_opt_set(encoder.priv_data, choice.option, choice.values[steps], 0);
}

/// The rate of a stream's pictures, as near as the codec can tell it.
AVRational rateFor(AVRational rate, const AVCodec& codec) {
  if (rate.num <= 0 || rate.den <= 0) rate = kUsualRate;
  if (codec.supported_framerates)
    return codec.supported_framerates[av_find_nearest_q_idx(rate, codec.supported_framerates)];
  constexpr int kFinest = 65535;  // MPEG-4's 16 bits
  av_reduce(&rate.num, &rate.den, rate.num, rate.den, kFinest);
  return rate.num > 0 ? rate : kUsualRate;
}

void configure(const FineCoding& coding, const AVFrame& picture, AVCodecContext& encoder) {
  encoder.framerate = rateFor(coding.rate, *encoder.codec);
  encoder.time_base = av_inv_q(encoder.framerate);
  encoder.width = picture.width;
  encoder.height = picture.height;
  encoder.pix_fmt = static_cast<AVPixelFormat>(picture.format);
  encoder.sample_aspect_ratio = picture.sample_aspect_ratio;
  encoder.color_primaries = picture.color_primaries;
  encoder.color_trc = picture.color_trc;
  encoder.colorspace = picture.colorspace;
  encoder.color_range = picture.color_range;
  encoder.chroma_sample_location = picture.chroma_location;
  encoder.max_b_frames = 0;
  encoder.thread_count = 0;
  if (coding.apart) encoder.flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  if (coding.codesFields.value_or(coding.parameters.field_order > AV_FIELD_PROGRESSIVE)) {
    encoder.flags |= AV_CODEC_FLAG_INTERLACED_DCT | AV_CODEC_FLAG_INTERLACED_ME;
    encoder.field_order = coding.parameters.field_order;
  }
  setQuality(*choiceFor(coding.parameters.codec_id), coding.steps, encoder);
  if (coding.parameters.codec_id == AV_CODEC_ID_HEVC)
    av_opt_set(encoder.priv_data, "x265-params", "log-level=error:repeat-headers=1", 0);
}

}  // namespace

bool canEncodeFinely(AVCodecID codec) {
  const Choice* choice = choiceFor(codec);
  return choice && avcodec_find_encoder_by_name(choice->encoder);
}

int openFineEncoder(CodecContextPtr& encoder, const FineCoding& coding, const AVFrame& picture) {
  encoder.reset();
  const Choice* choice = choiceFor(coding.parameters.codec_id);
  const AVCodec* codec = choice ? avcodec_find_encoder_by_name(choice->encoder) : nullptr;
  if (!codec) return AVERROR_ENCODER_NOT_FOUND;
  CodecContextPtr opened(avcodec_alloc_context3(codec));
  if (!opened) return AVERROR(ENOMEM);
  configure(coding, picture, *opened);
  Dictionary options;
  addEntries(coding.options, options.get());
  const int result = openCodec(*opened, codec, options.get());
  if (result >= 0) encoder = std::move(opened);
  return result;
}

}  // namespace kestrel
