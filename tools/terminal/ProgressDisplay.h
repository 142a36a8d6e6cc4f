#pragma once

#include <kestrel/convert/Events.h>
#include <kestrel/convert/Report.h>

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

/// How far a piece of work is, in numbers that can be shown.
struct ProgressState {
  double time = 0;                      ///< seconds of the movie that are done
  std::optional<double> duration = {};  ///< seconds of the whole movie, where known
  int64_t frames = 0;                   ///< pictures done
  double elapsed = 0;                   ///< seconds since the work began
  bool isDone = false;

  double fps() const;    ///< pictures done per second, 0 at the very start
  double speed() const;  ///< seconds of movie per second, 0 at the very start
  std::optional<double> percent() const;
  std::optional<double> secondsLeft() const;
};

/// One line of JSON, without a line end: time, duration, percent, frames, fps, speed, eta (unknown
/// ones null) and, in the last one only, done.
/// `input`, where it is given, comes first: the file that is read.
std::string progressJson(const ProgressState& state, const std::string& input = {});

/// One line of text for a terminal of `columns` columns, which it never fills quite.
std::string progressBar(const ProgressState& state, int columns);

/// Tells the user on standard error how far a conversion is: by a bar, only on a terminal and gone
/// at the end; by lines of JSON; or not at all. Safe from any thread.
class ProgressDisplay {
 public:
  enum class Style { kBar, kJson, kNone };

  explicit ProgressDisplay(Style style);
  /// Clears the bar.
  ~ProgressDisplay();
  ProgressDisplay(const ProgressDisplay&) = delete;
  ProgressDisplay& operator=(const ProgressDisplay&) = delete;

  /// So much is done. Cheap: what is shown changes no more than ten times a second.
  void update(const kestrel::Progress& progress);

  /// Events that show the progress here, end the work when the program is interrupted, and tell
  /// nothing else. Valid as long as this is.
  kestrel::Events events();

  /// The work has come to its end: the bar goes, JSON gets its last line. Once.
  void finish();

 private:
  using Clock = std::chrono::steady_clock;

  void show();
  void clearBar();

  const Style style_;
  const Clock::time_point begin_ = Clock::now();
  std::mutex lock_;
  ProgressState state_;
  Clock::time_point nextShow_ = begin_;
  bool isBarShown_ = false;
};

/// A bar is shown on a terminal only.
ProgressDisplay::Style shownStyle(ProgressDisplay::Style wanted);

/// How wide the terminal at standard error is, or is taken to be.
int terminalColumns();

/// The work's end: its progress goes, and what `finish` says of a report is said. Answers the exit
/// status.
int finish(ProgressDisplay& progress, const kestrel::Report& report);
