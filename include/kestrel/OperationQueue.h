#pragma once

#include <kestrel/Export.h>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace kestrel {

/// One piece of work that runs once, on a queue or wherever `start` is called.
///
/// An operation belongs to whoever holds it; a queue holds it until it has run. An exception that
/// leaves the work ends the operation and goes no further. All public members are safe from any
/// thread.
class KESTREL_API Operation {
 public:
  Operation() = default;
  virtual ~Operation() = default;
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;

  /// Runs the work on the calling thread and returns when it is done. Does nothing when the
  /// operation has been started before, there or elsewhere: work that was started inline is skipped
  /// by a queue that holds it too.
  void start();

  /// Blocks until the work has ended, whoever runs it. Never returns for an
  /// operation that nobody starts, or one that is queued behind the caller on a serial queue.
  /// Called from within the work itself it returns at once.
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
  std::thread::id executor_;  ///< the thread that runs the work, while it runs
};

/// An operation that runs a function and then lets go of it, so that what the function holds is
/// released by the time the operation is finished. An empty function is work without effect.
class KESTREL_API BlockOperation : public Operation {
 public:
  explicit BlockOperation(std::function<void()> block);

 protected:
  void main() override;

 private:
  std::function<void()> block_;
};

/// Runs operations in the order in which they were added, at most so many at a time.
///
/// A queue is serial until another count is set. Its threads start with the first operation that
/// needs them and sleep when there is none; the destructor runs what is still queued and ends them.
/// A queue may even be destroyed by one of its own operations: what is still queued then runs
/// within the destructor.
///
/// All members are safe from any thread; nothing may be called once the destructor runs, except by
/// the operations that it drains.
class KESTREL_API OperationQueue {
 public:
  OperationQueue();
  ~OperationQueue();
  OperationQueue(const OperationQueue&) = delete;
  OperationQueue& operator=(const OperationQueue&) = delete;

  /// How many operations may run at the same time; a count below 1 counts as 1. Operations that
  /// already run are not interrupted by a lower count.
  void setMaxConcurrentOperationCount(int count);
  int maxConcurrentOperationCount() const;

  /// Appends an operation; nothing for null.
  void addOperation(std::shared_ptr<Operation> operation);
  /// Appends a function as an operation of its own.
  void addOperation(std::function<void()> block);

  /// Blocks until nothing is queued or running, what other threads add meanwhile included. Called
  /// by an operation of this queue, which would wait for itself, it returns at once.
  void waitUntilAllOperationsAreFinished();

  /// True on a thread that is running an operation of this queue.
  bool isCurrentQueue() const;

 private:
  class Engine;
  std::shared_ptr<Engine> engine_;
};

}  // namespace kestrel
