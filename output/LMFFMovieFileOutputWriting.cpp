#include <kestrel/BitmapContext.h>
#include <kestrel/LMFFImage.h>
#include <kestrel/LMFFMovieFileOutput.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "output/EncoderCompat.h"
#include "output/MovieFileOutputState.h"
#include "support/Chapters.h"
#include "support/FFmpegCompat.h"
#include "support/LibraryLog.h"

extern "C" {
#include <libavutil/common.h>
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

/// Keeps damaged samples from an encoder that would refuse them or search for ever: no number
/// becomes silence, and nothing is more than 30 dB above full scale.
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

/// The encoder would stumble over damaged samples. One without loss keeps them as they are.
bool needsLimit(const AVCodecContext& encoder) {
  const AVCodecDescriptor* codec = avcodec_descriptor_get(encoder.codec_id);
  return codec && codec->type == AVMEDIA_TYPE_AUDIO && !(codec->props & AV_CODEC_PROP_LOSSLESS);
}

/// A frame of the host's, which stays as it is, with its level limited; null without memory.
FramePtr limitedCopy(const AVFrame& frame) {
  FramePtr copy(av_frame_clone(&frame));
  if (!copy || av_frame_make_writable(copy.get()) < 0) return nullptr;
  limitLevel(*copy);
  return copy;
}

/// The time of a copied packet in its stream: moved by `offset`.
int64_t streamTime(int64_t time, AVRational from, AVRational to, int64_t offset) {
  return av_sat_add64(av_rescale_q(time, from, to), offset);
}

/// How many units of `timeBase` make `duration`; 0 where that is no number.
int64_t ticks(Rational duration, AVRational timeBase) {
  const int64_t count = av_rescale_q(1, toAV(duration), timeBase);
  return count == INT64_MIN ? 0 : count;
}

}  // namespace

// Sound.

AVFrame* LMFFMovieFileOutput::State::soundFrame(const StreamEncoder& encoder) {
  // The encoder may still hold the samples of the frame before.
  if (!sound || !av_frame_is_writable(sound.get())) sound = makeSoundFrame(*encoder.context());
  if (sound) sound->nb_samples = samplesPerFrame(*encoder.context());
  return sound.get();
}

bool LMFFMovieFileOutput::State::readSound(AVFrame& frame) const {
  if (!resample || resample->outputSamples() < frame.nb_samples) return false;
  resample->convertFrame(nullptr, &frame);
  return true;
}

void LMFFMovieFileOutput::State::encodeSound(StreamEncoder& encoder, AVFrame& frame) {
  frame.pts = audioTime;
  audioTime += frame.nb_samples;
  if (needsLimit(*encoder.context())) limitLevel(frame);
  encode(encoder, frame, 0);
}

void LMFFMovieFileOutput::State::encodeQueuedSound(StreamEncoder& encoder) {
  for (AVFrame* frame = soundFrame(encoder); frame && readSound(*frame);
       frame = soundFrame(encoder)) {
    encodeSound(encoder, *frame);
  }
}

void LMFFMovieFileOutput::State::encodeRemainingSound(StreamEncoder& encoder) {
  const AVCodecContext& context = *encoder.context();
  const int whole = samplesPerFrame(context);
  int rest = resample->outputSamples();
  if (audioTime == 0 && rest == 0) return;
  int left = rest + silenceAtEnd(context);
  while (left > 0) {
    AVFrame* frame = soundFrame(encoder);
    if (!frame) return;
    av_samples_set_silence(frame->extended_data, 0, whole, context.ch_layout.nb_channels,
                           context.sample_fmt);
    frame->nb_samples = rest;
    if (rest > 0) readSound(*frame);
    rest = 0;
    frame->nb_samples = takesShortFrame(context) ? std::min(left, whole) : whole;
    left -= frame->nb_samples;
    encodeSound(encoder, *frame);
  }
}

void LMFFMovieFileOutput::writeAudioData(std::span<const uint8_t> data) {
  const LMFFAudioFormat format = audioInputFormat();
  const int bytes = av_get_bytes_per_sample(static_cast<AVSampleFormat>(format.sample_fmt)) *
                    lm_get_channel_layout_nb_channels(format.channel_layout);
  if (bytes <= 0) return;
  writeSample(data.data(), static_cast<int32_t>(data.size() / static_cast<size_t>(bytes)));
}

