#include "convert/wave/WaveFile.h"

#include <kestrel/BitmapContext.h>
#include <kestrel/BitmapFile.h>
#include <kestrel/BitmapImage.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include <kestrel/convert/Failure.h>
#include "convert/files/Surface.h"

namespace kestrel {

namespace {

/// Gathers small pieces on their way to a file.
class Writer {
 public:
  explicit Writer(OutputFile& file) : file_(file) {}

  void write(const std::string& text) {
    waiting_ += text;
    if (waiting_.size() >= kBlock) flush();
  }

  void flush() {
    file_.write(waiting_);
    waiting_.clear();
  }

 private:
  static constexpr size_t kBlock = 1 << 16;

  OutputFile& file_;
  std::string waiting_;
};

void appendLittleEndian(std::string& bytes, int64_t value, int count) {
  for (int i = 0; i < count; ++i) bytes.push_back(static_cast<char>(value >> (8 * i) & 0xFF));
}

/// Points in the order in which they are stored: the channels of a stretch beside each other.
template <typename Use>
void forEachPoint(const Waveform& waveform, Use use) {
  for (size_t i = 0; i < waveform.length(); ++i)
    for (const auto& channel : waveform.channels) use(channel[i]);
}

/// What a column of pixels shows.
struct Column {
  float min = 0;
  float max = 0;
  float rms = 0;
};

Column columnAt(const Waveform& waveform, size_t channel, int x, int width) {
  const auto length = static_cast<int64_t>(waveform.length());
  const int64_t begin = length * x / width;
  const int64_t end = std::clamp(length * (x + 1) / width, begin + 1, length);
  Column column{1, -1, 0};
  double squares = 0;
  for (int64_t i = begin; i < end; ++i) {
    const WaveformPoint& point = waveform.channels[channel][static_cast<size_t>(i)];
    column.min = std::min(column.min, point.min);
    column.max = std::max(column.max, point.max);
    squares += static_cast<double>(point.rms) * point.rms;
  }
  column.rms = static_cast<float>(std::sqrt(squares / static_cast<double>(end - begin)));
  return column;
}

/// Fills from one height to the other, both in samples' scale, within a band of the picture.
void drawBar(BitmapContext& context, int x, double middle, double half, double low, double high,
             double r, double g, double b) {
  const double bottom = middle + half * std::clamp(low, -1.0, 1.0);
  const double top = middle + half * std::clamp(high, -1.0, 1.0);
  const double height = std::max(top - bottom, 1.0);
  context.fillRect({{static_cast<double>(x), (top + bottom - height) / 2}, {1, height}}, r, g, b);
}

}  // namespace

int quantized(float sample, int bits) {
  const int full = 1 << (bits - 1);
  const float scaled = sample * static_cast<float>(full);
  return static_cast<int>(
      std::lrint(std::clamp(scaled, -static_cast<float>(full), static_cast<float>(full - 1))));
}

void writeWaveJson(const Waveform& waveform, int bits, OutputFile& target) {
  Writer file(target);
  file.write(
      fmt::format("{{\"version\":2,\"channels\":{},\"sample_rate\":{},"
                  "\"samples_per_pixel\":{},\"bits\":{},\"length\":{},\"data\":[",
                  waveform.channels.size(), waveform.sampleRate, waveform.samplesPerPoint, bits,
                  waveform.length()));
  const char* separator = "";
  forEachPoint(waveform, [&](const WaveformPoint& point) {
    file.write(
        fmt::format("{}{},{}", separator, quantized(point.min, bits), quantized(point.max, bits)));
    separator = ",";
  });
  file.write("]}\n");
  file.flush();
}

void writeWaveData(const Waveform& waveform, int bits, OutputFile& target) {
  constexpr int kVersion = 2;
  Writer file(target);
  std::string bytes;
  for (const int64_t value :
       {int64_t{kVersion}, int64_t{bits == 8}, int64_t{waveform.sampleRate},
        int64_t{waveform.samplesPerPoint}, static_cast<int64_t>(waveform.length()),
        static_cast<int64_t>(waveform.channels.size())})
    appendLittleEndian(bytes, value, 4);
  file.write(bytes);
  forEachPoint(waveform, [&](const WaveformPoint& point) {
    bytes.clear();
    appendLittleEndian(bytes, quantized(point.min, bits), bits / 8);
    appendLittleEndian(bytes, quantized(point.max, bits), bits / 8);
    file.write(bytes);
  });
  file.flush();
}

void writeWavePicture(const Waveform& waveform, int width, int height, OutputFile& target) {
  BitmapContext context(width, height);
  if (!context.data()) throw std::bad_alloc();
  context.fillRect({{0, 0}, {static_cast<double>(width), static_cast<double>(height)}}, 0.08, 0.09,
                   0.12);
  const double band = static_cast<double>(height) / static_cast<double>(waveform.channels.size());
  for (size_t channel = 0; channel < waveform.channels.size(); ++channel) {
    const double middle = height - band * (static_cast<double>(channel) + 0.5);
    const double half = band / 2 * 0.94;
    for (int x = 0; x < width; ++x) {
      const Column column = columnAt(waveform, channel, x, width);
      drawBar(context, x, middle, half, column.min, column.max, 0.24, 0.55, 0.78);
      drawBar(context, x, middle, half, std::max(-column.rms, column.min),
              std::min(column.rms, column.max), 0.62, 0.85, 0.97);
    }
  }
  const auto image = shownBy(context);
  const auto bytes = encodedBitmapImage(*image, PictureFormat::kPNG);
  if (!bytes)
    throw Failure::settings(fmt::format("a picture of {}x{} is too large", width, height), "width");
  target.write(*bytes);
}

}  // namespace kestrel
