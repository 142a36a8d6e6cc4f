#pragma once

#include <kestrel/Export.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace kestrel {

/// What `Task::launch` throws when a program cannot be started; `what()` is one sentence.
class TaskError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Another program, run as a process of its own.
///
/// Set the path and arguments, `launch` once, then wait for its end or end it. No shell is
/// involved: arguments arrive as they are. The program has this one's environment and standard
/// files, no other open file, and every signal as a new program finds it. Released earlier, the
/// object lets the program run on.
///
/// `launch` is called by one thread; the rest is safe from any.
class KESTREL_API Task {
 public:
  Task();
  ~Task();
  Task(const Task&) = delete;
  Task& operator=(const Task&) = delete;

  std::string launchPath() const;
  void setLaunchPath(const std::string& path);

  /// The arguments after the program's own name.
  std::vector<std::string> arguments() const;
  void setArguments(std::vector<std::string> arguments);

  /// Starts the program and returns. Throws `TaskError` when there is no such program, when it
  /// cannot be run, and when the task has been launched before.
  void launch();

  /// The process's number, 0 before the launch.
  int64_t processIdentifier() const;

  /// It has been launched and has not ended.
  bool isRunning() const;

  /// Blocks until the program has ended; returns at once when none was launched.
  void waitUntilExit();

  /// Asks the program to end (SIGTERM); nothing unless it runs.
  void terminate();

  /// What the program answered, 128 + n after signal n; 0 while it has not ended. `kUnknownStatus`
  /// where the host has the system discard exit statuses (it ignores SIGCHLD).
  int terminationStatus() const;
  static constexpr int kUnknownStatus = -1;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace kestrel
