#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <semaphore>
#include <thread>

namespace kestrel {

/// Forwards requests for more sound from the device's thread, which must neither wait nor allocate
/// memory, to a thread that may.
class SoundPump {
 public:
  SoundPump() = default;
  ~SoundPump() { stop(); }
  SoundPump(const SoundPump&) = delete;
  SoundPump& operator=(const SoundPump&) = delete;

  /// From now on, runs `work` on the pump's own thread after each request; requests made while it
  /// runs are merged.
  void start(std::function<void()> work);

  /// Does not return before the last run of the work has ended.
  void stop();

  bool isRunning() const { return isRunning_; }

  /// Requests the work. Any thread; never waits or allocates memory.
  void request();

 private:
  void run(const std::stop_token& stop, const std::function<void()>& work);

  std::mutex control_;  // for start and stop
  std::atomic<bool> isRunning_{false};
  std::atomic<bool> isWanted_{false};
  std::counting_semaphore<> wake_{0};
  std::jthread thread_;
};

}  // namespace kestrel
