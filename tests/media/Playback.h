#pragma once

#include <kestrel/LMFFMovie.h>
#include <kestrel/LMOutputAudioGraph.h>
#include <kestrel/LMWavSource.h>
#include <kestrel/OperationQueue.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "tests/audio/Sound.h"
#include "tests/media/Media.h"

namespace kestrel::test {

/// Sound that is computed: both channels of a frame are `sample(frame)`.
class ComputedSound : public LMWavSource {
 public:
  using Sample = std::function<float(int64_t frame)>;

  ComputedSound(int64_t frames, Sample sample) : frames_(frames), sample_(std::move(sample)) {}

  std::shared_ptr<LMMediaSource> copy() const override {
    return std::make_shared<ComputedSound>(frames_, sample_);
  }
  int64_t datasize() const override { return frames_ * 8; }
  int32_t readData(uint8_t* data, int64_t offset, int32_t size) override {
    if (offset >= headerSize()) offset -= headerSize();
    for (int32_t i = 0; i < size; ++i, ++offset) {
      const float value = sample_(offset / 8);
      uint8_t bytes[sizeof value];
      std::memcpy(bytes, &value, sizeof value);
      data[i] = bytes[offset % 4];
    }
    return size;
  }

 private:
  const int64_t frames_;
  const Sample sample_;
};

/// A movie that is played by hand: time passes only while `pull` asks for sound, and nothing is
/// asked for before it is there, so that what is heard does not depend on how busy the machine is.
class PulledMovie {
 public:
  explicit PulledMovie(const LMFFMovie::MediaList& medias, AudioDevice::Format format = {})
      : device_(std::make_shared<PulledAudioDevice>(format)) {
    movie_.openMedias(medias);
    movie_.audioOutputGraph()->graph().setDevice(device_);
  }

  LMFFMovie& movie() { return movie_; }
  LMFFMovie* operator->() { return &movie_; }
  LMOutputAudioGraph& graph() { return *movie_.audioOutputGraph(); }
  PulledAudioDevice& device() { return *device_; }

  /// Waits until so much is decoded that no period can find too little.
  void waitForSound() {
    const float wanted = 4 * 2048 * std::clamp(movie_.rate(), 1.0F, 4.0F);
    while (static_cast<float>(graph().bufferFrames()) < wanted) {
      graph().decodeMoreAudioDataToAudioOutput();
      std::this_thread::yield();
    }
  }

  std::vector<float> pull(int64_t frames, int32_t period = 512) {
    std::vector<float> sound;
    for (; frames > 0; frames -= period) {
      waitForSound();
      const auto piece = device_->pull(static_cast<int32_t>(std::min<int64_t>(frames, period)));
      sound.insert(sound.end(), piece.begin(), piece.end());
    }
    return sound;
  }

 private:
  std::shared_ptr<PulledAudioDevice> device_;
  LMFFMovie movie_;
};

/// While it lives, the movie's queue does nothing.
class HeldQueue {
 public:
  explicit HeldQueue(LMFFMovie& movie) {
    std::promise<void> reached;
    auto isReached = reached.get_future();
    movie.decodeQueue()->addOperation(
        [&reached, release = release_.get_future().share()]() mutable {
          reached.set_value();
          release.wait();
        });
    isReached.wait();
  }
  ~HeldQueue() { release_.set_value(); }
  HeldQueue(const HeldQueue&) = delete;
  HeldQueue& operator=(const HeldQueue&) = delete;

 private:
  std::promise<void> release_;
};

}  // namespace kestrel::test