void LMFFMovieFileOutput::writeSample(const void* data, int32_t frame) {
  State& state = *state_;
  StreamEncoder* encoder = state.writingEncoderOf(state.audioStream);
  if (!encoder || !state.resample || state.audioFinished) return;
  state.resample->writeSample(data, frame);
  state.encodeQueuedSound(*encoder);
}

bool LMFFMovieFileOutput::readAudioFrameFromBuffer(AVFrame* frame) {
  return frame && state_->readSound(*frame);
}

void LMFFMovieFileOutput::finishAudio() {
  State& state = *state_;
  StreamEncoder* encoder = state.writingEncoderOf(state.audioStream);
  if (!encoder || !state.resample || state.audioFinished) return;
  state.resample->flush();
  state.encodeQueuedSound(*encoder);
  state.encodeRemainingSound(*encoder);
  state.audioFinished = true;
}

// Pictures.

void LMFFMovieFileOutput::writeVideoFrame(const AVFrame* frame) {
  if (state_->videoConverter) state_->videoConverter->convertFrame(frame);
  writeVideoFrameDuration(movieFrameDuration());
}

void LMFFMovieFileOutput::writeImage(const std::shared_ptr<LMFFImage>& image) {
  if (!image) return;
  if (image->getFrame()) {
    writeVideoFrame(image->getFrame());
  } else if (image->isPacket()) {
    writeVideoPacket(image);
  }
}

void LMFFMovieFileOutput::writeImage(const std::shared_ptr<const Image>& image) {
  if (!image) return;
  if (state_->videoConverter) state_->videoConverter->convertImage(image);
  writeVideoFrameDuration(movieFrameDuration());
}

void LMFFMovieFileOutput::writeImage(const std::shared_ptr<const BitmapImage>& image) {
  if (!image) return;
  if (state_->videoConverter) state_->videoConverter->convertImage(image);
  writeVideoFrameDuration(movieFrameDuration());
}

void LMFFMovieFileOutput::writeCGContext(const BitmapContext* context) {
  if (state_->videoConverter) state_->videoConverter->convertContext(context);
  writeVideoFrameDuration(movieFrameDuration());
}

void LMFFMovieFileOutput::writeCGContext(const BitmapContext* context, int32_t duration) {
  if (state_->videoConverter) state_->videoConverter->convertContext(context);
  writeVideoFrameDuration({duration, movieFormat().framerate});
}

std::unique_ptr<BitmapContext> LMFFMovieFileOutput::createCGContext() const {
  return state_->videoConverter ? state_->videoConverter->createCGContext() : nullptr;
}

void LMFFMovieFileOutput::drawImage(const std::shared_ptr<const Image>& image,
                                    BitmapContext* context) const {
  if (state_->videoConverter) state_->videoConverter->drawImage(image, context);
}

void LMFFMovieFileOutput::drawImage(const std::shared_ptr<const BitmapImage>& image,
                                    BitmapContext* context) const {
  if (state_->videoConverter) state_->videoConverter->drawImage(image, context);
}

void LMFFMovieFileOutput::writeVideoFrameDuration(Rational duration) {
  State& state = *state_;
  StreamEncoder* encoder = state.writingEncoderOf(state.videoStream);
  if (!encoder || !state.videoConverter) return;
  const FramePtr picture = makeFrame();
  if (!picture) return;
  const AVFrame* output = state.videoConverter->outputFrame();
  if (output->data[0] && !state.errors.succeeded(av_frame_ref(picture.get(), output))) return;
  clearPictureType(*picture);
  picture->pts = state.videoTime;
  const int64_t increment = ticks(duration, encoder->context()->time_base);
  state.videoTime = av_sat_add64(state.videoTime, increment);
  if (picture->data[0]) {
    state.encode(*encoder, *picture, increment);
  } else {
    state.writeNextPacket(*encoder);
  }
}

// Copied packets.

