#include "convert/feed/AudioFeed.h"

#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>

#include <algorithm>
#include <limits>

namespace kestrel {

namespace {

constexpr int32_t kChannels = 2;

/// The last time at which a movie's medias are current; that of a movie without a length has none.
int64_t lastMoment(const LMFFMovie& movie) { return std::max<int64_t>(movie.duration() - 1, 0); }

}  // namespace

void holdClock(LMFFMovie& movie) {
  const int64_t last = lastMoment(movie);
  if (movie.currentTime() > last) movie.update_current_time_to(last);
}

AudioFeed::AudioFeed(LMFFMovie& movie) : movie_(movie) {}

std::vector<StreamSound*> AudioFeed::currentInputs() {
  std::vector<StreamSound*> inputs;
  for (const auto& media : movie_.audios()) {
    if (!media->isCurrentSynced()) continue;
    for (const auto& stream : media->audios()) {
      auto& sound = sounds_.try_emplace(stream, media, stream).first->second;
      sound.setReadsAlone(readsAlone_ && media->hasVideo());
      inputs.push_back(&sound);
    }
  }
  return inputs;
}

int32_t AudioFeed::read(float* data, int32_t frames) {
  holdClock(movie_);
  movie_.updateCurrentMedias();
  int32_t wanted = std::min(frames, StreamSound::kMostFrames);
  int32_t waiting = 0;
  bool atEnd = true;
  const auto inputs = currentInputs();
  for (StreamSound* const input : inputs) {
    wanted = input->align(wanted);
    waiting = std::max(waiting, input->waitingFrames());
    atEnd = atEnd && input->isAtEnd();
  }
  // Where nothing is current, something may still come, unless the clock is where all ends.
  const bool mayCome = inputs.empty() && movie_.currentTime() < lastMoment(movie_);
  if (atEnd && !mayCome) wanted = std::min(wanted, waiting);
  if (wanted > 0) mix(inputs, data, wanted);
  return wanted;
}

/// Adds the inputs up, in the movie's volume, and moves its clock.
void AudioFeed::mix(const std::vector<StreamSound*>& inputs, float* data, int32_t frames) {
  const auto count = static_cast<size_t>(frames) * kChannels;
  const double volume = movie_.volume();
  std::fill_n(data, count, 0.F);
  scratch_.resize(std::max(scratch_.size(), count));
  for (StreamSound* const input : inputs) {
    input->take(scratch_.data(), frames);
    for (size_t i = 0; i < count; ++i) data[i] += static_cast<float>(scratch_[i] * volume);
  }
  movie_.forwardAudioDecodeTime(frames);
}

int32_t AudioFeed::waitingFrames() const {
  int32_t fewest = std::numeric_limits<int32_t>::max();
  for (const auto& media : movie_.audios()) {
    if (!media->isCurrentSynced()) continue;
    for (const auto& stream : media->audios()) fewest = std::min(fewest, stream->outputSamples());
  }
  return fewest;
}

void AudioFeed::skip(int64_t frames) {
  std::vector<float> scratch(static_cast<size_t>(StreamSound::kMostFrames) * kChannels);
  while (frames > 0) {
    const auto count = static_cast<int32_t>(std::min<int64_t>(frames, StreamSound::kMostFrames));
    const int32_t got = read(scratch.data(), count);
    if (got == 0) return;
    frames -= got;
  }
}

}  // namespace kestrel
