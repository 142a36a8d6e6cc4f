#include "convert/feed/PeakLimiter.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace kestrel {

namespace {

constexpr size_t kTaps = 12;
constexpr size_t kDelay = kTaps / 2;  // frames until an interpolated value is known

/// The interpolating filter of Recommendation ITU-R BS.1770-4, annex 2: two of its four phases, of
/// which the others are the mirror images.
constexpr std::array<std::array<float, kTaps>, 2> kPhases{{
    {0.0017089843750F, 0.0109863281250F, -0.0196533203125F, 0.0332031250000F, -0.0594482421875F,
     0.1373291015625F, 0.9721679687500F, -0.1022949218750F, 0.0476074218750F, -0.0266113281250F,
     0.0148925781250F, -0.0083007812500F},
    {-0.0291748046875F, 0.0292968750000F, -0.0517578125000F, 0.0891113281250F, -0.1665039062500F,
     0.4650878906250F, 0.7797851562500F, -0.2003173828125F, 0.1015625000000F, -0.0582275390625F,
     0.0330810546875F, -0.0189208984375F},
}};

/// 30 dB above full scale: what is louder, or no number, is damaged.
constexpr float kLoudest = 32;

/// More than the filter can make of samples that are all within 1.
constexpr float kMostGain = 2.2F;

/// From here the gain jumps to its full height: 0.001 dB.
constexpr float kNearlyFull = 0.9999F;

constexpr double kLookAhead = 0.005;    // seconds
constexpr double kReleaseTime = 0.030;  // seconds for 63 % of the way back

}  // namespace

PeakLimiter::PeakLimiter(int sampleRate, int channels, double ceiling)
    : channels_(static_cast<size_t>(channels)),
      ceiling_(static_cast<float>(ceiling)),
      lookAhead_(static_cast<size_t>(std::max(std::lround(kLookAhead * sampleRate), 1L))),
      release_(static_cast<float>(1 - std::exp(-1 / (kReleaseTime * sampleRate)))),
      history_(kTaps * channels_) {}

/// The highest true peak of the frames that the interpolation sees: the samples themselves and the
/// three points in each gap.
float PeakLimiter::peakOfNewest() const {
  float most = 0;
  for (const float sample : history_) most = std::max(most, std::abs(sample));
  if (most * kMostGain <= ceiling_) return most;
  float peak = 0;
  for (size_t channel = 0; channel < channels_; ++channel) {
    const float* const samples = history_.data() + channel;
    peak = std::max(peak, std::abs(samples[(kTaps - kDelay) * channels_]));
    for (const auto& phase : kPhases) {
      float forward = 0;
      float backward = 0;
      for (size_t tap = 0; tap < kTaps; ++tap) {
        const float sample = samples[tap * channels_];
        forward += phase[tap] * sample;
        backward += phase[kTaps - 1 - tap] * sample;
      }
      peak = std::max({peak, std::abs(forward), std::abs(backward)});
    }
  }
  return peak;
}

/// The gain of the frame that is handed out next, when the newest one wants `wanted`: the lowest of
/// the look-ahead, going back slowly, averaged over as many frames again. At the frame that wants
/// it, every term of the average is at least as low.
float PeakLimiter::nextGain(float wanted) {
  while (!candidates_.empty() && candidates_.back().gain >= wanted) candidates_.pop_back();
  candidates_.push_back({frame_, wanted});
  if (candidates_.front().frame + static_cast<int64_t>(lookAhead_) < frame_)
    candidates_.pop_front();
  const float lowest = candidates_.front().gain;
  held_ = std::min(lowest, held_ + (1 - held_) * release_);
  if (held_ > kNearlyFull) held_ = std::min(lowest, 1.0F);
  smoothing_.push_back(held_);
  sum_ += 1 - held_;
  if (held_ < 1) ++reduced_;
  if (smoothing_.size() > lookAhead_) {
    const float oldest = smoothing_.front();
    smoothing_.pop_front();
    sum_ -= 1 - oldest;
    if (oldest < 1) --reduced_;
  }
  if (reduced_ == 0) sum_ = 0;  // what rounding has left of it
  return reduced_ == 0 ? 1.0F : static_cast<float>(1 - sum_ / static_cast<double>(lookAhead_));
}

void PeakLimiter::take(const float* frame) {
  std::move(history_.begin() + static_cast<std::ptrdiff_t>(channels_), history_.end(),
            history_.begin());
  const auto newest = history_.end() - static_cast<std::ptrdiff_t>(channels_);
  std::transform(frame, frame + channels_, newest, [](float sample) {
    return std::isnan(sample) ? 0.0F : std::clamp(sample, -kLoudest, kLoudest);
  });
  waiting_.insert(waiting_.end(), newest, history_.end());
  ++frame_;
}

void PeakLimiter::emit(std::vector<float>& output) {
  const float peak = peakOfNewest();
  const float gain = nextGain(peak > ceiling_ ? ceiling_ / peak : 1.0F);
  hasActed_ = hasActed_ || gain < 1;
  // What was found lies in the gap between the frames that are `kDelay` and `kDelay` - 1 older than
  // the newest one; the gain is as low as it asks for `lookAhead_` - 1 and `lookAhead_` frames
  // later.
  if (++primed_ < kDelay + lookAhead_) return;
  for (size_t channel = 0; channel < channels_; ++channel) {
    output.push_back(gain < 1 ? waiting_.front() * gain : waiting_.front());
    waiting_.pop_front();
  }
}

std::vector<float> PeakLimiter::process(std::span<const float> samples) {
  std::vector<float> output;
  output.reserve(samples.size());
  for (size_t i = 0; i + channels_ <= samples.size(); i += channels_) {
    take(samples.data() + i);
    emit(output);
  }
  return output;
}

std::vector<float> PeakLimiter::finish() {
  const std::vector<float> silence(channels_);
  std::vector<float> output;
  const size_t frames = waiting_.size() / channels_;
  output.reserve(waiting_.size());
  while (output.size() < frames * channels_) {
    take(silence.data());
    emit(output);
  }
  waiting_.clear();
  return output;
}

}  // namespace kestrel
