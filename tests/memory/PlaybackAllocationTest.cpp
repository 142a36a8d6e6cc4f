// What the device's thread allocates while sound is played.

#include <gtest/gtest.h>
#include <kestrel/LMOutputAudioGraph.h>

#include <vector>

#include "tests/memory/Allocations.h"

extern "C" {
#include <libavutil/mem.h>
}

namespace kestrel {
namespace {

using test::allocations;

constexpr int32_t kPeriod = 512;

/// Calls for sound into memory that it has had for long.
class FixedDevice : public AudioDevice {
 public:
  explicit FixedDevice(Format format)
      : format_(format),
        data_(static_cast<size_t>(kPeriod) * static_cast<size_t>(format.channels)) {}

  void play() { fill_(data_.data(), kPeriod); }

  bool open(Fill fill) override {
    fill_ = std::move(fill);
    return true;
  }
  void close() override { fill_ = nullptr; }
  bool isOpen() const override { return static_cast<bool>(fill_); }
  Format format() const override { return format_; }
  void start() override {}
  void stop() override {}
  int64_t now() const override { return 0; }

 private:
  const Format format_;
  Fill fill_;
  std::vector<float> data_;
};

/// How many allocations a few seconds of playing take, from the first call on: at rate 1, while the
/// rate changes, after the queue was cleared, and while it is empty.
int allocationsOfPlaying(AudioDevice::Format format) {
  const auto device = std::make_shared<FixedDevice>(format);
  LMOutputAudioGraph graph;
  graph.graph().setDevice(device);
  graph.start();
  const std::vector<float> sound(2 * 4096, 0.1F);
  int count = 0;
  for (int i = 0; i < 300; ++i) {
    if (i < 280)
      while (graph.bufferFrames() < 8192) graph.writeSample(sound.data(), 4096);
    graph.setRate(i % 150 < 40 ? 1.0F : 0.25F + static_cast<float>(i % 16) / 4);
    graph.setVolume(static_cast<float>(i % 3));
    if (i % 70 == 69) graph.clearBuffer();
    const int before = allocations;
    device->play();
    count += allocations - before;
  }
  return count;
}

TEST(PlaybackAllocationTest, FFmpegsAllocationsAreCountedToo) {
  if (!test::isEveryAllocationCounted) GTEST_SKIP() << "a sanitizer does not tell of them";
  const int before = allocations;
  av_free(av_malloc(100));
  EXPECT_GT(allocations, before);
}

TEST(PlaybackAllocationTest, CallForSoundAllocatesNothing) {
  EXPECT_EQ(allocationsOfPlaying({.sampleRate = 44100, .channels = 2}), 0);
}

TEST(PlaybackAllocationTest, NeitherDoesOneThatConverts) {
  for (const int32_t rate : {8000, 22050, 48000, 96000, 192000})
    for (const int32_t channels : {1, 2, 6})
      EXPECT_EQ(allocationsOfPlaying({.sampleRate = rate, .channels = channels}), 0)
          << rate << " Hz, " << channels << " channels";
}

}  // namespace
}  // namespace kestrel
