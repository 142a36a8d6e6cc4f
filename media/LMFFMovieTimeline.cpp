#include <kestrel/LMFFImage.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/Log.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <utility>

#include "media/LMFFMovieState.h"
#include "support/FFmpegOwners.h"

namespace kestrel {

namespace {

constexpr int kChannels = 2;

/// How far the clock moves where no packet tells the time, in seconds.
constexpr double kPacketlessStep = 0.02;

/// How long so many samples of the pump's last, microseconds.
int64_t durationOf(double samples) {
  return static_cast<int64_t>(static_cast<double>(lm_default_time_base()) * samples /
                              lm_get_default_audio_format().sample_rate);
}

bool covers(const LMFFMedia& media, int64_t time) {
  const int64_t start = media.movie_position();
  return start <= time && time < start + media.duration();
}

}  // namespace

/// A seek that waits is still to be carried out when the clock is set to the time it goes to.
void LMFFMovie::State::Clock::setOrigin(int64_t time) {
  *this = {.seek_point = time,
           .isPumping = isPumping,
           .isPositioning = isPositioning && time == seek_point,
           .seeks = seeks};
}

void LMFFMovie::State::Clock::forward(double samples) {
  decode_samples += samples;
  if (isPumping) pumping += samples;
}

void LMFFMovie::State::Clock::forgetPumped() {
  decode_samples -= pumped;
  pumped = 0;
}

int64_t LMFFMovie::State::readTime() const {
  return clock.with([](const Clock& now) {
    return now.seek_point + (now.isPositioning ? 0 : durationOf(now.decode_samples));
  });
}

int64_t LMFFMovie::currentTime() const {
  const auto graph = audioOutputGraph();
  // Under the clock's lock, so that sound that is just written is counted in one place.
  return state_->clock.with([&](const State::Clock& clock) {
    if (clock.isPositioning) return clock.seek_point;
    const double unheard = clock.pumping + (graph ? graph->unheardFrames() : 0);
    return clock.seek_point + durationOf(clock.decode_samples - unheard);
  });
}

void LMFFMovie::setCurrentTime(int64_t time) { seek(time); }

void LMFFMovie::forwardAudioDecodeTime(double samples) {
  state_->clock.with([samples](auto& clock) { clock.forward(samples); });
}

void LMFFMovie::update_current_time_to(int64_t time) {
  state_->clock.with([time](auto& clock) { clock.setOrigin(time); });
}

void LMFFMovie::updateAudioPacketTime(const std::shared_ptr<LMFFImage>& packet) {
  if (!packet) {
    const double step = kPacketlessStep * static_cast<double>(lm_default_time_base());
    return update_current_time_to(static_cast<int64_t>(static_cast<double>(currentTime()) + step));
  }
  const AVPacket* data = packet->getPacket();
  int64_t time = AV_NOPTS_VALUE;
  if (data) time = data->pts == AV_NOPTS_VALUE ? data->dts : data->pts;
  if (time == AV_NOPTS_VALUE) {
    time = 0;
    log("error pkt time");
  }
  const int64_t own =
      av_rescale_q(time, toAV(packet->time_base()), kMicroseconds) + packet->get_pkt_offset_time();
  update_current_time_to(std::max(own, currentTime()));
}

int64_t LMFFMovie::currentVideoMediaMaxTime() const {
  const auto media = currentVideoMedia();
  return media ? media->movie_position() + media->duration() : 0;
}

void LMFFMovie::updateCurrentMedias() { updateCurrentMedias(false); }

/// Sound that is read by itself goes by where it is read, which is ahead of the clock while some
/// waits to be played; everything else by the clock. It is positioned first, so that it can go on
/// while pictures are.
void LMFFMovie::updateCurrentMedias(bool force) {
  const int64_t heard = currentTime();
  const int64_t read = state_->readTime();
  MediaList list = medias();
  std::stable_partition(list.begin(), list.end(),
                        [](const auto& media) { return media->hasAudio(); });
  for (const auto& media : list) {
    const bool hasPictures = media->hasVideo();
    const int64_t time = hasPictures || !media->hasAudio() ? heard : read;
    if (!covers(*media, time)) {
      media->setIsCurrentSynced(false);
    } else if (force || !media->isCurrentSynced()) {
      if (!force && hasPictures && media->hasAudio()) state_->playFrom(time);
      media->setIsCurrentSynced(true);
      media->seek(time - media->movie_position());
    }
  }
}

void LMFFMovie::seek(int64_t time) {
  const auto queue = decodeQueue();
  const uint64_t seeks = state_->clock.with([&](auto& clock) {
    clock.setOrigin(time);
    clock.isPositioning = queue != nullptr;
    return ++clock.seeks;
  });
  if (!queue) return;
  queue->addOperation([this, graph = audioOutputGraph(), time, seeks] {
    // A later seek may have replaced this one, or the clock been set to another time.
    const bool isDue = state_->clock.with(
        [&](const auto& clock) { return clock.seeks == seeks && clock.seek_point == time; });
    if (!isDue) return;
    if (graph) graph->clearBuffer();
    state_->clock.with([](auto& clock) {
      clock.forgetPumped();
      clock.isPositioning = false;
    });
    updateCurrentMedias(true);
    if (const auto text = subtitle()) text->seek(0);
    if (state_->pump.isRunning()) state_->fillPlaybackBuffer();
  });
}

void LMFFMovie::flushOperation() {
  if (const auto queue = decodeQueue()) queue->waitUntilAllOperationsAreFinished();
}

bool LMFFMovie::forward() { return true; }

bool LMFFMovie::readSample(float* data, int32_t frame) {
  updateCurrentMedias();
  forwardAudioDecodeTime(frame);
  const auto count = static_cast<size_t>(std::max(frame, 0)) * kChannels;
  std::fill_n(data, count, 0.0F);
  auto& scratch = state_->scratch;
  const double factor = volume();
  for (const auto& media : audios()) {
    if (!media->isCurrentSynced()) continue;
    scratch.assign(count, 0);
    media->readSample(scratch.data(), frame);
    for (size_t i = 0; i < count; ++i)
      data[i] += static_cast<float>(static_cast<double>(scratch[i]) * factor);
  }
  return true;
}

std::shared_ptr<LMFFImage> LMFFMovie::readNextAudioPacket() {
  updateCurrentMedias();
  const auto media = currentAudioMedia();
  auto packet = media ? media->readNextAudioPacket() : nullptr;
  updateAudioPacketTime(packet);
  return packet;
}

}  // namespace kestrel
