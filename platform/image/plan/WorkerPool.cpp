#include "platform/image/plan/WorkerPool.h"

#include <algorithm>
#include <system_error>

namespace kestrel {

WorkerPool& WorkerPool::shared() {
  static WorkerPool pool;
  return pool;
}

WorkerPool::~WorkerPool() {
  for (std::jthread& thread : threads_) thread.request_stop();
  threads_.clear();
}

void WorkerPool::runJob(Job& job, int threads) {
  job.most = std::clamp(std::min(threads, job.tasks), 1, kMostThreads);
  if (job.most == 1) {
    for (int task = 0; task < job.tasks; ++task) job.call(job.context, task, 0);
    return;
  }
  std::unique_lock lock(mutex_);
  while (static_cast<int>(threads_.size()) < job.most - 1) {
    try {
      threads_.emplace_back([this](const std::stop_token& stop) { serve(stop); });
    } catch (const std::system_error&) {
      break;  // the threads that are there do the work
    }
  }
  job.after = jobs_;
  jobs_ = &job;
  workToDo_.notify_all();
  work(job, 0, lock);
  remove(job);
  workDone_.wait(lock, [&job] { return job.running == 0; });
}

void WorkerPool::work(Job& job, int worker, std::unique_lock<std::mutex>& lock) {
  while (job.next < job.tasks) {
    const int task = job.next++;
    lock.unlock();
    job.call(job.context, task, worker);
    lock.lock();
  }
}

void WorkerPool::serve(const std::stop_token& stop) {
  std::unique_lock lock(mutex_);
  while (workToDo_.wait(lock, stop, [this] { return openJob() != nullptr; })) {
    Job& job = *openJob();
    ++job.running;
    work(job, job.workers++, lock);
    if (--job.running == 0) workDone_.notify_all();
  }
}

WorkerPool::Job* WorkerPool::openJob() {
  for (Job* job = jobs_; job; job = job->after) {
    if (job->next < job->tasks && job->workers < job->most) return job;
  }
  return nullptr;
}

void WorkerPool::remove(const Job& job) {
  Job** link = &jobs_;
  while (*link != &job) link = &(*link)->after;
  *link = job.after;
}

}  // namespace kestrel
