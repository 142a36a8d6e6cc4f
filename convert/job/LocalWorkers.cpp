#include <kestrel/Task.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Job.h>

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <exception>
#include <thread>
#include <vector>

#include "convert/job/JobStand.h"

namespace kestrel {

namespace {

constexpr std::chrono::milliseconds kPoll{20};
constexpr std::chrono::milliseconds kTelling{300};

/// What a shell answers for a program that a signal has ended is above this.
constexpr int kSignalled = 128;

/// Makes a part in a process of its own.
std::optional<JobFailure> makeElsewhere(const std::string& program, const std::string& folder,
                                        const std::string& part, const Interrupt& interrupt) {
  Task task;
  task.setLaunchPath(program);
  task.setArguments({"job", "work", folder, "--part", part});
  try {
    task.launch();
  } catch (const TaskError& error) {
    return JobFailure{error.what()};
  }
  bool isEnded = false;
  while (task.isRunning()) {
    if (!isEnded && interrupt && interrupt()) {
      isEnded = true;
      task.terminate();
    }
    std::this_thread::sleep_for(kPoll);
  }
  const int status = task.terminationStatus();
  if (status == 0 || isEnded) return std::nullopt;
  if (status <= kSignalled)
    return JobFailure{fmt::format("its process ended with status {}", status)};
  return JobFailure{fmt::format("its process was ended by signal {}", status - kSignalled),
                    status == kSignalled + SIGKILL || status == kSignalled + SIGTERM ||
                        status == kSignalled + SIGINT};
}

/// A job's status with what each worker alone knows: problems that could not be noted.
JobStatus inAll(JobStatus status, const std::vector<JobStatus>& statuses) {
  for (const JobStatus& other : statuses)
    for (size_t i = 0; i < status.parts.size(); ++i)
      if (status.parts[i].state != JobPart::State::kDone &&
          other.parts[i].state == JobPart::State::kPoison)
        status.parts[i] = other.parts[i];
  return status;
}

}  // namespace

JobStatus workJobLocally(const std::string& folder, const LocalWorkers& workers,
                         const Events& events) {
  const int count = workers.count != 0
                        ? workers.count
                        : std::clamp(static_cast<int>(std::thread::hardware_concurrency()), 1, 64);
  if (count < 1 || count > 64) throw Failure::settings("count: from 1 to 64 workers", "jobs");
  std::atomic<bool> hasFailed = false;
  std::vector<std::exception_ptr> failures(static_cast<size_t>(count));
  std::vector<JobStatus> statuses(failures.size());
  std::atomic<int> running = count;
  const Events own{.interrupt = [&] { return hasFailed || events.isInterrupted(); }};
  JobWorker worker;
  if (!workers.program.empty())
    worker.makePart = [&](const std::string& part) {
      return makeElsewhere(workers.program, folder, part, own.interrupt);
    };
  std::vector<std::jthread> threads;
  for (size_t i = 0; i < failures.size(); ++i)
    threads.emplace_back([&, i] {
      try {
        statuses[i] = workJob(folder, worker, own);
      } catch (...) {
        failures[i] = std::current_exception();
        hasFailed = true;
      }
      --running;
    });
  while (running > 0) {
    if (events.progress) events.progress(progressOf(jobStatus(folder)));
    for (auto left = kTelling; running > 0 && left > kPoll; left -= kPoll)
      std::this_thread::sleep_for(kPoll);
  }
  threads.clear();
  if (events.isInterrupted()) throw Failure::interrupted();
  for (const std::exception_ptr& failure : failures)
    if (failure) std::rethrow_exception(failure);
  return inAll(jobStatus(folder), statuses);
}

}  // namespace kestrel
