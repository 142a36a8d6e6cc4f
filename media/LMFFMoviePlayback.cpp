#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMFFMovie.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "media/LMFFMovieState.h"

namespace kestrel {

namespace {

constexpr int32_t kChannels = 2;
constexpr int32_t kBlockFrames = 2048;  // what one top-up of the playback buffer decodes

/// How many blocks wait to be played at rate 1, so that a busy machine is not heard: 0.2 s. Faster
/// playing needs more.
constexpr int32_t kBlocksAhead = 4;
constexpr float kFastest = 4;

constexpr int kMostIdleForwards = 64;  // reads that bring no sound before one goes on without

/// Reads on until a stream has `frames` frames of sound, as far as there are any.
void prefetch(LMFFMedia& media, const std::shared_ptr<LMFFMediaStream>& stream, int32_t frames) {
  int idle = 0;
  for (int32_t waiting = stream->outputSamples(); waiting < frames;) {
    // Pictures that are read along with the sound do not lead here: the sound is what is heard.
    const bool hasMore = media.hasVideo() ? media.forwardNextPacket() : media.forwardStream(stream);
    if (!hasMore) return;
    const int32_t now = stream->outputSamples();
    if (now <= waiting && ++idle > kMostIdleForwards) return;
    waiting = now;
  }
}

}  // namespace

void LMFFMovie::State::decodeMoreAudioDataToAudioOutput() {
  if (pump.isRunning()) return pump.request();
  movie.decodeMoreAudioDataToAudioOutput();
}

/// What was played before goes on no longer: its end has been heard, and what follows it in the
/// buffer is the silence behind it.
void LMFFMovie::State::playFrom(int64_t time) {
  const auto graph = movie.audioOutputGraph();
  if (!pump.isRunning() || !graph || graph->unheardFrames() <= 0) return;
  graph->clearBuffer();
  clock.with([time](Clock& now) {
    if (now.isPositioning) return;
    now = {.seek_point = time, .isPumping = now.isPumping, .seeks = now.seeks};
  });
}

/// How much of `frames` frames to read in one go: at the end of the input first what there is, so
/// that no sound is left over.
int32_t LMFFMovie::State::soundAtOnce(int32_t frames) {
  int32_t waiting = 0;
  bool isAtEnd = true;
  for (const auto& media : movie.audios()) {
    if (!media->isCurrentSynced()) continue;
    for (const auto& stream : media->audios()) {
      prefetch(*media, stream, frames);
      waiting = std::max(waiting, stream->outputSamples());
    }
    isAtEnd = isAtEnd && media->isAtEnd();
  }
  return isAtEnd && waiting > 0 ? std::min(waiting, frames) : frames;
}

void LMFFMovie::State::fillPlaybackBuffer() {
  const auto graph = movie.audioOutputGraph();
  if (!graph || movie.exportMovie()) return;
  const float rate = graph->rate();
  const float factor = std::isfinite(rate) ? std::clamp(rate, 1.0F, kFastest) : 1.0F;
  const auto wanted = static_cast<int32_t>(std::lround(kBlocksAhead * kBlockFrames * factor));
  const auto isReplaced = [this] {
    return clock.with([](const Clock& now) { return now.isPositioning; });
  };
  while (graph->bufferFrames() < wanted && !isReplaced()) movie.decodeAudioToAudioOutput();
}

/// Called by a media before each packet that it reads for pictures alone: many may have to be
/// decoded for one picture, and the queue is busy for as long as that takes.
void LMFFMovie::keepSoundGoing() {
  auto& state = *state_;
  if (!state.pump.isRunning()) return;
  const auto queue = decodeQueue();
  const bool isPumping = state.clock.with([](const State::Clock& now) { return now.isPumping; });
  if (queue && queue->isCurrentQueue() && !isPumping) state.fillPlaybackBuffer();
}

void LMFFMovie::play() {
  const auto graph = audioOutputGraph();
  if (!graph) return;
  auto& state = *state_;
  const std::lock_guard guard(state.playing);
  state.pump.start([this, &state] {
    const auto queue = decodeQueue();
    if (!queue || state.isFillQueued.exchange(true)) return;
    queue->addOperation([&state] {
      state.isFillQueued = false;
      if (state.pump.isRunning()) state.fillPlaybackBuffer();
    });
  });
  state.pump.request();
  // A movie without sound needs no device, only the time.
  graph->graph().setIsSilent(!hasAudio());
  graph->start();
}

void LMFFMovie::pause() {
  const std::lock_guard guard(state_->playing);
  if (const auto graph = audioOutputGraph()) graph->stop();
  state_->pump.stop();
}

void LMFFMovie::stop() { pause(); }

bool LMFFMovie::isPlay() const {
  const auto graph = audioOutputGraph();
  return graph && graph->isStart();
}

void LMFFMovie::setRate(float rate) {
  if (const auto graph = audioOutputGraph()) graph->setRate(rate);
}

float LMFFMovie::rate() const {
  const auto graph = audioOutputGraph();
  return graph ? graph->rate() : 0;
}

double LMFFMovie::playVolume() const {
  const auto graph = audioOutputGraph();
  return graph ? static_cast<double>(graph->volume()) : 0;
}

void LMFFMovie::setPlayVolume(double volume) {
  constexpr double kMost = std::numeric_limits<float>::max();
  if (const auto graph = audioOutputGraph())
    graph->setVolume(static_cast<float>(std::clamp(volume, -kMost, kMost)));
}

bool LMFFMovie::decodeAudioToAudioOutput() {
  if (exportMovie()) return true;
  auto& state = *state_;
  std::array<float, static_cast<size_t>(kBlockFrames) * kChannels> block{};
  state.clock.with([](State::Clock& clock) { clock.isPumping = true; });
  updateCurrentMedias();
  for (int32_t done = 0; done < kBlockFrames;) {
    const int32_t count = state.soundAtOnce(kBlockFrames - done);
    readSample(block.data() + static_cast<ptrdiff_t>(done) * kChannels, count);
    done += count;
  }
  // Under the clock's lock: whoever asks for the time finds this block in one place.
  state.clock.with([&](State::Clock& clock) {
    if (const auto graph = audioOutputGraph())
      graph->streamWriteSample(0, block.data(), kBlockFrames);
    clock.pumped += clock.pumping;
    clock.pumping = 0;
    clock.isPumping = false;
  });
  return true;
}

void LMFFMovie::decodeMoreAudioDataToAudioOutputHelper() {
  const auto graph = audioOutputGraph();
  if (graph && graph->bufferFrames() >= kBlockFrames) return;
  decodeAudioToAudioOutput();
}

void LMFFMovie::decodeMoreAudioDataToAudioOutput() {
  if (const auto queue = decodeQueue())
    queue->addOperation([this] { decodeMoreAudioDataToAudioOutputHelper(); });
}

}  // namespace kestrel
