#pragma once

#include <kestrel/LMFFAudioResample.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <vector>

#include "support/FFmpegOwners.h"

namespace kestrel::test {

inline constexpr int64_t kMonoMask = AV_CH_LAYOUT_MONO;
inline constexpr int64_t kStereoMask = AV_CH_LAYOUT_STEREO;

/// The value of a sample, full scale being -1 to 1.
using Signal = std::function<double(int channel, int index)>;

inline Signal constant(double value) {
  return [value](int, int) { return value; };
}

/// Stores `value` the way `format` (packed) writes it.
inline void storeSample(uint8_t* at, AVSampleFormat format, double value) {
  const auto integer = [&]<typename T>(T) {
    const double scaled = std::round(value * -static_cast<double>(std::numeric_limits<T>::min()));
    *reinterpret_cast<T*>(at) = scaled >= static_cast<double>(std::numeric_limits<T>::max())
                                    ? std::numeric_limits<T>::max()
                                    : static_cast<T>(scaled);
  };
  if (format == AV_SAMPLE_FMT_S16) integer(int16_t{});
  if (format == AV_SAMPLE_FMT_S32) integer(int32_t{});
  if (format == AV_SAMPLE_FMT_FLT) *reinterpret_cast<float*>(at) = static_cast<float>(value);
  if (format == AV_SAMPLE_FMT_DBL) *reinterpret_cast<double*>(at) = value;
}

/// A frame of `count` samples of `signal`; `first` is the index of its first sample.
inline FramePtr pcmFrame(const LMFFAudioFormat& format, int count, const Signal& signal,
                         int first = 0) {
  FramePtr frame = makeFrame();
  frame->format = format.sample_fmt;
  frame->sample_rate = format.sample_rate;
  frame->nb_samples = count;
  av_channel_layout_from_mask(&frame->ch_layout, static_cast<uint64_t>(format.channel_layout));
  if (av_frame_get_buffer(frame.get(), 0) < 0) return nullptr;
  const auto sampleFormat = static_cast<AVSampleFormat>(format.sample_fmt);
  const AVSampleFormat packed = av_get_packed_sample_fmt(sampleFormat);
  const bool planar = av_sample_fmt_is_planar(sampleFormat) != 0;
  const int channels = frame->ch_layout.nb_channels;
  const int bytes = av_get_bytes_per_sample(packed);
  for (int c = 0; c < channels; c++) {
    for (int i = 0; i < count; i++) {
      uint8_t* at = planar ? frame->extended_data[c] + i * bytes
                           : frame->extended_data[0] + (i * channels + c) * bytes;
      storeSample(at, packed, signal(c, first + i));
    }
  }
  return frame;
}

/// Every queued sample of a converter to interleaved float.
inline std::vector<float> readAll(LMFFAudioResample& resample) {
  const int count = resample.outputSamples();
  const int channels = lm_get_channel_layout_nb_channels(resample.outFormat().channel_layout);
  std::vector<float> samples(static_cast<size_t>(count) * channels);
  resample.readSample(samples.data(), count);
  return samples;
}

}  // namespace kestrel::test
