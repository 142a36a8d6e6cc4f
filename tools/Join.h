#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Convert.h"
#include "Progress.h"

/// One input of a join.
struct JoinInput {
  std::string path;
  double position = -1;  ///< where it starts in the output, seconds; below 0: right behind
  double rate = 1;       ///< how fast it plays
};

/// How files are to be joined into one; `{}` beside inputs and output means the defaults.
struct JoinSettings {
  enum class Reencode {
    kAuto,    ///< only where packets do not fit together
    kNever,   ///< fail where they do not
    kAlways,  ///< whether they do or not
  };

  std::vector<JoinInput> inputs;
  std::string output;
  bool force = false;  ///< replace an existing target
  Reencode reencode = Reencode::kAuto;

  /// The format asked for, for what is encoded anew: codecs, size, rates. What is left open is the
  /// first input's.
  ConvertSettings format;

  /// Whether that includes the first input's codecs; else they are the container's.
  bool keepsCodecs = true;

  Progress::Style progress = Progress::Style::kBar;

  /// Told what fits and what does not, as a table; empty: nobody.
  std::function<void(const std::string& table)> showTable;

  /// Told which way the join goes and why, in one line; empty: nobody.
  std::function<void(const std::string& sentence)> say;
};

/// Joins and answers the exit status; throws `Failure` when it can't.
int joinFiles(const JoinSettings& settings);
