#pragma once

#include <kestrel/Export.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace kestrel {

/// Thrown by `Task::launch` if a program cannot be started; `what()` is one sentence.
class TaskError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Another program, run as a separate process.
///
/// Set path and arguments, call `launch` once, then wait for the program or end it. No shell is
/// involved: arguments are passed unchanged. The program inherits the environment and the standard
/// files, but no other open file, and starts with default signal handling. Destroying the object
/// does not end the program.
///
/// Call `launch` from one thread; everything else is safe from any.
class KESTREL_API Task {
 public:
  Task();
  ~Task();
  Task(const Task&) = delete;
  Task& operator=(const Task&) = delete;

  std::string launchPath() const;
  void setLaunchPath(const std::string& path);

  /// The arguments, without the program's name.
  std::vector<std::string> arguments() const;
  void setArguments(std::vector<std::string> arguments);

  /// Starts the program and returns. Throws `TaskError` if the program does not exist or cannot be
  /// run, or if the task has already been launched.
  void launch();

  /// The process id; 0 before the launch.
  int64_t processIdentifier() const;

  /// True if it has been launched and has not ended.
  bool isRunning() const;

  /// Blocks until the program has ended; returns immediately if none is running.
  void waitUntilExit();

  /// Asks the running program to end (SIGTERM); does nothing if none is running.
  void terminate();

  /// The exit status, or 128 + n after signal n. 0 until `isRunning`, `waitUntilExit` or
  /// `terminate` has noticed the end. `kUnknownStatus` if the host ignores SIGCHLD, so that the
  /// system discards exit statuses.
  int terminationStatus() const;
  static constexpr int kUnknownStatus = -1;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace kestrel
