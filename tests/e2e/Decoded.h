#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/e2e/Kestrel.h"
#include "tests/support/Ffprobe.h"

namespace kestrel::test {

/// What files hold, as ffmpeg and ffprobe see it. All of these throw when a file cannot be read or
/// decoded without complaint.

/// A fraction as ffprobe writes it ("30000/1001", "16:9").
struct Fraction {
  int64_t num = 0;
  int64_t den = 1;
  bool operator==(const Fraction&) const = default;
};
Fraction fraction(const std::string& text);

/// The first stream of a type ("video", "audio") in what `ffprobeJson` answers; null without one.
nlohmann::json streamOf(const nlohmann::json& probed, const std::string& type);
nlohmann::json streamOf(const std::filesystem::path& file, const std::string& type);

/// Bytes of every decoded picture, after `filter` (which ends in a pixel format).
std::string pictureBytes(const std::filesystem::path& file, const std::string& filter);

/// A hash of these bytes, which a failed test can print.
uint64_t pictureHash(const std::filesystem::path& file, const std::string& filter);

/// Pictures as grey values, one string of `width` × `height` bytes each.
std::vector<std::string> greyPictures(const std::filesystem::path& file, int width, int height);

/// A hash of all decoded samples of the first audio stream.
std::string soundHash(const std::filesystem::path& file);

/// A hash of every packet's payload of the first stream of a kind ("v", "a"), in the file's order.
std::vector<std::string> packetHashes(const std::filesystem::path& file, const std::string& kind);

/// When each picture is shown, in seconds, in the order of display; estimated where a container
/// tells no more than the order.
std::vector<double> pictureTimes(const std::filesystem::path& file);

/// Interleaved samples of the first audio stream, in its own rate and layout, or folded down to
/// `channels`.
std::vector<float> samples(const std::filesystem::path& file, int channels = 0);

/// How many samples per channel the first audio stream decodes to.
int64_t sampleCount(const std::filesystem::path& file);

/// When the first decoded sample sounds, in seconds.
double soundStart(const std::filesystem::path& file);

/// Peak signal-to-noise ratio of two pictures of 8-bit samples, dB.
double psnr(const std::string& a, const std::string& b);

/// Root mean square.
double rms(const std::vector<float>& samples);

/// The largest magnitude.
double peak(const std::vector<float>& samples);

/// The amplitude of one tone in a mono signal (correlation with sine and cosine).
double toneAmplitude(const std::vector<float>& samples, double frequency, int sampleRate);

/// 20 log10.
double decibel(double ratio);

}  // namespace kestrel::test
