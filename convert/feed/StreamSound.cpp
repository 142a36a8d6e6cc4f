#include "convert/feed/StreamSound.h"

#include <kestrel/LMFFFormat.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>

#include <algorithm>
#include <utility>

#include "support/FFmpegOwners.h"

namespace kestrel {

namespace {

constexpr int kMostIdleForwards = 64;  // reads that bring no sound before the pump goes on

size_t channelsOf(const LMFFMediaStream& stream) {
  return static_cast<size_t>(
      lm_get_channel_layout_nb_channels(stream.audioOutputFormat().channel_layout));
}

}  // namespace

StreamSound::StreamSound(std::shared_ptr<LMFFMedia> media, std::shared_ptr<LMFFMediaStream> stream,
                         bool readsAlone)
    : media_(std::move(media)), stream_(std::move(stream)), readsAlone_(readsAlone) {}

/// How many frames lie between the stream's clock and the oldest sound that waits; below 0 when
/// that sound is late.
int64_t StreamSound::framesUntilSound() const {
  const AVFrame& frame = *stream_->frame();
  if (frame.pts == AV_NOPTS_VALUE || frame.nb_samples == 0) return 0;
  const AVRational framebase = toAV(stream_->framebase());
  const int64_t end =
      av_rescale_q(av_rescale_q(frame.pts, toAV(stream_->timebase()), framebase) + frame.nb_samples,
                   framebase, toAV(stream_->audioOutputTimebase()));
  return end - stream_->outputSamples() - stream_->audio_sync_frame();
}

/// 10 ms: the jitter of container time stamps.
int64_t StreamSound::tolerance() const { return stream_->audioOutputFormat().sample_rate / 100; }

void StreamSound::prefetch(int32_t frames) const {
  int idle = 0;
  for (int32_t waiting = waitingFrames(); waiting < frames;) {
    const bool hasMore = readsAlone_ ? media_->forwardNextPacket() : media_->forwardStream(stream_);
    if (!hasMore) return;
    const int32_t now = waitingFrames();
    if (now <= waiting && ++idle > kMostIdleForwards) return;
    waiting = now;
  }
}

int32_t StreamSound::align(int32_t frames) {
  prefetch(frames);
  const int64_t distance = framesUntilSound();
  if (distance < -tolerance()) {
    const auto late = static_cast<int32_t>(std::min<int64_t>(-distance, waitingFrames()));
    std::vector<float> dropped(static_cast<size_t>(late) * channelsOf(*stream_));
    stream_->readSample(dropped.data(), late);
    prefetch(frames);
  }
  if (distance > tolerance()) return static_cast<int32_t>(std::min<int64_t>(distance, frames));
  return frames;
}

int32_t StreamSound::waitingFrames() const { return stream_->outputSamples(); }

bool StreamSound::isAtEnd() const { return media_->isAtEnd(); }

int32_t StreamSound::read(float* data, int32_t frames) {
  int32_t wanted = align(std::min(frames, kMostFrames));
  if (isAtEnd()) wanted = std::min(wanted, waitingFrames());
  if (wanted <= 0) return 0;
  std::fill_n(data, static_cast<size_t>(wanted) * channelsOf(*stream_), 0.F);
  media_->readAudioStream(stream_, data, wanted);
  return wanted;
}

int64_t StreamSound::skipSilence() {
  prefetch(1);
  if (waitingFrames() == 0) return 0;
  const int64_t silence = std::max<int64_t>(framesUntilSound(), 0);
  if (silence <= tolerance()) return silence;
  std::vector<float> scratch(static_cast<size_t>(kMostFrames) * channelsOf(*stream_));
  for (int64_t left = silence; left > 0;) {
    const int32_t got =
        read(scratch.data(), static_cast<int32_t>(std::min<int64_t>(left, kMostFrames)));
    if (got == 0) break;
    left -= got;
  }
  return silence;
}

}  // namespace kestrel
