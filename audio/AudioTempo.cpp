#include <kestrel/AudioTempo.h>

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

#include "support/FFmpegOwners.h"
#include "support/FilterChain.h"

namespace kestrel {

namespace {

constexpr double kSlowest = 0.01;
constexpr double kFastest = 100;
constexpr double kSlowestFilter = 0.5;
constexpr int32_t kMostChannels = 8;

/// Filters that make up the rate together.
std::vector<FilterChain::Filter> filtersFor(double rate, int32_t sampleRate, int32_t channels) {
  AVChannelLayout layout{};
  av_channel_layout_default(&layout, channels);
  char name[64];
  av_channel_layout_describe(&layout, name, sizeof name);
  std::vector<FilterChain::Filter> filters{
      {"abuffer", fmt::format("sample_rate={0}:time_base=1/{0}:sample_fmt=flt:channel_layout={1}",
                              sampleRate, name)}};
  for (; rate < kSlowestFilter; rate /= kSlowestFilter)
    filters.push_back({"atempo", fmt::format("{}", kSlowestFilter)});
  filters.push_back({"atempo", fmt::format("{:.9f}", rate)});
  filters.push_back({"abuffersink", ""});
  return filters;
}

/// Sound in a frame of the library's; null without memory.
FramePtr frameOf(const float* data, int32_t frames, int32_t sampleRate, int32_t channels) {
  FramePtr frame = makeFrame();
  if (!frame) return nullptr;
  frame->format = AV_SAMPLE_FMT_FLT;
  frame->sample_rate = sampleRate;
  av_channel_layout_default(&frame->ch_layout, channels);
  frame->nb_samples = frames;
  if (av_frame_get_buffer(frame.get(), 0) < 0) return nullptr;
  std::memcpy(frame->data[0], data, sizeof(float) * static_cast<size_t>(frames) * channels);
  return frame;
}

}  // namespace

struct AudioTempo::State {
  std::unique_ptr<FilterChain> chain;
  int32_t sampleRate = 0;
  int32_t channels = 0;
  int64_t time = 0;  // frames taken
  std::vector<float> waiting;
  size_t read = 0;  // of `waiting`, in values

  void collect() {
    waiting.erase(waiting.begin(), waiting.begin() + static_cast<std::ptrdiff_t>(read));
    read = 0;
    const FramePtr frame = makeFrame();
    while (frame && chain->pull(*frame)) {
      const auto* samples = reinterpret_cast<const float*>(frame->data[0]);
      waiting.insert(waiting.end(), samples,
                     samples + static_cast<size_t>(frame->nb_samples) * channels);
    }
  }
};

AudioTempo::AudioTempo() : state_(std::make_unique<State>()) {}

AudioTempo::~AudioTempo() = default;

std::unique_ptr<AudioTempo> AudioTempo::make(double rate, int32_t sampleRate, int32_t channels) {
  if (!(rate >= kSlowest && rate <= kFastest) || sampleRate <= 0 || channels <= 0 ||
      channels > kMostChannels)
    return nullptr;
  std::unique_ptr<AudioTempo> tempo(new AudioTempo);
  tempo->state_->chain = FilterChain::make(filtersFor(rate, sampleRate, channels));
  tempo->state_->sampleRate = sampleRate;
  tempo->state_->channels = channels;
  return tempo->state_->chain ? std::move(tempo) : nullptr;
}

void AudioTempo::write(const float* data, int32_t frames) {
  FramePtr frame;
  if (frames > 0) {
    frame = frameOf(data, frames, state_->sampleRate, state_->channels);
    if (!frame) throw std::bad_alloc();
    frame->pts = state_->time;
    state_->time += frames;
  }
  if (state_->chain->push(frame.get())) state_->collect();
}

int32_t AudioTempo::read(float* data, int32_t frames) {
  State& state = *state_;
  const size_t count = std::min(state.waiting.size() - state.read,
                                static_cast<size_t>(std::max(frames, 0)) * state.channels);
  std::copy_n(state.waiting.begin() + static_cast<std::ptrdiff_t>(state.read), count, data);
  state.read += count;
  return static_cast<int32_t>(count / static_cast<size_t>(state.channels));
}

}  // namespace kestrel
