#pragma once

#include <condition_variable>
#include <mutex>
#include <stop_token>
#include <thread>
#include <vector>

namespace kestrel {

/// Threads that the whole process shares for work that falls into independent tasks.
///
/// Any thread may hand out work at any time; several hand-outs run side by side. Once the threads
/// run, handing out allocates nothing.
class WorkerPool {
 public:
  static constexpr int kMostThreads = 64;

  static WorkerPool& shared();

  WorkerPool() = default;
  ~WorkerPool();
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  /// Calls `work(task, worker)` for each task from 0 to `tasks` - 1, on the calling thread and up
  /// to `threads` - 1 others, and returns when all are done. `worker` is below `threads`, and no
  /// two calls with the same one run at a time; the calling thread is worker 0. `work` throws
  /// nothing.
  template <typename Work>
  void run(int tasks, int threads, const Work& work) {
    Job job;
    job.context = &work;
    job.call = [](const void* context, int task, int worker) {
      (*static_cast<const Work*>(context))(task, worker);
    };
    job.tasks = tasks;
    runJob(job, threads);
  }

 private:
  struct Job {
    const void* context = nullptr;
    void (*call)(const void* context, int task, int worker) = nullptr;
    int tasks = 0;
    int next = 0;     ///< the first task that nobody took
    int workers = 1;  ///< numbers given out so far
    int most = 1;     ///< numbers there are
    int running = 0;  ///< pool threads that work on it
    Job* after = nullptr;
  };

  void runJob(Job& job, int threads);
  void work(Job& job, int worker, std::unique_lock<std::mutex>& lock);
  void serve(const std::stop_token& stop);
  Job* openJob();
  void remove(const Job& job);

  std::mutex mutex_;
  std::condition_variable_any workToDo_;
  std::condition_variable_any workDone_;
  Job* jobs_ = nullptr;
  std::vector<std::jthread> threads_;
};

}  // namespace kestrel