/// Stamps a packet that is decoded and not shown. It takes no part in counting and may lie before
/// 0.
void LMFFMovieFileOutput::State::restampHidden(AVPacket& packet, const LMFFImage& item,
                                               const AVStream& stream) {
  const AVRational from = toAV(item.time_base());
  const int64_t offset = av_rescale_q(item.get_pkt_offset_time(), kMicroseconds, stream.time_base);
  for (int64_t* time : {&packet.dts, &packet.pts})
    if (*time != AV_NOPTS_VALUE) *time = streamTime(*time, from, stream.time_base, offset);
  packet.duration = av_rescale_q(packet.duration, from, stream.time_base);
  packet.pos = -1;
  // What is shown may then be decoded before time 0, too.
  if (!videoStarted && hidesFirstPictures(*muxer.context()->oformat)) {
    videoBegin = INT64_MIN;
    if (packet.dts != AV_NOPTS_VALUE) videoTime = packet.dts;
  }
  videoStarted = true;
}

// Answers whether the packet is to be written; its time stamps are the new ones in either case.
bool LMFFMovieFileOutput::State::restamp(AVPacket& packet, const LMFFImage& item,
                                         const AVStream& stream) {
  const bool isVideo = &stream == videoStream;
  if (isVideo && (packet.flags & AV_PKT_FLAG_DISCARD) != 0) {
    restampHidden(packet, item, stream);
    return true;
  }
  const AVRational from = toAV(item.time_base());
  const AVRational to = stream.time_base;
  const int64_t offset = av_rescale_q(item.get_pkt_offset_time(), kMicroseconds, to);
  const int64_t begin = isVideo ? videoBegin : 0;
  const int64_t decoded = packet.dts == AV_NOPTS_VALUE
                              ? INT64_MIN
                              : std::max(streamTime(packet.dts, from, to, offset), begin);
  const bool isKept = isVideo || decoded >= audioTime;
  int64_t& counter = isVideo ? videoTime : audioTime;
  if (isKept) counter = std::max(av_sat_add64(counter, 1), decoded);
  packet.dts = counter;
  if (packet.pts != AV_NOPTS_VALUE) {
    packet.pts = std::max({streamTime(packet.pts, from, to, offset), packet.dts, int64_t{0}});
  }
  packet.duration = av_rescale_q(packet.duration, from, to);
  packet.pos = -1;
  if (isVideo && !videoStarted) {
    videoStarted = true;
    packet.pts = 0;
    packet.dts = 0;
  }
  return isKept;
}

void LMFFMovieFileOutput::State::muxReady(StreamCopier& copy) {
  while (PacketPtr packet = copy.pop()) muxer.write(*packet, *copy.stream());
}

void LMFFMovieFileOutput::writeAudioPacket(const std::shared_ptr<LMFFImage>& packet) {
  writeRawPacket(packet, state_->audioStream);
}

void LMFFMovieFileOutput::writeVideoPacket(const std::shared_ptr<LMFFImage>& packet) {
  writeRawPacket(packet, state_->videoStream);
}

void LMFFMovieFileOutput::writeRawPacket(const std::shared_ptr<LMFFImage>& packet,
                                         AVStream* stream) {
  State& state = *state_;
  AVPacket* raw = packet ? packet->getPacket() : nullptr;
  const bool isBlank = !raw || (!raw->data && raw->side_data_elems == 0);
  if (isBlank || !stream || !state.muxer.isWriting()) return;
  if (!state.restamp(*raw, *packet, *stream)) return;
  PacketPtr reference(av_packet_clone(raw));
  if (!reference) {
    state.errors.succeeded(AVERROR(ENOMEM));
  } else if (StreamCopier* copy = state.copyOf(stream)) {
    state.errors.succeeded(copy->push(std::move(reference)));
    state.errors.note(copy->error());
    state.muxReady(*copy);
  } else {
    state.muxer.write(*reference, *stream);
  }
}

// Packets.

bool LMFFMovieFileOutput::State::writeNextPacket(StreamEncoder& encoder) {
  const int result = encoder.receive(*encoded);
  if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return false;
  if (!errors.succeeded(result)) return false;
  muxer.write(*encoded, *encoder.stream());
  return true;
}

