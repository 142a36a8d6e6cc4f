#pragma once

#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>

namespace kestrel {

/// One thread that runs jobs in order, with a bound on how many wait: whoever brings more is held
/// back until there is room. A job that throws ends the queue; the exception comes out at the next
/// `push` or at `finish`.
class JobQueue {
 public:
  explicit JobQueue(size_t mostWaiting);
  /// Drops what waits and lets the running job end.
  ~JobQueue();
  JobQueue(const JobQueue&) = delete;
  JobQueue& operator=(const JobQueue&) = delete;

  void push(std::function<void()> job);

  /// Waits until everything pushed has run.
  void finish();

 private:
  void run();
  void rethrow();

  const size_t mostWaiting_;
  std::mutex lock_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> jobs_;
  std::exception_ptr failure_;
  bool isRunningJob_ = false;
  bool stopped_ = false;
  std::jthread thread_;  // last: starts when all else is there
};

}  // namespace kestrel
