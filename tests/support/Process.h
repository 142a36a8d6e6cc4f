#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace kestrel::test {

/// What a finished program left: its exit status (128 + n after signal n) and all it wrote.
struct RunResult {
  int status = 0;
  std::string out;
  std::string err;
};

struct RunOptions {
  /// Where the program starts; empty: where the test runs.
  std::filesystem::path workingDirectory = {};
  /// "NAME=value" entries that replace or join the test's own environment.
  std::vector<std::string> environment = {};
  /// What standard input reads from.
  std::filesystem::path input = "/dev/null";
  /// A program that runs longer is killed, and its status is 128 + SIGKILL.
  std::chrono::seconds timeLimit{300};
};

/// A running child program, started without a shell. One thread uses it at a time.
class Process {
 public:
  /// Starts `arguments[0]`, looked up in PATH when it has no slash. Throws std::system_error when
  /// it cannot be started.
  explicit Process(const std::vector<std::string>& arguments, const RunOptions& options = {});
  /// Kills the program if it still runs.
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  pid_t pid() const { return pid_; }

  /// Sends a signal, unless the program has already been waited for.
  void signal(int number) const;

  /// Reads all that the program writes until it ends. Call it once.
  RunResult wait();

 private:
  int reap();

  pid_t pid_ = -1;
  int out_ = -1;
  int err_ = -1;
  std::chrono::steady_clock::time_point deadline_;
};

/// Runs a program to its end.
RunResult run(const std::vector<std::string>& arguments, const RunOptions& options = {});

}  // namespace kestrel::test
