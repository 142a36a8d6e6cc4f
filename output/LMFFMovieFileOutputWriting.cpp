#include <kestrel/BitmapContext.h>
#include <kestrel/LMFFImage.h>
#include <kestrel/LMFFMovieFileOutput.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "output/MovieFileOutputState.h"
#include "support/Containers.h"
#include "support/FFmpegCompat.h"
#include "support/encode/EncoderCompat.h"
#include "support/encode/Fields.h"

extern "C" {
#include <libavutil/common.h>
#include <libavutil/samplefmt.h>
}

namespace kestrel {

namespace {

/// A frame of the host's, which stays as it is, with its level limited; null without memory.
FramePtr limitedCopy(const AVFrame& frame) {
  FramePtr copy(av_frame_clone(&frame));
  if (!copy || av_frame_make_writable(copy.get()) < 0) return nullptr;
  limitLevel(*copy);
  return copy;
}

/// How many units of `timeBase` make `duration`; 0 where that is no number.
int64_t ticks(Rational duration, AVRational timeBase) {
  const int64_t count = av_rescale_q(1, toAV(duration), timeBase);
  return count == INT64_MIN ? 0 : count;
}

}  // namespace

// Sound.

SoundQueue LMFFMovieFileOutput::State::Sound::queue() const {
  return {[&converter = *resample] { return converter.outputSamples(); },
          [&converter = *resample](AVFrame& frame) { converter.convertFrame(nullptr, &frame); }};
}

/// The newest stream's samples go through the converter that the host may exchange.
LMFFMovieFileOutput::State::Sound* LMFFMovieFileOutput::State::soundOf(const AVStream* stream) {
  const auto found = std::ranges::find_if(
      sounds, [&](const Sound& each) { return each.encoder.encoder().stream() == stream; });
  if (found == sounds.end()) return nullptr;
  if (stream == audioStream) found->resample = resample;
  return &*found;
}

/// Null also while there is nothing to write to, or no converter.
LMFFMovieFileOutput::State::Sound* LMFFMovieFileOutput::State::writingSoundOf(
    const AVStream* stream) {
  Sound* sound = muxer.isWriting() ? soundOf(stream) : nullptr;
  return sound && sound->resample ? sound : nullptr;
}

void LMFFMovieFileOutput::writeAudioData(std::span<const uint8_t> data) {
  const LMFFAudioFormat format = audioInputFormat();
  const int bytes = av_get_bytes_per_sample(static_cast<AVSampleFormat>(format.sample_fmt)) *
                    lm_get_channel_layout_nb_channels(format.channel_layout);
  if (bytes <= 0) return;
  writeSample(data.data(), static_cast<int32_t>(data.size() / static_cast<size_t>(bytes)));
}

void LMFFMovieFileOutput::writeSample(const void* data, int32_t frame) {
  writeSample(data, frame, state_->audioStream);
}

void LMFFMovieFileOutput::writeSample(const void* data, int32_t frame, AVStream* stream) {
  State::Sound* sound = state_->writingSoundOf(stream);
  if (!sound || sound->encoder.isFinished()) return;
  sound->resample->writeSample(data, frame);
  sound->encoder.encode(sound->queue());
}

bool LMFFMovieFileOutput::readAudioFrameFromBuffer(AVFrame* frame) {
  const auto& resample = state_->resample;
  if (!frame || !resample || resample->outputSamples() < frame->nb_samples) return false;
  resample->convertFrame(nullptr, frame);
  return true;
}

void LMFFMovieFileOutput::finishAudio() { finishAudio(state_->audioStream); }

void LMFFMovieFileOutput::finishAudio(AVStream* stream) {
  State::Sound* sound = state_->writingSoundOf(stream);
  if (!sound || sound->encoder.isFinished()) return;
  sound->resample->flush();
  sound->encoder.finish(sound->queue());
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
  if (StreamEncoder* encoder = state.writingEncoderOf(state.videoStream))
    state.encodeConverted(*encoder, ticks(duration, encoder->context()->time_base));
}

void LMFFMovieFileOutput::writeImage(const std::shared_ptr<LMFFImage>& image, int64_t time,
                                     int64_t duration) {
  State& state = *state_;
  StreamEncoder* encoder = state.writingEncoderOf(state.videoStream);
  if (!encoder || !image || !image->getFrame() || !state.videoConverter) return;
  state.videoConverter->convertFrame(image->getFrame());
  state.videoTime = std::max(state.videoTime, time);
  state.encodeConverted(*encoder, duration);
}

/// Encodes the converter's picture, shown from `videoTime` on.
void LMFFMovieFileOutput::State::encodeConverted(StreamEncoder& encoder, int64_t duration) {
  if (!videoConverter) return;
  FramePtr picture = makeFrame();
  if (!picture) return;
  const AVFrame* output = videoConverter->outputFrame();
  if (output->data[0] && !errors.succeeded(av_frame_ref(picture.get(), output))) return;
  if (palettes && picture->data[0] && picture->format == AV_PIX_FMT_RGB32) {
    picture = palettes->reduced(*picture);
    if (!picture) return errors.note(engineError(AVERROR(ENOMEM), "no memory for a picture"));
  }
  clearPictureType(*picture);
  if (topFieldFirst) markFields(*picture, *topFieldFirst);
  const AVRational base = encoder.context()->time_base;
  const auto toMicroseconds = [base](int64_t time) {
    return av_rescale_q(time, base, kMicroseconds);
  };
  if (keys && keys->begins(toMicroseconds(videoTime), toMicroseconds(duration)))
    picture->pict_type = AV_PICTURE_TYPE_I;
  picture->pts = videoTime;
  setFrameDuration(*picture, duration);
  videoTime = av_sat_add64(videoTime, duration);
  if (picture->data[0])
    encode(encoder, *picture, duration);
  else
    writeNextPacket(encoder);
}

// Copied packets.

/// Copied sound may begin before 0, with its encoder's delay.
void LMFFMovieFileOutput::State::beginCopies() {
  for (const auto& copy : copies) {
    const AVStream& stream = *copy->stream();
    if (stream.codecpar->codec_type != AVMEDIA_TYPE_AUDIO) continue;
    const int64_t begin = av_rescale_q(copiedSoundBegin, kMicroseconds, stream.time_base);
    copyClocks.try_emplace(&stream, AVMEDIA_TYPE_AUDIO, false, begin);
  }
}

bool LMFFMovieFileOutput::State::restamp(AVPacket& packet, const LMFFImage& item,
                                         const AVStream& stream) {
  const auto clock =
      copyClocks
          .try_emplace(&stream, stream.codecpar->codec_type,
                       hidesFirstPictures(*muxer.context()->oformat), 0, keepsCopiedTimes)
          .first;
  return clock->second.stamp(
      packet, TimeShift(toAV(item.time_base()), stream.time_base, item.get_pkt_offset_time()));
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
  } else if (SubtitleConverter* text = state.textOf(stream)) {
    if (const PacketPtr converted = text->convert(*reference))
      state.muxer.write(*converted, *stream);
  } else if (StreamCopier* copy = state.copyOf(stream)) {
    state.errors.succeeded(copy->push(std::move(reference)));
    state.errors.note(copy->error());
    state.muxReady(*copy);
  } else {
    state.muxer.write(*reference, *stream);
  }
}

