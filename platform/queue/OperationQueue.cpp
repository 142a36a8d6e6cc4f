#include <kestrel/OperationQueue.h>

#include <algorithm>
#include <deque>
#include <system_error>
#include <utility>
#include <vector>

namespace kestrel {

void Operation::start() {
  {
    const std::lock_guard lock(mutex_);
    if (state_ != State::kReady) return;
    state_ = State::kExecuting;
    executor_ = std::this_thread::get_id();
  }
  try {
    main();
  } catch (...) {
    // The work has ended all the same, and nobody up the stack could tell what it was about.
  }
  const std::lock_guard lock(mutex_);
  state_ = State::kFinished;
  executor_ = {};
  finished_.notify_all();
}

void Operation::waitUntilFinished() {
  std::unique_lock lock(mutex_);
  if (executor_ == std::this_thread::get_id()) return;
  finished_.wait(lock, [this] { return state_ == State::kFinished; });
}

bool Operation::isFinished() const {
  const std::lock_guard lock(mutex_);
  return state_ == State::kFinished;
}

BlockOperation::BlockOperation(std::function<void()> block) : block_(std::move(block)) {}

void BlockOperation::main() {
  const std::function<void()> block = std::exchange(block_, nullptr);
  if (block) block();
}

namespace {

/// The queue whose operations the thread runs; compared, never followed.
thread_local const void* currentEngine = nullptr;

}  // namespace

/// What a queue's threads work on. Each of them holds it, so that a thread whose operation destroys
/// the queue can still return through its own loop.
class OperationQueue::Engine : public std::enable_shared_from_this<Engine> {
 public:
  void setLimit(int count);
  int limit() const;
  void add(std::shared_ptr<Operation> operation);
  void waitUntilIdle();
  /// Runs what is queued, then ends the threads; nothing may be added from outside any more.
  void close();
  bool isCurrent() const { return currentEngine == this; }

 private:
  using Lock = std::unique_lock<std::mutex>;

  bool canRun() const { return !pending_.empty() && running_ < limit_; }
  bool isDone() const { return closing_ && pending_.empty(); }
  void startThreads();
  void work();
  void runPending(Lock& lock);
  void runFirst(Lock& lock);

  mutable std::mutex mutex_;
  std::condition_variable work_;  ///< for the threads: there may be something to run, or the end
  std::condition_variable idle_;  ///< for those who wait until there is nothing left
  std::deque<std::shared_ptr<Operation>> pending_;
  std::vector<std::jthread> threads_;
  size_t running_ = 0;
  size_t limit_ = 1;
  bool closing_ = false;
};

void OperationQueue::Engine::setLimit(int count) {
  const Lock lock(mutex_);
  limit_ = static_cast<size_t>(std::max(count, 1));
  startThreads();
  work_.notify_all();
}

int OperationQueue::Engine::limit() const {
  const Lock lock(mutex_);
  return static_cast<int>(limit_);
}

void OperationQueue::Engine::add(std::shared_ptr<Operation> operation) {
  Lock lock(mutex_);
  pending_.push_back(std::move(operation));
  startThreads();
  work_.notify_one();
  // A system that refuses even the first thread still gets its work done, by the caller.
  if (threads_.empty() && !closing_) runPending(lock);
}

/// As many threads as there is work for, within the limit; fewer when the system has no more.
void OperationQueue::Engine::startThreads() {
  if (closing_) return;
  try {
    while (threads_.size() < limit_ && threads_.size() < running_ + pending_.size()) {
      threads_.emplace_back([self = shared_from_this()] { self->work(); });
    }
  } catch (const std::system_error&) {
    // Those that there are take their work over.
  }
}

/// A thread's life.
void OperationQueue::Engine::work() {
  Lock lock(mutex_);
  while (!isDone()) {
    runPending(lock);
    work_.wait(lock, [this] { return canRun() || isDone(); });
  }
}

/// Runs operations here for as long as there are any and the limit admits one more.
void OperationQueue::Engine::runPending(Lock& lock) {
  const void* outer = std::exchange(currentEngine, this);
  while (canRun()) {
    ++running_;
    runFirst(lock);
    --running_;
  }
  currentEngine = outer;
  if (pending_.empty() && running_ == 0) idle_.notify_all();
  if (isDone()) work_.notify_all();
}

/// The operation is waited for, as somebody may have started it elsewhere, and let go of without
/// the lock, as that may be what ends it.
void OperationQueue::Engine::runFirst(Lock& lock) {
  std::shared_ptr<Operation> operation = std::move(pending_.front());
  pending_.pop_front();
  lock.unlock();
  operation->start();
  operation->waitUntilFinished();
  operation.reset();
  lock.lock();
}

void OperationQueue::Engine::waitUntilIdle() {
  if (isCurrent()) return;
  Lock lock(mutex_);
  idle_.wait(lock, [this] { return pending_.empty() && running_ == 0; });
}

void OperationQueue::Engine::close() {
  std::vector<std::jthread> threads;
  {
    Lock lock(mutex_);
    closing_ = true;
    work_.notify_all();
    if (isCurrent()) {
      // The operation that got here stands still meanwhile, so its place is free for another.
      ++limit_;
      runPending(lock);
    }
    threads.swap(threads_);
  }
  for (std::jthread& thread : threads) {
    if (thread.get_id() == std::this_thread::get_id()) {
      thread.detach();
    } else {
      thread.join();
    }
  }
}

OperationQueue::OperationQueue() : engine_(std::make_shared<Engine>()) {}

OperationQueue::~OperationQueue() { engine_->close(); }

void OperationQueue::setMaxConcurrentOperationCount(int count) { engine_->setLimit(count); }

int OperationQueue::maxConcurrentOperationCount() const { return engine_->limit(); }

void OperationQueue::addOperation(std::shared_ptr<Operation> operation) {
  if (operation) engine_->add(std::move(operation));
}

void OperationQueue::addOperation(std::function<void()> block) {
  engine_->add(std::make_shared<BlockOperation>(std::move(block)));
}

bool OperationQueue::isCurrentQueue() const { return engine_->isCurrent(); }

void OperationQueue::waitUntilAllOperationsAreFinished() { engine_->waitUntilIdle(); }

}  // namespace kestrel
