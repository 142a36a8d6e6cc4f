#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <semaphore>
#include <thread>

namespace kestrel {

/// Passes the wish for more sound on from the device's thread, which must neither wait nor
/// allocate, to one that may.
class SoundPump {
 public:
  SoundPump() = default;
  ~SoundPump() { stop(); }
  SoundPump(const SoundPump&) = delete;
  SoundPump& operator=(const SoundPump&) = delete;

  /// From now on `work` runs on a thread of the pump's after each request; several requests that
  /// come in the meantime are one.
  void start(std::function<void()> work);

  /// Once this has returned the work does not run any more.
  void stop();

  bool isRunning() const { return isRunning_; }

  /// Asks for the work to be done. From any thread: never waits, never allocates.
  void request();

 private:
  void run(const std::stop_token& stop, const std::function<void()>& work);

  std::mutex control_;  // of start and stop
  std::atomic<bool> isRunning_{false};
  std::atomic<bool> isWanted_{false};
  std::counting_semaphore<> wake_{0};
  std::jthread thread_;
};

}  // namespace kestrel
