#include <kestrel/AudioDevice.h>

#include <algorithm>
#include <utility>

namespace kestrel {

std::vector<float> PulledAudioDevice::pull(int32_t frames) {
  const auto count = static_cast<size_t>(std::max(frames, 0)) * format_.channels;
  std::vector<float> data(count, 0.0F);
  if (!isStarted_ || !fill_ || count == 0) return data;
  fill_(data.data(), frames);
  frames_ += frames;
  return data;
}

bool PulledAudioDevice::open(Fill fill) {
  if (isMissing_) return false;
  if (!isOpen()) fill_ = std::move(fill);
  return true;
}

void PulledAudioDevice::close() { fill_ = nullptr; }

int64_t PulledAudioDevice::now() const { return frames_ * 1'000'000'000 / format_.sampleRate; }

}  // namespace kestrel
