#pragma once

#include <array>
#include <atomic>
#include <memory>
#include <mutex>

#include "platform/audio/AudioStage.h"

namespace kestrel {

/// The end of the chain, through which the device pulls: the volume, and the meter.
class OutputStage : public AudioStage {
 public:
  bool setParameter(uint32_t parameter, float value) override;
  std::optional<float> parameter(uint32_t parameter) const override;
  std::optional<AudioStreamFormat> format(AudioScope scope) const override;

  std::optional<Format> prepare(const Format& output) override;
  void render(float* data, int32_t frames) override;
  double heldFrames() const override { return 0; }
  void flush() override {}

  /// The loudest sample of a channel since the last question.
  float takePeak(int32_t channel);

 private:
  static constexpr int kMeteredChannels = 2;

  void measure(const float* data, int32_t frames);

  std::atomic<float> volume_{1};
  float reached_ = -1;  // the volume of the last sample; below 0 before there is one
  std::array<std::atomic<float>, kMeteredChannels> peaks_{};
  mutable std::mutex lock_;  // of the format
  std::optional<Format> format_;
  int32_t channels_ = 2;
};

}  // namespace kestrel
