#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace kestrel {

/// Polled often during long work, from several threads: returning true ends the work soon. An empty
/// function never does.
///
/// Calls that return a `Report`, or a record with one (`Conversion::run`, `join`, `compose`, those
/// that write pictures or waveforms), then say in it `kInterrupted`; all others
/// (`Conversion::plan`, `Pictures`, `Player`, `readMediaInfo`) throw a `Failure` of that kind.
using Interrupt = std::function<bool()>;

/// How far a piece of work is.
struct Progress {
  double time = 0;                      ///< seconds of the result that are done
  std::optional<double> duration = {};  ///< seconds of the whole result, where known
  int64_t pictures = 0;                 ///< pictures done
};

/// What a host wants to be told and asked while something runs. Each member may be empty. What
/// `progress`, `note` and `table` throw ends the work and reaches the caller. `interrupt` must not
/// throw: it is also called by libraries that know no exceptions.
struct Events {
  Interrupt interrupt = {};

  /// Told of every piece of work, far more often than a person can read, on one of the threads that
  /// do the work.
  std::function<void(const Progress& progress)> progress = {};

  /// Told of a decision that people may want to know about, in a sentence without a full stop.
  std::function<void(const std::string& sentence)> note = {};

  /// Called once by a join, before anything is written, with a table to be shown to people: a line
  /// of text for each input, which says where it starts and whether it fits the first one, or else
  /// in what it differs.
  std::function<void(const std::string& table)> table = {};

  bool isInterrupted() const { return interrupt && interrupt(); }
};

}  // namespace kestrel
