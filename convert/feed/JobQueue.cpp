#include "convert/feed/JobQueue.h"

#include <utility>

namespace kestrel {

JobQueue::JobQueue(size_t mostWaiting) : mostWaiting_(mostWaiting), thread_([this] { run(); }) {}

JobQueue::~JobQueue() {
  const std::lock_guard guard(lock_);
  stopped_ = true;
  jobs_.clear();
  changed_.notify_all();
}

void JobQueue::push(std::function<void()> job) {
  std::unique_lock guard(lock_);
  changed_.wait(guard, [this] { return failure_ || jobs_.size() < mostWaiting_; });
  rethrow();
  jobs_.push_back(std::move(job));
  changed_.notify_all();
}

void JobQueue::finish() {
  std::unique_lock guard(lock_);
  changed_.wait(guard, [this] { return failure_ || (jobs_.empty() && !isRunningJob_); });
  rethrow();
}

void JobQueue::rethrow() {
  if (failure_) std::rethrow_exception(failure_);
}

void JobQueue::run() {
  std::unique_lock guard(lock_);
  for (;;) {
    changed_.wait(guard, [this] { return stopped_ || !jobs_.empty(); });
    if (stopped_) return;
    auto job = std::move(jobs_.front());
    jobs_.pop_front();
    isRunningJob_ = true;
    changed_.notify_all();  // there is room
    guard.unlock();
    std::exception_ptr failure;
    try {
      job();
    } catch (...) {
      failure = std::current_exception();
    }
    job = nullptr;
    guard.lock();
    isRunningJob_ = false;
    if (failure) {
      failure_ = failure;
      stopped_ = true;
    }
    changed_.notify_all();
  }
}

}  // namespace kestrel
