#include <gtest/gtest.h>
#include <kestrel/AudioDevice.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>

namespace kestrel::test {
namespace {

TEST(NullAudioDevice, StopsAtOnceAndStartsAgain) {
  const auto device = makeNullAudioDevice();
  std::atomic<int> calls{0};
  ASSERT_TRUE(device->open([&](float* data, int32_t frames) {
    std::fill_n(data, 2 * frames, 0.0F);
    ++calls;
  }));
  for (int i = 0; i < 3; ++i) {
    const int before = calls;
    device->start();
    device->start();  // once more is once
    while (calls < before + 2) std::this_thread::yield();
    device->stop();
    device->stop();
    const int after = calls;
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_EQ(calls, after);
  }
  device->close();
  EXPECT_FALSE(device->isOpen());
  device->start();  // without anything to play
}

}  // namespace
}  // namespace kestrel::test
