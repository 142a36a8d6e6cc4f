#include "convert/feed/StreamSound.h"

#include <kestrel/LMFFAudioResample.h>
#include <kestrel/LMFFFormat.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>

#include "support/FFmpegOwners.h"

namespace kestrel {

namespace {

constexpr int kMostIdleForwards = 64;  // reads that bring no sound before the pump goes on

/// Of some frames, interleaved.
size_t bytesOf(const LMFFMediaStream& stream, int32_t frames) {
  const LMFFAudioFormat format = stream.audioOutputFormat();
  const int bytes = av_get_bytes_per_sample(static_cast<AVSampleFormat>(format.sample_fmt)) *
                    lm_get_channel_layout_nb_channels(format.channel_layout);
  return static_cast<size_t>(bytes) * static_cast<size_t>(frames);
}

}  // namespace

StreamSound::StreamSound(std::shared_ptr<LMFFMedia> media, std::shared_ptr<LMFFMediaStream> stream)
    : media_(std::move(media)), stream_(std::move(stream)) {}

/// How many frames lie between the stream's clock and the oldest sound that waits; below 0 when
/// that sound is late.
int64_t StreamSound::framesUntilSound() const {
  const AVFrame& frame = *stream_->frame();
  if (frame.pts == AV_NOPTS_VALUE || frame.nb_samples == 0) return 0;
  const AVRational framebase = toAV(stream_->framebase());
  const int64_t end =
      av_rescale_q(av_rescale_q(frame.pts, toAV(stream_->timebase()), framebase) + frame.nb_samples,
                   framebase, toAV(stream_->audioOutputTimebase()));
  const auto resampler = stream_->resample();
  const int32_t held = resampler ? resampler->heldSamples() : 0;
  return end - held - stream_->outputSamples() - stream_->audio_sync_frame();
}

/// 10 ms: the jitter of container time stamps.
int64_t StreamSound::tolerance() const { return stream_->audioOutputFormat().sample_rate / 100; }

/// How much a container's times are rounded: by a tick of its clock, and by what comes of sums.
int64_t StreamSound::rounding() const {
  return av_rescale_q_rnd(1, toAV(stream_->timebase()), toAV(stream_->audioOutputTimebase()),
                          AV_ROUND_UP) +
         1;
}

/// Reads until some sound waits.
void StreamSound::prefetch() const {
  for (int idle = 0; waitingFrames() == 0;) {
    const bool hasMore = readsAlone_ ? media_->forwardNextPacket() : media_->forwardStream(stream_);
    if (!hasMore) return;
    if (++idle > kMostIdleForwards) return;
  }
}

/// Drops what waits and is late by more than `least` frames, and what then waits likewise.
void StreamSound::dropLate(int64_t least) {
  while (waitingFrames() > 0) {
    const int64_t late = -framesUntilSound();
    if (late <= least) return;
    const auto count = static_cast<int32_t>(std::min<int64_t>(late, waitingFrames()));
    std::vector<std::byte> dropped(bytesOf(*stream_, count));
    stream_->readSample(dropped.data(), count);
    prefetch();
  }
}

int32_t StreamSound::align(int32_t frames) {
  prefetch();
  const int64_t least = state_ == State::kSounding ? tolerance() : rounding();
  dropLate(least);
  const int64_t distance = framesUntilSound();
  if (distance > (state_ == State::kSilent ? 0 : least)) {
    state_ = State::kSilent;
    return static_cast<int32_t>(std::min<int64_t>(distance, frames));
  }
  // What comes behind that which waits may lie behind a hole.
  const int32_t waiting = waitingFrames();
  if (waiting > 0) state_ = State::kSounding;
  return waiting > 0 ? std::min(waiting, frames) : frames;
}

void StreamSound::take(void* data, int32_t frames) {
  if (state_ == State::kSounding && waitingFrames() >= frames)
    stream_->readSample(data, frames);
  else
    std::memset(data, 0, bytesOf(*stream_, frames));  // silence as floats have it
  stream_->setAudio_sync_frame(stream_->audio_sync_frame() + frames);
}

int32_t StreamSound::waitingFrames() const { return stream_->outputSamples(); }

bool StreamSound::isAtEnd() const { return media_->isAtEnd(); }

int32_t StreamSound::read(void* data, int32_t frames) {
  int32_t wanted = align(std::min(frames, kMostFrames));
  if (isAtEnd()) wanted = std::min(wanted, waitingFrames());
  if (wanted <= 0) return 0;
  take(data, wanted);
  return wanted;
}

int64_t StreamSound::skipSilence() {
  prefetch();
  if (waitingFrames() == 0) return 0;
  const int64_t silence = std::max<int64_t>(framesUntilSound(), 0);
  if (silence <= rounding()) return silence;
  std::vector<std::byte> scratch(bytesOf(*stream_, kMostFrames));
  for (int64_t left = silence; left > 0;) {
    const int32_t got =
        read(scratch.data(), static_cast<int32_t>(std::min<int64_t>(left, kMostFrames)));
    if (got == 0) break;
    left -= got;
  }
  return silence;
}

}  // namespace kestrel
