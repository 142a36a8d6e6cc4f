#pragma once

#include <string>
#include <utility>

#include "ExitStatus.h"

/// What ends a command: thrown anywhere, caught by `main`, which prints `kestrel: MESSAGE` to
/// standard error and exits with the status.
///
/// The message is one sentence without a full stop, with the name of the file or option that it is
/// about in it: "cannot open 'x.mp4': No such file or directory".
struct Failure {
  int status = kFailed;
  std::string message;
};

/// A failure by wrong usage; `main` adds where help is found.
inline Failure wrongUsage(std::string message) { return {kWrongUsage, std::move(message)}; }