bool LMFFMovieFileOutput::State::encode(StreamEncoder& encoder, AVFrame& frame, int64_t duration) {
  const AVCodecContext& context = *encoder.context();
  if (const Error refusal = encoder.refusal(frame)) {
    errors.note(refusal);
    return false;
  }
  if (context.codec_type == AVMEDIA_TYPE_AUDIO) frame.pts += context.delay;
  const LibraryLog log;
  bool hasWritten = false;
  int result = encoder.send(frame, duration);
  while (result == AVERROR(EAGAIN) && writeNextPacket(encoder)) {
    hasWritten = true;
    result = encoder.send(frame, duration);
  }
  if (result < 0) errors.note(log.explain(result, context.codec->name));
  while (writeNextPacket(encoder)) hasWritten = true;
  return hasWritten;
}

void LMFFMovieFileOutput::State::drain(const AVStream* stream) {
  StreamEncoder* encoder = encoderOf(stream);
  if (!encoder) return;
  encoder->finish();
  while (writeNextPacket(*encoder)) {
  }
}

bool LMFFMovieFileOutput::writeFrame(AVFrame* frame, AVStream* stream) {
  State& state = *state_;
  StreamEncoder* encoder = state.writingEncoderOf(stream);
  if (!encoder) return false;
  if (!frame) encoder->finish();
  if (!frame || !frame->data[0]) return state.writeNextPacket(*encoder);
  if (!needsLimit(*encoder->context()) || encoder->refusal(*frame))
    return state.encode(*encoder, *frame, frameDuration(*frame));
  const FramePtr limited = limitedCopy(*frame);
  const bool isWritten = limited && state.encode(*encoder, *limited, frameDuration(*frame));
  if (limited) frame->pts = limited->pts;
  return isWritten;
}

void LMFFMovieFileOutput::writePacket(AVPacket* packet, AVStream* stream) {
  const PacketPtr reference(packet && stream ? av_packet_clone(packet) : nullptr);
  if (reference) state_->muxer.write(*reference, *stream);
}

int64_t LMFFMovieFileOutput::State::microseconds(int64_t time, const AVStream* stream) const {
  if (!stream) return 0;
  const StreamEncoder* encoder = encoderOf(stream);
  return av_rescale_q(time, encoder ? encoder->context()->time_base : stream->time_base,
                      kMicroseconds);
}

int64_t LMFFMovieFileOutput::audio_pts() const { return state_->audioTime; }

int64_t LMFFMovieFileOutput::video_pts() const { return state_->videoTime; }

int64_t LMFFMovieFileOutput::audio_output_time() const {
  return state_->microseconds(state_->audioTime, state_->audioStream);
}

int64_t LMFFMovieFileOutput::video_output_time() const {
  return state_->microseconds(state_->videoTime, state_->videoStream);
}

int64_t LMFFMovieFileOutput::refusedPackets() const {
  int64_t count = state_->refusedPackets;
  for (const auto& copy : state_->copies) count += copy->refused();
  return count;
}

int64_t LMFFMovieFileOutput::picturesEncodedToHide() const {
  int64_t count = state_->picturesEncodedToHide;
  for (const auto& copy : state_->copies) count += copy->encoded();
  return count;
}

// The end.

void LMFFMovieFileOutput::stopOutput() {
  State& state = *state_;
  if (state.muxer.isWriting()) {
    state.drain(state.audioStream);
    state.drain(state.videoStream);
    for (const auto& copy : state.copies) {
      state.errors.succeeded(copy->finish());
      state.errors.note(copy->error());
      state.muxReady(*copy);
    }
    if (takesLateChapters(*state.muxer.context()->oformat)) state.addChapters();
    state.muxer.complete();
  }
  state.refusedPackets = refusedPackets();
  state.picturesEncodedToHide = picturesEncodedToHide();
  state.encoders.clear();
  state.copies.clear();
  state.muxer.close();
  state.audioStream = nullptr;
  state.videoStream = nullptr;
}

}  // namespace kestrel
