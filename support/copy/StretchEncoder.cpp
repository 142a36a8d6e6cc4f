#include "support/copy/StretchEncoder.h"

#include <algorithm>
#include <string>
#include <utility>

#include "platform/codec/Codec.h"
#include "support/FFmpegCompat.h"
#include "support/FFmpegError.h"

extern "C" {
#include <libavutil/opt.h>
}

namespace kestrel {

namespace {

/// Which encoder makes pictures that go on in a stream of the codec, and how good they are by its
/// own scale; null for the codecs whose streams can't be gone on with.
struct Choice {
  AVCodecID codec;
  const char* encoder;
  const char* option;
  const char* value;
};

constexpr Choice kChoices[] = {
    {AV_CODEC_ID_H264, "libx264", "crf", "12"},     {AV_CODEC_ID_HEVC, "libx265", "crf", "14"},
    {AV_CODEC_ID_MPEG1VIDEO, "mpeg1video", "", ""}, {AV_CODEC_ID_MPEG2VIDEO, "mpeg2video", "", ""},
    {AV_CODEC_ID_MPEG4, "mpeg4", "", ""},           {AV_CODEC_ID_VP8, "libvpx", "crf", "6"},
    {AV_CODEC_ID_VP9, "libvpx-vp9", "crf", "12"},
};

/// Of codecs that have a fixed quantiser, the one whose errors nobody sees.
constexpr int kFineQuantiser = 2;

/// The rate that a stream without any is taken to have.
constexpr AVRational kUsualRate{25, 1};

const Choice* choiceFor(AVCodecID codec) {
  const auto* found = std::ranges::find(kChoices, codec, &Choice::codec);
  return found == std::end(kChoices) ? nullptr : found;
}

void setQuality(const Choice& choice, AVCodecContext& encoder) {
  if (choice.option[0] == '\0') {
    encoder.flags |= AV_CODEC_FLAG_QSCALE;
    encoder.global_quality = kFineQuantiser * FF_QP2LAMBDA;
    return;
  }
  encoder.bit_rate = 0;
  av_opt_set(encoder.priv_data, choice.option, choice.value, 0);
}

/// The rate of a stream's pictures, as near as the codec can tell it.
AVRational rateFor(const AVStream& stream, const AVCodec& codec) {
  AVRational rate = stream.avg_frame_rate;
  if (rate.num <= 0 || rate.den <= 0) rate = kUsualRate;
  if (codec.supported_framerates)
    return codec.supported_framerates[av_find_nearest_q_idx(rate, codec.supported_framerates)];
  constexpr int kFinest = 65535;  // MPEG-4's 16 bits
  av_reduce(&rate.num, &rate.den, rate.num, rate.den, kFinest);
  return rate.num > 0 ? rate : kUsualRate;
}

}  // namespace

bool StretchEncoder::canEncode(AVCodecID codec) {
  const Choice* choice = choiceFor(codec);
  return choice && avcodec_find_decoder(codec) && avcodec_find_encoder_by_name(choice->encoder);
}

bool StretchEncoder::succeeded(int result) {
  if (result < 0 && !error_) error_ = libraryError(result);
  return result >= 0;
}

bool StretchEncoder::openDecoder() {
  return succeeded(
      kestrel::openDecoder(decoder_, parameters_, {.timebase = stream_.time_base, .threads = 0}));
}

void StretchEncoder::configure(AVCodecContext& encoder, const AVFrame& picture) const {
  encoder.framerate = rateFor(stream_, *encoder.codec);
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
  if (parameters_.field_order > AV_FIELD_PROGRESSIVE) {
    encoder.flags |= AV_CODEC_FLAG_INTERLACED_DCT | AV_CODEC_FLAG_INTERLACED_ME;
    encoder.field_order = parameters_.field_order;
  }
  setQuality(*choiceFor(parameters_.codec_id), encoder);
  if (parameters_.codec_id == AV_CODEC_ID_HEVC)
    av_opt_set(encoder.priv_data, "x265-params", "log-level=error:repeat-headers=1", 0);
}

bool StretchEncoder::openEncoder(const AVFrame& picture) {
  const Choice* choice = choiceFor(parameters_.codec_id);
  const AVCodec* codec = choice ? avcodec_find_encoder_by_name(choice->encoder) : nullptr;
  if (!codec) return succeeded(AVERROR_ENCODER_NOT_FOUND);
  encoder_.reset(avcodec_alloc_context3(codec));
  if (!encoder_) return succeeded(AVERROR(ENOMEM));
  configure(*encoder_, picture);
  return succeeded(openCodec(*encoder_, codec));
}

void StretchEncoder::push(const AVPacket& packet) {
  if (error_ || (!decoder_ && !openDecoder())) return;
  if ((packet.flags & AV_PKT_FLAG_DISCARD) == 0) decodingTimes_.insert(packet.dts);
  decode(&packet);
}

void StretchEncoder::finish() {
  if (decoder_ && !error_) decode(nullptr);
  if (encoder_ && !error_) encode(nullptr);
}

PacketPtr StretchEncoder::pop() {
  if (ready_.empty()) return nullptr;
  PacketPtr packet = std::move(ready_.front());
  ready_.pop_front();
  return packet;
}

/// Gives the decoder a packet, or the end, and encodes what comes out of it. A damaged packet costs
/// its picture.
void StretchEncoder::decode(const AVPacket* packet) {
  decodePacket(*decoder_, packet, [this](const FramePtr& picture) {
    if (!error_) encode(picture.get());
  });
}

/// Encodes a picture, or what is left at the end.
void StretchEncoder::encode(AVFrame* picture) {
  if (picture && !encoder_ && !openEncoder(*picture)) return;
  if (picture) {
    shown_.push_back(
        {picture->pts != AV_NOPTS_VALUE ? picture->pts : picture->best_effort_timestamp,
         frameDuration(*picture)});
    picture->pts = count_++;
    picture->pict_type = AV_PICTURE_TYPE_NONE;
  }
  succeeded(encodeFrame(*encoder_, picture, [this](PacketPtr packet) { keep(std::move(packet)); }));
}

/// Gives a packet of the encoder the times of its picture.
void StretchEncoder::keep(PacketPtr packet) {
  if (shown_.empty()) return;
  const Shown shown = shown_.front();
  shown_.pop_front();
  packet->pts = packet->dts = shown.time;
  packet->duration = shown.duration;
  if (!decodingTimes_.empty()) {
    packet->dts = std::min(*decodingTimes_.begin(), packet->pts);
    decodingTimes_.erase(decodingTimes_.begin());
  }
  ready_.push_back(std::move(packet));
}

}  // namespace kestrel