// Packets.

void LMFFMovieFileOutput::State::writeCovers() {
  for (const auto& [stream, packet] : covers) {
    packet->pts = packet->dts = 0;
    muxer.write(*packet, *stream);
  }
  covers.clear();
}

PacketTaker LMFFMovieFileOutput::State::writerOf(const AVStream& stream) {
  return [this, &stream](const PacketPtr& packet) { muxer.write(*packet, stream); };
}

bool LMFFMovieFileOutput::State::writeNextPacket(StreamEncoder& encoder) {
  return encoder.takeNext(errors, writerOf(*encoder.stream()));
}

bool LMFFMovieFileOutput::State::encode(StreamEncoder& encoder, AVFrame& frame, int64_t duration) {
  return encoder.encode(frame, duration, errors, writerOf(*encoder.stream()));
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

int64_t LMFFMovieFileOutput::State::copiedTime(const AVStream* stream) const {
  const auto clock = copyClocks.find(stream);
  return clock == copyClocks.end() ? 0 : clock->second.time();
}

int64_t LMFFMovieFileOutput::streamTime(const AVStream* stream) const {
  State& state = *state_;
  if (const State::Sound* sound = state.soundOf(stream)) return sound->encoder.time();
  if (stream && stream == state.videoStream && state.encoderOf(stream)) return state.videoTime;
  return state.copiedTime(stream);
}

int64_t LMFFMovieFileOutput::audio_pts() const {
  return isAudioOpen() ? streamTime(state_->audioStream) : state_->audioEnd;
}

int64_t LMFFMovieFileOutput::video_pts() const {
  return isVideoOpen() ? streamTime(state_->videoStream) : state_->videoEnd;
}

int64_t LMFFMovieFileOutput::audio_output_time() const {
  return state_->microseconds(audio_pts(), state_->audioStream);
}

int64_t LMFFMovieFileOutput::video_output_time() const {
  return state_->microseconds(video_pts(), state_->videoStream);
}

int64_t LMFFMovieFileOutput::refusedPackets() const {
  int64_t count = state_->refusedPackets;
  for (const auto& copy : state_->copies) count += copy->refused();
  for (const auto& text : state_->texts) count += text->refused();
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
    for (const auto& encoder : state.encoders)
      if (encoder->context()->codec_type == AVMEDIA_TYPE_AUDIO) state.drain(encoder->stream());
    state.drain(state.videoStream);
    for (const auto& copy : state.copies) {
      state.errors.succeeded(copy->finish());
      state.errors.note(copy->error());
      state.muxReady(*copy);
    }
    if (takesLateChapters(*state.muxer.context()->oformat)) state.addChapters();
    state.muxer.complete();
  }
  const StreamEncoder* pictures = state.encoderOf(state.videoStream);
  if (pictures && !pictures->statistics().empty()) state.videoStatistics = pictures->statistics();
  state.refusedPackets = refusedPackets();
  state.picturesEncodedToHide = picturesEncodedToHide();
  state.audioEnd = audio_pts();
  state.videoEnd = video_pts();
  state.sounds.clear();
  state.encoders.clear();
  state.copies.clear();
  state.texts.clear();
  state.copyClocks.clear();
  state.covers.clear();
  state.muxer.close();
  state.audioStream = nullptr;
  state.videoStream = nullptr;
}

}  // namespace kestrel
