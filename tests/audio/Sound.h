#pragma once

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <numbers>
#include <vector>

/// Sounds that tests play, and what they measure of those that come out.
namespace kestrel::test {

inline float sineAt(double frequency, int64_t frame, double rate = 44100, double level = 0.25) {
  return static_cast<float>(
      level * std::sin(2 * std::numbers::pi * frequency * static_cast<double>(frame) / rate));
}

/// One channel of interleaved sound, from frame `from` on.
inline std::vector<float> channelOf(const std::vector<float>& sound, int channel, size_t from = 0,
                                    int channels = 2) {
  std::vector<float> samples;
  for (size_t i = from; (i + 1) * channels <= sound.size(); ++i)
    samples.push_back(sound[i * channels + channel]);
  return samples;
}

inline void fourierTransform(std::vector<std::complex<double>>& data) {
  const size_t size = data.size();
  if (size < 2) return;
  std::vector<std::complex<double>> even(size / 2);
  std::vector<std::complex<double>> odd(size / 2);
  for (size_t i = 0; i < size / 2; ++i) {
    even[i] = data[2 * i];
    odd[i] = data[2 * i + 1];
  }
  fourierTransform(even);
  fourierTransform(odd);
  for (size_t i = 0; i < size / 2; ++i) {
    const auto turn =
        std::polar(1.0, -2 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(size));
    data[i] = even[i] + turn * odd[i];
    data[i + size / 2] = even[i] - turn * odd[i];
  }
}

/// The frequency of the strongest tone in one channel's samples, hertz; `samples` are cut to a
/// power of two. A windowed Fourier transform, whose peak is placed between bins by a parabola.
inline double pitchOf(const std::vector<float>& samples, double rate = 44100) {
  size_t size = 1;
  while (2 * size <= samples.size()) size *= 2;
  std::vector<std::complex<double>> data(size);
  for (size_t i = 0; i < size; ++i) {
    const double window = 0.5 - 0.5 * std::cos(2 * std::numbers::pi * static_cast<double>(i) /
                                               static_cast<double>(size));
    data[i] = window * samples[i];
  }
  fourierTransform(data);
  size_t best = 1;
  for (size_t i = 1; i + 1 < size / 2; ++i)
    if (std::abs(data[i]) > std::abs(data[best])) best = i;
  const double left = std::log(std::abs(data[best - 1]) + 1e-12);
  const double middle = std::log(std::abs(data[best]) + 1e-12);
  const double right = std::log(std::abs(data[best + 1]) + 1e-12);
  const double offset = 0.5 * (left - right) / (left - 2 * middle + right);
  return (static_cast<double>(best) + offset) * rate / static_cast<double>(size);
}

/// How far apart two pitches are, in hundredths of a semitone.
inline double centsBetween(double a, double b) { return 1200 * std::abs(std::log2(a / b)); }

/// The largest step from one sample to the next: a click shows as a large one.
inline double largestStep(const std::vector<float>& samples) {
  double largest = 0;
  for (size_t i = 0; i + 1 < samples.size(); ++i)
    largest = std::max(largest, std::abs(static_cast<double>(samples[i + 1]) - samples[i]));
  return largest;
}

}  // namespace kestrel::test
