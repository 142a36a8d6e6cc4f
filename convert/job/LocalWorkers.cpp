#include <kestrel/Bundle.h>
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
  if (status <= kSignalled || isEnded) return std::nullopt;
  return JobFailure{fmt::format("its process was ended by signal {}", status - kSignalled),
                    status == kSignalled + SIGKILL || status == kSignalled + SIGTERM ||
                        status == kSignalled + SIGINT};
}

}  // namespace

JobStatus workJobLocally(const std::string& folder, const LocalWorkers& workers,
                         const Events& events) {
  const int count = workers.count != 0
                        ? workers.count
                        : std::clamp(static_cast<int>(std::thread::hardware_concurrency()), 1, 64);
  if (count < 1 || count > 64) throw Failure::settings("count: from 1 to 64 workers", "jobs");
  const std::string program =
      workers.program.empty() ? Bundle::mainBundle().executablePath() : workers.program;
  std::atomic<bool> hasFailed = false;
  std::vector<std::exception_ptr> failures(static_cast<size_t>(count));
  std::atomic<int> running = count;
  const Events own{.interrupt = [&] { return hasFailed || events.isInterrupted(); }};
  std::vector<std::jthread> threads;
  for (std::exception_ptr& failure : failures)
    threads.emplace_back([&] {
      try {
        workJob(folder,
                {.makePart =
                     [&](const std::string& part) {
                       return makeElsewhere(program, folder, part, own.interrupt);
                     }},
                own);
      } catch (...) {
        failure = std::current_exception();
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
  return jobStatus(folder);
}

}  // namespace kestrel
