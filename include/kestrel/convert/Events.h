#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace kestrel {

/// A question that long waits ask often, from several threads: true ends the work soon. An empty
/// function means: never.
///
/// What answers a `Report` (`Conversion::run`, `join`, `compose` and the calls that write pictures
/// or waveforms) then answers one that says `kInterrupted`; what answers anything else
/// (`Conversion::plan`, `Pictures`, `Player`, `readMediaInfo`) throws a `Failure` that does.
using Interrupt = std::function<bool()>;

/// How far a piece of work is.
struct Progress {
  double time = 0;                      ///< seconds of the result that are done
  std::optional<double> duration = {};  ///< seconds of the whole result, where known
  int64_t pictures = 0;                 ///< pictures done
};

/// What a host wants to be told and asked while something runs. Each member may be empty. What
/// `progress`, `note` and `table` throw ends the work and arrives at the caller; `interrupt` is
/// also asked from within libraries that know no exceptions, and throws none.
struct Events {
  Interrupt interrupt = {};

  /// Told of every piece of work, far more often than a person can read, on one of the threads that
  /// do the work.
  std::function<void(const Progress& progress)> progress = {};

  /// Told of a decision that people may want to know about, in a sentence without a full stop.
  std::function<void(const std::string& sentence)> note = {};

  /// Told by a join, before anything is written, what of its inputs fits and what does not: a line
  /// for each, drawn up as a table for people.
  std::function<void(const std::string& table)> table = {};

  bool isInterrupted() const { return interrupt && interrupt(); }
};

}  // namespace kestrel
