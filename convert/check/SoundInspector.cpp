#include "convert/check/SoundInspector.h"

#include <kestrel/convert/Text.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <string>

#include "support/FFmpegOwners.h"

namespace kestrel {

namespace {

constexpr float kSilent = 0.001F;  // -60 dB

// Of a level that is cut off: how high it is at least, for how many samples, and how far away the
// samples at its edges are.
constexpr float kHigh = 0.95F;
constexpr int64_t kLeastSamples = 4;
constexpr float kEdge = 0.002F;
constexpr float kEqual = 2e-5F;

/// So few cut-off tops in a file are accidents of the sound itself.
constexpr int64_t kFewTops = 3;

/// What times may be off by: containers round them; microseconds.
constexpr int64_t kGap = 60'000;
constexpr int64_t kDrift = 100'000;
constexpr int64_t kRunUp = 300'000;

}  // namespace

SoundInspector::SoundInspector(uint32_t stream, const CheckSettings& settings)
    : stream_(stream),
      silence_(CheckKind::kSilence, stream, settings.silence, "silence"),
      clipping_(CheckKind::kClipping, stream, "top", "of the sound are cut off") {}

void SoundInspector::followTimes(int64_t time, double length, Findings& findings) {
  if (!first_) {
    first_ = base_ = end_ = time;
  }
  const int64_t step = time - end_;
  if (std::llabs(step) > kGap) {
    // Codecs that need a run-up leave their mark where sound begins.
    const bool isRunUp = std::max(time, end_) - *first_ < kRunUp;
    if (!isRunUp)
      findings.add(
          {.kind = CheckKind::kGap,
           .stream = stream_,
           .start = std::min(time, end_),
           .end = std::max(time, end_),
           .sentence = fmt::format("{} s of sound {}",
                                   formatNumber(std::abs(static_cast<double>(step)) / 1e6, 2),
                                   step > 0 ? "are missing" : "lie on top of each other")});
    drift_ += lastDrift_;
    base_ = time;
    counted_ = 0;
  }
  lastDrift_ = time - base_ - std::llround(counted_);
  counted_ += length;
  end_ = time + std::llround(length);
}

void SoundInspector::hear(Channel& channel, float value, int64_t time, Findings& findings) {
  const bool isSame = std::abs(value) >= kHigh && std::abs(value - channel.last) <= kEqual;
  if (isSame) {
    if (channel.length == 0) channel.length = 1;
    ++channel.length;
  } else {
    const bool isCut = channel.length >= kLeastSamples &&
                       std::abs(channel.last - channel.before) >= kEdge &&
                       std::abs(value - channel.last) >= kEdge;
    if (isCut) clipping_.add(time, time, 1, findings);
    channel.before = channel.last;
    channel.length = 0;
  }
  channel.last = value;
}

template <typename Sample>
bool SoundInspector::listen(const AVFrame& frame, double full, int64_t time, Findings& findings) {
  const bool isPlanar = av_sample_fmt_is_planar(static_cast<AVSampleFormat>(frame.format)) != 0;
  const auto channels = static_cast<int>(channels_.size());
  const int64_t offset = std::is_same_v<Sample, uint8_t> ? 128 : 0;
  const auto factor = static_cast<float>(1 / full);
  float most = 0;
  for (int c = 0; c < channels; ++c) {
    const auto* samples = reinterpret_cast<const Sample*>(frame.extended_data[isPlanar ? c : 0]);
    if (!samples) return true;
    if (!isPlanar) samples += c;
    const int stride = isPlanar ? 1 : channels;
    for (int i = 0; i < frame.nb_samples; ++i, samples += stride) {
      const float value = static_cast<float>(*samples - static_cast<Sample>(offset)) * factor;
      most = std::max(most, std::abs(value));
      const int64_t at = time + int64_t{i} * 1'000'000 / std::max(frame.sample_rate, 1);
      hear(channels_[static_cast<size_t>(c)], value, at, findings);
    }
  }
  return most < kSilent;
}

void SoundInspector::take(const AVFrame& frame, std::optional<int64_t> time, Findings& findings) {
  if (frame.sample_rate <= 0 || frame.nb_samples <= 0) return;
  const int64_t at = time.value_or(end_);
  followTimes(at, 1e6 * frame.nb_samples / frame.sample_rate, findings);
  channels_.resize(static_cast<size_t>(std::max(frame.ch_layout.nb_channels, 1)));
  bool isSilent = false;
  switch (av_get_packed_sample_fmt(static_cast<AVSampleFormat>(frame.format))) {
    case AV_SAMPLE_FMT_U8:
      isSilent = listen<uint8_t>(frame, 127, at, findings);
      break;
    case AV_SAMPLE_FMT_S16:
      isSilent = listen<int16_t>(frame, 32767, at, findings);
      break;
    case AV_SAMPLE_FMT_S32:
      isSilent = listen<int32_t>(frame, 2147483647, at, findings);
      break;
    case AV_SAMPLE_FMT_FLT:
      isSilent = listen<float>(frame, 1, at, findings);
      break;
    case AV_SAMPLE_FMT_DBL:
      isSilent = listen<double>(frame, 1, at, findings);
      break;
    default:
      break;
  }
  silence_.set(isSilent, at, findings);
}

void SoundInspector::finish(Findings& findings) {
  silence_.finish(end_, findings);
  if (clipping_.count() > kFewTops) clipping_.finish(findings);
  const int64_t drift = drift_ + lastDrift_;
  if (std::llabs(drift) < kDrift) return;
  findings.add({.kind = CheckKind::kDrift,
                .stream = stream_,
                .start = begin(),
                .end = end_,
                .sentence = fmt::format("the sound is {} s {} than its times say",
                                        formatNumber(std::abs(static_cast<double>(drift)) / 1e6, 2),
                                        drift > 0 ? "shorter" : "longer")});
}

}  // namespace kestrel
