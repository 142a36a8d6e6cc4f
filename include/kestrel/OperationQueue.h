#pragma once

#include <kestrel/Export.h>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace kestrel {

/// A piece of work that runs once, on a queue or in `start`.
///
/// An operation belongs to its holders; a queue holds it until it has run. An exception thrown by
/// the work ends the operation and is discarded. All public members are safe from any thread.
class KESTREL_API Operation {
 public:
  Operation() = default;
  virtual ~Operation() = default;
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;

  /// Runs the work on the calling thread and returns when it is done. Does nothing if the operation
  /// has already been started anywhere: a queue skips an operation that was started directly.
  void start();

  /// Blocks until the work has ended on whichever thread. Never returns if nobody starts the
  /// operation, or if it is queued behind the caller on a serial queue. Returns immediately if
  /// called by the work itself.
  void waitUntilFinished();

  bool isFinished() const;

 protected:
  /// The work.
  virtual void main() = 0;

 private:
  enum class State { kReady, kExecuting, kFinished };

  mutable std::mutex mutex_;
  std::condition_variable finished_;
  State state_ = State::kReady;
  std::thread::id executor_;  ///< while the work runs, its thread
};

/// An operation that runs a function and then destroys it, so that what it holds is released before
/// the operation is finished. An empty function does nothing.
class KESTREL_API BlockOperation : public Operation {
 public:
  explicit BlockOperation(std::function<void()> block);

 protected:
  void main() override;

 private:
  std::function<void()> block_;
};

/// Runs operations in the order in which they were added, up to a maximum number at a time.
///
/// A queue is serial by default. Threads start when operations need them and sleep when there are
/// none. The destructor runs what is still queued and ends the threads. A queue may be destroyed by
/// one of its own operations; what is still queued then runs inside the destructor.
///
/// All members are safe from any thread. Once the destructor runs, only operations that it runs may
/// call them.
class KESTREL_API OperationQueue {
 public:
  OperationQueue();
  ~OperationQueue();
  OperationQueue(const OperationQueue&) = delete;
  OperationQueue& operator=(const OperationQueue&) = delete;

  /// The maximum number of operations that run at the same time; values below 1 count as 1. A lower
  /// number does not affect operations that are already running.
  void setMaxConcurrentOperationCount(int count);
  int maxConcurrentOperationCount() const;

  /// Appends an operation. Null does nothing.
  void addOperation(std::shared_ptr<Operation> operation);
  /// Appends a function as an operation.
  void addOperation(std::function<void()> block);

  /// Blocks until nothing is queued or running, including what other threads add in the meantime.
  /// Returns immediately if called by an operation of this queue, which would wait for itself.
  void waitUntilAllOperationsAreFinished();

  /// True on a thread that is running an operation of this queue.
  bool isCurrentQueue() const;

 private:
  class Engine;
  std::shared_ptr<Engine> engine_;
};

}  // namespace kestrel
