#include <kestrel/AudioDevice.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <stop_token>
#include <thread>
#include <utility>
#include <vector>

namespace kestrel {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int32_t kPeriodFrames = 512;
constexpr auto kLongestLag = std::chrono::milliseconds(500);

/// A thread that wakes once a period, by the clock's time and not by adding up waits: what it asked
/// for stays right over hours.
class NullAudioDevice : public AudioDevice {
 public:
  ~NullAudioDevice() override { stop(); }

  bool open(Fill fill) override {
    if (!isOpen()) fill_ = std::move(fill);
    return true;
  }
  void close() override {
    stop();
    fill_ = nullptr;
  }
  bool isOpen() const override { return static_cast<bool>(fill_); }
  Format format() const override { return {}; }

  void start() override {
    if (thread_.joinable() || !fill_) return;
    thread_ = std::jthread([this](const std::stop_token& stop) { run(stop); });
  }

  void stop() override {
    if (!thread_.joinable()) return;
    thread_.request_stop();
    thread_.join();
  }

  int64_t now() const override {
    return std::chrono::nanoseconds(Clock::now().time_since_epoch()).count();
  }

 private:
  void run(const std::stop_token& stop) {
    std::vector<float> data(static_cast<size_t>(kPeriodFrames) * format().channels);
    auto begin = Clock::now();
    int64_t frames = 0;
    std::unique_lock lock(mutex_);
    while (!stop.stop_requested()) {
      fill_(data.data(), kPeriodFrames);
      frames += kPeriodFrames;
      const auto due =
          begin + std::chrono::nanoseconds(frames * 1'000'000'000 / format().sampleRate);
      // A machine that slept does not have the time in between made up for.
      if (Clock::now() > due + kLongestLag) {
        begin = Clock::now();
        frames = 0;
      }
      wake_.wait_until(lock, stop, due, [] { return false; });
    }
  }

  Fill fill_;
  std::mutex mutex_;
  std::condition_variable_any wake_;
  std::jthread thread_;
};

}  // namespace

std::shared_ptr<AudioDevice> makeNullAudioDevice() { return std::make_shared<NullAudioDevice>(); }

}  // namespace kestrel
