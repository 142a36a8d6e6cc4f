#include <kestrel/LMFFImage.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/Log.h>

#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <utility>

#include "media/LMFFMovieState.h"
#include "support/FFmpegOwners.h"

namespace kestrel {

namespace {

constexpr int kChannels = 2;
constexpr int32_t kBlockFrames = 2048;  // what one top-up of the playback buffer decodes

/// How far the clock moves where no packet tells the time, in seconds.
constexpr double kPacketlessStep = 0.02;

bool covers(const LMFFMedia& media, int64_t time) {
  const int64_t start = media.movie_position();
  return start <= time && time < start + media.duration();
}

}  // namespace

int64_t LMFFMovie::currentTime() const {
  const auto clock = state_->clock.get();
  const auto graph = audioOutputGraph();
  const double played = clock.decode_samples - (graph ? graph->bufferFrames() : 0);
  const double rate = defaultOutputFormat().sample_rate;
  return clock.seek_point +
         static_cast<int64_t>(static_cast<double>(lm_default_time_base()) * played / rate);
}

void LMFFMovie::setCurrentTime(int64_t time) { seek(time); }

void LMFFMovie::forwardAudioDecodeTime(double samples) {
  state_->clock.with([samples](auto& clock) { clock.decode_samples += samples; });
}

void LMFFMovie::update_current_time_to(int64_t time) { state_->clock.set({time, 0}); }

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

void LMFFMovie::updateCurrentMedias(bool force) {
  const int64_t time = currentTime();
  for (const auto& media : medias()) {
    if (!covers(*media, time)) {
      media->setIsCurrentSynced(false);
    } else if (force || !media->isCurrentSynced()) {
      media->seek(time - media->movie_position());
      media->setIsCurrentSynced(true);
    }
  }
}

void LMFFMovie::seek(int64_t time) {
  update_current_time_to(time);
  const auto queue = decodeQueue();
  if (!queue) return;
  queue->addOperation([this, graph = audioOutputGraph(), time] {
    if (state_->clock.get().seek_point != time) return;  // a later seek has replaced this one
    if (graph) graph->clearBuffer();
    updateCurrentMedias(true);
    if (const auto text = subtitle()) text->seek(0);
  });
}

void LMFFMovie::flushOperation() {
  if (const auto queue = decodeQueue()) queue->waitUntilAllOperationsAreFinished();
}

bool LMFFMovie::forward() { return true; }

void LMFFMovie::play() {
  if (const auto graph = audioOutputGraph()) graph->start();
}

void LMFFMovie::pause() {
  if (const auto graph = audioOutputGraph()) graph->stop();
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
  if (const auto graph = audioOutputGraph()) graph->setVolume(static_cast<float>(volume));
}

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

bool LMFFMovie::decodeAudioToAudioOutput() {
  if (exportMovie()) return true;
  std::array<float, static_cast<size_t>(kBlockFrames) * kChannels> block{};
  readSample(block.data(), kBlockFrames);
  if (const auto graph = audioOutputGraph())
    graph->streamWriteSample(0, block.data(), kBlockFrames);
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
