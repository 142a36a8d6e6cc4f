#pragma once

#include <kestrel/convert/Batch.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "tools/terminal/ProgressDisplay.h"

/// Tells the user on standard error how far each of many jobs is: a line for each that runs, only
/// on a terminal and gone at the end; lines of JSON, which name the input; or nothing. What is
/// wrong with a job is said when it ends.
class BatchDisplay {
 public:
  /// `tells`: what of an input is not in its result is said, too.
  BatchDisplay(ProgressDisplay::Style style, std::vector<kestrel::BatchJob> jobs, bool tells);
  /// Clears the lines.
  ~BatchDisplay();
  BatchDisplay(const BatchDisplay&) = delete;
  BatchDisplay& operator=(const BatchDisplay&) = delete;

  /// Events that show the jobs here and end them when the program is interrupted. Valid as long as
  /// this is.
  kestrel::BatchEvents events();

 private:
  using Clock = std::chrono::steady_clock;

  struct Running {
    Clock::time_point begin = Clock::now();
    ProgressState state = {};
  };

  void update(size_t job, const kestrel::Progress& progress);
  void end(size_t job, const kestrel::BatchResult& result);
  void sayOf(const std::string& sentence);
  void show();
  void clear();
  std::string lineOf(size_t job, const ProgressState& state, int columns) const;

  const ProgressDisplay::Style style_;
  const std::vector<kestrel::BatchJob> jobs_;
  const bool tells_;
  std::map<size_t, Running> running_;
  Clock::time_point nextShow_ = Clock::now();
  int shownLines_ = 0;
};
