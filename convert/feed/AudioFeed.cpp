#include "convert/feed/AudioFeed.h"

#include <kestrel/LMFFMediaStream.h>

#include <algorithm>
#include <functional>
#include <limits>

#include "support/FFmpegOwners.h"

namespace kestrel {

AudioFeed::AudioFeed(const std::vector<Input>& inputs)
    : format_(inputs.front().stream->audioOutputFormat()),
      channels_(lm_get_channel_layout_nb_channels(format_.channel_layout)),
      frameBytes_(static_cast<size_t>(channels_) *
                  static_cast<size_t>(
                      av_get_bytes_per_sample(static_cast<AVSampleFormat>(format_.sample_fmt)))) {
  for (const auto& [media, stream] : inputs) sounds_.emplace_back(media, stream);
}

int32_t AudioFeed::read(void* data, int32_t frames) {
  int32_t wanted = std::min(frames, StreamSound::kMostFrames);
  int32_t waiting = 0;
  bool atEnd = true;
  for (StreamSound& sound : sounds_) {
    wanted = sound.align(wanted);
    waiting = std::max(waiting, sound.waitingFrames());
    atEnd = atEnd && sound.isAtEnd();
  }
  if (atEnd) wanted = std::min(wanted, waiting);
  if (wanted <= 0) return 0;
  sounds_.front().take(data, wanted);
  if (sounds_.size() == 1) return wanted;
  auto* const mix = static_cast<float*>(data);
  const auto samples = static_cast<size_t>(wanted) * static_cast<size_t>(channels_);
  for (size_t i = 1; i < sounds_.size(); ++i) {
    scratch_.resize(samples);
    sounds_[i].take(scratch_.data(), wanted);
    std::transform(mix, mix + samples, scratch_.begin(), mix, std::plus<>());
  }
  return wanted;
}

int32_t AudioFeed::waitingFrames() const {
  int32_t fewest = std::numeric_limits<int32_t>::max();
  for (const StreamSound& sound : sounds_) fewest = std::min(fewest, sound.waitingFrames());
  return fewest;
}

void AudioFeed::readAlone() {
  for (StreamSound& sound : sounds_) sound.setReadsAlone(true);
}

void AudioFeed::skip(int64_t frames) {
  std::vector<std::byte> dropped(StreamSound::kMostFrames * frameBytes_);
  while (frames > 0) {
    const auto count = static_cast<int32_t>(std::min<int64_t>(frames, StreamSound::kMostFrames));
    const int32_t got = read(dropped.data(), count);
    if (got == 0) return;
    frames -= got;
  }
}

}  // namespace kestrel
