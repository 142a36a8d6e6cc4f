#include "tests/support/Process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

namespace kestrel::test {
namespace {

using Clock = std::chrono::steady_clock;

void check(int error, const std::string& what) {
  if (error != 0) throw std::system_error(error, std::generic_category(), what);
}

class FileActions {
 public:
  FileActions() { check(posix_spawn_file_actions_init(&actions_), "spawn actions"); }
  ~FileActions() { posix_spawn_file_actions_destroy(&actions_); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;

  posix_spawn_file_actions_t* get() { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
};

std::array<int, 2> makePipe() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) check(errno, "pipe");
  return ends;
}

std::vector<std::string> mergedEnvironment(const std::vector<std::string>& changes) {
  std::vector<std::string> result = changes;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string own = *entry;
    const std::string name = own.substr(0, own.find('=') + 1);
    const bool replaced = std::any_of(changes.begin(), changes.end(),
                                      [&](const std::string& c) { return c.starts_with(name); });
    if (!replaced) result.push_back(own);
  }
  return result;
}

std::vector<char*> pointers(std::vector<std::string>& strings) {
  std::vector<char*> result;
  result.reserve(strings.size() + 1);
  for (std::string& s : strings) result.push_back(s.data());
  result.push_back(nullptr);
  return result;
}

/// Appends what is there to `text`; closes the descriptor at its end.
void readSome(int& descriptor, std::string& text) {
  std::array<char, 65536> buffer;
  const ssize_t count = read(descriptor, buffer.data(), buffer.size());
  if (count > 0) {
    text.append(buffer.data(), static_cast<size_t>(count));
  } else if (count == 0 || errno != EINTR) {
    close(descriptor);
    descriptor = -1;
  }
}

int millisecondsUntil(Clock::time_point time) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(time - Clock::now());
  return static_cast<int>(std::clamp<int64_t>(left.count(), 0, 3'600'000));
}

}  // namespace

Process::Process(const std::vector<std::string>& arguments, const RunOptions& options)
    : deadline_(Clock::now() + options.timeLimit) {
  const auto out = makePipe();
  const auto err = makePipe();
  FileActions actions;
  posix_spawn_file_actions_addopen(actions.get(), 0, options.input.c_str(), O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(actions.get(), out[1], 1);
  posix_spawn_file_actions_adddup2(actions.get(), err[1], 2);
  if (!options.workingDirectory.empty()) {
    posix_spawn_file_actions_addchdir_np(actions.get(), options.workingDirectory.c_str());
  }

  std::vector<std::string> argumentStrings = arguments;
  std::vector<std::string> environmentStrings = mergedEnvironment(options.environment);
  const int error =
      posix_spawnp(&pid_, argumentStrings[0].c_str(), actions.get(), nullptr,
                   pointers(argumentStrings).data(), pointers(environmentStrings).data());
  close(out[1]);
  close(err[1]);
  out_ = out[0];
  err_ = err[0];
  if (error != 0) {
    close(out_);
    close(err_);
    check(error, arguments[0]);
  }
}

Process::~Process() {
  if (out_ >= 0) close(out_);
  if (err_ >= 0) close(err_);
  if (pid_ > 0) {
    signal(SIGKILL);
    reap();
  }
}

void Process::signal(int number) const {
  if (pid_ > 0) kill(pid_, number);
}

RunResult Process::wait() {
  RunResult result;
  while (out_ >= 0 || err_ >= 0) {
    std::array<pollfd, 2> ends{pollfd{out_, POLLIN, 0}, pollfd{err_, POLLIN, 0}};
    const int ready = poll(ends.data(), ends.size(), millisecondsUntil(deadline_));
    if (ready == 0) {
      signal(SIGKILL);
      break;
    }
    if (ready < 0) continue;
    if (ends[0].revents != 0) readSome(out_, result.out);
    if (ends[1].revents != 0) readSome(err_, result.err);
  }
  result.status = reap();
  return result;
}

int Process::reap() {
  int status = 0;
  while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  pid_ = -1;
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

RunResult run(const std::vector<std::string>& arguments, const RunOptions& options) {
  return Process(arguments, options).wait();
}

}  // namespace kestrel::test
