#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/audio/AudioStage.h"
#include "platform/codec/CodecOwners.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

namespace kestrel {

namespace {

constexpr int32_t kPieceFrames = 128;  // what is converted at a time
constexpr int kWarmingPieces = 4;
constexpr int64_t kDelayUnits = 1000;  // of a frame, in which the converter's delay is asked for
constexpr uint32_t kMostChannels = 8;
constexpr double kHighestRate = 384000;

bool isUsable(const AudioStreamFormat& format) {
  if (format.channelsPerFrame < 1 || format.channelsPerFrame > kMostChannels) return false;
  if (!(format.sampleRate >= 1 && format.sampleRate <= kHighestRate)) return false;
  return format == streamFormat({.sampleRate = static_cast<int32_t>(format.sampleRate),
                                 .channels = static_cast<int32_t>(format.channelsPerFrame)});
}

SwrPtr makeConverter(const AudioDevice::Format& input, const AudioDevice::Format& output) {
  AVChannelLayout from{};
  AVChannelLayout to{};
  av_channel_layout_default(&from, input.channels);
  av_channel_layout_default(&to, output.channels);
  SwrContext* context = nullptr;
  const int result = swr_alloc_set_opts2(&context, &to, AV_SAMPLE_FMT_FLT, output.sampleRate, &from,
                                         AV_SAMPLE_FMT_FLT, input.sampleRate, 0, nullptr);
  SwrPtr converter(context);
  if (result < 0 || swr_init(converter.get()) < 0) return nullptr;
  return converter;
}

/// Converts between rates and numbers of channels; where both sides are alike it only passes on.
class ConverterStage : public AudioStage {
 public:
  bool setFormat(AudioScope scope, const AudioStreamFormat& format) override {
    if (scope != AudioScope::kInput || !isUsable(format)) return false;
    const std::lock_guard guard(lock_);
    wanted_ = Format{.sampleRate = static_cast<int32_t>(format.sampleRate),
                     .channels = static_cast<int32_t>(format.channelsPerFrame)};
    return true;
  }

  std::optional<AudioStreamFormat> format(AudioScope scope) const override {
    const std::lock_guard guard(lock_);
    if (scope == AudioScope::kInput && wanted_) return streamFormat(*wanted_);
    if (scope == AudioScope::kOutput && output_) return streamFormat(*output_);
    return std::nullopt;
  }

  std::optional<Format> prepare(const Format& output) override {
    const std::lock_guard guard(lock_);
    const Format input = wanted_.value_or(output);
    if (output_ == output && input_ == input) return input;
    input_ = input;
    output_ = output;
    converter_ = nullptr;
    waiting_ = 0;
    if (input == output) return input;
    converter_ = makeConverter(input, output);
    if (!converter_) {
      output_.reset();
      return std::nullopt;
    }
    const auto size = [](int64_t frames, const Format& format) {
      return static_cast<size_t>(frames) * static_cast<size_t>(format.channels);
    };
    inputData_.assign(size(kPieceFrames, input), 0.0F);
    capacity_ = swr_get_out_samples(converter_.get(), 2 * kPieceFrames) + kPieceFrames;
    outputData_.assign(size(capacity_, output), 0.0F);
    // The first pieces have the library allocate what it needs.
    for (int i = 0; i < kWarmingPieces; ++i) convertPiece();
    waiting_ = 0;
    return input;
  }

  void render(float* data, int32_t frames) override {
    if (!converter_) return pull(data, frames);
    const auto channels = static_cast<size_t>(output_->channels);
    for (int32_t done = 0; done < frames;) {
      if (waiting_ == 0) {
        pull(inputData_.data(), kPieceFrames);
        convertPiece();
      }
      const int32_t count = std::min(waiting_, frames - done);
      std::copy_n(outputData_.data() + static_cast<size_t>(read_) * channels,
                  static_cast<size_t>(count) * channels,
                  data + static_cast<size_t>(done) * channels);
      read_ += count;
      waiting_ -= count;
      done += count;
    }
  }

  double heldFrames() const override {
    if (!converter_) return 0;
    const int64_t delay = swr_get_delay(converter_.get(), input_->sampleRate * kDelayUnits);
    return static_cast<double>(delay) / kDelayUnits + waiting_ * inputPerOutput();
  }

  double inputPerOutput() const override {
    return converter_ ? static_cast<double>(input_->sampleRate) / output_->sampleRate : 1;
  }

  /// What the converter still has of the sound gives way to silence.
  void flush() override {
    if (!converter_) return;
    std::ranges::fill(inputData_, 0.0F);
    // It looks as far back as it looks ahead, which is what it delays the sound by.
    const int64_t delay = swr_get_delay(converter_.get(), input_->sampleRate);
    for (int64_t fed = 0; fed < 2 * delay + kPieceFrames; fed += kPieceFrames) convertPiece();
    waiting_ = 0;
  }

 private:
  void convertPiece() {
    const auto* input = reinterpret_cast<const uint8_t*>(inputData_.data());
    auto* output = reinterpret_cast<uint8_t*>(outputData_.data());
    waiting_ = std::max(swr_convert(converter_.get(), &output, capacity_, &input, kPieceFrames), 0);
    read_ = 0;
  }

  mutable std::mutex lock_;  // of the formats, which the device's thread only reads while it runs
  std::optional<Format> wanted_;
  std::optional<Format> input_;
  std::optional<Format> output_;
  SwrPtr converter_;
  std::vector<float> inputData_;
  std::vector<float> outputData_;
  int32_t capacity_ = 0;  // frames of outputData_
  int32_t read_ = 0;      // frames of it that have been delivered
  int32_t waiting_ = 0;   // frames of it that have not
};

}  // namespace

std::shared_ptr<AudioStage> makeConverterStage() { return std::make_shared<ConverterStage>(); }

AudioStreamFormat streamFormat(const AudioDevice::Format& format) {
  const auto channels = static_cast<uint32_t>(format.channels);
  const auto frameBytes = channels * static_cast<uint32_t>(sizeof(float));
  return {.sampleRate = static_cast<double>(format.sampleRate),
          .bytesPerPacket = frameBytes,
          .bytesPerFrame = frameBytes,
          .channelsPerFrame = channels};
}

}  // namespace kestrel
