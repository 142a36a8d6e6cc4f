#include "media/SoundPump.h"

#include <utility>

namespace kestrel {

void SoundPump::start(std::function<void()> work) {
  const std::lock_guard guard(control_);
  if (thread_.joinable()) return;
  isRunning_ = true;
  thread_ = std::jthread(
      [this, work = std::move(work)](const std::stop_token& stop) { run(stop, work); });
}

void SoundPump::stop() {
  const std::lock_guard guard(control_);
  if (!thread_.joinable()) return;
  isRunning_ = false;
  thread_.request_stop();
  wake_.release();
  thread_.join();
  thread_ = {};
}

void SoundPump::request() {
  if (!isWanted_.exchange(true)) wake_.release();
}

void SoundPump::run(const std::stop_token& stop, const std::function<void()>& work) {
  for (;;) {
    wake_.acquire();
    if (stop.stop_requested()) return;
    isWanted_ = false;
    work();
  }
}

}  // namespace kestrel
