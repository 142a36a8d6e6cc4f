#include "tests/e2e/Decoded.h"
#include "tests/support/Hash.h"

#include <cmath>
#include <cstring>
#include <numbers>
#include <sstream>

namespace kestrel::test {

namespace fs = std::filesystem;

namespace {

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

/// The hashes in what the frame hash muxers write: the sixth column; side data may follow.
std::vector<std::string> hashColumn(const std::string& text) {
  std::vector<std::string> hashes;
  for (const std::string& line : linesOf(text)) {
    if (line.starts_with('#')) continue;
    std::istringstream columns(line);
    std::string column;
    for (int i = 0; i < 6; ++i) std::getline(columns >> std::ws, column, ',');
    hashes.push_back(column);
  }
  return hashes;
}

/// A column of numbers that ffprobe is asked for. Where it has no answer ("N/A"), as for the last
/// pictures of an AVI file with B-frames, the numbers go on evenly.
std::vector<double> numbersOf(const fs::path& file, const Arguments& arguments) {
  const RunResult result = runPeer(
      joined(joined({"ffprobe", "-v", "error"}, arguments), {"-of", "csv=p=0", file.string()}));
  if (result.status != 0) throw std::runtime_error("ffprobe: " + result.err);
  std::vector<double> numbers;
  for (const std::string& line : linesOf(result.out)) {
    if (!line.starts_with("N/A")) {
      if (!line.empty()) numbers.push_back(std::stod(line));
    } else if (numbers.size() > 1) {
      numbers.push_back(2 * numbers.back() - numbers[numbers.size() - 2]);
    }
  }
  return numbers;
}

}  // namespace

Fraction fraction(const std::string& text) {
  const size_t mark = text.find_first_of("/:");
  if (mark == std::string::npos) throw std::runtime_error("no fraction: " + text);
  return {std::stoll(text), std::stoll(text.substr(mark + 1))};
}

nlohmann::json streamOf(const nlohmann::json& probed, const std::string& type) {
  for (const auto& stream : probed.at("streams"))
    if (stream.at("codec_type") == type) return stream;
  return nullptr;
}

nlohmann::json streamOf(const fs::path& file, const std::string& type) {
  return streamOf(ffprobeJson(file), type);
}

std::string pictureBytes(const fs::path& file, const std::string& filter) {
  // Every picture as it comes, without a look at its time.
  return ffmpeg({"-i", file.string(), "-map", "0:v:0", "-vf", filter, "-vsync", "drop", "-f",
                 "rawvideo", "-"});
}

uint64_t pictureHash(const fs::path& file, const std::string& filter) {
  return hash(pictureBytes(file, filter));
}

std::vector<std::string> greyPictures(const fs::path& file, int width, int height) {
  const std::string bytes =
      pictureBytes(file, "scale=" + std::to_string(width) + ":" + std::to_string(height) +
                             ":flags=area,format=gray");
  const size_t size = static_cast<size_t>(width) * static_cast<size_t>(height);
  std::vector<std::string> pictures;
  for (size_t at = 0; at + size <= bytes.size(); at += size)
    pictures.push_back(bytes.substr(at, size));
  return pictures;
}

std::string soundHash(const fs::path& file) {
  return ffmpeg({"-i", file.string(), "-map", "0:a:0", "-c", "pcm_f32le", "-f", "md5", "-"});
}

std::vector<std::string> packetHashes(const fs::path& file, const std::string& kind) {
  return hashColumn(ffmpeg({"-i", file.string(), "-map", "0:" + kind + ":0", "-c", "copy",
                            "-copyts", "-f", "framemd5", "-"}));
}

std::vector<double> pictureTimes(const fs::path& file) {
  return numbersOf(file,
                   {"-select_streams", "v:0", "-show_entries", "frame=best_effort_timestamp_time"});
}

std::vector<float> samples(const fs::path& file, int channels) {
  Arguments command{"-i", file.string(), "-map", "0:a:0"};
  if (channels > 0) command = joined(command, {"-ac", std::to_string(channels)});
  const std::string bytes = ffmpeg(joined(command, {"-f", "f32le", "-"}));
  std::vector<float> result(bytes.size() / sizeof(float));
  std::memcpy(result.data(), bytes.data(), result.size() * sizeof(float));
  return result;
}

int64_t sampleCount(const fs::path& file) {
  const int channels = streamOf(file, "audio").at("channels");
  return static_cast<int64_t>(samples(file).size()) / channels;
}

double soundStart(const fs::path& file) {
  const auto times =
      numbersOf(file, {"-select_streams", "a:0", "-show_entries",
                       "frame=best_effort_timestamp_time", "-read_intervals", "%+#10"});
  if (times.empty()) throw std::runtime_error("no sound in " + file.string());
  return times.front();
}

double psnr(const std::string& a, const std::string& b) {
  if (a.size() != b.size() || a.empty()) throw std::runtime_error("pictures of different size");
  double sum = 0;
  for (size_t i = 0; i < a.size(); ++i) {
    const double difference = static_cast<uint8_t>(a[i]) - static_cast<uint8_t>(b[i]);
    sum += difference * difference;
  }
  return 10 * std::log10(255.0 * 255 * static_cast<double>(a.size()) / std::max(sum, 1e-9));
}

double rms(const std::vector<float>& samples) {
  double sum = 0;
  for (const float sample : samples) sum += static_cast<double>(sample) * sample;
  return std::sqrt(sum / static_cast<double>(std::max<size_t>(samples.size(), 1)));
}

double peak(const std::vector<float>& samples) {
  double highest = 0;
  for (const float sample : samples) highest = std::max<double>(highest, std::fabs(sample));
  return highest;
}

double toneAmplitude(const std::vector<float>& samples, double frequency, int sampleRate) {
  double real = 0;
  double imaginary = 0;
  for (size_t i = 0; i < samples.size(); ++i) {
    const double angle = 2 * std::numbers::pi * frequency * static_cast<double>(i) / sampleRate;
    real += samples[i] * std::cos(angle);
    imaginary += samples[i] * std::sin(angle);
  }
  return 2 * std::hypot(real, imaginary) / static_cast<double>(samples.size());
}

double decibel(double ratio) { return 20 * std::log10(ratio); }

}  // namespace kestrel::test
