#include "support/encode/SoundEncoder.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <utility>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/samplefmt.h>
}

namespace kestrel {

namespace {

/// For encoders that take any number of samples at once.
constexpr int kSamplesPerFrame = 1024;

int samplesPerFrame(const AVCodecContext& encoder) {
  return encoder.frame_size < 1 ? kSamplesPerFrame : encoder.frame_size;
}

bool takesShortFrame(const AVCodecContext& encoder) {
  return (encoder.codec->capabilities &
          (AV_CODEC_CAP_SMALL_LAST_FRAME | AV_CODEC_CAP_VARIABLE_FRAME_SIZE)) != 0;
}

/// The silence that pushes the last samples out of an encoder that does not do so when it ends.
int silenceAtEnd(const AVCodecContext& encoder) {
  return encoder.codec->capabilities & AV_CODEC_CAP_DELAY ? 0 : encoder.initial_padding;
}

FramePtr makeSoundFrame(const AVCodecContext& encoder) {
  FramePtr frame = makeFrame();
  if (!frame) return nullptr;
  frame->format = encoder.sample_fmt;
  frame->sample_rate = encoder.sample_rate;
  frame->nb_samples = samplesPerFrame(encoder);
  const bool ready = av_channel_layout_copy(&frame->ch_layout, &encoder.ch_layout) >= 0 &&
                     av_frame_get_buffer(frame.get(), 0) >= 0;
  return ready ? std::move(frame) : nullptr;
}

}  // namespace

bool needsLimit(const AVCodecContext& encoder) {
  const AVCodecDescriptor* codec = avcodec_descriptor_get(encoder.codec_id);
  return codec && codec->type == AVMEDIA_TYPE_AUDIO && !(codec->props & AV_CODEC_PROP_LOSSLESS);
}

void limitLevel(AVFrame& frame) {
  const auto format = static_cast<AVSampleFormat>(frame.format);
  if (av_get_packed_sample_fmt(format) != AV_SAMPLE_FMT_FLT) return;
  constexpr float kMost = 32;
  const bool isPlanar = av_sample_fmt_is_planar(format) != 0;
  const int planes = isPlanar ? frame.ch_layout.nb_channels : 1;
  const int count = frame.nb_samples * (isPlanar ? 1 : frame.ch_layout.nb_channels);
  for (int plane = 0; plane < planes; ++plane) {
    auto* const samples = reinterpret_cast<float*>(frame.extended_data[plane]);
    for (int i = 0; i < count; ++i)
      samples[i] = std::isnan(samples[i]) ? 0 : std::clamp(samples[i], -kMost, kMost);
  }
}

SoundEncoder::SoundEncoder(StreamEncoder& encoder, FirstError& errors, PacketTaker take)
    : encoder_(encoder), errors_(errors), take_(std::move(take)) {}

/// A whole frame to be filled; null, which is noted, without memory for it.
AVFrame* SoundEncoder::frame() {
  // The encoder may still hold the samples of the frame before.
  const AVCodecContext& context = *encoder_.context();
  if (!frame_ || !av_frame_is_writable(frame_.get())) frame_ = makeSoundFrame(context);
  if (frame_)
    frame_->nb_samples = samplesPerFrame(context);
  else
    errors_.succeeded(AVERROR(ENOMEM));
  return frame_.get();
}

void SoundEncoder::encodeFrame(AVFrame& frame) {
  frame.pts = time_;
  time_ += frame.nb_samples;
  if (needsLimit(*encoder_.context())) limitLevel(frame);
  encoder_.encode(frame, 0, errors_, take_);
}

void SoundEncoder::encode(const SoundQueue& queue) {
  const int whole = samplesPerFrame(*encoder_.context());
  while (!isFinished_ && queue.count() >= whole) {
    AVFrame* next = frame();
    if (!next) return;
    queue.read(*next);
    encodeFrame(*next);
  }
}

void SoundEncoder::finish(const SoundQueue& queue) {
  encode(queue);
  encodeRest(queue);
  isFinished_ = true;
}

void SoundEncoder::encodeRest(const SoundQueue& queue) {
  const AVCodecContext& context = *encoder_.context();
  const int whole = samplesPerFrame(context);
  int rest = queue.count();
  if (isFinished_ || (time_ == 0 && rest == 0)) return;
  int left = rest + silenceAtEnd(context);
  while (left > 0) {
    AVFrame* last = frame();
    if (!last) return;
    av_samples_set_silence(last->extended_data, 0, whole, context.ch_layout.nb_channels,
                           context.sample_fmt);
    last->nb_samples = rest;
    if (rest > 0) queue.read(*last);
    rest = 0;
    last->nb_samples = takesShortFrame(context) ? std::min(left, whole) : whole;
    left -= last->nb_samples;
    encodeFrame(*last);
  }
}

}  // namespace kestrel
