#pragma once

#include <kestrel/convert/Batch.h>

#include "tools/terminal/ProgressDisplay.h"

/// How the results of many conversions are told.
struct ManySettings {
  ProgressDisplay::Style progress = ProgressDisplay::Style::kBar;
  bool asJson = false;   ///< one document instead of a table
  bool isQuiet = false;  ///< neither, and of what is lost nothing
};

/// Converts many files, each as the batch says, and prints what became of each on standard output.
/// Answers the worst of their statuses.
int convertMany(const kestrel::Batch& batch, const ManySettings& settings);
