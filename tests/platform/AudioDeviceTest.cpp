// What every device keeps to.

#include <gtest/gtest.h>
#include <kestrel/AudioDevice.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <thread>

namespace kestrel::test {
namespace {

/// Counts the calls of a device for sound.
class Counter {
 public:
  AudioDevice::Fill fill() {
    return [this](float* data, int32_t frames) {
      std::fill_n(data, 2 * frames, 0.0F);
      ++calls_;
    };
  }
  int calls() const { return calls_; }

 private:
  std::atomic<int> calls_{0};
};

/// Opens a device twice and has it play; `play` returns once it has asked for sound.
template <typename Play>
void expectTheFirstFunction(AudioDevice& device, Play play) {
  Counter first;
  Counter second;
  ASSERT_TRUE(device.open(first.fill()));
  ASSERT_TRUE(device.open(second.fill()));
  device.start();
  play(first, second);
  device.stop();
  EXPECT_GT(first.calls(), 0);
  EXPECT_EQ(second.calls(), 0);
  device.close();
  const int before = first.calls();
  ASSERT_TRUE(device.open(second.fill()));
  device.start();
  play(second, second);
  device.stop();
  EXPECT_GT(second.calls(), 0);
  EXPECT_EQ(first.calls(), before);
  device.close();
}

void waitForEither(const Counter& one, const Counter& other) {
  while (one.calls() == 0 && other.calls() == 0) std::this_thread::yield();
}

TEST(AudioDevice, ThatIsOpenKeepsItsFunction) {
  PulledAudioDevice pulled;
  expectTheFirstFunction(pulled, [&](auto&...) { pulled.pull(64); });
  expectTheFirstFunction(*makeNullAudioDevice(), waitForEither);
  setenv("SDL_AUDIODRIVER", "dummy", 1);
  expectTheFirstFunction(*makeDefaultAudioDevice(), waitForEither);
}

}  // namespace
}  // namespace kestrel::test
