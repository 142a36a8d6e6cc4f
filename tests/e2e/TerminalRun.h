#pragma once

#include <sys/types.h>
#include <termios.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace kestrel::test {

/// A program that runs on a terminal of its own, which the test types on and looks at. Nothing is
/// waited for by the clock: a text that never comes ends in an exception after a minute or more.
class TerminalRun {
 public:
  /// `environment`: "NAME=value" entries that join the test's own.
  explicit TerminalRun(const std::vector<std::string>& arguments,
                       const std::vector<std::string>& environment = {});
  /// Kills the program if it still runs.
  ~TerminalRun();
  TerminalRun(const TerminalRun&) = delete;
  TerminalRun& operator=(const TerminalRun&) = delete;

  void type(const std::string& bytes) const;
  void signal(int number) const;
  /// Sends a signal to what runs in front on the terminal, as a job of the program's.
  void signalForeground(int number) const;

  /// Waits until something is shown, after what was waited for before, that a regular expression
  /// matches, and answers its first group, or all of it.
  std::string waitFor(const std::string& pattern);

  /// Waits until all that was shown so far is as it should be.
  void waitUntil(const std::function<bool(const std::string& output)>& isReached);

  /// Waits until the program ends; its exit status, or 128 + n after signal n.
  int wait();

  /// All that was shown so far.
  const std::string& output() const { return output_; }

  /// The terminal's settings now, and as they were at first.
  termios settings() const;
  const termios& firstSettings() const { return first_; }

 private:
  bool readSome();

  pid_t pid_ = -1;
  int terminal_ = -1;
  int other_ = -1;  // keeps the terminal open when the program has ended
  termios first_{};
  std::string output_;
  size_t seen_ = 0;
};

/// Whether two settings of a terminal are the same where a program may change them.
bool isSame(const termios& a, const termios& b);

}  // namespace kestrel::test
