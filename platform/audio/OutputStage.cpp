#include "platform/audio/OutputStage.h"

#include <algorithm>
#include <cmath>

namespace kestrel {

namespace {

constexpr float kLoudest = 1000;  // 60 dB: more than any recording is too quiet by

}  // namespace

bool OutputStage::setParameter(uint32_t parameter, float value) {
  if (parameter != kAudioUnitParameter_Volume) return false;
  volume_ = value;
  return true;
}

std::optional<float> OutputStage::parameter(uint32_t parameter) const {
  if (parameter != kAudioUnitParameter_Volume) return std::nullopt;
  return volume_;
}

std::optional<AudioStreamFormat> OutputStage::format(AudioScope) const {
  const std::lock_guard guard(lock_);
  return format_ ? std::optional(streamFormat(*format_)) : std::nullopt;
}

std::optional<AudioDevice::Format> OutputStage::prepare(const Format& output) {
  const std::lock_guard guard(lock_);
  format_ = output;
  channels_ = output.channels;
  return output;
}

void OutputStage::render(float* data, int32_t frames) {
  pull(data, frames);
  const float set = volume_;
  const float volume = std::isnan(set) ? 1.0F : std::clamp(set, 0.0F, kLoudest);
  if (reached_ < 0) reached_ = volume;
  const float step = (volume - reached_) / static_cast<float>(frames);
  for (int32_t i = 0; i < frames; ++i) {
    // The last frame has the volume itself, not one that rounding has come near to.
    const float factor = i + 1 == frames ? volume : reached_ + step * static_cast<float>(i + 1);
    for (int32_t c = 0; c < channels_; ++c) data[i * channels_ + c] *= factor;
  }
  reached_ = volume;
  measure(data, frames);
}

void OutputStage::measure(const float* data, int32_t frames) {
  for (int32_t c = 0; c < std::min(channels_, kMeteredChannels); ++c) {
    auto& peak = peaks_[static_cast<size_t>(c)];
    float loudest = peak;
    for (int32_t i = 0; i < frames; ++i)
      loudest = std::max(loudest, std::abs(data[i * channels_ + c]));
    peak = loudest;
  }
}

float OutputStage::takePeak(int32_t channel) {
  if (channel < 0 || channel >= kMeteredChannels) return 0;
  return peaks_[static_cast<size_t>(channel)].exchange(0);
}

}  // namespace kestrel
