#include "convert/feed/AudioFeed.h"

#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>

#include <algorithm>
#include <limits>

#include "support/FFmpegOwners.h"

namespace kestrel {

namespace {

constexpr int32_t kMostFrames = 512;  // a request; sound is placed to within one
constexpr int64_t kTolerance = 441;   // 10 ms: the jitter of container time stamps
constexpr int32_t kChannels = 2;
constexpr int kMostIdleForwards = 64;  // reads that bring no sound before the pump goes on

/// How many frames lie between the stream's clock and the oldest sound that waits; below 0 when
/// that sound is late.
int64_t framesUntilSound(const LMFFMediaStream& stream) {
  const AVFrame& frame = *stream.frame();
  if (frame.pts == AV_NOPTS_VALUE || frame.nb_samples == 0) return 0;
  const AVRational framebase = toAV(stream.framebase());
  const int64_t end =
      av_rescale_q(av_rescale_q(frame.pts, toAV(stream.timebase()), framebase) + frame.nb_samples,
                   framebase, toAV(stream.audioOutputTimebase()));
  return end - stream.outputSamples() - stream.audio_sync_frame();
}

/// The last time at which a movie's medias are current; that of a movie without a length has none.
int64_t lastMoment(const LMFFMovie& movie) { return std::max<int64_t>(movie.duration() - 1, 0); }

}  // namespace

void holdClock(LMFFMovie& movie) {
  const int64_t last = lastMoment(movie);
  if (movie.currentTime() > last) movie.update_current_time_to(last);
}

AudioFeed::AudioFeed(LMFFMovie& movie) : movie_(movie) {}

std::vector<AudioFeed::Input> AudioFeed::currentInputs() const {
  std::vector<Input> inputs;
  for (const auto& media : movie_.audios()) {
    if (!media->isCurrentSynced()) continue;
    for (const auto& stream : media->audios()) inputs.push_back({media, stream});
  }
  return inputs;
}

void AudioFeed::prefetch(const Input& input, int32_t frames) const {
  int idle = 0;
  for (int32_t waiting = input.stream->outputSamples(); waiting < frames;) {
    const bool hasMore = readsAlone_ && input.media->hasVideo()
                             ? input.media->forwardNextPacket()
                             : input.media->forwardStream(input.stream);
    if (!hasMore) return;
    const int32_t now = input.stream->outputSamples();
    if (now <= waiting && ++idle > kMostIdleForwards) return;
    waiting = now;
  }
}

/// Drops sound that is late; answers how many frames may be asked for at once.
int32_t AudioFeed::align(const Input& input, int32_t frames) {
  const int64_t distance = framesUntilSound(*input.stream);
  if (distance < -kTolerance) {
    const auto late =
        static_cast<int32_t>(std::min<int64_t>(-distance, input.stream->outputSamples()));
    dropped_.resize(static_cast<size_t>(late) * kChannels);
    input.stream->readSample(dropped_.data(), late);
    prefetch(input, frames);
  }
  if (distance > kTolerance) return static_cast<int32_t>(std::min<int64_t>(distance, frames));
  return frames;
}

int32_t AudioFeed::read(float* data, int32_t frames) {
  holdClock(movie_);
  movie_.updateCurrentMedias();
  int32_t wanted = std::min(frames, kMostFrames);
  int32_t waiting = 0;
  bool atEnd = true;
  const auto inputs = currentInputs();
  for (const auto& input : inputs) {
    prefetch(input, wanted);
    wanted = align(input, wanted);
    waiting = std::max(waiting, input.stream->outputSamples());
    atEnd = atEnd && input.media->isAtEnd();
  }
  // Where nothing is current, something may still come, unless the clock is where all ends.
  const bool mayCome = inputs.empty() && movie_.currentTime() < lastMoment(movie_);
  if (atEnd && !mayCome) wanted = std::min(wanted, waiting);
  if (wanted > 0) movie_.readSample(data, wanted);
  return wanted;
}

int32_t AudioFeed::waitingFrames() const {
  int32_t fewest = std::numeric_limits<int32_t>::max();
  for (const auto& input : currentInputs())
    fewest = std::min(fewest, input.stream->outputSamples());
  return fewest;
}

int64_t AudioFeed::skipSilence() {
  movie_.updateCurrentMedias();
  int64_t silence = std::numeric_limits<int64_t>::max();
  for (const auto& input : currentInputs()) {
    prefetch(input, 1);
    if (input.stream->outputSamples() > 0)
      silence = std::min(silence, std::max<int64_t>(framesUntilSound(*input.stream), 0));
  }
  if (silence == std::numeric_limits<int64_t>::max()) return 0;
  if (silence > kTolerance) skip(silence);
  return silence;
}

void AudioFeed::skip(int64_t frames) {
  std::vector<float> scratch(static_cast<size_t>(kMostFrames) * kChannels);
  while (frames > 0) {
    const auto count = static_cast<int32_t>(std::min<int64_t>(frames, kMostFrames));
    const int32_t got = read(scratch.data(), count);
    if (got == 0) return;
    frames -= got;
  }
}

}  // namespace kestrel
